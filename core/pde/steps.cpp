// SPDX-License-Identifier: MIT
// The steps of a solve. Sides come as 0 to 3 for dd, dn, nd, nn.
#include "core/pde/steps.h"

#include <utility>

#include "zor/signatures/poisson.h"
#include "zor/signatures/trig.h"

namespace zor_core {

using zor::pde::line_batch;
using zor::pde::mode_systems;

namespace {

// Transforms by sides: sines; staggered cosines from the other end; staggered cosines; cosines. Values on a
// side of derivatives are halved, and the sums of the transforms halve them too.
constexpr int32_t kind_of_sides[] = {0, 2, 2, 1};
template <class T>
line_batch<T> lines_between(int sides, bool forward, zor_int n, const T* tables) {
  line_batch<T> b{};
  b.kind = kind_of_sides[sides];
  b.forward = forward;
  b.mirrored = sides == 1;
  b.doubled_first = forward && (sides & 2) != 0;
  b.doubled_last = forward && (sides & 1) != 0;
  b.scale = forward ? T(1) / T(n) : T(0.5);
  b.tables = tables;
  return b;
}

struct mode_range {
  zor_int first, count;
};
mode_range modes_of(int sides, zor_int n) {
  if (sides == 0) return {1, n - 1};
  return {0, sides == 3 ? n + 1 : n};
}
// The sides of an axis as ipar has them.
int sides_of(const zor_int* ipar, int axis) {
  return int(2 * (ipar[4 + 2 * axis] & 1) + (ipar[5 + 2 * axis] & 1));
}

template <class T>
const T* tables_of(const T* dpar, const zor_int* ipar, int axis) {
  return dpar + ipar[17 + 2 * axis] - 1;
}

template <class T>
zor_int transform_rows(int sides, bool forward, zor_int nx, zor_int rows, T* f, const T* tables,
                       ZorDftDescriptor* d, zor_int threads) {
  line_batch<T> b = lines_between(sides, forward, nx, tables);
  b.f = f;
  b.step = 1;
  b.distance = nx + 1;
  b.count = rows;
  return run_lines(d, b, threads);
}

template <class T>
zor_int transform_planes(int sides, bool forward, const zor_int* n, T* f, const T* const* tables,
                         ZorDftDescriptor* const* d, zor_int threads) {
  const zor_int width = n[0] + 1;
  const mode_range columns = modes_of(sides / 4, n[0]);
  line_batch<T> x = lines_between(sides / 4, forward, n[0], tables[0]);
  x.f = f;
  x.step = 1, x.distance = width, x.count = n[1] + 1;
  line_batch<T> y = lines_between(sides % 4, forward, n[1], tables[1]);
  y.f = f + columns.first;
  y.step = width, y.distance = 1, y.count = columns.count;
  plane_lines<T> p = {{d[0], d[1]}, {x, y}, n[2] + 1, width * (n[1] + 1)};
  if (!forward) {
    std::swap(p.d[0], p.d[1]);
    std::swap(p.lines[0], p.lines[1]);
  }
  return run_planes(p, threads);
}

template <class T>
mode_systems<T> constant_systems(int sides, zor_int n, zor_int step) {
  mode_systems<T> s{};
  s.n = n;
  s.free_first = (sides & 2) != 0;
  s.free_last = (sides & 1) != 0;
  s.step = step;
  return s;
}

template <class T>
zor_int solve_columns(int sides, zor_int nx, zor_int ny, const T* lambda, T* f, const zor_int* ipar,
                      bool singular, zor_int threads) {
  const mode_range modes = modes_of(sides_of(ipar, 0), nx);
  if (modes.count < 1) return 0;
  mode_systems<T> s = constant_systems<T>(sides, ny, nx + 1);
  s.count = modes.count;
  s.diagonal = lambda + modes.first;
  s.f = f + modes.first;
  s.singular = singular;
  return run_systems(
      s, 1, [](zor_int, mode_systems<T>*) {}, threads);
}

template <class T>
zor_int solve_columns_3d(int sides, const zor_int* n, const T* lambda_x, const T* lambda_y, T* f,
                         const zor_int* ipar, bool singular, zor_int threads) {
  const mode_range x = modes_of(sides_of(ipar, 0), n[0]), y = modes_of(sides_of(ipar, 1), n[1]);
  if (x.count < 1 || y.count < 1) return 0;
  const zor_int width = n[0] + 1;
  mode_systems<T> s = constant_systems<T>(sides, n[2], width * (n[1] + 1));
  s.count = x.count;
  s.diagonal = lambda_x + x.first;
  return run_systems(
      s, y.count,
      [&](zor_int layer, mode_systems<T>* part) {
        const zor_int b = y.first + layer;
        part->f = f + x.first + width * b;
        part->shift = lambda_y[b];
        part->singular = singular && b == 0;
      },
      threads);
}

}  // namespace

template <class T>
zor_int transform_sphere_rows(bool forward, zor_int np, zor_int nt, T* f, const T* tables,
                              ZorDftDescriptor* d, zor_int threads) {
  const zor_int status = transform_rows(0, forward, np, nt + 1, f, tables, d, threads);
  for (zor_int j = 0; !forward && j <= nt; ++j) f[j * (np + 1)] = f[j * (np + 1) + np] = T(0);
  return status;
}
namespace {

// Even and odd parts of a row in place: the mean and half the difference of values i and np - i.
template <class T>
void split_row(T* f, zor_int np) {
  for (zor_int i = 1; 2 * i < np; ++i) {
    const T a = f[i], b = f[np - i];
    f[i] = T(0.5) * (a + b);
    f[np - i] = T(0.5) * (a - b);
  }
}
template <class T>
void join_row(T* f, zor_int np) {
  for (zor_int i = 1; 2 * i < np; ++i) {
    const T a = f[i], b = f[np - i];
    f[i] = a + b;
    f[np - i] = a - b;
  }
  f[np] = f[0];
}
template <class T, class Each>
void for_rows(zor_int np, zor_int nt, T* f, zor_int threads, const Each& each) {
  const int32_t used = threads_of_step(threads, (np + 1) * (nt + 1));
  const zor_int rows = std::max<zor_int>(1, (nt + 1) / (8 * used)), pieces = (nt + rows) / rows;
  for_each_piece(used, pieces, [&](zor_int piece) {
    for (zor_int j = piece * rows; j < std::min((piece + 1) * rows, nt + 1); ++j) each(f + j * (np + 1), np);
  });
}
}  // namespace

template <class T>
zor_int transform_periodic_rows(bool forward, zor_int np, zor_int nt, T* f, ZorDftDescriptor* cosines,
                                const T* cosine_tables, ZorDftDescriptor* sines, const T* sine_tables,
                                zor_int threads) {
  if (forward) for_rows(np, nt, f, threads, split_row<T>);
  line_batch<T> b{};
  b.kind = 1;
  b.forward = forward;
  b.scale = forward ? T(2) / T(np) : T(0.5);
  b.tables = cosine_tables;
  b.f = f;
  b.step = 1;
  b.distance = np + 1;
  b.count = nt + 1;
  zor_int status = run_lines(cosines, b, threads);
  if (status != 0) return status;
  b.kind = 0;
  b.tables = sine_tables;
  b.f = f + np;
  b.step = -1;
  status = run_lines(sines, b, threads);
  if (status != 0) return status;
  if (!forward) for_rows(np, nt, f, threads, join_row<T>);
  return 0;
}

namespace {

// Coefficients of the colatitude.
template <class T>
struct colatitude {
  T *low, *a, *b, *weight;
};
}  // namespace

template <class T>
zor_int solve_sphere(const sphere_systems<T>& p, T* f, zor_int threads) {
  const auto [globe, singular, np, nt, q, height, sine, lambda] = p;
  T* const block =
      static_cast<T*>(zor_serv_allocate(uint64_t(4 * (nt + 2)) * sizeof(T), zor::scratch_boundary));
  if (block == nullptr) return pde_no_memory;
  const colatitude<T> c = {block, block + nt + 2, block + 2 * (nt + 2), block + 3 * (nt + 2)};
  for (zor_int j = 1; j <= nt; ++j) c.low[j] = T(0.5) * (sine[j - 1] + sine[j]);
  c.low[0] = c.low[nt + 1] = T(0);
  for (zor_int j = 1; j < nt; ++j) {
    c.a[j] = T(1) / sine[j];
    c.b[j] = c.low[j] + c.low[j + 1] + q * sine[j];
    c.weight[j] = sine[j];
  }
  mode_systems<T> s{};
  s.n = nt;
  s.low = c.low, s.a = c.a, s.b = c.b, s.weight = c.weight;
  s.indefinite = q < T(0);
  s.step = np + 1;
  const auto nothing = [](zor_int, mode_systems<T>*) {};
  const zor_int first = globe ? 1 : 0;
  s.count = np - first;
  s.diagonal = lambda + first;
  s.f = f + first;
  zor_int status = s.count > 0 ? run_systems(s, 1, nothing, threads) : 0;
  if (globe && status == 0) {
    // A pole's cell is a cap of half a step: an eighth of a step in the units of the other rows.
    const T cap = height * T(0.125);
    c.weight[0] = c.weight[nt] = cap;
    c.a[0] = c.a[nt] = T(0);
    c.b[0] = c.low[1] + q * cap;
    c.b[nt] = c.low[nt] + q * cap;
    f[0] = f[s.step] / sine[1] * cap;
    f[s.step * nt] = f[s.step * (nt - 1)] / sine[nt - 1] * cap;
    s.count = 1;
    s.diagonal = lambda;
    s.f = f;
    s.free_first = s.free_last = true;
    s.singular = singular;
    status = run_systems(s, 1, nothing, threads);
  }
  zor_serv_deallocate(block);
  return status;
}

#define ZOR_INSTANCES(T)                                                                               \
  template zor_int transform_sphere_rows<T>(bool, zor_int, zor_int, T*, const T*, ZorDftDescriptor*,   \
                                            zor_int);                                                  \
  template zor_int transform_periodic_rows<T>(bool, zor_int, zor_int, T*, ZorDftDescriptor*, const T*, \
                                              ZorDftDescriptor*, const T*, zor_int);                   \
  template zor_int solve_sphere<T>(const sphere_systems<T>&, T*, zor_int);
ZOR_INSTANCES(float)
ZOR_INSTANCES(double)
#undef ZOR_INSTANCES

namespace {

const zor::pde::kernel_table* find_kernels() {
  zor_int ipar[128] = {}, stat = 0;
  const zor_int n = 2, sines = 0;
  double dpar[8] = {}, f[3] = {};
  ZorDftDescriptor* handle = nullptr;
  zor_pdett_d_init_trig_transform(&n, &sines, ipar, dpar, &stat);
  ipar[1] = ipar[2] = 0;
  zor_pdett_d_commit_trig_transform(f, &handle, ipar, dpar, &stat);
  const zor::pde::kernel_table* const table = zor::pde::kernels_of(handle);
  if (handle != nullptr) zor_pdett_free_trig_transform(&handle, ipar, &stat);
  return table;
}

}  // namespace

const zor::pde::kernel_table* any_kernels() {
  static std::atomic<const zor::pde::kernel_table*> found{nullptr};
  const zor::pde::kernel_table* table = found.load(std::memory_order_acquire);
  if (table == nullptr) {
    table = find_kernels();
    found.store(table, std::memory_order_release);
  }
  return table;
}

}  // namespace zor_core

extern "C" {
#define ROW_STEP_FT(name, T, sides, forward)                                                                 \
  SIG_STEP_FT(name, T) {                                                                                     \
    (void)work;                                                                                              \
    *stat = zor_core::transform_rows<T>(sides, forward, *nx, *ny + 1, f, zor_core::tables_of(dpar, ipar, 0), \
                                        *handle, *threads);                                                  \
  }
#define ROW_STEP_FT_3D(name, T, sides, forward)                                                          \
  SIG_STEP_FT_3D(name, T) {                                                                              \
    (void)work;                                                                                          \
    const zor_int n[3] = {*nx, *ny, *nz};                                                                \
    const T* const tables[2] = {zor_core::tables_of(dpar, ipar, 0), zor_core::tables_of(dpar, ipar, 1)}; \
    ZorDftDescriptor* const handles[2] = {*xhandle, *yhandle};                                           \
    *stat = zor_core::transform_planes<T>(sides, forward, n, f, tables, handles, *threads);              \
  }
#define ROW_STEP_LU_2D(name, T, sides)                                                     \
  SIG_STEP_LU_2D(name, T) {                                                                \
    (void)work;                                                                            \
    (void)dpar;                                                                            \
    *stat = zor_core::solve_columns<T>(sides, *nx, *ny, lambda, f, ipar, false, *threads); \
  }
#define ROW_STEP_LU_2D_NN(name, T)                                                           \
  SIG_STEP_LU_2D_NN(name, T) {                                                               \
    (void)work;                                                                              \
    (void)dpar;                                                                              \
    *stat = zor_core::solve_columns<T>(3, *nx, *ny, lambda, f, ipar, *mode == 15, *threads); \
  }
#define ROW_STEP_LU_3D(name, T, sides)                                                             \
  SIG_STEP_LU_3D(name, T) {                                                                        \
    (void)work;                                                                                    \
    (void)dpar;                                                                                    \
    const zor_int n[3] = {*nx, *ny, *nz};                                                          \
    *stat = zor_core::solve_columns_3d<T>(sides, n, lambda_x, lambda_y, f, ipar, false, *threads); \
  }
#define ROW_STEP_LU_3D_NN(name, T)                                                                   \
  SIG_STEP_LU_3D_NN(name, T) {                                                                       \
    (void)work;                                                                                      \
    (void)dpar;                                                                                      \
    const zor_int n[3] = {*nx, *ny, *nz};                                                            \
    *stat = zor_core::solve_columns_3d<T>(3, n, lambda_x, lambda_y, f, ipar, *mode == 63, *threads); \
  }
#define ROW_STEP_SL(name, T, forward)                                                                    \
  SIG_STEP_FT(name, T) {                                                                                 \
    (void)work;                                                                                          \
    *stat = zor_core::transform_sphere_rows<T>(forward, *nx, *ny, f, zor_core::tables_of(dpar, ipar, 0), \
                                               *handle, *threads);                                       \
  }
#define ROW_STEP_PP(name, T, forward)                                                                 \
  SIG_STEP_PP(name, T) {                                                                              \
    (void)work, (void)second_work, (void)ipar, (void)cosine_ipar, (void)sine_ipar;                    \
    *stat = zor_core::transform_periodic_rows<T>(forward, *np, *nt, f, *cosines, cosine_dpar, *sines, \
                                                 sine_dpar, *threads);                                \
  }
#define ROW_STEP_SPHERE_LU(name, T, globe)                                                                  \
  SIG_STEP_SPHERE_LU(name, T) {                                                                             \
    (void)work, (void)ipar;                                                                                 \
    const bool singular = (*q < T(0) ? -*q : *q) <= dpar[4];                                                \
    *stat = zor_core::solve_sphere<T>({globe, singular, *np, *nt, *q, dpar[1], sine, lambda}, f, *threads); \
  }
#include "zor/tables/core_pdepl.inc"
}
