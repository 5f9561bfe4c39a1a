// SPDX-License-Identifier: MIT
// The public convolutions and correlations: arguments checked in the order in which they stand, then the
// options, then how the operands lie in memory.

#include "core/blas/arguments.h"
#include "core/conv/problem.h"
#include "zor/signatures/conv.h"

namespace zor_core {
namespace {

// Dimensions as the caller counts them, from the slowest; options that are null are all zero.
struct conv_request {
  bool correlation;
  int32_t dims;
  const zor_int *x_shape, *y_shape, *z_shape;
  zor_conv_options options;
};

zor_conv_options options_of(const zor_conv_options* options) {
  return options != nullptr ? *options : zor_conv_options{};
}

constexpr zor_int most_length = INT32_MAX;

// What a mode wants along a dimension: the first value and how many there are.
struct wanted {
  zor_int first, count;
};
wanted wanted_of(const conv_request& r, int d) {
  const zor_int m = r.x_shape[d], n = r.y_shape[d];
  const zor_int first = r.correlation ? 1 - m : 0, all = m + n - 1;
  switch (r.options.mode) {
    case ZOR_CONV_SAME: {
      const zor_int count = r.correlation ? n : m;
      return {first + (all - count) / 2, count};
    }
    case ZOR_CONV_VALID: {
      const zor_int shorter = std::min(m, n);
      return {first + shorter - 1, all - 2 * (shorter - 1)};
    }
    case ZOR_CONV_RANGE: {
      if (r.options.start == nullptr) return {first, all};
      return {r.options.start[d], first + all - r.options.start[d]};
    }
    default:
      return {first, all};
  }
}
zor_int decimation_of(const conv_request& r, int d) {
  return r.options.decimation != nullptr ? r.options.decimation[d] : 1;
}

bool any_outside(int32_t dims, const zor_int* values, zor_int low, zor_int high) {
  return std::any_of(values, values + dims, [=](zor_int v) { return v < low || v > high; });
}

int32_t check_shape(int32_t dims, const zor_int* shape, int32_t bad) {
  if (shape == nullptr || any_outside(dims, shape, 1, INT64_MAX)) return bad;
  return any_outside(dims, shape, 1, most_length) ? ZOR_CONV_TOO_LARGE : ZOR_CONV_OK;
}

// Everything about x, y and what is wanted; nothing about z.
int32_t check_operands(const conv_request& r) {
  if (r.dims < 1 || r.dims > conv_most_dims) return ZOR_CONV_BAD_DIMS;
  if (const int32_t bad = check_shape(r.dims, r.x_shape, ZOR_CONV_BAD_X_SHAPE)) return bad;
  if (const int32_t bad = check_shape(r.dims, r.y_shape, ZOR_CONV_BAD_Y_SHAPE)) return bad;
  for (int d = 0; d < r.dims; ++d)
    if (r.x_shape[d] + r.y_shape[d] - 1 > most_length) return ZOR_CONV_TOO_LARGE;
  const zor_conv_options& o = r.options;
  if (o.mode < ZOR_CONV_FULL || o.mode > ZOR_CONV_RANGE) return ZOR_CONV_BAD_MODE;
  if (o.method < ZOR_CONV_AUTO || o.method > ZOR_CONV_TRANSFORM) return ZOR_CONV_BAD_METHOD;
  if (o.start != nullptr && o.mode != ZOR_CONV_RANGE) return ZOR_CONV_BAD_START;
  for (int d = 0; d < r.dims; ++d) {
    const zor_int first = r.correlation ? 1 - r.x_shape[d] : 0;
    if (o.start != nullptr && (o.start[d] < first || o.start[d] > first + r.x_shape[d] + r.y_shape[d] - 2))
      return ZOR_CONV_BAD_START;
  }
  if (o.decimation != nullptr && any_outside(r.dims, o.decimation, 1, most_length))
    return ZOR_CONV_BAD_DECIMATION;
  return ZOR_CONV_OK;
}

zor_int output_length(const conv_request& r, int d) {
  return (wanted_of(r, d).count - 1) / decimation_of(r, d) + 1;
}

int32_t check_output(const conv_request& r) {
  if (const int32_t bad = check_shape(r.dims, r.z_shape, ZOR_CONV_BAD_Z_SHAPE)) return bad;
  for (int d = 0; d < r.dims; ++d) {
    const zor_int length = output_length(r, d);
    if (r.options.mode == ZOR_CONV_RANGE ? r.z_shape[d] > length : r.z_shape[d] != length)
      return ZOR_CONV_BAD_Z_SHAPE;
  }
  return ZOR_CONV_OK;
}

// Fills the steps of one operand, dimension 0 the fastest; 0 or a status.
template <class T>
int32_t set_steps(int32_t dims, const zor_int* shape, const zor_int* stride, conv_dimension* of,
                  zor_int conv_dimension::*step) {
  zor_int dense = 1;
  __int128 reach = 1;
  for (int i = 0; i < dims; ++i) {
    const int d = dims - 1 - i;
    const zor_int s = stride != nullptr ? stride[d] : dense;
    if (s > most_length || s < -most_length) return ZOR_CONV_TOO_LARGE;
    of[i].*step = s;
    dense = saturating_product(dense, shape[d]);
    reach += __int128(shape[d] - 1) * (s < 0 ? -s : s);
  }
  return reach > INT64_MAX / 2 / zor_int(sizeof(T)) ? ZOR_CONV_TOO_LARGE : ZOR_CONV_OK;
}

// Where elements lie: bytes from the lowest one, and how often each step is taken, the smallest step first.
struct layout {
  uintptr_t lowest;
  zor_int bytes;  // from the lowest byte to behind the highest
  struct {
    zor_int step, count;
  } of[conv_most_dims];
  int dims;  // of more than one element
};
template <class T>
layout layout_of(const T* lowest, int dims, const conv_dimension* of, zor_int conv_dimension::*step,
                 zor_int conv_dimension::*length) {
  layout l = {reinterpret_cast<uintptr_t>(lowest), sizeof(T), {}, 0};
  for (int i = 0; i < dims; ++i) {
    const zor_int s = (of[i].*step < 0 ? -(of[i].*step) : of[i].*step) * zor_int(sizeof(T));
    if (of[i].*length == 1 || s == 0) continue;
    l.bytes += s * (of[i].*length - 1);
    int at = l.dims++;
    for (; at > 0 && l.of[at - 1].step > s; --at) l.of[at] = l.of[at - 1];
    l.of[at] = {s, of[i].*length};
  }
  return l;
}

// Whether two elements may share a place: each step must pass what the smaller ones cover.
bool folds(const layout& l, zor_int element) {
  zor_int covered = element;
  for (int i = 0; i < l.dims; ++i) {
    if (l.of[i].step < covered) return true;
    covered += (l.of[i].count - 1) * l.of[i].step;
  }
  return false;
}

// Whether two arrays may share a byte. Where their addresses interleave they must share their largest step,
// and what they cover within it must lie apart.
bool overlap(layout a, layout b) {
  const uintptr_t distance = a.lowest < b.lowest ? b.lowest - a.lowest : a.lowest - b.lowest;
  const layout& low = a.lowest < b.lowest ? a : b;
  const layout& high = a.lowest < b.lowest ? b : a;
  if (distance >= uintptr_t(low.bytes)) return false;
  if (a.dims == 0 || b.dims == 0 || a.of[a.dims - 1].step != b.of[b.dims - 1].step) return true;
  const zor_int step = a.of[a.dims - 1].step, apart = zor_int(distance % uintptr_t(step));
  const auto inner = [step](const layout& l) { return l.bytes - step * (l.of[l.dims - 1].count - 1); };
  return apart < inner(low) || apart + inner(high) > step;
}

// The problem in the order of the kernels, from lowest addresses to elements 0.
template <class T>
int32_t make_problem(const conv_request& r, const T* x, const T* y, T* z, conv_problem<T>* p) {
  if (const int32_t bad = check_operands(r)) return bad;
  if (const int32_t bad = check_output(r)) return bad;
  if (x == nullptr) return ZOR_CONV_NULL_X;
  if (y == nullptr) return ZOR_CONV_NULL_Y;
  if (z == nullptr) return ZOR_CONV_NULL_Z;
  p->correlation = r.correlation;
  p->dims = r.dims;
  for (int i = 0; i < r.dims; ++i) {
    const int d = r.dims - 1 - i;
    p->of[i] = {r.x_shape[d],          r.y_shape[d],       r.z_shape[d], 0, 0, 0,
                wanted_of(r, d).first, decimation_of(r, d)};
  }
  const zor_conv_options& o = r.options;
  if (const int32_t bad = set_steps<T>(r.dims, r.x_shape, o.x_stride, p->of, &conv_dimension::x_step))
    return bad;
  if (const int32_t bad = set_steps<T>(r.dims, r.y_shape, o.y_stride, p->of, &conv_dimension::y_step))
    return bad;
  if (const int32_t bad = set_steps<T>(r.dims, r.z_shape, o.z_stride, p->of, &conv_dimension::z_step))
    return bad;
  for (int i = 0; i < r.dims; ++i)
    if (p->of[i].z_step == 0) return ZOR_CONV_BAD_Z_STRIDE;
  const layout of_x = layout_of(x, r.dims, p->of, &conv_dimension::x_step, &conv_dimension::m),
               of_y = layout_of(y, r.dims, p->of, &conv_dimension::y_step, &conv_dimension::n),
               of_z = layout_of(z, r.dims, p->of, &conv_dimension::z_step, &conv_dimension::count);
  if (folds(of_z, sizeof(T)) || overlap(of_z, of_x) || overlap(of_z, of_y)) return ZOR_CONV_OVERLAP;
  p->x = x;
  p->y = y;
  p->z = z;
  for (int i = 0; i < r.dims; ++i) {
    const conv_dimension& d = p->of[i];
    if (d.x_step < 0) p->x -= (d.m - 1) * d.x_step;
    if (d.y_step < 0) p->y -= (d.n - 1) * d.y_step;
    if (d.z_step < 0) p->z -= (d.count - 1) * d.z_step;
  }
  trim(p);
  return ZOR_CONV_OK;
}

bool by_transform(int32_t method, bool complex, bool single, bool correlation, int dims,
                  const conv_dimension* of, conv_plan* plan) {
  if (method == ZOR_CONV_DIRECT) return false;
  *plan = plan_transform(complex, single, correlation, dims, of);
  return method == ZOR_CONV_TRANSFORM || plan->cost < direct_cost(complex, single, correlation, dims, of);
}

template <class T>
int32_t convolve(bool correlation, int32_t dims, const zor_int* x_shape, const T* x, const zor_int* y_shape,
                 const T* y, const zor_int* z_shape, T* z, const zor_conv_options* options) {
  const conv_request r = {correlation, dims, x_shape, y_shape, z_shape, options_of(options)};
  conv_problem<T> p;
  if (const int32_t bad = make_problem(r, x, y, z, &p)) return bad;
  conv_plan plan;
  constexpr bool complex = zor::is_complex<T>, single = sizeof(zor::real_t<T>) == 4;
  return by_transform(r.options.method, complex, single, correlation, dims, p.of, &plan)
             ? convolve_by_transform(p, plan)
             : convolve_directly(p);
}

struct status_text {
  int32_t status;
  const char* text;
};
constexpr status_text status_texts[] = {
    {ZOR_CONV_OK, "done"},
    {ZOR_CONV_NO_TASK_MEMORY, "no memory for the task"},
    {ZOR_CONV_NULL_POINTER, "a null pointer"},
    {ZOR_CONV_NARROW_INTERNAL, "double-precision data with single internal precision in one dimension"},
    {ZOR_CONV_NO_MEMORY, "no memory"},
    {ZOR_CONV_BAD_PARAMETER, "parameter: not 1 to 19"},
    {ZOR_CONV_FIXED_PARAMETER, "parameter: one that may not be changed"},
    {ZOR_CONV_NO_PLAN_RELEASE, "a plan without release function"},
    {ZOR_CONV_PLAN_COPY_FAILED, "the plan could not be copied"},
    {ZOR_CONV_PLAN_RELEASE_FAILED, "the plan could not be released"},
    {ZOR_CONV_BAD_DIMS, "dims: not 1 to 7"},
    {ZOR_CONV_BAD_START, "start: outside the result, or given with another mode than ZOR_CONV_RANGE"},
    {ZOR_CONV_BAD_DECIMATION, "decimation: below 1, or beyond the end of the result"},
    {ZOR_CONV_BAD_X_SHAPE, "x_shape: null, or a length below 1"},
    {ZOR_CONV_BAD_Y_SHAPE, "y_shape: null, or a length below 1"},
    {ZOR_CONV_BAD_Z_SHAPE, "z_shape: null, or not what zor_conv_output_shape gives"},
    {ZOR_CONV_BAD_Z_STRIDE, "z_stride: 0"},
    {ZOR_CONV_NULL_X, "x: null"},
    {ZOR_CONV_NULL_Y, "y: null"},
    {ZOR_CONV_NULL_Z, "z: null"},
    {ZOR_CONV_BAD_MODE, "options: no such mode"},
    {ZOR_CONV_BAD_METHOD, "options: no such method"},
    {ZOR_CONV_BAD_JOB, "job: neither convolution nor correlation"},
    {ZOR_CONV_BAD_TYPE, "type or precision: no such value"},
    {ZOR_CONV_OVERLAP, "z: may share memory with x or y, or two of its elements one place"},
    {ZOR_CONV_TOO_LARGE, "a length or stride of 2^31 and more, or an array beyond all memory"},
    {ZOR_CONV_TRANSFORM_FAILED, "the transforms failed"},
};

}  // namespace
}  // namespace zor_core

using namespace zor_core;

#define ROW_CONVOLVE(name, T)                                                     \
  extern "C" SIG_CONVOLVE(name, T) {                                              \
    return convolve<T>(false, dims, x_shape, x, y_shape, y, z_shape, z, options); \
  }
#define ROW_CORRELATE(name, T)                                                   \
  extern "C" SIG_CONVOLVE(name, T) {                                             \
    return convolve<T>(true, dims, x_shape, x, y_shape, y, z_shape, z, options); \
  }
#include "zor/tables/core_conv.inc"

extern "C" {

int32_t zor_conv_output_shape(int32_t job, int32_t dims, const zor_int* x_shape, const zor_int* y_shape,
                              const zor_conv_options* options, zor_int* z_shape) {
  if (job != ZOR_CONV_CONVOLUTION && job != ZOR_CONV_CORRELATION) return ZOR_CONV_BAD_JOB;
  const conv_request r = {job == ZOR_CONV_CORRELATION, dims, x_shape, y_shape, nullptr, options_of(options)};
  if (const int32_t bad = check_operands(r)) return bad;
  if (z_shape == nullptr) return ZOR_CONV_BAD_Z_SHAPE;
  for (int d = 0; d < dims; ++d) z_shape[d] = output_length(r, d);
  return ZOR_CONV_OK;
}

int32_t zor_conv_method(int32_t job, int32_t type, int32_t precision, int32_t dims, const zor_int* x_shape,
                        const zor_int* y_shape, const zor_int* z_shape, const zor_conv_options* options) {
  if (job != ZOR_CONV_CONVOLUTION && job != ZOR_CONV_CORRELATION) return ZOR_CONV_BAD_JOB;
  if ((type != ZOR_CONV_REAL && type != ZOR_CONV_COMPLEX) ||
      (precision != ZOR_CONV_SINGLE && precision != ZOR_CONV_DOUBLE))
    return ZOR_CONV_BAD_TYPE;
  const conv_request r = {job == ZOR_CONV_CORRELATION, dims, x_shape, y_shape, z_shape, options_of(options)};
  if (const int32_t bad = check_operands(r)) return bad;
  if (const int32_t bad = check_output(r)) return bad;
  // Trimmed as the operands would be; what they hold does not count.
  conv_problem<char> p = {r.correlation, dims, nullptr, nullptr, nullptr, {}};
  for (int i = 0; i < dims; ++i) {
    const int d = dims - 1 - i;
    p.of[i] = {x_shape[d], y_shape[d], z_shape[d], 0, 0, 0, wanted_of(r, d).first, decimation_of(r, d)};
  }
  trim(&p);
  conv_plan plan;
  return by_transform(r.options.method, type == ZOR_CONV_COMPLEX, precision == ZOR_CONV_SINGLE, r.correlation,
                      dims, p.of, &plan)
             ? ZOR_CONV_TRANSFORM
             : ZOR_CONV_DIRECT;
}

const char* zor_conv_error_text(int32_t status) {
  for (const status_text& known : status_texts)
    if (known.status == status) return known.text;
  return "no such status";
}

}  // extern "C"
