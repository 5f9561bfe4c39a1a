// SPDX-License-Identifier: MIT
// The direct bodies. The operand that is shorter along dimension 0 gives the taps, the other one the signal;
// terms are added in the order of x, dimension 0 running fastest.
#include "conv/lines.h"

namespace zor::conv {
namespace {

bool is_dense(int dims, const zor_int* shape, const zor_int* stride) {
  zor_int dense[most_dims];
  dense_strides(dims, shape, dense);
  for (int d = 0; d < dims; ++d)
    if (stride[d] != dense[d]) return false;
  return true;
}

// Replaces an array by a dense copy; false when there is no memory.
template <class T>
bool make_dense(array<const T>* a, buffer<T>* copy) {
  if (is_dense(a->dims, a->shape, a->stride)) return true;
  if (!copy->request(total_of(a->dims, a->shape))) return false;
  array<T> dense = {copy->data, a->dims, {}, {}};
  for (int d = 0; d < a->dims; ++d) dense.shape[d] = a->shape[d];
  dense_strides(a->dims, a->shape, dense.stride);
  copy_array(*a, dense);
  *a = {dense.base, a->dims, {}, {}};
  for (int d = 0; d < a->dims; ++d) {
    a->shape[d] = dense.shape[d];
    a->stride[d] = dense.stride[d];
  }
  return true;
}

// Replaces a signal of contiguous lines by its phases, line by line; without memory it stays as it is.
// Returns the length of a phase, 0 when there are none.
template <class T>
zor_int make_phases(array<const T>* signal, zor_int step, buffer<T>* phases) {
  const zor_int length = (signal->shape[0] + step - 1) / step, line = length * step;
  zor_int shape[most_dims], stride[most_dims];
  for (int d = 0; d < signal->dims; ++d) shape[d] = d == 0 ? line : signal->shape[d];
  if (!phases->request(total_of(signal->dims, shape))) return 0;
  dense_strides(signal->dims, shape, stride);
  for_lines(signal->dims, signal->shape, signal->base, signal->stride, phases->data, stride,
            [&](const T* from, T* to) {
              for (zor_int r = 0; r < step && r < signal->shape[0]; ++r)
                copy_line((signal->shape[0] - r + step - 1) / step, from + r, step, to + r * length,
                          zor_int(1));
            });
  signal->base = phases->data;
  for (int d = 1; d < signal->dims; ++d) signal->stride[d] = stride[d];
  return length;
}

// What of the two operands meets in the outputs of one line of z.
template <class T>
struct line_terms {
  line_geometry g;
  bool x_is_taps;
  bool z_backward;  // outputs are counted from the end of the line of z
};

// Along dimension 0, with taps that are read backward where the two indices run against each other.
template <class T>
line_terms<T> terms_of(const arguments& a, array<const T>* x, array<const T>* y) {
  const zor_int m = x->shape[0], n = y->shape[0], start = a.start[0], step = a.decimation[0];
  line_terms<T> t = {};
  t.x_is_taps = is_correlation(a) ? m <= n : m < n;
  array<const T>* const taps = t.x_is_taps ? x : y;
  const array<const T>* const signal = t.x_is_taps ? y : x;
  line_geometry& g = t.g;
  g.taps = taps->shape[0];
  g.tap_stride = taps->stride[0];
  g.signal = signal->shape[0];
  g.signal_stride = signal->stride[0];
  g.step = step;
  g.first = start;
  if (!is_correlation(a)) {
    g.first = start - (g.taps - 1);
    taps->base += (g.taps - 1) * g.tap_stride;
    g.tap_stride = -g.tap_stride;
    g.descending = t.x_is_taps;
  } else if (!t.x_is_taps) {
    g.first = -(start + step * (a.z_shape[0] - 1));
    t.z_backward = true;
  }
  g.layout = g.signal_stride == 1 && step == 1 ? signal_layout::contiguous : signal_layout::strided;
  return t;
}

// The lines of x and y that meet in the line of outputs at `index` (of the dimensions from 1).
template <class T>
line_pairs<T> pairs_of(const arguments& a, const line_terms<T>& t, const array<const T>& x,
                       const array<const T>& y, const zor_int* index) {
  line_pairs<T> p = {};
  p.dims = a.dims - 1;
  const T* in_x = x.base;
  const T* in_y = y.base;
  for (int d = 1; d < a.dims; ++d) {
    const zor_int m = x.shape[d], n = y.shape[d], k = a.start[d] + index[d] * a.decimation[d];
    const bool correlation = is_correlation(a);
    // y(i + k) of a correlation, y(k - i) of a convolution, for the i that exist in both.
    const zor_int low = correlation ? (k < 0 ? -k : 0) : (k >= n ? k - n + 1 : 0);
    const zor_int top = correlation ? n - 1 - k : k, high = top < m - 1 ? top : m - 1;
    p.shape[d - 1] = high - low + 1;
    in_x += low * x.stride[d];
    in_y += (correlation ? k + low : k - low) * y.stride[d];
    const zor_int y_step = correlation ? y.stride[d] : -y.stride[d];
    p.tap_step[d - 1] = t.x_is_taps ? x.stride[d] : y_step;
    p.signal_step[d - 1] = t.x_is_taps ? y_step : x.stride[d];
  }
  p.at = t.x_is_taps ? line_pair<T>{in_x, in_y} : line_pair<T>{in_y, in_x};
  return p;
}

}  // namespace

template <class T, class W>
int32_t direct_body(const arguments& a) {
  const int dims = a.dims;
  array<const T> x = array_of(static_cast<const T*>(a.x), dims, a.x_shape, a.x_stride),
                 y = array_of(static_cast<const T*>(a.y), dims, a.y_shape, a.y_stride);
  const array<T> z = array_of(static_cast<T*>(a.z), dims, a.z_shape, a.z_stride);
  // Copies pay where every element is used many times.
  const zor_int in_x = total_of(dims, x.shape), in_y = total_of(dims, y.shape),
                in_z = total_of(dims, z.shape);
  buffer<T> dense_x, dense_y, phases;
  if (saturating_product(2, in_y) <= saturating_product(in_x, in_z) &&
      saturating_product(2, in_x) <= saturating_product(in_y, in_z)) {
    if (!make_dense(&x, &dense_x) || !make_dense(&y, &dense_y)) return ZOR_CONV_NO_MEMORY;
  }
  line_terms<T> t = terms_of(a, &x, &y);
  array<const T>* const signal = t.x_is_taps ? &y : &x;
  const zor_int in_taps = t.x_is_taps ? in_x : in_y, in_signal = t.x_is_taps ? in_y : in_x;
  if (t.g.step > 1 && t.g.signal_stride == 1 &&
      saturating_product(2, in_signal) <= saturating_product(in_taps, in_z)) {
    t.g.phase_length = make_phases(signal, t.g.step, &phases);
    if (t.g.phase_length > 0) t.g.layout = signal_layout::phases;
  }

  zor_int index[most_dims] = {};
  T* line = z.base;
  const zor_int length = z.shape[0];
  for (;;) {
    const line_pairs<T> pairs = pairs_of(a, t, x, y, index);
    if (t.z_backward)
      sum_lines<T, W>(t.g, pairs, length, line + (length - 1) * z.stride[0], -z.stride[0]);
    else
      sum_lines<T, W>(t.g, pairs, length, line, z.stride[0]);
    int d = 1;
    for (; d < dims; ++d) {
      line += z.stride[d];
      if (++index[d] < z.shape[d]) break;
      line -= z.shape[d] * z.stride[d];
      index[d] = 0;
    }
    if (d >= dims) return ZOR_CONV_OK;
  }
}

template int32_t direct_body<float, float>(const arguments&);
template int32_t direct_body<float, double>(const arguments&);
template int32_t direct_body<double, double>(const arguments&);
template int32_t direct_body<c32, c32>(const arguments&);
template int32_t direct_body<c32, c64>(const arguments&);
template int32_t direct_body<c64, c64>(const arguments&);

}  // namespace zor::conv
