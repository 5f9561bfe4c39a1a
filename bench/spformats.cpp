// SPDX-License-Identifier: MIT
// The sparse formats besides CSR, called directly on one thread: double with 32-bit indices, beside a plain
// loop and, for products, the CSR kernel on the same matrix.
#include <dlfcn.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <numeric>

#include "bench/bench.h"
#include "bench/formats.h"
#include "bench/operands.h"
#include "bench/pattern.h"
#include "zor/spblas.h"

namespace zor_bench {
namespace {

const format_loops* find_loops() {
  static void* const library = dlopen("$ORIGIN/../lib/bench/zor_peer_formats.so", RTLD_NOW | RTLD_LOCAL);
  return library == nullptr ? nullptr : static_cast<const format_loops*>(dlsym(library, "zor_format_loops"));
}

// x and y of a case; every contender starts from the same y.
struct vectors {
  operand<double> x, y;
  explicit vectors(int64_t count) : x(count, 4), y(count, 5) { fill(x, 4); }
  void reset() const { fill(y, 5); }
};

constexpr int32_t one = 1;
constexpr double alpha = 1;

// Runs a body so many times; a solve starts from x each time.
template <class Body>
runner repeated(const vectors& v, bool solve, const Body& body) {
  return [=](int64_t repeats) {
    for (int64_t i = 0; i < repeats; ++i) {
      if (solve) std::memcpy(v.y.data(), v.x.data(), size_t(v.x.count()) * sizeof(double));
      body();
    }
  };
}

prepared checked(const vectors& v, const std::vector<contender>& contenders) {
  v.reset();
  contenders[0].run(1);
  const operand<double> ours(v.y.count());
  std::memcpy(ours.data(), v.y.data(), size_t(ours.count()) * sizeof(double));
  return keep_agreeing(contenders, [&](const contender& other) {
    v.reset();
    other.run(1);
    return close(ours, v.y, 256);
  });
}

// The same matrix in our CSR kernels: a product with n right-hand sides, row-major, or a lower solve.
contender csr_contender(const pattern& p, const vectors& v, int32_t n, bool solve) {
  const auto start = copied(p.start, 1), column = copied(p.column, 2);
  const auto value = copied(p.value, 3);
  const int32_t m = p.m;
  return {"CSR", repeated(v, solve, [=] {
            const int32_t *pntrb = start.data(), *pntre = pntrb + 1;
            if (solve)
              zor_spblas_lp64_dcsr0ntlnc__svout_seq(&m, &alpha, value.data(), column.data(), pntrb, pntre,
                                                    v.y.data());
            else if (n == 1)
              zor_spblas_lp64_dcsr0ng__c__mvout_par(&one, &m, &m, &alpha, value.data(), column.data(), pntrb,
                                                    pntre, v.x.data(), v.y.data());
            else
              zor_spblas_lp64_dcsr0ng__c__mmout_par(&one, &n, &m, &n, &alpha, value.data(), column.data(),
                                                    pntrb, pntre, v.x.data(), &n, v.y.data(), &n);
          })};
}

bench_case new_case(std::string name, double entries, double stored_bytes, double m, double n) {
  bench_case c;
  c.name = std::move(name);
  c.flops = 2 * entries * n;
  c.bytes = stored_bytes + 3 * m * n * sizeof(double);
  return c;
}

// ---- COO.

enum class coo_order { by_rows, by_columns, mixed };

struct coo_problem {
  pattern p;
  operand<int32_t> row, column;
  operand<double> value;

  coo_problem(pattern from, coo_order order)
      : p(std::move(from)),
        row(int64_t(p.column.size()), 1),
        column(int64_t(p.column.size()), 2),
        value(int64_t(p.column.size()), 3) {
    std::vector<int32_t> rows, places(p.column.size());
    for (int32_t r = 0; r < p.m; ++r)
      rows.insert(rows.end(), size_t(p.start[size_t(r) + 1] - p.start[size_t(r)]), r);
    std::iota(places.begin(), places.end(), 0);
    if (order == coo_order::by_columns)
      std::stable_sort(places.begin(), places.end(),
                       [&](int32_t a, int32_t b) { return p.column[size_t(a)] < p.column[size_t(b)]; });
    if (order == coo_order::mixed) {
      uint64_t state = 3;
      for (size_t i = places.size(); i > 1; --i) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        std::swap(places[i - 1], places[size_t((state >> 20) % i)]);
      }
    }
    for (size_t e = 0; e < places.size(); ++e) {
      row.data()[e] = rows[size_t(places[e])];
      column.data()[e] = p.column[size_t(places[e])];
      value.data()[e] = p.value[size_t(places[e])];
    }
  }
};

prepared coo_contenders(const coo_problem& a, bool solve) {
  const vectors v(a.p.m);
  const int32_t m = a.p.m, nnz = int32_t(a.value.count());
  std::vector<contender> all;
  all.push_back({"zor", repeated(v, solve, [=, row = a.row, column = a.column, value = a.value] {
                   if (solve)
                     zor_spblas_lp64_dcoo0ntlnc__svout_seq(&m, nullptr, nullptr, value.data(), row.data(),
                                                           column.data(), &nnz, nullptr, v.y.data());
                   else
                     zor_spblas_lp64_dcoo0ng__c__mvout_par(nullptr, nullptr, nullptr, nullptr, &alpha,
                                                           value.data(), row.data(), column.data(), &nnz,
                                                           v.x.data(), v.y.data());
                 })});
  if (const format_loops* loops = find_loops()) {
    const operand<int32_t> start(m + 1, 6), sorted_column(nnz, 7);
    const operand<double> sorted_value(nnz, 8);
    all.push_back({"loop", repeated(v, solve, [=, row = a.row, column = a.column, value = a.value] {
                     if (solve)
                       loops->coo_solve(m, nnz, row.data(), column.data(), value.data(), start.data(),
                                        sorted_column.data(), sorted_value.data(), v.y.data());
                     else
                       loops->coo_product(nnz, row.data(), column.data(), value.data(), v.x.data(),
                                          v.y.data());
                   })});
  }
  all.push_back(csr_contender(a.p, v, 1, solve));
  return checked(v, all);
}

// ---- DIA.

prepared dia_contenders(const pattern& p, int32_t side, int axes, bool solve) {
  const vectors v(p.m);
  std::vector<int32_t> distance;
  for (int a = 0, step = 1; a < axes; ++a, step *= side) distance.push_back(step);
  std::vector<int32_t> all_distances;
  for (size_t a = distance.size(); a-- > 0;) all_distances.push_back(-distance[a]);
  all_distances.push_back(0);
  if (!solve) all_distances.insert(all_distances.end(), distance.begin(), distance.end());
  const int32_t m = p.m, ndiag = int32_t(all_distances.size());
  const operand<double> value(int64_t(m) * ndiag, 3);
  std::fill_n(value.data(), value.count(), 0.0);
  for (int32_t r = 0; r < m; ++r)
    for (int32_t k = p.start[size_t(r)]; k < p.start[size_t(r) + 1]; ++k) {
      const auto d = std::find(all_distances.begin(), all_distances.end(), p.column[size_t(k)] - r);
      value.data()[(d - all_distances.begin()) * m + r] = p.value[size_t(k)];
    }
  const auto idiag = copied(all_distances, 1);
  std::vector<contender> all;
  all.push_back({"zor", repeated(v, solve, [=] {
                   const int32_t strict = ndiag - 1;
                   if (solve)
                     zor_spblas_lp64_ddia1ntlnf__svout_seq(&m, value.data(), &m, idiag.data(), v.y.data(),
                                                           &one, &strict, nullptr, &ndiag);
                   else
                     zor_spblas_lp64_ddia1ng__f__mvout_par(nullptr, nullptr, &m, &m, &alpha, value.data(), &m,
                                                           idiag.data(), &ndiag, v.x.data(), v.y.data());
                 })});
  if (const format_loops* loops = find_loops())
    all.push_back({"loop", repeated(v, solve, [=] {
                     if (solve)
                       loops->dia_solve(m, ndiag, idiag.data(), value.data(), v.y.data());
                     else
                       loops->dia_product(m, ndiag, idiag.data(), value.data(), v.x.data(), v.y.data());
                   })});
  all.push_back(csr_contender(p, v, 1, solve));
  return checked(v, all);
}

// ---- BSR: the matrix of a grid of quadrilaterals with lb unknowns a node.

prepared bsr_contenders(const pattern& nodes, int32_t lb, int32_t n, bool by_rows) {
  const vectors v(int64_t(nodes.m) * lb * n);
  const int32_t mb = nodes.m, op = 1;
  pattern expanded;
  const size_t size = size_t(lb) * size_t(lb);
  std::vector<double> rows(nodes.column.size() * size), columns(rows.size());
  for (int32_t r = 0; r < mb; ++r)
    for (int32_t i = 0; i < lb; ++i) {
      for (int32_t k = nodes.start[size_t(r)]; k < nodes.start[size_t(r) + 1]; ++k)
        for (int32_t j = 0; j < lb; ++j) {
          expanded.add(nodes.column[size_t(k)] * lb + j);
          rows[size_t(k) * size + size_t(i * lb + j)] = expanded.value.back();
          columns[size_t(k) * size + size_t(i + j * lb)] = expanded.value.back();
        }
      expanded.end_row();
    }
  const auto start = copied(nodes.start, 1), column = copied(nodes.column, 2);
  const auto column1 = copied(plus_one(nodes.column), 2);
  const auto by_row = copied(rows, 3), by_column = copied(columns, 3);
  std::vector<contender> all;
  all.push_back(
      {"zor", repeated(v, false, [=] {
         if (by_rows)
           zor_spblas_lp64_cspblas_dbsrmmgen(&op, &mb, &n, &lb, &alpha, by_row.data(), column.data(),
                                             start.data(), start.data() + 1, v.x.data(), &n, v.y.data(), &n);
         else
           zor_spblas_lp64_dbsrmmgen(&op, &mb, nullptr, &lb, &alpha, by_column.data(), column1.data(),
                                     start.data(), start.data() + 1, v.x.data(), nullptr, v.y.data());
       })});
  if (const format_loops* loops = find_loops())
    all.push_back({"loop", repeated(v, false, [=] {
                     loops->bsr_product(mb, lb, n, start.data(), column.data(), by_row.data(), v.x.data(),
                                        v.y.data());
                   })});
  all.push_back(csr_contender(expanded, v, n, false));
  return checked(v, all);
}

// ---- Skyline: profiles that reach back by up to `longest`.

prepared sky_contenders(int32_t m, int32_t longest, bool solve) {
  const vectors v(m);
  std::vector<int32_t> start = {0};
  for (int32_t r = 0; r < m; ++r) start.push_back(start.back() + std::min(r, longest * (r % 7 + 1) / 7) + 1);
  const operand<double> value(start.back(), 3);
  fill(value, 3);
  for (int32_t r = 0; r < m; ++r) value.data()[start[size_t(r) + 1] - 1] = double(longest);
  const auto pntr = copied(start, 1);
  const int32_t flag = 1;
  std::vector<contender> all;
  all.push_back({"zor", repeated(v, solve, [=] {
                   if (solve)
                     zor_spblas_lp64_dskysvk(&flag, nullptr, &flag, &one, &m, value.data(), pntr.data(),
                                             v.y.data());
                   else
                     zor_spblas_lp64_dskymmgk(&flag, nullptr, &m, &one, &flag, &one, &alpha, value.data(),
                                              pntr.data(), v.x.data(), &m, v.y.data(), &m);
                 })});
  if (const format_loops* loops = find_loops())
    all.push_back({"loop", repeated(v, solve, [=] {
                     if (solve)
                       loops->sky_solve(m, pntr.data(), value.data(), v.y.data());
                     else
                       loops->sky_product(m, pntr.data(), value.data(), v.x.data(), v.y.data());
                   })});
  return checked(v, all);
}

}  // namespace

std::vector<bench_case> spcoo_cases(const environment& env) {
  std::vector<bench_case> cases;
  const bool quick = env.opts.quick;
  const auto add = [&](const char* name, int32_t side, bool solve, coo_order order) {
    const int32_t used = quick ? 10 : side;
    const double m = double(used) * used, entries = (solve ? 3 : 5) * m;
    bench_case c = new_case(fmt::format("{} lap{}", name, side), entries, entries * 16, m, 1);
    c.setup = [=] { return coo_contenders(coo_problem(laplacian(used, 2, solve), order), solve); };
    cases.push_back(std::move(c));
  };
  for (const int32_t side : {100, 1000}) {
    add("product by rows", side, false, coo_order::by_rows);
    add("product by columns", side, false, coo_order::by_columns);
    add("product mixed", side, false, coo_order::mixed);
    add("solve by rows", side, true, coo_order::by_rows);
    add("solve mixed", side, true, coo_order::mixed);
  }
  return cases;
}

std::vector<bench_case> spdia_cases(const environment& env) {
  std::vector<bench_case> cases;
  const bool quick = env.opts.quick;
  const auto add = [&](int32_t side, int axes, bool solve) {
    const int32_t used = quick ? 8 : side;
    double m = 1;
    for (int a = 0; a < axes; ++a) m *= used;
    const double diagonals = solve ? axes + 1 : 2 * axes + 1;
    bench_case c =
        new_case(fmt::format("{} {} points, {}^{}", solve ? "solve" : "product", 2 * axes + 1, side, axes),
                 diagonals * m, diagonals * m * 8, m, 1);
    c.setup = [=] { return dia_contenders(laplacian(used, axes, solve), used, axes, solve); };
    cases.push_back(std::move(c));
  };
  for (const bool solve : {false, true}) {
    add(100, 2, solve);
    add(1000, 2, solve);
    add(22, 3, solve);
    add(100, 3, solve);
  }
  return cases;
}

std::vector<bench_case> spbsr_cases(const environment& env) {
  std::vector<bench_case> cases;
  const bool quick = env.opts.quick;
  const auto add = [&](int32_t lb, int32_t n, bool by_rows) {
    const int32_t side = quick ? 6 : int32_t(std::sqrt(1e6 / (9.0 * lb * lb)));
    const double mb = double(side) * side, entries = 9 * mb * lb * lb;
    bench_case c = new_case(
        fmt::format("{} x {}, {} by {}", lb, lb, n == 1 ? "vector" : "8 sides", by_rows ? "rows" : "columns"),
        entries, entries * 8 + 9 * mb * 4, mb * lb, n);
    c.setup = [=] { return bsr_contenders(quadrilaterals(side), lb, n, by_rows); };
    cases.push_back(std::move(c));
  };
  for (const int32_t lb : {2, 3, 4, 8}) {
    add(lb, 1, false);
    add(lb, 1, true);
    add(lb, 8, true);
  }
  return cases;
}

std::vector<bench_case> spsky_cases(const environment& env) {
  std::vector<bench_case> cases;
  const auto add = [&](int32_t m, int32_t longest, bool solve) {
    const int32_t used = env.opts.quick ? 60 : m;
    const double entries = double(used) * longest * 4 / 7;
    bench_case c = new_case(fmt::format("{} {} profiles up to {}", solve ? "solve" : "product", m, longest),
                            entries, entries * 8, used, 1);
    c.setup = [=] { return sky_contenders(used, longest, solve); };
    cases.push_back(std::move(c));
  };
  for (const bool solve : {false, true}) {
    add(2000, 30, solve);
    add(2000, 200, solve);
    add(20000, 400, solve);
  }
  return cases;
}

}  // namespace zor_bench
