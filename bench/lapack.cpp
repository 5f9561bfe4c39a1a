// SPDX-License-Identifier: MIT
// LAPACK kernels and the entries above them, beside the reference LAPACK, OpenBLAS and plain loops. What a
// call overwrites is copied back before the next one, for every library alike.
#include <fmt/format.h>

#include <cstring>

#include "bench/bench.h"
#include "bench/dense_loops.h"
#include "bench/operands.h"
#include "zor/core.h"
#include "zor/lapack.h"

namespace zor_bench {
namespace {

using integer = int32_t;  // of the peers

const std::vector<peer>& lapack_peers() {
  static const std::vector<peer> found = load_peer(reference_lapack_adapter);
  return found;
}

void copy(const operand<double>& from, const operand<double>& to) {
  std::memcpy(to.data(), from.data(), size_t(from.count()) * sizeof(double));
}
operand<double> copy_of(const operand<double>& x, int page_slot) {
  const operand<double> y(x.count(), page_slot);
  copy(x, y);
  return y;
}

// The first contender with those others that leave the same result, but for rounding.
prepared checked(const operand<double>& result, const std::vector<contender>& all, double tolerance) {
  all[0].run(1);
  const operand<double> ours = copy_of(result, 0);
  return keep_agreeing(all, [&](const contender& other) {
    other.run(1);
    return close(ours, result, tolerance);
  });
}

bench_case named(const std::string& name, zor_int rows, zor_int columns, double flops_of_element) {
  bench_case c;
  c.name = name;
  c.flops = flops_of_element * double(rows) * double(columns);
  c.bytes = double(rows) * double(columns) * sizeof(double);
  return c;
}

// ---- Tridiagonal systems: a dominant matrix, its factors by either elimination, and right-hand sides.

struct tridiagonal {
  tridiagonal(zor_int n_, zor_int nrhs_)
      : n(n_),
        nrhs(nrhs_),
        dl(n, 0),
        d(n, 1),
        du(n, 2),
        b(n * nrhs, 3),
        l(n, 4),
        p(n, 5),
        u(n, 6),
        u2(n, 7),
        x(n * nrhs, 8),
        ipiv(n) {
    fill(dl, 1), fill(d, 2), fill(du, 3), fill(b, 4);
    for (zor_int i = 0; i < n; ++i) d.data()[i] += d.data()[i] < 0 ? -4 : 4;
    restore();
  }
  void restore() const {
    copy(dl, l), copy(d, p), copy(du, u);
    copy(b, x);
  }
  // Plain elimination from the top, in place of an LU with interchanges that makes none.
  void eliminate() const {
    for (zor_int i = 0; i < n - 1; ++i) {
      l.data()[i] = dl.data()[i] / p.data()[i];
      p.data()[i + 1] -= l.data()[i] * du.data()[i];
      u2.data()[i] = 0;
    }
    for (zor_int i = 0; i < n; ++i) ipiv[size_t(i)] = i + 1, pivots[size_t(i)] = integer(i + 1);
  }
  zor_int n, nrhs;
  operand<double> dl, d, du, b, l, p, u, u2, x;
  mutable std::vector<zor_int> ipiv;
  mutable std::vector<integer> pivots = std::vector<integer>(size_t(n));
};

using gttrf = void(const integer*, double*, double*, double*, double*, integer*, integer*);
using gttrs = void(const char*, const integer*, const integer*, const double*, const double*, const double*,
                   const double*, const integer*, double*, const integer*, integer*, size_t);
using gtsv = void(const integer*, const integer*, double*, double*, double*, double*, const integer*,
                  integer*);
using pttrs = void(const integer*, const integer*, const double*, const double*, double*, const integer*,
                   integer*);

bench_case factor_case(zor_int n) {
  bench_case c = named(fmt::format("ddttrf n={}", n), n, 1, 4);
  c.setup = [n] {
    const auto m = std::make_shared<tridiagonal>(n, 1);
    std::vector<contender> all = {{"zor", [m, n](int64_t repeats) {
                                     for (int64_t i = 0; i < repeats; ++i) {
                                       m->restore();
                                       zor_ddttrf(n, m->l.data(), m->p.data(), m->du.data());
                                     }
                                   }}};
    // Another factorisation: nothing to compare but that it ran.
    for (const peer& other : lapack_peers())
      if (auto* theirs = find_function<gttrf>(other, "dgttrf_"))
        all.push_back({other.name, [m, theirs](int64_t repeats) {
                         const integer order = integer(m->n);
                         integer info;
                         for (int64_t i = 0; i < repeats; ++i) {
                           m->restore();
                           theirs(&order, m->l.data(), m->p.data(), m->u.data(), m->u2.data(),
                                  m->pivots.data(), &info);
                         }
                       }});
    return prepared{all, {}, ""};
  };
  return c;
}

// Solves with factors, ours by `own`, LAPACK's by `theirs`; both leave the solution in x.
template <class Own, class Theirs>
bench_case solve_case(const std::string& name, zor_int n, zor_int nrhs, const Own& own,
                      const Theirs& theirs) {
  bench_case c = named(fmt::format("{} n={} nrhs={}", name, n, nrhs), n, nrhs, 5);
  c.setup = [=] {
    const auto ours = std::make_shared<tridiagonal>(n, nrhs), other = std::make_shared<tridiagonal>(n, nrhs);
    std::vector<contender> all = {own(ours)};
    for (const peer& p : lapack_peers()) theirs(p, other, ours->x, all);
    return checked(ours->x, all, 64);
  };
  return c;
}

contender own_dominant_solve(const std::shared_ptr<tridiagonal>& m) {
  zor_ddttrf(m->n, m->l.data(), m->p.data(), m->du.data());
  return {"zor", [m](int64_t repeats) {
            for (int64_t i = 0; i < repeats; ++i) {
              copy(m->b, m->x);
              zor_ddttrs('N', m->n, m->nrhs, m->l.data(), m->p.data(), m->du.data(), m->x.data(), m->n);
            }
          }};
}
contender own_lu_solve(const std::shared_ptr<tridiagonal>& m) {
  m->eliminate();
  return {"zor", [m](int64_t repeats) {
            const zor_int plain = 0;
            for (int64_t i = 0; i < repeats; ++i) {
              copy(m->b, m->x);
              zor_lapack_ps_dgtts2(&plain, &m->n, &m->nrhs, m->l.data(), m->p.data(), m->du.data(),
                                   m->u2.data(), m->ipiv.data(), m->x.data(), &m->n);
            }
          }};
}
void lu_solve_of(const peer& p, const std::shared_ptr<tridiagonal>& m, const operand<double>& x,
                 std::vector<contender>& all) {
  auto* solve = find_function<gttrs>(p, "dgttrs_");
  if (solve == nullptr) return;
  m->eliminate();
  all.push_back({p.name, [=](int64_t repeats) {
                   const integer order = integer(m->n), columns = integer(m->nrhs);
                   integer info;
                   for (int64_t i = 0; i < repeats; ++i) {
                     copy(m->b, x);
                     solve("N", &order, &columns, m->l.data(), m->p.data(), m->du.data(), m->u2.data(),
                           m->pivots.data(), x.data(), &order, &info, 1);
                   }
                 }});
}

// L D L^T of the symmetric matrix with dl on both sides: what both solves read.
void make_ldl(const tridiagonal& m) {
  for (zor_int i = 0; i < m.n; ++i) m.p.data()[i] = std::fabs(m.d.data()[i]);
}
contender own_ldl_solve(const std::shared_ptr<tridiagonal>& m) {
  make_ldl(*m);
  return {"zor", [m](int64_t repeats) {
            for (int64_t i = 0; i < repeats; ++i) {
              copy(m->b, m->x);
              zor_lapack_ps_dptts2(&m->n, &m->nrhs, m->p.data(), m->dl.data(), m->x.data(), &m->n);
            }
          }};
}
void ldl_solve_of(const peer& p, const std::shared_ptr<tridiagonal>& m, const operand<double>& x,
                  std::vector<contender>& all) {
  auto* solve = find_function<pttrs>(p, "dpttrs_");
  if (solve == nullptr) return;
  make_ldl(*m);
  all.push_back({p.name, [=](int64_t repeats) {
                   const integer order = integer(m->n), columns = integer(m->nrhs);
                   integer info;
                   for (int64_t i = 0; i < repeats; ++i) {
                     copy(m->b, x);
                     solve(&order, &columns, m->p.data(), m->dl.data(), x.data(), &order, &info);
                   }
                 }});
}

contender own_both(const std::shared_ptr<tridiagonal>& m) {
  return {"zor", [m](int64_t repeats) {
            for (int64_t i = 0; i < repeats; ++i) {
              m->restore();
              zor_ddtsv(m->n, m->nrhs, m->l.data(), m->p.data(), m->u.data(), m->x.data(), m->n);
            }
          }};
}
void both_of(const peer& p, const std::shared_ptr<tridiagonal>& m, const operand<double>& x,
             std::vector<contender>& all) {
  auto* solve = find_function<gtsv>(p, "dgtsv_");
  if (solve == nullptr) return;
  all.push_back({p.name, [=](int64_t repeats) {
                   const integer order = integer(m->n), columns = integer(m->nrhs);
                   integer info;
                   for (int64_t i = 0; i < repeats; ++i) {
                     m->restore();
                     copy(m->b, x);
                     solve(&order, &columns, m->l.data(), m->p.data(), m->u.data(), x.data(), &order, &info);
                   }
                 }});
}

// ---- Rotations.

using lasr = void(const char*, const char*, const char*, const integer*, const integer*, const double*,
                  const double*, double*, const integer*, size_t, size_t, size_t);

bench_case lasr_case(zor_int n, const char* name, const char* pivot, const char* direction,
                     decltype(zor_lapack_ps_dlasr_lvf)* kernel) {
  bench_case c = named(fmt::format("{} n={}", name, n), n, n, 6);
  c.setup = [=] {
    const operand<double> angles(n, 1), cs(n, 2), sn(n, 3), a(n * n, 0), start(n * n, 4);
    fill(angles, 1), fill(start, 2);
    for (zor_int i = 0; i < n; ++i)
      cs.data()[i] = std::cos(angles.data()[i]), sn.data()[i] = std::sin(angles.data()[i]);
    copy(start, a);
    std::vector<contender> all = {{"zor", [=](int64_t repeats) {
                                     for (int64_t i = 0; i < repeats; ++i)
                                       kernel(&n, &n, cs.data(), sn.data(), a.data(), &n);
                                   }}};
    for (const peer& other : lapack_peers())
      if (auto* theirs = find_function<lasr>(other, "dlasr_"))
        all.push_back({other.name, [=](int64_t repeats) {
                         const integer order = integer(n);
                         for (int64_t i = 0; i < repeats; ++i)
                           theirs("L", pivot, direction, &order, &order, cs.data(), sn.data(), a.data(),
                                  &order, 1, 1, 1);
                       }});
    // Each starts anew for the comparison; the rotations keep the size of what they are applied to again and
    // again.
    copy(start, a);
    all[0].run(1);
    const operand<double> ours = copy_of(a, 0);
    return keep_agreeing(all, [&](const contender& other) {
      copy(start, a);
      other.run(1);
      return close(ours, a, 64);
    });
  };
  return c;
}

bench_case vectors_case(bool reflector, zor_int n) {
  bench_case c = named(fmt::format("{} n={}", reflector ? "drot3" : "dlartv", n), n, 1, reflector ? 10 : 6);
  c.setup = [=] {
    const operand<double> x(n, 0), y(n, 1), z(n, 2), w(n, 3), start(3 * n, 4);
    fill(start, 1), fill(z, 2), fill(w, 3);
    const auto begin = [=] {
      std::memcpy(x.data(), start.data(), size_t(n) * sizeof(double));
      std::memcpy(y.data(), start.data() + n, size_t(n) * sizeof(double));
      if (reflector) std::memcpy(z.data(), start.data() + 2 * n, size_t(n) * sizeof(double));
    };
    // Rotations, and a reflector that is orthogonal: sizes stay.
    const double h1 = 0.5, h2 = -0.25, tau = 2 / (1 + h1 * h1 + h2 * h2);
    for (zor_int i = 0; i < n && !reflector; ++i) {
      const double angle = w.data()[i];
      z.data()[i] = std::cos(angle), w.data()[i] = std::sin(angle);
    }
    const zor_int one = 1;
    std::vector<contender> all = {
        {"zor", [=](int64_t repeats) {
           for (int64_t i = 0; i < repeats; ++i)
             if (reflector)
               zor_lapack_ps_drot3(&n, x.data(), &one, y.data(), &one, z.data(), &one, &tau, &h1, &h2);
             else
               zor_lapack_ps_dlartv(&n, x.data(), &one, y.data(), &one, z.data(), w.data(), &one);
         }}};
    if (dense_loop* loop = find_dense_loop()) {
      const dense_job job = {reflector ? dense_operation::reflector : dense_operation::rotations,
                             'd',
                             1,
                             n,
                             {tau, 0},
                             {h1, h2},
                             x.data(),
                             y.data(),
                             z.data(),
                             w.data()};
      all.push_back({"loop", [=, x = x, y = y, z = z, w = w](int64_t repeats) {
                       for (int64_t i = 0; i < repeats; ++i) loop(job);
                     }});
    }
    begin();
    all[0].run(1);
    const operand<double> ours = copy_of(x, 0);
    return keep_agreeing(all, [&](const contender& other) {
      begin();
      other.run(1);
      return close(ours, x, 16);
    });
  };
  return c;
}

// ---- Batches of small definite matrices. So large a diagonal stays positive when factors are factored again
// and again, so that nothing has to be copied between calls.

using potrf = void(const char*, const integer*, double*, const integer*, integer*, size_t);

bench_case batch_case(const environment& env, char uplo, zor_int n, zor_int count) {
  bench_case c =
      named(fmt::format("dpotrf_batch {} n={} count={}", uplo, n, count), n * n * n, count, 1.0 / 3);
  c.setup = [=, peers = env.peers, threads = env.opts.threads] {
    const operand<double> start(n * n * count, 0), a(n * n * count, 1);
    fill(start, 1);
    for (zor_int k = 0; k < count; ++k)
      for (zor_int j = 0; j < n; ++j) start.data()[k * n * n + j + j * n] += 1e6 * double(n);
    const auto info = std::make_shared<std::vector<zor_int>>(size_t(count));
    std::vector<contender> all = {{"zor", [=](int64_t repeats) {
                                     zor_core_set_num_threads(threads);
                                     for (int64_t i = 0; i < repeats; ++i)
                                       zor_dpotrf_batch(uplo, n, a.data(), n, n * n, count, info->data());
                                   }}};
    for (const peer& other : peers)
      if (auto* theirs = find_function<potrf>(other, "dpotrf_");
          theirs != nullptr && other.name == "OpenBLAS")
        all.push_back({other.name, [=](int64_t repeats) {
                         const integer order = integer(n);
                         integer failed;
                         for (int64_t i = 0; i < repeats; ++i)
                           for (zor_int k = 0; k < count; ++k)
                             theirs(&uplo, &order, a.data() + k * n * n, &order, &failed, 1);
                       }});
    copy(start, a);
    all[0].run(1);
    const operand<double> ours = copy_of(a, 2);
    return keep_agreeing(all, [&](const contender& other) {
      copy(start, a);
      other.run(1);
      return close(ours, a, 64);
    });
  };
  return c;
}

}  // namespace

std::vector<bench_case> lapack_cases(const environment& env) {
  const bool quick = env.opts.quick;
  std::vector<bench_case> cases;
  for (const zor_int n : quick ? std::vector<zor_int>{20} : std::vector<zor_int>{1000, 1000000}) {
    cases.push_back(factor_case(n));
    for (const zor_int nrhs : {1, 8}) {
      cases.push_back(solve_case("ddttrs", n, nrhs, own_dominant_solve, lu_solve_of));
      cases.push_back(solve_case("ddtsv", n, nrhs, own_both, both_of));
      cases.push_back(solve_case("dgtts2", n, nrhs, own_lu_solve, lu_solve_of));
      cases.push_back(solve_case("dptts2", n, nrhs, own_ldl_solve, ldl_solve_of));
    }
  }
  const zor_int order = quick ? 20 : 1000;
  cases.push_back(lasr_case(order, "dlasr_lvf", "V", "F", zor_lapack_ps_dlasr_lvf));
  cases.push_back(lasr_case(order, "dlasr_lvb", "V", "B", zor_lapack_ps_dlasr_lvb));
  cases.push_back(lasr_case(order, "dlasr_ltf", "T", "F", zor_lapack_ps_dlasr_ltf));
  cases.push_back(lasr_case(order, "dlasr_lbb", "B", "B", zor_lapack_ps_dlasr_lbb));
  for (const zor_int n : quick ? std::vector<zor_int>{33} : std::vector<zor_int>{100, 1000, 100000})
    for (const bool reflector : {false, true}) cases.push_back(vectors_case(reflector, n));
  for (const zor_int n : quick ? std::vector<zor_int>{8} : std::vector<zor_int>{8, 32, 64})
    for (const char uplo : {'L', 'U'}) cases.push_back(batch_case(env, uplo, n, quick ? 10 : 1000));
  return cases;
}

}  // namespace zor_bench
