// SPDX-License-Identifier: MIT
// A checked convolution or correlation, its parts, and the two methods.
#pragma once

#include <algorithm>

#include "serv/scalar.h"
#include "zor/conv.h"

namespace zor_core {

inline constexpr int conv_most_dims = 7;

// One dimension: lengths, signed steps between elements, and the wanted values start, start + step, ... of
// the result.
struct conv_dimension {
  zor_int m, n, count;
  zor_int x_step, y_step, z_step;
  zor_int start, step;
};

// Pointers are to elements 0 of all dimensions; dimension 0 is the fastest.
template <class T>
struct conv_problem {
  bool correlation;
  int dims;
  const T* x;
  const T* y;
  T* z;
  conv_dimension of[conv_most_dims];
};

inline zor_int conv_first(bool correlation, const conv_dimension& d) { return correlation ? 1 - d.m : 0; }
inline zor_int conv_last(bool correlation, const conv_dimension& d) {
  return correlation ? d.n - 1 : d.m + d.n - 2;
}

// Values `first` to `first` + count - 1 along a dimension as a problem of its own.
template <class T>
conv_problem<T> part_of(conv_problem<T> p, int dim, zor_int first, zor_int count) {
  conv_dimension& d = p.of[dim];
  p.z += first * d.z_step;
  d.start += first * d.step;
  d.count = count;
  return p;
}

// Leaves out the elements of x and y that no wanted value needs.
template <class T>
void trim(conv_problem<T>* p) {
  for (int i = 0; i < p->dims; ++i) {
    conv_dimension& d = p->of[i];
    const zor_int k0 = d.start, k1 = d.start + (d.count - 1) * d.step;
    zor_int x0, x1, y0, y1;
    if (p->correlation) {
      x0 = std::max<zor_int>(0, -k1), x1 = std::min(d.m - 1, d.n - 1 - k0);
      y0 = std::max<zor_int>(0, k0), y1 = std::min(d.n - 1, d.m - 1 + k1);
      d.start += x0 - y0;
    } else {
      x0 = std::max<zor_int>(0, k0 - d.n + 1), x1 = std::min(d.m - 1, k1);
      y0 = std::max<zor_int>(0, k0 - d.m + 1), y1 = std::min(d.n - 1, k1);
      d.start -= x0 + y0;
    }
    p->x += x0 * d.x_step;
    p->y += y0 * d.y_step;
    d.m = x1 - x0 + 1;
    d.n = y1 - y0 + 1;
  }
}

// Both return a status. A transformed problem is cut into tiles as its plan says.
template <class T>
int32_t convolve_directly(const conv_problem<T>& p);

// How a problem is transformed, and how long that takes, in units of one product and addition of real
// doubles. The wanted values are cut into tiles of `tile` along each dimension, worked through cyclic
// convolutions of length `padded`, by the tiles of the kernels or by the library's transforms.
struct conv_plan {
  bool by_tiles;
  zor_int tile[conv_most_dims], padded[conv_most_dims];
  double cost;
};
conv_plan plan_transform(bool complex, bool single, bool correlation, int dims, const conv_dimension* of);
double direct_cost(bool complex, bool single, bool correlation, int dims, const conv_dimension* of);

template <class T>
int32_t convolve_by_transform(const conv_problem<T>& p, const conv_plan& plan);

}  // namespace zor_core
