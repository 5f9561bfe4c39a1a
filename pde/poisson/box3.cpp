// SPDX-License-Identifier: MIT
// The solver of a box: transforms along x and y, a tridiagonal system along z for each pair of modes.
#include <cmath>

#include "pde/imports.h"
#include "pde/poisson/box.h"

namespace zor::pde {
namespace {

// The steps by kinds of sides, in the order of the table: 4 x + y, each dd, dn, nd, nn.
template <class T>
struct box_steps {
  core::import_slot<step_ft_3d_fn<T>>*forward[16], *backward[16];
  core::import_slot<step_lu_3d_fn<T>>* systems[3];
  core::import_slot<step_lu_3d_nn_fn<T>>* systems_nn;
};
template <class T>
struct box_steps_table {
  box_steps<T> steps{};
  template <class U>
  constexpr void put(core::import_slot<step_ft_3d_fn<U>>* slot, int sides, bool forward) {
    if constexpr (std::is_same_v<T, U>) (forward ? steps.forward : steps.backward)[sides] = slot;
  }
  template <class U>
  constexpr void put_systems(core::import_slot<step_lu_3d_fn<U>>* slot, int sides) {
    if constexpr (std::is_same_v<T, U>) steps.systems[sides] = slot;
  }
  template <class U>
  constexpr void put_systems_nn(core::import_slot<step_lu_3d_nn_fn<U>>* slot) {
    if constexpr (std::is_same_v<T, U>) steps.systems_nn = slot;
  }
};
template <class T>
constexpr box_steps<T> make_steps() {
  box_steps_table<T> t;
#define ROW_STEP_FT_3D(name, U, sides, forward) t.template put<U>(&core::name, sides, forward);
#define ROW_STEP_LU_3D(name, U, sides) t.template put_systems<U>(&core::name, sides);
#define ROW_STEP_LU_3D_NN(name, U) t.template put_systems_nn<U>(&core::name);
#include "zor/tables/core_pdepl.inc"
  return t.steps;
}
template <class T>
constexpr box_steps<T> step = make_steps<T>();

constexpr zor_int singular = 900, all_neumann = 63;

// f and the values on its sides ax, bx, ay, by, az, bz.
template <class T>
struct box {
  T* f;
  const T* side[6];
  zor_int n[3];
  zor_int stride(int axis) const { return axis == 0 ? 1 : axis == 1 ? n[0] + 1 : (n[0] + 1) * (n[1] + 1); }
  // Layer `at` across an axis; i and j run along the other two, the faster one first, as in a side's array.
  plane<T> layer(int axis, zor_int at) const {
    const int a = axis == 0 ? 1 : 0, b = axis == 2 ? 1 : 2;
    return {f + at * stride(axis), n[a] + 1, stride(a), n[b] + 1, stride(b)};
  }
  plane<const T> values(int s) const {
    const int axis = s / 2, a = axis == 0 ? 1 : 0, b = axis == 2 ? 1 : 2;
    return {side[s], n[a] + 1, 1, n[b] + 1, n[a] + 1};
  }
  zor_int outer(int s) const { return s % 2 == 0 ? 0 : n[s / 2]; }
  zor_int inner(int s) const { return s % 2 == 0 ? 1 : n[s / 2] - 1; }
};

// A side across x or y. Its edges at both ends of z take the mean of two values; `low_edge` and `high_edge`
// are their factors.
template <class T>
void fold_side(const box<T>& b, int s, zor_int kind, T ratio, T half_factor, T low_edge, T high_edge) {
  const plane<T> outer = b.layer(s / 2, b.outer(s)), inner = b.layer(s / 2, b.inner(s));
  const plane<const T> values = b.values(s);
  const zor_int nz = values.count_j - 1;
  const T factor = T(2) * half_factor;
  for_plane(outer, [&](T& at, zor_int i, zor_int k) {
    if (kind == 0) {
      inner(i, k) += values(i, k) * ratio;
      at = T(0);
    } else if (k == 0) {
      at += (values(i, 0) + values(i, 1)) * low_edge;
    } else if (k == nz) {
      at += (values(i, nz) + values(i, nz - 1)) * high_edge;
    } else {
      at += values(i, k) * factor;
    }
  });
}

template <class T>
void fold_boundary(const box<T>& b, const zor_int* kinds, const T* h) {
  for (int s = 0; s < 6; ++s)
    if (kinds[s] == 0) for_plane(b.layer(s / 2, b.outer(s)), [](T& at, zor_int, zor_int) { at = T(0); });
  // On two edges of the sides across x the ratio over the number of intervals stands where h_z^2 / h_x stands
  // elsewhere: they agree for a box of length 1.
  const T r1 = (h[2] / h[0]) * (h[2] / h[0]), s1 = h[2] * h[2] / h[0], edge = r1 / T(b.n[0]);
  fold_side(b, 0, kinds[0], r1, s1, s1, edge);
  fold_side(b, 1, kinds[1], r1, s1, edge, s1);
  const T r2 = (h[2] / h[1]) * (h[2] / h[1]), s2 = h[2] * h[2] / h[1];
  fold_side(b, 2, kinds[2], r2, s2, s2, s2);
  fold_side(b, 3, kinds[3], r2, s2, s2, s2);
  const T h2 = T(2) * h[2];
  for (int s = 4; s < 6; ++s) {
    const plane<T> inner = b.layer(2, b.inner(s));
    const plane<const T> values = b.values(s);
    const zor_int kind = kinds[s];
    for_plane(b.layer(2, b.outer(s)), [&](T& at, zor_int i, zor_int j) {
      if (kind == 1) {
        at += values(i, j) * h2;
      } else {
        inner(i, j) += values(i, j);
        at = T(0);
      }
    });
  }
  for (int s = 0; s < 6; ++s)
    if (kinds[s] == 1) for_plane(b.layer(s / 2, b.outer(s)), [](T& at, zor_int, zor_int) { at *= T(0.5); });
}

template <class T>
zor_int points(const box<T>& b) {
  return (b.n[0] + 1) * (b.n[1] + 1) * (b.n[2] + 1);
}

template <class T>
void commit(const box_problem<T>& p, const box<T>& b, ZorDftDescriptor** const* handles) {
  commit_steps steps;
  bool warned = false;
  if (!begin_commit(p, &steps)) return;
  if (steps.set_up && !set_up_box(p, handles, &warned)) return;
  const T hz = p.step(2);
  if (steps.scale) scale_all(b.f, points(b), hz * hz);
  if (steps.boundary) {
    if (!steps.set_up && !check_kinds(p)) return;
    fold_boundary(b, p.s.ipar + at_kinds, p.s.dpar);
  }
  p.s.finish(warned ? 1 : 0);
}

template <class T>
void run_steps(const box_problem<T>& p, const box<T>& b, ZorDftDescriptor** const* handles, void* work) {
  const solver<T>& s = p.s;
  zor_int* const ipar = s.ipar;
  const zor_int *const nx = &b.n[0], *const ny = &b.n[1], *const nz = &b.n[2];
  const int xy = 4 * p.pair(0) + p.pair(1), zz = p.pair(2);
  const T *const lambda_x = p.table(at_tables), *const lambda_y = p.table(at_tables + 2);
  const zor_int* const threads = &ipar[at_threads];
  (*step<T>.forward[xy])(nx, ny, nz, b.f, s.dpar, ipar, work, handles[0], handles[1], threads, s.stat);
  if (*s.stat != 0) return;
  zor_int mode = ipar[at_sides];
  if (mode == all_neumann && !(std::fabs(lambda_x[0] - T(2) + lambda_y[0]) <= s.dpar[real_tolerance]))
    mode = 0;
  if (zz == 3)
    (*step<T>.systems_nn)(nx, ny, nz, lambda_x, lambda_y, b.f, work, ipar, s.dpar, &mode, threads, s.stat);
  else
    (*step<T>.systems[zz])(nx, ny, nz, lambda_x, lambda_y, b.f, work, ipar, s.dpar, threads, s.stat);
  if (*s.stat != 0) return;
  (*step<T>.backward[xy])(nx, ny, nz, b.f, s.dpar, ipar, work, handles[0], handles[1], threads, s.stat);
  if (*s.stat != 0 || mode != all_neumann) return;
  s.report_warning(singular);
  subtract_mean(b.f, b.n[0] + 1, (b.n[1] + 1) * (b.n[2] + 1), T(points(b)));
}

template <class T>
void put_back_dirichlet(const box_problem<T>& p, const box<T>& b) {
  for (int s = 0; s < 6; ++s) {
    const plane<const T> values = b.values(s);
    if (p.kind(s) == 0)
      for_plane(b.layer(s / 2, b.outer(s)), [&](T& at, zor_int i, zor_int j) { at = values(i, j); });
  }
}

template <class T>
void solve(const box_problem<T>& p, const box<T>& b, ZorDftDescriptor** const* handles) {
  solve_in_steps(
      p, 63, [&](void* work) { run_steps(p, b, handles, work); }, [&] { put_back_dirichlet(p, b); });
}

}  // namespace
}  // namespace zor::pde

extern "C" {
#define ROW_BOX_INIT_3D(name, T)                                                 \
  SIG_BOX_INIT_3D(name, T) {                                                     \
    const T ends[6] = {*ax, *bx, *ay, *by, *az, *bz};                            \
    const zor_int intervals[3] = {*nx, *ny, *nz};                                \
    zor::pde::init_box<T>({3, {ipar, dpar, stat}}, ends, intervals, BCtype, *q); \
  }
#define ROW_BOX_3D(name, T, stage)                                                                      \
  SIG_BOX_COMMIT_3D(name, T) {                                                                          \
    ZorDftDescriptor** const handles[2] = {xhandle, yhandle};                                           \
    zor::pde::stage<T>({3, {ipar, dpar, stat}},                                                         \
                       {f, {bd_ax, bd_bx, bd_ay, bd_by, bd_az, bd_bz}, {ipar[10], ipar[11], ipar[12]}}, \
                       handles);                                                                        \
  }
#define ROW_BOX_COMMIT_3D(name, T) ROW_BOX_3D(name, T, commit)
#define ROW_BOX_SOLVE_3D(name, T) ROW_BOX_3D(name, T, solve)
#define ROW_BOX_FREE_3D(name) \
  SIG_BOX_FREE_3D(name) { zor::pde::free_box(xhandle, yhandle, ipar, stat); }
#include "zor/tables/pdepl.inc"
#undef ROW_BOX_3D
}
