// SPDX-License-Identifier: MIT
// Convolution and correlation by their formulas: every output is a plain sum over the elements of x whose
// other factor exists, in the order of x with dimension 0 running fastest.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "tests/support/elements.h"

namespace zor_ref {

struct conv_problem {
  bool correlation = false;
  std::vector<int32_t> x_shape, y_shape, z_shape;     // dimension 0 first
  std::vector<int32_t> x_stride, y_stride, z_stride;  // in the task's meaning
  std::vector<int32_t> start, decimation;

  size_t dims() const { return x_shape.size(); }
  int64_t full(size_t d) const { return int64_t(x_shape[d]) + y_shape[d] - 1; }
  int64_t first(size_t d) const { return correlation ? 1 - int64_t(x_shape[d]) : 0; }
};

inline size_t conv_count(const std::vector<int32_t>& shape) {
  size_t count = 1;
  for (const int32_t n : shape) count *= size_t(n);
  return count;
}
// Elements from the first to the last place of an array.
inline size_t conv_extent(const std::vector<int32_t>& shape, const std::vector<int32_t>& stride) {
  size_t last = 0;
  for (size_t d = 0; d < shape.size(); ++d)
    last += size_t(shape[d] - 1) * size_t(std::abs(int64_t(stride[d])));
  return last + 1;
}
// The place of every element, in the order of elements.
inline std::vector<size_t> conv_places(const std::vector<int32_t>& shape,
                                       const std::vector<int32_t>& stride) {
  std::vector<size_t> places(conv_count(shape));
  for (size_t e = 0; e < places.size(); ++e) {
    size_t left = e;
    for (size_t d = 0; d < shape.size(); ++d) {
      const int64_t i = int64_t(left % size_t(shape[d])), step = stride[d];
      left /= size_t(shape[d]);
      places[e] += size_t(step < 0 ? (shape[d] - 1 - i) * -step : i * step);
    }
  }
  return places;
}

// The products of two elements and their sums, in W: one sum for real data; for complex data those of the
// products re re, im im, re im, im re.
template <class W>
struct conv_sums {
  W sum[4] = {};
  template <class T>
  void add(T x, T y) {
    const W xr = W(zor_test::part(x, 0)), yr = W(zor_test::part(y, 0));
    sum[0] = sum[0] + xr * yr;
    if constexpr (zor_test::parts<T> == 2) {
      const W xi = W(zor_test::part(x, 1)), yi = W(zor_test::part(y, 1));
      sum[1] = sum[1] + xi * yi;
      sum[2] = sum[2] + xr * yi;
      sum[3] = sum[3] + xi * yr;
    }
  }
  W re() const { return sum[0] - sum[1]; }
  W im() const { return sum[2] + sum[3]; }
};

// Real and imaginary parts of all outputs, in the order of z; those of real data have imaginary parts of 0.
template <class W, class T>
std::vector<W> convolve(const conv_problem& p, const T* x, const T* y) {
  const std::vector<size_t> in_x = conv_places(p.x_shape, p.x_stride),
                            in_y = conv_places(p.y_shape, p.y_stride);
  const size_t count = conv_count(p.z_shape), dims = p.dims();
  std::vector<W> out(2 * count);
  std::vector<int64_t> i(dims), low(dims), high(dims);
  for (size_t e = 0; e < count; ++e) {
    // Along each dimension the i for which y(i + k), of a convolution y(k - i), exists.
    size_t left = e, of_x = 0, of_y = 0, x_below = 1, y_below = 1;
    for (size_t d = 0; d < dims; ++d) {
      const int64_t k = p.start[d] + int64_t(left % size_t(p.z_shape[d])) * p.decimation[d];
      const int64_t m = p.x_shape[d], n = p.y_shape[d];
      left /= size_t(p.z_shape[d]);
      low[d] = std::max<int64_t>(0, p.correlation ? -k : k - n + 1);
      high[d] = std::min(m - 1, p.correlation ? n - 1 - k : k);
      i[d] = low[d];
      of_x += size_t(i[d]) * x_below;
      of_y += size_t(p.correlation ? i[d] + k : k - i[d]) * y_below;
      x_below *= size_t(m);
      y_below *= size_t(n);
    }
    conv_sums<W> sums;
    for (size_t d = 0; d < dims;) {
      sums.add(x[in_x[of_x]], y[in_y[of_y]]);
      x_below = y_below = 1;
      for (d = 0; d < dims; ++d) {
        const size_t steps = i[d] < high[d] ? 1 : size_t(low[d] - high[d]);
        of_x += steps * x_below;
        of_y += p.correlation ? steps * y_below : -(steps * y_below);
        x_below *= size_t(p.x_shape[d]);
        y_below *= size_t(p.y_shape[d]);
        if (i[d]++ < high[d]) break;
        i[d] = low[d];
      }
    }
    out[2 * e] = sums.re();
    out[2 * e + 1] = sums.im();
  }
  return out;
}

}  // namespace zor_ref
