// SPDX-License-Identifier: MIT
// What a body of the convolution is given, the order in which it checks that, and its memory.
#pragma once

#include <cstdint>

#include "serv/memory.h"
#include "serv/scalar.h"
#include "zor/conv.h"

namespace zor::conv {

inline constexpr int most_dims = 7;

// The arguments of a body; values of dimensions that do not exist are not set.
struct arguments {
  int32_t job;
  int32_t dims;
  const void* x;
  const void* y;
  void* z;
  zor_int x_shape[most_dims], y_shape[most_dims], z_shape[most_dims];
  zor_int x_stride[most_dims], y_stride[most_dims], z_stride[most_dims];
  zor_int start[most_dims], decimation[most_dims];
};

inline bool is_correlation(const arguments& a) { return a.job == ZOR_CONV_CORRELATION; }
// Length of the whole result along a dimension.
inline zor_int full_length(const arguments& a, int d) { return a.x_shape[d] + a.y_shape[d] - 1; }

// 0 or the status of the first bad argument. In one dimension each array is looked at whole, pointer first;
// in several all pointers come before the first shape.
int32_t check_line(const arguments& a);
int32_t check_box(const arguments& a);

// A body: 0 or a status. T is the element type of the data, W the same with the real type of the arithmetic.
typedef int32_t body(const arguments& a);
template <class T, class W>
int32_t direct_body(const arguments& a);
template <class T, class W>
int32_t line_transform_body(const arguments& a);
template <class T, class W>
int32_t box_transform_body(const arguments& a);

// Element index i of dimension d stands at base + the sum of i stride[d].
template <class T>
struct array {
  T* base;
  int dims;
  zor_int shape[most_dims], stride[most_dims];
};

// An array of the arguments; with a negative stride it is read from its far end.
template <class T>
array<T> array_of(T* data, int dims, const zor_int* shape, const zor_int* stride) {
  array<T> r{data, dims, {}, {}};
  for (int d = 0; d < dims; ++d) {
    r.shape[d] = shape[d];
    r.stride[d] = stride[d];
    if (stride[d] < 0) r.base -= (shape[d] - 1) * stride[d];
  }
  return r;
}
// The same elements in reverse along every dimension.
template <class T>
array<T> reversed(array<T> a) {
  for (int d = 0; d < a.dims; ++d) {
    a.base += (a.shape[d] - 1) * a.stride[d];
    a.stride[d] = -a.stride[d];
  }
  return a;
}

inline zor_int saturating_product(zor_int a, zor_int b) {
  zor_int product;
  return __builtin_mul_overflow(a, b, &product) ? INT64_MAX : product;
}
inline zor_int total_of(int dims, const zor_int* shape) {
  zor_int total = 1;
  for (int d = 0; d < dims; ++d) total = saturating_product(total, shape[d]);
  return total;
}
inline void dense_strides(int dims, const zor_int* shape, zor_int* stride) {
  zor_int step = 1;
  for (int d = 0; d < dims; ++d) {
    stride[d] = step;
    step = saturating_product(step, shape[d]);
  }
}

// Memory of a call; data is null when there is none. Requests of 2 GiB and more are not granted.
template <class T>
struct buffer {
  buffer() = default;
  explicit buffer(zor_int count) { request(count); }
  buffer(const buffer&) = delete;
  buffer& operator=(const buffer&) = delete;
  ~buffer() { conv_release(data); }
  bool request(zor_int count) {
    const zor_int bytes = saturating_product(count, sizeof(T));
    conv_release(data);
    data = bytes <= INT32_MAX ? static_cast<T*>(conv_allocate(int32_t(bytes))) : nullptr;
    return data != nullptr;
  }

  T* data = nullptr;
};

// Calls line(a, b) for each line along dimension 0 of a box, dimension 1 running fastest: where the line
// starts in two arrays of that shape.
template <class A, class B, class Line>
void for_lines(int dims, const zor_int* shape, A* a, const zor_int* a_stride, B* b, const zor_int* b_stride,
               const Line& line) {
  zor_int index[most_dims] = {};
  for (;;) {
    line(a, b);
    int d = 1;
    for (; d < dims; ++d) {
      a += a_stride[d];
      b += b_stride[d];
      if (++index[d] < shape[d]) break;
      a -= shape[d] * a_stride[d];
      b -= shape[d] * b_stride[d];
      index[d] = 0;
    }
    if (d >= dims) return;
  }
}

// One element in another precision, or a real one as a complex one.
template <class To, class From>
[[gnu::always_inline]] inline To converted(From v) {
  if constexpr (is_complex<From>)
    return {real_t<To>(v.re), real_t<To>(v.im)};
  else if constexpr (is_complex<To>)
    return {real_t<To>(v), 0};
  else
    return To(v);
}
template <class From, class To>
void copy_line(zor_int n, const From* from, zor_int from_stride, To* to, zor_int to_stride) {
  if (from_stride == 1 && to_stride == 1)
    for (zor_int i = 0; i < n; ++i) store_element(to + i, converted<To>(load_element(from + i)));
  else
    for (zor_int i = 0; i < n; ++i)
      store_element(to + i * to_stride, converted<To>(load_element(from + i * from_stride)));
}
// The elements of one array to their places in another, of the shape of the second.
template <class From, class To>
void copy_array(const array<From>& from, const array<To>& to) {
  for_lines(to.dims, to.shape, from.base, from.stride, to.base, to.stride,
            [&](From* a, To* b) { copy_line(to.shape[0], a, from.stride[0], b, to.stride[0]); });
}

}  // namespace zor::conv
