// SPDX-License-Identifier: MIT
// The solver of a rectangle: transforms along x, a tridiagonal system along y for each mode.
#include <cmath>

#include "pde/imports.h"
#include "pde/poisson/box.h"

namespace zor::pde {
namespace {

// The steps by kinds of sides: dd, dn, nd, nn.
template <class T>
struct rectangle_steps {
  core::import_slot<step_ft_fn<T>>*forward[4], *backward[4];
  core::import_slot<step_lu_2d_fn<T>>* systems[3];
  core::import_slot<step_lu_2d_nn_fn<T>>* systems_nn;
};
using core::import_slot;
constexpr rectangle_steps<double> steps_of_precision(double) {
  using namespace core;
  return {{&zor_pdepl_d_ft_dd, &zor_pdepl_d_ft_dn, &zor_pdepl_d_ft_nd, &zor_pdepl_d_ft_nn},
          {&zor_pdepl_d_inv_ft_dd, &zor_pdepl_d_inv_ft_dn, &zor_pdepl_d_inv_ft_nd, &zor_pdepl_d_inv_ft_nn},
          {&zor_pdepl_d_lu_2d_dd, &zor_pdepl_d_lu_2d_dn, &zor_pdepl_d_lu_2d_nd},
          &zor_pdepl_d_lu_2d_nn};
}
constexpr rectangle_steps<float> steps_of_precision(float) {
  using namespace core;
  return {{&zor_pdepl_s_ft_dd, &zor_pdepl_s_ft_dn, &zor_pdepl_s_ft_nd, &zor_pdepl_s_ft_nn},
          {&zor_pdepl_s_inv_ft_dd, &zor_pdepl_s_inv_ft_dn, &zor_pdepl_s_inv_ft_nd, &zor_pdepl_s_inv_ft_nn},
          {&zor_pdepl_s_lu_2d_dd, &zor_pdepl_s_lu_2d_dn, &zor_pdepl_s_lu_2d_nd},
          &zor_pdepl_s_lu_2d_nn};
}
template <class T>
constexpr rectangle_steps<T> step = steps_of_precision(T());

constexpr zor_int singular = 900, all_neumann = 15;

// f and the values on its sides.
template <class T>
struct rectangle {
  T* f;
  const T *ax, *bx, *ay, *by;
  zor_int nx, ny;
  T& at(zor_int i, zor_int j) const { return f[i + j * (nx + 1)]; }
};

template <class T>
void zero_dirichlet_sides(const rectangle<T>& r, const zor_int* kinds) {
  for (zor_int j = 0; j <= r.ny; ++j) {
    if (kinds[0] == 0) r.at(0, j) = T(0);
    if (kinds[1] == 0) r.at(r.nx, j) = T(0);
  }
  for (zor_int i = 0; i <= r.nx; ++i) {
    if (kinds[2] == 0) r.at(i, 0) = T(0);
    if (kinds[3] == 0) r.at(i, r.ny) = T(0);
  }
}

// A side along x: row `side` and the row inside of it.
template <class T>
void fold_row(const rectangle<T>& r, const T* values, zor_int kind, zor_int side, zor_int inside, T hy) {
  if (kind == 0) {
    for (zor_int i = 0; i <= r.nx; ++i) r.at(i, inside) += values[i];
    return;
  }
  const T h2 = T(2) * hy;
  r.at(0, side) += (values[0] + values[1]) * hy;
  r.at(r.nx, side) += (values[r.nx] + values[r.nx - 1]) * hy;
  for (zor_int i = 1; i < r.nx; ++i) r.at(i, side) += values[i] * h2;
}
// One value of a side along y.
template <class T>
void fold_value(const rectangle<T>& r, const T* values, zor_int kind, zor_int side, zor_int inside, zor_int j,
                T ratio, T s) {
  if (kind == 0) {
    r.at(inside, j) += values[j] * ratio;
    r.at(side, j) = T(0);
  } else if (j == 0) {
    r.at(side, 0) += (values[0] + values[1]) * s;
  } else if (j == r.ny) {
    r.at(side, j) += (values[j] + values[j - 1]) * s;
  } else {
    r.at(side, j) += values[j] * (T(2) * s);
  }
}

template <class T>
void halve_neumann_sides(const rectangle<T>& r, const zor_int* kinds) {
  const T half = T(0.5);
  for (zor_int j = 0; j <= r.ny; ++j) {
    if (kinds[0] == 1) r.at(0, j) *= half;
    if (kinds[1] == 1) r.at(r.nx, j) *= half;
  }
  for (zor_int i = 0; i <= r.nx; ++i) {
    if (kinds[2] == 1) r.at(i, 0) *= half;
    if (kinds[3] == 1) r.at(i, r.ny) *= half;
  }
}

template <class T>
void fold_boundary(const rectangle<T>& r, const zor_int* kinds, T hx, T hy) {
  zero_dirichlet_sides(r, kinds);
  fold_row(r, r.ay, kinds[2], 0, 1, hy);
  fold_row(r, r.by, kinds[3], r.ny, r.ny - 1, hy);
  const T ratio = (hy / hx) * (hy / hx), s = hy * hy / hx;
  for (zor_int j = 0; j <= r.ny; ++j) {
    fold_value(r, r.ax, kinds[0], 0, 1, j, ratio, s);
    fold_value(r, r.bx, kinds[1], r.nx, r.nx - 1, j, ratio, s);
  }
  halve_neumann_sides(r, kinds);
}

template <class T>
void commit(const box_problem<T>& p, const rectangle<T>& r, ZorDftDescriptor** handle) {
  commit_steps steps;
  bool warned = false;
  if (!begin_commit(p, &steps)) return;
  if (steps.set_up && !set_up_box(p, &handle, &warned)) return;
  const T hy = p.step(1);
  if (steps.scale) scale_all(r.f, (r.nx + 1) * (r.ny + 1), hy * hy);
  if (steps.boundary) {
    if (!steps.set_up && !check_kinds(p)) return;
    fold_boundary(r, p.s.ipar + at_kinds, p.step(0), hy);
  }
  p.s.finish(warned ? 1 : 0);
}

template <class T>
void put_back_dirichlet(const rectangle<T>& r, const zor_int* kinds) {
  for (zor_int j = 0; j <= r.ny; ++j) {
    if (kinds[0] == 0) r.at(0, j) = r.ax[j];
    if (kinds[1] == 0) r.at(r.nx, j) = r.bx[j];
  }
  for (zor_int i = 0; i <= r.nx; ++i) {
    if (kinds[2] == 0) r.at(i, 0) = r.ay[i];
    if (kinds[3] == 0) r.at(i, r.ny) = r.by[i];
  }
}

template <class T>
void run_steps(const box_problem<T>& p, const rectangle<T>& r, ZorDftDescriptor** handle, void* work) {
  const solver<T>& s = p.s;
  zor_int* const ipar = s.ipar;
  const int xx = p.pair(0), yy = p.pair(1);
  const T* const lambda = p.table(at_tables);
  const zor_int* const threads = &ipar[at_threads];
  (*step<T>.forward[xx])(&r.nx, &r.ny, r.f, s.dpar, ipar, work, handle, threads, s.stat);
  if (*s.stat != 0) return;
  zor_int mode = ipar[at_sides];
  if (mode == all_neumann && !(std::fabs(lambda[0] - T(2)) <= s.dpar[real_tolerance])) mode = 14;
  if (yy == 3)
    (*step<T>.systems_nn)(&r.nx, &r.ny, lambda, work, r.f, ipar, s.dpar, &mode, threads, s.stat);
  else
    (*step<T>.systems[yy])(&r.nx, &r.ny, lambda, work, r.f, ipar, s.dpar, threads, s.stat);
  if (*s.stat != 0) return;
  (*step<T>.backward[xx])(&r.nx, &r.ny, r.f, s.dpar, ipar, work, handle, threads, s.stat);
  if (*s.stat != 0 || mode != all_neumann) return;
  if (ipar[at_warnings] != 0) {
    s.report_warning(singular);
    *s.stat += 1;
  }
  subtract_mean(r.f, r.nx + 1, r.ny + 1, T(r.ny + r.ny * r.nx + r.nx + 1));
}

template <class T>
void solve(const box_problem<T>& p, const rectangle<T>& r, ZorDftDescriptor** handle) {
  solve_in_steps(
      p, 15, [&](void* work) { run_steps(p, r, handle, work); },
      [&] { put_back_dirichlet(r, p.s.ipar + at_kinds); });
}

}  // namespace
}  // namespace zor::pde

extern "C" {
#define ROW_BOX_INIT_2D(name, T)                                                 \
  SIG_BOX_INIT_2D(name, T) {                                                     \
    const T ends[4] = {*ax, *bx, *ay, *by};                                      \
    const zor_int intervals[2] = {*nx, *ny};                                     \
    zor::pde::init_box<T>({2, {ipar, dpar, stat}}, ends, intervals, BCtype, *q); \
  }
#define ROW_BOX_2D(name, T, stage)                                                                   \
  SIG_BOX_COMMIT_2D(name, T) {                                                                       \
    zor::pde::stage<T>({2, {ipar, dpar, stat}}, {f, bd_ax, bd_bx, bd_ay, bd_by, ipar[10], ipar[11]}, \
                       handle);                                                                      \
  }
#define ROW_BOX_COMMIT_2D(name, T) ROW_BOX_2D(name, T, commit)
#define ROW_BOX_SOLVE_2D(name, T) ROW_BOX_2D(name, T, solve)
#define ROW_BOX_FREE_2D(name) \
  SIG_BOX_FREE_2D(name) { zor::pde::free_box(handle, nullptr, ipar, stat); }
#include "zor/tables/pdepl.inc"
#undef ROW_BOX_2D
}
