// SPDX-License-Identifier: MIT
// The public solvers. Axes are diagonalised by a transform, but for the last one, which is left to
// tridiagonal systems unless it is periodic: then it is transformed as well, and modes are divided by their
// eigenvalue.
#include "zor/poisson.h"

#include <cmath>
#include <new>

#include "core/pde/line_transform.h"
#include "core/pde/steps.h"
#include "zor/signatures/poisson.h"

namespace zor_core {
namespace {

// What an axis is, by its two sides.
enum axis_kind : int { value_value, value_derivative, derivative_value, derivative_derivative, periodic };

template <class T>
struct solver_state {
  line_transform<T> transform[3];
  T* lambda[3];  // of the modes of an axis, in the order in which they stand, times the square of the last
                 // step
  T* sine;       // of the colatitudes
};

}  // namespace
}  // namespace zor_core

struct zor_poisson {
  bool single, sphere, globe, singular;
  zor_int dimensions, n[3];
  zor_core::axis_kind kind[3];
  double h[3], q;
  // One of the two is in use.
  zor_core::solver_state<float> s;
  zor_core::solver_state<double> d;
};

namespace zor_core {
namespace {

using zor::pde::line_batch;
using zor::pde::mode_systems;

[[gnu::tls_model("initial-exec")]] constinit thread_local const char* detail = nullptr;
zor_int refused(zor_int position, const char* why) {
  detail = why;
  return -position;
}

template <class T>
solver_state<T>& state_of(zor_poisson& p) {
  if constexpr (std::is_same_v<T, float>)
    return p.s;
  else
    return p.d;
}
template <class T>
const solver_state<T>& state_of(const zor_poisson& p) {
  return state_of<T>(const_cast<zor_poisson&>(p));
}

template <class T>
void free_state(solver_state<T>* s) {
  for (int a = 0; a < 3; ++a) {
    free_transform(&s->transform[a]);
    std::free(s->lambda[a]);
  }
  std::free(s->sine);
}
void release(zor_poisson* p) {
  free_state(&p->s);
  free_state(&p->d);
  std::free(p);
}

constexpr int32_t staggered_cosines = zor::pde::lines_folded + 2;
constexpr int32_t line_kinds[] = {0, staggered_cosines, staggered_cosines, 1, zor::pde::lines_periodic};
constexpr double pi = 3.14159265358979323846;

struct mode_range {
  zor_int first, count;
};
mode_range modes_of(axis_kind kind, zor_int n) {
  if (kind == value_value) return {1, n - 1};
  return {0, kind == derivative_derivative ? n + 1 : n};
}

// The wave number of the mode in a place.
zor_int wave_number(axis_kind kind, zor_int n, zor_int place) {
  if (kind != periodic) return place;
  if (n % 2 != 0) return (place + 1) / 2;
  return place == 1 ? n / 2 : place / 2;
}

template <class T>
T* table_of(zor_int count) {
  return static_cast<T*>(std::calloc(size_t(count), sizeof(T)));
}

template <class T>
bool fill_eigenvalues(zor_poisson* p, int axis, double (*sine)(double)) {
  const zor_int n = p->n[axis];
  const axis_kind kind = p->kind[axis];
  T* const lambda = state_of<T>(*p).lambda[axis] = table_of<T>(n + 1);
  if (lambda == nullptr) return false;
  const double last = p->h[p->dimensions - 1], e = 2 * last / p->h[axis],
               q = axis == 0 ? p->q * last * last : 0;
  const bool staggered = kind == value_derivative || kind == derivative_value;
  for (zor_int place = 0; place <= n; ++place) {
    const double k = double(wave_number(kind, n, place));
    const double angle = kind == periodic ? k * pi / double(n)
                         : staggered      ? (2 * k + 1) * pi / double(4 * n)
                                          : k * pi / double(2 * n);
    const double root = e * sine(angle);
    lambda[place] = T(root * root + q);
  }
  return true;
}

bool transforms_axis(const zor_poisson& p, int axis) {
  return axis + 1 < p.dimensions || p.kind[axis] == periodic;
}

zor_int public_status(zor_int code) {
  if (code == 0) return ZOR_POISSON_OK;
  return code == pde_too_long ? ZOR_POISSON_TOO_LONG : ZOR_POISSON_NO_MEMORY;
}

template <class T>
zor_int build_box(zor_poisson* p) {
  const zor::pde::kernel_table* const kernels = any_kernels();
  if (kernels == nullptr) return pde_no_memory;
  for (int a = 0; a < p->dimensions; ++a) {
    if (!transforms_axis(*p, a)) continue;
    const zor_int code = make_transform(&state_of<T>(*p).transform[a], line_kinds[p->kind[a]], p->n[a]);
    if (code != 0) return code;
    if (!fill_eigenvalues<T>(p, a, kernels->sine)) return pde_no_memory;
  }
  return 0;
}

const char* bad_box(const zor_poisson_box& b) {
  if (b.dimensions != 2 && b.dimensions != 3) return "dimensions is neither 2 nor 3";
  double points = 1;
  for (int a = 0; a < b.dimensions; ++a) {
    if (b.n[a] < 2) return "n: an axis has fewer than 2 intervals";
    points *= double(b.n[a]) + 1;
    if (!(b.length[a] > 0) || !std::isfinite(b.length[a])) return "length: an axis has no length above 0";
    for (int s = 2 * a; s < 2 * a + 2; ++s)
      if (b.side[s] < ZOR_POISSON_VALUE || b.side[s] > ZOR_POISSON_PERIODIC)
        return "side: a condition is none of value, derivative and periodic";
    if ((b.side[2 * a] == ZOR_POISSON_PERIODIC) != (b.side[2 * a + 1] == ZOR_POISSON_PERIODIC))
      return "side: an axis is periodic on one side only";
  }
  if (points > 0x1p43) return "n: the grid has more points than memory can hold";
  return std::isfinite(b.q) ? nullptr : "q is not a number";
}

zor_poisson* new_problem() {
  void* const block = std::malloc(sizeof(zor_poisson));
  return block == nullptr ? nullptr : new (block) zor_poisson{};
}

zor_int hand_over(zor_poisson** problem, zor_poisson* p, zor_int code) {
  if (code != 0)
    release(p);
  else
    *problem = p;
  return public_status(code);
}

template <class T>
zor_int create(zor_poisson** problem, const zor_poisson_box* box) {
  if (problem == nullptr) return refused(1, "it is null");
  if (box == nullptr) return refused(2, "it is null");
  if (const char* why = bad_box(*box); why != nullptr) return refused(2, why);
  zor_poisson* const p = new_problem();
  if (p == nullptr) return ZOR_POISSON_NO_MEMORY;
  p->single = std::is_same_v<T, float>;
  p->dimensions = box->dimensions;
  p->q = box->q;
  p->singular = box->q == 0;
  for (int a = 0; a < box->dimensions; ++a) {
    p->n[a] = box->n[a];
    p->h[a] = box->length[a] / double(box->n[a]);
    const zor_int first = box->side[2 * a], last = box->side[2 * a + 1];
    p->kind[a] = first == ZOR_POISSON_PERIODIC ? periodic : axis_kind(2 * first + last);
    if (p->kind[a] < derivative_derivative) p->singular = false;
  }
  return hand_over(problem, p, build_box<T>(p));
}

const char* bad_sphere(const zor_poisson_sphere& s) {
  for (const zor_int n : s.n)
    if (n < 2) return "n: an axis has fewer than 2 intervals";
  if (s.periodic != 0 && (s.n[0] % 2 != 0 || s.n[0] < 4))
    return "n[0]: a circle wants an even number of intervals, at least 4";
  if (!(s.longitude[1] > s.longitude[0]) || !std::isfinite(s.longitude[1] - s.longitude[0]))
    return "longitude: its end is not above its beginning";
  if (!(s.colatitude[0] >= -1e-10) || !(s.colatitude[1] > s.colatitude[0]) ||
      !(s.colatitude[1] <= pi + 1e-10))
    return "colatitude: it does not rise between 0 and pi";
  if ((double(s.n[0]) + 1) * (double(s.n[1]) + 1) > 0x1p43)
    return "n: the grid has more points than memory can hold";
  return std::isfinite(s.q) ? nullptr : "q is not a number";
}

template <class T>
zor_int build_sphere(zor_poisson* p, const zor_poisson_sphere& s) {
  const zor::pde::kernel_table* const kernels = any_kernels();
  solver_state<T>& state = state_of<T>(*p);
  const zor_int np = p->n[0], nt = p->n[1];
  state.lambda[0] = table_of<T>(np + 1);
  state.sine = table_of<T>(nt + 1);
  if (kernels == nullptr || state.lambda[0] == nullptr || state.sine == nullptr) return pde_no_memory;
  for (zor_int j = 0; j <= nt; ++j) state.sine[j] = T(kernels->sine(s.colatitude[0] + p->h[1] * double(j)));
  const bool circle = p->kind[0] == periodic;
  for (zor_int k = 0; k <= np; ++k) {
    const double root = 2 * p->h[1] / p->h[0] * kernels->sine(double(k) * pi / double(circle ? np : 2 * np));
    state.lambda[0][k] = T(root * root);
  }
  const zor_int code = make_transform(&state.transform[0], 0, circle ? np / 2 : np);
  return code != 0 || !circle ? code : make_transform(&state.transform[1], 1, np / 2);
}

template <class T>
zor_int create_sphere(zor_poisson** problem, const zor_poisson_sphere* sphere) {
  if (problem == nullptr) return refused(1, "it is null");
  if (sphere == nullptr) return refused(2, "it is null");
  if (const char* why = bad_sphere(*sphere); why != nullptr) return refused(2, why);
  zor_poisson* const p = new_problem();
  if (p == nullptr) return ZOR_POISSON_NO_MEMORY;
  p->single = std::is_same_v<T, float>;
  p->sphere = true;
  p->dimensions = 2;
  p->q = sphere->q;
  const double* const ends[2] = {sphere->longitude, sphere->colatitude};
  for (int a = 0; a < 2; ++a) {
    p->n[a] = sphere->n[a];
    p->h[a] = (ends[a][1] - ends[a][0]) / double(sphere->n[a]);
  }
  p->kind[0] = sphere->periodic != 0 ? periodic : value_value;
  p->globe = sphere->periodic != 0 && std::fabs(ends[1][0]) <= 1e-10 && std::fabs(ends[1][1] - pi) <= 1e-10;
  p->singular = p->globe && sphere->q == 0;
  return hand_over(problem, p, build_sphere<T>(p, *sphere));
}

// A solve on a box: f and its strides.
template <class T>
struct box_data {
  const zor_poisson& p;
  T* f;
  zor_int stride[4];  // of the axes, and the number of values
  box_data(const zor_poisson& problem, T* data) : p(problem), f(data), stride{1, 1, 1, 1} {
    for (int a = 0; a < p.dimensions; ++a) stride[a + 1] = stride[a] * (p.n[a] + 1);
  }
  // each(value of f, place in the side's array) for the points of a layer across an axis.
  template <class Each>
  void for_layer(int axis, zor_int at, const Each& each) const {
    const zor_int inner = stride[axis], outer = stride[p.dimensions] / stride[axis + 1];
    for (zor_int j = 0; j < outer; ++j)
      for (zor_int i = 0; i < inner; ++i) each(f[i + at * inner + j * stride[axis + 1]], i + inner * j);
  }
};

bool gives_value(axis_kind kind, int end) {
  return kind == value_value || kind == (end == 0 ? value_derivative : derivative_value);
}

// Values go to the neighbours inside, derivatives to the side; rows of free ends of the last axis are halved.
template <class T>
void fold_sides(const box_data<T>& b, const T* const* sides) {
  const zor_poisson& p = b.p;
  for (int s = 0; s < 2 * p.dimensions && sides != nullptr; ++s) {
    const int axis = s / 2, end = s % 2;
    if (p.kind[axis] == periodic || sides[s] == nullptr) continue;
    const T* const values = sides[s];
    const zor_int n = p.n[axis], outer = end == 0 ? 0 : n, inner = end == 0 ? 1 : n - 1;
    const bool value = gives_value(p.kind[axis], end);
    const T factor = T(value ? 1 / (p.h[axis] * p.h[axis]) : 2 / p.h[axis]);
    b.for_layer(axis, value ? inner : outer, [=](T& at, zor_int i) { at += values[i] * factor; });
  }
  const int last = int(p.dimensions) - 1;
  for (int end = 0; end < 2 && p.kind[last] != periodic; ++end)
    if (!gives_value(p.kind[last], end))
      b.for_layer(last, end == 0 ? 0 : p.n[last], [](T& at, zor_int) { at *= T(0.5); });
}

// Given values back on their sides, then the last values of periodic axes.
template <class T>
void put_sides(const box_data<T>& b, const T* const* sides) {
  const zor_poisson& p = b.p;
  for (int s = 0; s < 2 * p.dimensions; ++s) {
    const int axis = s / 2, end = s % 2;
    if (p.kind[axis] == periodic || !gives_value(p.kind[axis], end)) continue;
    const T* const values = sides == nullptr ? nullptr : sides[s];
    b.for_layer(axis, end == 0 ? 0 : p.n[axis],
                [values](T& at, zor_int i) { at = values == nullptr ? T(0) : values[i]; });
  }
  for (int axis = 0; axis < p.dimensions; ++axis) {
    const zor_int back = p.n[axis] * b.stride[axis];
    if (p.kind[axis] == periodic)
      b.for_layer(axis, p.n[axis], [back](T& at, zor_int) { at = *(&at - back); });
  }
}

// The lines of an axis through all of f (the second axis of three: of one plane).
template <class T>
line_batch<T> lines_of_axis(const box_data<T>& b, int axis, bool forward) {
  const zor_poisson& p = b.p;
  const zor_int n = p.n[axis];
  line_batch<T> l{};
  l.kind = line_kinds[p.kind[axis]];
  l.forward = forward;
  l.mirrored = p.kind[axis] == value_derivative;
  const bool circle = p.kind[axis] == periodic;
  const double last = p.h[p.dimensions - 1], square = axis == 0 ? last * last : 1;
  l.scale = T(forward ? square / double(n) : circle ? 1 : 0.5);
  l.tables = state_of<T>(p).transform[axis].tables;
  l.f = b.f;
  l.step = b.stride[axis];
  l.distance = axis == 0 ? b.stride[1] : 1;
  l.count = axis == 0 ? b.stride[p.dimensions] / b.stride[1] : b.stride[axis];
  return l;
}

template <class T>
zor_int run_axis(const line_batch<T>& lines, const box_data<T>& b, int axis) {
  return run_lines(state_of<T>(b.p).transform[axis].handle, lines, INT32_MAX);
}

// All axes but the last.
template <class T>
zor_int transform_box(const box_data<T>& b, bool forward) {
  const zor_poisson& p = b.p;
  if (p.dimensions == 2) return run_axis(lines_of_axis(b, 0, forward), b, 0);
  plane_lines<T> planes = {};
  for (int i = 0; i < 2; ++i) {
    const int axis = forward ? i : 1 - i;
    planes.d[i] = state_of<T>(p).transform[axis].handle;
    planes.lines[i] = lines_of_axis(b, axis, forward);
    if (axis == 0) planes.lines[i].count = p.n[1] + 1;
  }
  planes.planes = p.n[2] + 1;
  planes.plane_size = b.stride[2];
  return run_planes(planes, INT32_MAX);
}

// A periodic last axis by its transform: there, every mode over its eigenvalue, the constant one of a
// singular problem to zero, and back.
template <class T>
zor_int solve_periodic_axis(const box_data<T>& b) {
  const zor_poisson& p = b.p;
  const solver_state<T>& state = state_of<T>(p);
  const int last = int(p.dimensions) - 1;
  const auto across = [&](int axis) -> zor::pde::axis_eigenvalues<T> {
    if (axis == last) return {};
    const mode_range modes = modes_of(p.kind[axis], p.n[axis]);
    return {state.lambda[axis], modes.first, modes.first + modes.count - 1};
  };
  const zor::pde::line_eigenvalues<T> eigenvalues = {across(0), across(1), p.n[0] + 1, state.lambda[last],
                                                     p.singular};
  line_batch<T> lines = lines_of_axis(b, last, true);
  lines.over = &eigenvalues;
  return run_axis(lines, b, last);
}

// The last axis by tridiagonal systems. Of a singular problem the constant mode gets a mean of zero.
template <class T>
zor_int solve_last_axis(const box_data<T>& b) {
  const zor_poisson& p = b.p;
  const solver_state<T>& state = state_of<T>(p);
  const int last = int(p.dimensions) - 1;
  const mode_range x = modes_of(p.kind[0], p.n[0]);
  const mode_range y = p.dimensions == 3 ? modes_of(p.kind[1], p.n[1]) : mode_range{0, 1};
  mode_systems<T> s{};
  s.n = p.n[last];
  s.count = x.count;
  s.excess = true;
  s.diagonal = state.lambda[0] + x.first;
  s.free_first = !gives_value(p.kind[last], 0);
  s.free_last = !gives_value(p.kind[last], 1);
  s.step = b.stride[last];
  const zor_int status = run_systems(
      s, y.count,
      [&](zor_int layer, mode_systems<T>* part) {
        const zor_int j = y.first + layer;
        part->f = b.f + x.first + b.stride[1] * j;
        part->shift = p.dimensions == 3 ? state.lambda[1][j] : T(0);
        part->singular = p.singular && j == 0;
      },
      INT32_MAX);
  if (status != 0 || !p.singular) return status;
  T sum = 0;
  for (zor_int k = 0; k <= s.n; ++k) sum += (k == 0 || k == s.n ? T(0.5) : T(1)) * b.f[s.step * k];
  const T mean = sum / T(s.n);
  for (zor_int k = 0; k <= s.n; ++k) b.f[s.step * k] -= mean;
  return 0;
}

template <class T>
zor_int solve_box(const zor_poisson& p, T* f, const T* const* sides) {
  const box_data<T> b(p, f);
  fold_sides(b, sides);
  zor_int status = transform_box(b, true);
  if (status == 0)
    status = transforms_axis(p, int(p.dimensions) - 1) ? solve_periodic_axis(b) : solve_last_axis(b);
  if (status == 0) status = transform_box(b, false);
  if (status == 0) put_sides(b, sides);
  return status;
}

template <class T>
void subtract_area_mean(const zor_poisson& p, T* f, const T* sine) {
  T sum = 0, weights = 0;
  for (zor_int j = 0; j <= p.n[1]; ++j) {
    T row = 0;
    for (zor_int i = 0; i < p.n[0]; ++i) row += f[j * (p.n[0] + 1) + i];
    sum += sine[j] * row;
    weights += sine[j];
  }
  const T mean = sum / (weights * T(p.n[0]));
  for (zor_int i = 0; i < (p.n[0] + 1) * (p.n[1] + 1); ++i) f[i] -= mean;
}

template <class T>
zor_int solve_on_sphere(const zor_poisson& p, T* f) {
  const solver_state<T>& state = state_of<T>(p);
  const zor_int np = p.n[0], nt = p.n[1];
  const T square = T(p.h[1] * p.h[1]);
  for (zor_int j = 0; j <= nt; ++j)
    for (zor_int i = 0; i <= np; ++i) f[j * (np + 1) + i] *= state.sine[j] * square;
  const auto rows = [&](bool forward) {
    const line_transform<T>*sines = &state.transform[0], *cosines = &state.transform[1];
    if (p.kind[0] != periodic)
      return transform_sphere_rows<T>(forward, np, nt, f, sines->tables, sines->handle, INT32_MAX);
    return transform_periodic_rows<T>(forward, np, nt, f, cosines->handle, cosines->tables, sines->handle,
                                      sines->tables, INT32_MAX);
  };
  zor_int status = rows(true);
  if (status == 0)
    status = solve_sphere<T>(
        {p.globe, p.singular, np, nt, T(p.q) * square, T(p.h[1]), state.sine, state.lambda[0]}, f, INT32_MAX);
  if (status == 0) status = rows(false);
  if (status == 0 && p.singular) subtract_area_mean(p, f, state.sine);
  return status;
}

template <class T>
zor_int solve(const zor_poisson* problem, T* f, const T* const* sides) {
  if (problem == nullptr) return refused(1, "it is null");
  if (problem->single != std::is_same_v<T, float>)
    return refused(1, "the problem has been made in the other precision");
  if (f == nullptr) return refused(2, "it is null");
  const zor_int code = problem->sphere ? solve_on_sphere(*problem, f) : solve_box(*problem, f, sides);
  if (code != 0) return public_status(code);
  return problem->singular ? ZOR_POISSON_ZERO_MEAN : ZOR_POISSON_OK;
}

}  // namespace
}  // namespace zor_core

extern "C" {

#define ROW_POISSON_CREATE(name, T) \
  SIG_POISSON_CREATE(name, T) { return zor_core::create<T>(problem, box); }
#define ROW_POISSON_SPHERE(name, T) \
  SIG_POISSON_SPHERE(name, T) { return zor_core::create_sphere<T>(problem, sphere); }
#define ROW_POISSON_SOLVE(name, T) \
  SIG_POISSON_SOLVE(name, T) { return zor_core::solve<T>(problem, f, sides); }
#include "zor/tables/core_poisson.inc"

zor_int zor_poisson_free(zor_poisson** problem) {
  if (problem == nullptr || *problem == nullptr) return zor_core::refused(1, "it is null");
  zor_core::release(*problem);
  *problem = nullptr;
  return ZOR_POISSON_OK;
}

const char* zor_poisson_text(zor_int status) {
  switch (status) {
    case ZOR_POISSON_OK:
      return "done";
    case ZOR_POISSON_ZERO_MEAN:
      return "done; the problem is singular, the solution of zero mean was returned";
    case ZOR_POISSON_NO_MEMORY:
      return "memory is short";
    case ZOR_POISSON_TOO_LONG:
      return "an axis has more intervals than a transform can have";
    default:
      return status < 0 && zor_core::detail != nullptr ? zor_core::detail
                                                       : "a status that this family does not return";
  }
}

}  // extern "C"
