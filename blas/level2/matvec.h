// SPDX-License-Identifier: MIT
// What the matrix-vector kernels share: multiplication by a scalar, sums of columns, staging of strided
// vectors.
#pragma once

#include <utility>

#include "serv/vec.h"

namespace zor {

template <class T>
constexpr bool is_zero(T s) {
  if constexpr (is_complex<T>)
    return s.re == 0 && s.im == 0;
  else
    return s == 0;
}

template <class T>
constexpr bool is_one(T s) {
  if constexpr (is_complex<T>)
    return s.re == 1 && s.im == 0;
  else
    return s == 1;
}

// One element as a vector: one lane, or a real and an imaginary lane.
template <class T>
using element = vec<real_t<T>, sizeof(T)>;
// Elements of T in a vector of the given bytes.
template <class T, int Bytes>
inline constexpr int units = int(Bytes / sizeof(T));

template <class V, class T>
[[gnu::always_inline]] inline V load_units(const T* p) {
  return load<V>(reinterpret_cast<const real_t<T>*>(p));
}
template <class V, class T>
[[gnu::always_inline]] inline void store_units(T* p, V v) {
  store<V>(reinterpret_cast<real_t<T>*>(p), v);
}
template <class T>
[[gnu::always_inline]] inline T load_element(const T* p) {
  T e;
  __builtin_memcpy(&e, p, sizeof e);
  return e;
}

// A scalar s laid out for s * v over a vector of interleaved values; with Conj, for s * conj(v). The products
// of a complex element are s.re v.re - s.im v.im and s.re v.im + s.im v.re: two products, one addition each.
template <class T, class V>
struct factor {
  V straight;
  V crossed;
};
template <class V, bool Conj = false, class T>
[[gnu::always_inline]] inline factor<T, V> make_factor(T s) {
  if constexpr (is_complex<T>) {
    const V re = broadcast<V>(s.re), im = broadcast<V>(s.im);
    return {Conj ? negate_pairs<1>(re) : re, Conj ? im : negate_pairs<0>(im)};
  } else {
    return {broadcast<V>(s), V{}};
  }
}
template <class T, class V>
[[gnu::always_inline]] inline V operator*(const factor<T, V>& f, V v) {
  if constexpr (is_complex<T>)
    return v * f.straight + swap_pairs(v) * f.crossed;
  else
    return v * f.straight;
}

template <class T>
T multiply(T a, T b) {
  T c;
  store_units(&c, make_factor<element<T>>(a) * load_units<element<T>>(&b));
  return c;
}

// Calls body.template operator()<Bytes>(first, last) for ranges that cover 0 to count: as many of the widest
// vectors as fit, then each narrower vector at most once, single elements last.
template <class T, int Bytes = width, class Body>
[[gnu::always_inline]] inline void in_chunks(zor_int count, const Body& body, zor_int first = 0) {
  constexpr int step = units<T, Bytes>;
  const zor_int last = first + (count - first) / step * step;
  if (last > first) body.template operator()<Bytes>(first, last);
  if constexpr (step > 1) {
    constexpr int next = Bytes > 16 ? Bytes / 2 : int(sizeof(T));
    if (last < count) in_chunks<T, next>(count, body, last);
  }
}

// y := y + s[0] a(:,0) + ... + s[Columns-1] a(:,Columns-1), one addition after the other; unit strides.
template <int Columns, class T>
void add_columns(zor_int m, const T* s, const T* a, zor_int lda, T* y) {
  in_chunks<T>(m, [&]<int Bytes>(zor_int i, zor_int last) {
    using V = vec<real_t<T>, Bytes>;
    factor<T, V> f[Columns];
    for (int j = 0; j < Columns; ++j) f[j] = make_factor<V>(s[j]);
    for (; i < last; i += units<T, Bytes>) {
      V sum = load_units<V>(y + i);
      for (int j = 0; j < Columns; ++j) sum = sum + f[j] * load_units<V>(a + i + j * lda);
      store_units(y + i, sum);
    }
  });
}

// The element a vector of n elements starts at: a negative increment walks back from the far end.
template <class T>
T* first_element(T* x, zor_int n, zor_int incx) {
  return incx < 0 ? x - (n - 1) * incx : x;
}

inline constexpr zor_int staged_long = 1000, staged_short = 128;

// Unit-stride copies of pieces of a strided vector, and back.
template <class T>
void gather(zor_int n, const T* x, zor_int incx, T* piece) {
  for (zor_int i = 0; i < n; ++i) piece[i] = load_element(x + i * incx);
}
template <class T>
void scatter(zor_int n, const T* piece, T* x, zor_int incx) {
  for (zor_int i = 0; i < n; ++i) __builtin_memcpy(x + i * incx, piece + i, sizeof(T));
}

}  // namespace zor
