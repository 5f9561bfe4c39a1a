// SPDX-License-Identifier: MIT
// Single elements, real or complex, without any vector: types and parts, loads and stores, tests,
// conjugation, sums, products and quotients, the start of a strided walk. Forms that round differently are
// functions of their own, named by what they compute. serv/element.h continues with vectors of elements.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "zor/types.h"

namespace zor {

// ---- Types and parts.

using c32 = zor_c32;
using c64 = zor_c64;

template <class T>
struct scalar_of {
  using real = T;
  static constexpr bool is_complex = false;
};
template <>
struct scalar_of<c32> {
  using real = float;
  static constexpr bool is_complex = true;
};
template <>
struct scalar_of<c64> {
  using real = double;
  static constexpr bool is_complex = true;
};
template <class T>
using real_t = typename scalar_of<T>::real;
template <class T>
inline constexpr bool is_complex = scalar_of<T>::is_complex;

// Real numbers in an element.
template <class T>
inline constexpr int parts = is_complex<T> ? 2 : 1;
// Elements as the real numbers they consist of.
template <class T>
[[gnu::always_inline]] inline const real_t<T>* reals(const T* p) {
  return reinterpret_cast<const real_t<T>*>(p);
}
template <class T>
[[gnu::always_inline]] inline real_t<T>* reals(T* p) {
  return reinterpret_cast<real_t<T>*>(p);
}

// What has a real and an imaginary part: complex elements, and records of vectors.
template <class T>
concept has_parts = requires(T x) {
  x.re;
  x.im;
};

// ---- Loads and stores.

// Whether p lies on a multiple of its element's real size, so that it may be read by lanes in order.
template <class T>
[[gnu::always_inline]] inline bool on_real_boundary(const T* p) {
  return reinterpret_cast<uintptr_t>(p) % sizeof(real_t<T>) == 0;
}

// One element at any address.
template <class T>
[[gnu::always_inline]] inline T load_element(const T* p) {
  T e;
  std::memcpy(&e, p, sizeof e);
  return e;
}
template <class T>
[[gnu::always_inline]] inline void store_element(T* p, T e) {
  std::memcpy(p, &e, sizeof e);
}

// Elements from one address after another, `stride` elements apart, to neighbouring places, and back.
template <class T>
inline void gather(zor_int n, const T* x, zor_int stride, T* run) {
  for (zor_int i = 0; i < n; ++i) run[i] = load_element(x + i * stride);
}
template <class T>
inline void scatter(zor_int n, const T* run, T* x, zor_int stride) {
  for (zor_int i = 0; i < n; ++i) store_element(x + i * stride, run[i]);
}

// ---- Tests.

template <class T>
[[gnu::always_inline]] constexpr bool is_zero(T s) {
  if constexpr (is_complex<T>)
    return s.re == 0 && s.im == 0;
  else
    return s == 0;
}
template <class T>
[[gnu::always_inline]] constexpr bool is_one(T s) {
  if constexpr (is_complex<T>)
    return s.re == 1 && s.im == 0;
  else
    return s == 1;
}
template <class T>
[[gnu::always_inline]] constexpr T one_of() {
  if constexpr (is_complex<T>)
    return {1, 0};
  else
    return 1;
}

// ---- Conjugation.

// The conjugate by the sign bit of the imaginary part: no operation, no flag, and -0 for 0. Of a real number
// the number itself, as in all functions of this section.
template <class T>
[[gnu::always_inline]] inline T conj_by_sign(T v) {
  if constexpr (has_parts<T>) v.im = -v.im;
  return v;
}
template <class T>
[[gnu::always_inline]] inline T conj_by_sign_if(bool conj, T v) {
  if constexpr (has_parts<T>) v.im = conj ? -v.im : v.im;
  return v;
}
// The conjugate with 0 - im for the imaginary part: 0 for 0, but -0 where the caller rounds downwards.
template <class T>
[[gnu::always_inline]] inline T conj_by_subtraction(T v) {
  if constexpr (has_parts<T>) v.im = 0 - v.im;
  return v;
}

// ---- Sums and magnitudes of single elements.

template <class T>
[[gnu::always_inline]] inline T add(T x, T y) {
  if constexpr (has_parts<T>)
    return {x.re + y.re, x.im + y.im};
  else
    return x + y;
}
template <class T>
[[gnu::always_inline]] inline T sub(T x, T y) {
  if constexpr (has_parts<T>)
    return {x.re - y.re, x.im - y.im};
  else
    return x - y;
}
// Each part subtracted from 0, so that no zero comes out negative but where the caller rounds downwards.
template <class T>
[[gnu::always_inline]] inline T zero_minus(T x) {
  if constexpr (has_parts<T>)
    return {0 - x.re, 0 - x.im};
  else
    return 0 - x;
}
// c x for a real c.
template <class T>
[[gnu::always_inline]] inline T scaled(real_t<T> c, T x) {
  if constexpr (is_complex<T>)
    return {c * x.re, c * x.im};
  else
    return c * x;
}
// |x|, for complex the sum of the magnitudes of both parts.
template <class T>
[[gnu::always_inline]] inline real_t<T> magnitude(T x) {
  if constexpr (is_complex<T>)
    return magnitude(x.re) + magnitude(x.im);
  else if constexpr (sizeof(T) == 8)
    return __builtin_fabs(x);
  else
    return __builtin_fabsf(x);
}

// ---- Products, rounded once an operation.

// The subtracting form, that of complex_mul in the vector header: (xr yr - xi yi, xr yi + xi yr). ConjX
// conjugates x within the product: (xr yr + xi yi, xr yi - xi yr). T is an element or a record of vectors.
// serv/element.h has the adding form, x + (-y) z for x - y z. The two differ where the caller's rounding is
// directed, and so do a conjugate taken before a product and one taken within it.
template <bool ConjX = false, class T>
[[gnu::always_inline]] inline T mul(T x, T y) {
  if constexpr (!has_parts<T>)
    return x * y;
  else if constexpr (ConjX)
    return {x.re * y.re + x.im * y.im, x.re * y.im - x.im * y.re};
  else
    return {x.re * y.re - x.im * y.im, x.re * y.im + x.im * y.re};
}

// ---- Quotients.

// n / d by a reciprocal: with u = 1 / (dr dr + di di), ((nr dr + ni di) u, (ni dr - nr di) u). Worked in Wide
// and rounded to T once a part; nothing is scaled against overflow. Of real numbers the plain quotient.
template <class Wide, class T>
[[gnu::always_inline]] inline T quotient_by_reciprocal(T n, T d) {
  if constexpr (is_complex<T>) {
    const Wide nr = n.re, ni = n.im, dr = d.re, di = d.im;
    const Wide u = 1 / (dr * dr + di * di);
    return {real_t<T>((nr * dr + ni * di) * u), real_t<T>((ni * dr - nr * di) * u)};
  } else {
    return n / d;
  }
}

// ---- Walks.

// Where the standard walk over n elements starts: a negative increment starts at the far end.
template <class T>
[[gnu::always_inline]] inline T* walk_start(T* x, zor_int n, zor_int inc) {
  return inc < 0 ? x + (1 - n) * inc : x;
}
// Both increments 1 or both -1: the same pairs of elements, so both vectors may be walked forward.
[[gnu::always_inline]] inline bool unit_pair(zor_int incx, zor_int incy) {
  return incx == incy && (incx == 1 || incx == -1);
}
// The same elements with an increment that is not negative. The least integer, good for one element only,
// stays what it is.
[[gnu::always_inline]] inline zor_int absolute_step(zor_int inc) {
  return inc < 0 ? zor_int(0 - uint64_t(inc)) : inc;
}

}  // namespace zor
