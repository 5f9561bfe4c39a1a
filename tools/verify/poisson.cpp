// SPDX-License-Identifier: MIT
// The solvers with parameter arrays, the steps that they take in the core, and the public solvers. Reports
// are texts and have no digest.
#include "zor/signatures/poisson.h"

#include "tools/verify/battery.h"

namespace zor_tools {
namespace {

constexpr double circle = 6.28318530717958648, half_circle = 3.14159265358979324;

template <class T>
struct solver_calls {
  zor::box_init_2d_fn<T>* init2;
  zor::box_commit_2d_fn<T>*commit2, *solve2;
  zor::box_init_3d_fn<T>* init3;
  zor::box_commit_3d_fn<T>*commit3, *solve3;
  zor::sphere_init_fn<T>*init_np, *init_p;
  zor::sphere_commit_np_fn<T>*commit_np, *solve_np;
  zor::sphere_commit_p_fn<T>*commit_p, *solve_p;
};
constexpr solver_calls<double> calls_of(double) {
  return {zor_pdepl_d_init_helmholtz_2d,   zor_pdepl_d_commit_helmholtz_2d,
          zor_pdepl_d_helmholtz_2d,        zor_pdepl_d_init_helmholtz_3d,
          zor_pdepl_d_commit_helmholtz_3d, zor_pdepl_d_helmholtz_3d,
          zor_pdepl_d_init_sph_np,         zor_pdepl_d_init_sph_p,
          zor_pdepl_d_commit_sph_np,       zor_pdepl_d_sph_np,
          zor_pdepl_d_commit_sph_p,        zor_pdepl_d_sph_p};
}
constexpr solver_calls<float> calls_of(float) {
  return {zor_pdepl_s_init_helmholtz_2d,   zor_pdepl_s_commit_helmholtz_2d,
          zor_pdepl_s_helmholtz_2d,        zor_pdepl_s_init_helmholtz_3d,
          zor_pdepl_s_commit_helmholtz_3d, zor_pdepl_s_helmholtz_3d,
          zor_pdepl_s_init_sph_np,         zor_pdepl_s_init_sph_p,
          zor_pdepl_s_commit_sph_np,       zor_pdepl_s_sph_np,
          zor_pdepl_s_commit_sph_p,        zor_pdepl_s_sph_p};
}

struct size {
  zor_int n[3];
};
constexpr size rectangles[] = {{{2, 1}}, {{5, 4}}, {{40, 21}}, {{65, 30}}, {{130, 70}}, {{256, 129}}};
constexpr size boxes[] = {{{2, 2, 1}}, {{5, 4, 3}}, {{36, 8, 9}}, {{17, 40, 12}}, {{48, 34, 33}}};
constexpr size spheres[] = {{{4, 3}}, {{12, 7}}, {{72, 40}}, {{140, 65}}};

// A problem between init and free.
template <class T>
struct problem {
  int axes;
  zor_int n[3], ipar[128] = {}, stat = 0, threads = 4;
  std::vector<T> dpar;
  block<T> f;
  std::vector<std::vector<T>> sides;
  ZorDftDescriptor *x = nullptr, *y = nullptr;

  problem(int dimensions, const size& s, numbers& source)
      : axes(dimensions),
        n{s.n[0], s.n[1], dimensions == 3 ? s.n[2] : 0},
        dpar(size_t(13 * s.n[0] + 7 * s.n[1] + 40)),
        f(size_t((n[0] + 1) * (n[1] + 1) * (n[2] + 1)), size_t(n[1] % 2), source) {
    const zor_int most = (std::max(n[0], n[1]) + 1) * (std::max(n[1], n[2]) + 1);
    for (int i = 0; i < 6; ++i) {
      sides.emplace_back(size_t(most));
      for (T& v : sides.back()) v = T(source.real());
    }
  }
  problem(const problem&) = delete;
  void quiet() {
    ipar[1] = ipar[2] = 0;
    ipar[22] = threads;
  }
  // The arguments of commit and solve.
  template <class Fn>
  void call2(Fn* fn) {
    fn(f.data(), sides[0].data(), sides[1].data(), sides[2].data(), sides[3].data(), &x, ipar, dpar.data(),
       &stat);
  }
  template <class Fn>
  void call3(Fn* fn) {
    fn(f.data(), sides[0].data(), sides[1].data(), sides[2].data(), sides[3].data(), sides[4].data(),
       sides[5].data(), &x, &y, ipar, dpar.data(), &stat);
  }
  void record(recorder& out, bool reals) const {
    f.record(out);
    if (reals) out.add(dpar.data(), dpar.size());
    out.add(ipar, 40);
    out.add(stat);
  }
};

template <class T>
void init_box(const solver_calls<T>& call, problem<T>& p, int sides, double factor) {
  char letters[8] = {};
  for (int s = 0; s < 2 * p.axes; ++s) letters[s] = (sides >> (2 * p.axes - 1 - s) & 1) != 0 ? 'N' : 'D';
  const T zero = 0, ends[3] = {T(1), T(1.5), T(0.75)}, q = T(factor);
  if (p.axes == 2)
    call.init2(&zero, &ends[0], &zero, &ends[1], &p.n[0], &p.n[1], letters, &q, p.ipar, p.dpar.data(),
               &p.stat);
  else
    call.init3(&zero, &ends[0], &zero, &ends[1], &zero, &ends[2], &p.n[0], &p.n[1], &p.n[2], letters, &q,
               p.ipar, p.dpar.data(), &p.stat);
  p.quiet();
}

// Every combination of sides, q in iteration. use(problem) stands between init and free.
template <class T, class Use>
void for_boxes(int axes, const solver_calls<T>& call, const Use& use) {
  uint64_t iteration = 0;
  const double factors[] = {0, 2.5, -7, 0};
  for (int sides = 0; sides < 1 << (2 * axes); ++sides)
    for (const size& s : axes == 2 ? std::vector<size>(std::begin(rectangles), std::end(rectangles))
                                   : std::vector<size>(std::begin(boxes), std::end(boxes))) {
      if (axes == 3 && iteration % 3 != 0 && s.n[0] > 20) {
        ++iteration;
        continue;
      }
      numbers source(++iteration);
      problem<T> p(axes, s, source);
      init_box(call, p, sides, factors[sides == (1 << (2 * axes)) - 1 ? 0 : iteration % 4]);
      use(p);
      if (p.axes == 2)
        zor_pdepl_free_helmholtz_2d(&p.x, p.ipar, &p.stat);
      else
        zor_pdepl_free_helmholtz_3d(&p.x, &p.y, p.ipar, &p.stat);
    }
}

template <class T, class Use>
void for_spheres(bool periodic, const solver_calls<T>& call, const Use& use) {
  uint64_t iteration = 0;
  for (const double factor : {0.0, 3.0, -2.0})
    for (const bool globe : {false, true})
      for (const size& s : spheres) {
        numbers source(++iteration);
        problem<T> p(2, s, source);
        const T from = 0, to = T(circle), at = T(globe ? 0 : 0.5), bt = T(globe ? half_circle : 2.5),
                q = T(factor);
        (periodic ? call.init_p : call.init_np)(&from, &to, &at, &bt, &p.n[0], &p.n[1], &q, p.ipar,
                                                p.dpar.data(), &p.stat);
        p.quiet();
        use(p);
        if (periodic)
          zor_pdepl_free_sph_p(&p.x, &p.y, p.ipar, &p.stat);
        else
          zor_pdepl_free_sph_np(&p.x, p.ipar, &p.stat);
      }
}

template <class T>
void box_stage(recorder& out, int axes, const solver_calls<T>& call, int stage) {
  for_boxes<T>(axes, call, [&](problem<T>& p) {
    const auto run = [&](auto* two, auto* three) { axes == 2 ? p.call2(two) : p.call3(three); };
    if (stage == 0) return p.record(out, true);
    run(call.commit2, call.commit3);
    if (stage == 1) return p.record(out, true);
    run(call.solve2, call.solve3);
    p.record(out, false);
  });
}
template <class T>
void sphere_stage(recorder& out, bool periodic, const solver_calls<T>& call, int stage) {
  for_spheres<T>(periodic, call, [&](problem<T>& p) {
    const auto run = [&](auto* plain, auto* circles) {
      if (periodic)
        circles(p.f.data(), &p.x, &p.y, p.ipar, p.dpar.data(), &p.stat);
      else
        plain(p.f.data(), &p.x, p.ipar, p.dpar.data(), &p.stat);
    };
    if (stage == 0) return p.record(out, true);
    run(call.commit_np, call.commit_p);
    if (stage == 1) return p.record(out, true);
    run(call.solve_np, call.solve_p);
    p.record(out, false);
  });
}

// One step of the core on committed problems that have its sides along the axes that it works on.
template <class T, class Run>
void box_step(recorder& out, int axes, int sides, int shift, const Run& run) {
  const int mask = (axes == 3 && shift == 2 ? 15 : 3) << shift;
  for_boxes<T>(axes, calls_of(T()), [&](problem<T>& p) {
    if ((p.ipar[3] & mask) >> shift != sides) return;
    if (axes == 2)
      p.call2(calls_of(T()).commit2);
    else
      p.call3(calls_of(T()).commit3);
    if (p.stat < 0) return;
    run(p);
    p.f.record(out);
  });
}
template <class T, class Run>
void sphere_step(recorder& out, bool periodic, const Run& run) {
  for_spheres<T>(periodic, calls_of(T()), [&](problem<T>& p) {
    if (periodic)
      calls_of(T()).commit_p(p.f.data(), &p.x, &p.y, p.ipar, p.dpar.data(), &p.stat);
    else
      calls_of(T()).commit_np(p.f.data(), &p.x, p.ipar, p.dpar.data(), &p.stat);
    if (p.stat < 0) return;
    run(p);
    p.f.record(out);
  });
}

template <class T>
T* table(problem<T>& p, int entry) {
  return p.dpar.data() + p.ipar[entry] - 1;
}

zor_int create(zor_poisson** p, const zor_poisson_box* b, double) { return zor_poisson_create_d(p, b); }
zor_int create(zor_poisson** p, const zor_poisson_box* b, float) { return zor_poisson_create_s(p, b); }
zor_int create(zor_poisson** p, const zor_poisson_sphere* b, double) { return zor_poisson_sphere_d(p, b); }
zor_int create(zor_poisson** p, const zor_poisson_sphere* b, float) { return zor_poisson_sphere_s(p, b); }

// The public solver on every kind of axes.
template <class T>
void public_boxes(recorder& out, int axes, zor::poisson_solve_fn<T>* fn) {
  constexpr zor_int kinds[5][2] = {{0, 0}, {0, 1}, {1, 0}, {1, 1}, {2, 2}};
  const int combinations = axes == 2 ? 25 : 125;
  for (int i = 0; i < combinations; ++i)
    for (const size& s : {size{{6, 5, 4}}, size{{40, 36, 9}}}) {
      numbers source(uint64_t(i + 1));
      problem<T> p(axes, s, source);
      zor_poisson_box box = {axes, {s.n[0], s.n[1], s.n[2]}, {1, 1.5, 0.75}, {}, i % 3 - 0.0};
      for (int a = 0, rest = i; a < axes; ++a, rest /= 5)
        for (int e = 0; e < 2; ++e) box.side[2 * a + e] = kinds[rest % 5][e];
      const T* sides[6];
      for (int side = 0; side < 6; ++side) sides[side] = p.sides[size_t(side)].data();
      zor_poisson* solver = nullptr;
      out.add(create(&solver, &box, T()));
      out.add(fn(solver, p.f.data(), sides));
      p.f.record(out);
      zor_poisson_free(&solver);
    }
}
template <class T>
void public_spheres(recorder& out, zor::poisson_solve_fn<T>* fn) {
  for (const size& s : spheres)
    for (int i = 0; i < 8; ++i) {
      numbers source(uint64_t(i + 1));
      problem<T> p(2, s, source);
      zor_poisson_sphere sphere = {{s.n[0], s.n[1]},
                                   {0, i % 2 != 0 ? circle : 2.0},
                                   {i / 2 % 2 != 0 ? 0 : 0.5, half_circle},
                                   i % 2,
                                   i / 4 * 2.0};
      zor_poisson* solver = nullptr;
      out.add(create(&solver, &sphere, T()));
      out.add(fn(solver, p.f.data(), nullptr));
      p.f.record(out);
      zor_poisson_free(&solver);
    }
}

// A row of a stage: the calls of its precision with that name in the place of its namesake.
template <class T, class Fn>
void with_stage(recorder& out, int axes, Fn* solver_calls<T>::*place, Fn* fn, int stage) {
  solver_calls<T> call = calls_of(T());
  call.*place = fn;
  box_stage<T>(out, axes, call, stage);
}

}  // namespace

void run_poisson2(recorder& out) {
#define ROW_BOX_INIT_2D(name, T) \
  if (out.begin(#name)) with_stage<T>(out, 2, &solver_calls<T>::init2, name, 0);
#define ROW_BOX_COMMIT_2D(name, T) \
  if (out.begin(#name)) with_stage<T>(out, 2, &solver_calls<T>::commit2, name, 1);
#define ROW_BOX_SOLVE_2D(name, T) \
  if (out.begin(#name)) with_stage<T>(out, 2, &solver_calls<T>::solve2, name, 2);
#include "zor/tables/pdepl.inc"

#define ROW_STEP_FT(name, T, sides, forward)                                                         \
  if (out.begin(#name))                                                                              \
    box_step<T>(out, 2, sides, 2, [](problem<T>& p) {                                                \
      name(&p.n[0], &p.n[1], p.f.data(), p.dpar.data(), p.ipar, nullptr, &p.x, &p.threads, &p.stat); \
    });
#define ROW_STEP_LU_2D(name, T, sides)                                                                       \
  if (out.begin(#name))                                                                                      \
    box_step<T>(out, 2, sides, 0, [](problem<T>& p) {                                                        \
      name(&p.n[0], &p.n[1], table(p, 13), nullptr, p.f.data(), p.ipar, p.dpar.data(), &p.threads, &p.stat); \
    });
#define ROW_STEP_LU_2D_NN(name, T)                                                                 \
  if (out.begin(#name))                                                                            \
    box_step<T>(out, 2, 3, 0, [](problem<T>& p) {                                                  \
      name(&p.n[0], &p.n[1], table(p, 13), nullptr, p.f.data(), p.ipar, p.dpar.data(), &p.ipar[3], \
           &p.threads, &p.stat);                                                                   \
    });
#include "zor/tables/core_pdepl.inc"

#define ROW_POISSON_SOLVE(name, T) \
  if (out.begin(#name)) public_boxes<T>(out, 2, name);
#include "zor/tables/core_poisson.inc"
}

void run_poisson3(recorder& out) {
#define ROW_BOX_INIT_3D(name, T) \
  if (out.begin(#name)) with_stage<T>(out, 3, &solver_calls<T>::init3, name, 0);
#define ROW_BOX_COMMIT_3D(name, T) \
  if (out.begin(#name)) with_stage<T>(out, 3, &solver_calls<T>::commit3, name, 1);
#define ROW_BOX_SOLVE_3D(name, T) \
  if (out.begin(#name)) with_stage<T>(out, 3, &solver_calls<T>::solve3, name, 2);
#include "zor/tables/pdepl.inc"

#define ROW_STEP_FT_3D(name, T, sides, forward)                                                           \
  if (out.begin(#name))                                                                                   \
    box_step<T>(out, 3, sides, 2, [](problem<T>& p) {                                                     \
      name(&p.n[0], &p.n[1], &p.n[2], p.f.data(), p.dpar.data(), p.ipar, nullptr, &p.x, &p.y, &p.threads, \
           &p.stat);                                                                                      \
    });
#define ROW_STEP_LU_3D(name, T, sides)                                                         \
  if (out.begin(#name))                                                                        \
    box_step<T>(out, 3, sides, 0, [](problem<T>& p) {                                          \
      name(&p.n[0], &p.n[1], &p.n[2], table(p, 13), table(p, 15), p.f.data(), nullptr, p.ipar, \
           p.dpar.data(), &p.threads, &p.stat);                                                \
    });
#define ROW_STEP_LU_3D_NN(name, T)                                                             \
  if (out.begin(#name))                                                                        \
    box_step<T>(out, 3, 3, 0, [](problem<T>& p) {                                              \
      name(&p.n[0], &p.n[1], &p.n[2], table(p, 13), table(p, 15), p.f.data(), nullptr, p.ipar, \
           p.dpar.data(), &p.ipar[3], &p.threads, &p.stat);                                    \
    });
#include "zor/tables/core_pdepl.inc"

#define ROW_POISSON_SOLVE(name, T) \
  if (out.begin(#name ".box")) public_boxes<T>(out, 3, name);
#include "zor/tables/core_poisson.inc"
}

void run_sphere(recorder& out) {
#define ROW_SPHERE_COMMIT_NP(name, T)     \
  if (out.begin(#name)) {                 \
    auto call = calls_of(T());            \
    call.commit_np = name;                \
    sphere_stage<T>(out, false, call, 1); \
  }
#define ROW_SPHERE_SOLVE_NP(name, T)      \
  if (out.begin(#name)) {                 \
    auto call = calls_of(T());            \
    call.solve_np = name;                 \
    sphere_stage<T>(out, false, call, 2); \
  }
#define ROW_SPHERE_COMMIT_P(name, T)     \
  if (out.begin(#name)) {                \
    auto call = calls_of(T());           \
    call.commit_p = name;                \
    sphere_stage<T>(out, true, call, 1); \
  }
#define ROW_SPHERE_SOLVE_P(name, T)      \
  if (out.begin(#name)) {                \
    auto call = calls_of(T());           \
    call.solve_p = name;                 \
    sphere_stage<T>(out, true, call, 2); \
  }
#define ROW_SPHERE_INIT(name, T, periodic)          \
  if (out.begin(#name)) {                           \
    auto call = calls_of(T());                      \
    (periodic ? call.init_p : call.init_np) = name; \
    sphere_stage<T>(out, periodic, call, 0);        \
  }
#include "zor/tables/pdepl.inc"

#define ROW_STEP_SL(name, T, forward)                                                                \
  if (out.begin(#name))                                                                              \
    sphere_step<T>(out, false, [](problem<T>& p) {                                                   \
      name(&p.n[0], &p.n[1], p.f.data(), p.dpar.data(), p.ipar, nullptr, &p.x, &p.threads, &p.stat); \
    });
#define ROW_STEP_PP(name, T, forward)                                                                     \
  if (out.begin(#name))                                                                                   \
    sphere_step<T>(out, true, [](problem<T>& p) {                                                         \
      name(&p.n[0], &p.n[1], p.f.data(), nullptr, nullptr, &p.y, &p.x, p.ipar, p.ipar + 60, table(p, 19), \
           p.ipar + 40, table(p, 17), &p.threads, &p.stat);                                               \
    });
#define ROW_STEP_SPHERE_LU(name, T, globe)                                                        \
  if (out.begin(#name))                                                                           \
    sphere_step<T>(out, true, [](problem<T>& p) {                                                 \
      name(&p.n[0], &p.n[1], &p.dpar[3], table(p, 15), table(p, 13), p.f.data(), nullptr, p.ipar, \
           p.dpar.data(), &p.threads, &p.stat);                                                   \
    });
#include "zor/tables/core_pdepl.inc"

#define ROW_POISSON_SOLVE(name, T) \
  if (out.begin(#name ".sphere")) public_spheres<T>(out, name);
#include "zor/tables/core_poisson.inc"
}

}  // namespace zor_tools
