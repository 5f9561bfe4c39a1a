// SPDX-License-Identifier: MIT
// Level 1 routines whose results differ from those of the reference BLAS for increments that are not
// positive, infinities or NaN: here they are made the same. In all other cases the routine of libzor_core
// answers.
#pragma once

#include <cmath>
#include <limits>

#include "libblas/call.h"
#include "serv/control.h"
#include "zor/signatures/blas.h"

namespace zor_libblas {

constexpr zor::control_word invalid_flag = _MM_EXCEPT_INVALID;

template <class T, class R>
R asum(zor::asum_fn<T, R>* routine, const zor_int* n, const T* x, const zor_int* incx) {
  return *incx > 0 ? routine(n, x, incx) : R(0);
}

template <class T, class A>
void scal(zor::scal_fn<T, A>* routine, const zor_int* n, const A* alpha, T* x, const zor_int* incx) {
  if (*incx > 0) routine(n, alpha, x, incx);
}

// Reading a NaN must not raise a flag, so its bits are looked at: without the sign they are beyond those of
// infinity, and the highest bit of the difference is set.
template <class R>
auto below_infinity(const R& x) {
  using bits = std::conditional_t<sizeof(R) == 4, uint32_t, uint64_t>;
  constexpr int mantissa = sizeof(R) == 4 ? 23 : 52;
  constexpr bits magnitude = ~bits(0) >> 1, infinity = magnitude >> mantissa << mantissa;
  bits b;
  std::memcpy(&b, &x, sizeof b);
  return infinity - (b & magnitude);
}
template <class B>
constexpr bool is_negative(B difference) {
  return difference >> (8 * sizeof(B) - 1) != 0;
}
template <class R>
bool is_nan(const R& x) {
  return is_negative(below_infinity(x));
}
// Whether one of n elements holds a NaN.
template <class T>
bool any_nan(zor_int n, const T* x, zor_int step) {
  if constexpr (is_complex<T>) {
    decltype(below_infinity(x->re)) differences = 0;
    for (zor_int i = 0; i < n; ++i)
      differences |= below_infinity(x[i * step].re) | below_infinity(x[i * step].im);
    return is_negative(differences);
  } else {
    decltype(below_infinity(*x)) differences = 0;
    for (zor_int i = 0; i < n; ++i) differences |= below_infinity(x[i * step]);
    return is_negative(differences);
  }
}

// A norm that is not a number although the elements are comes from several infinities, whose quotient raised
// the invalid flag; with a NaN among the elements the norm is one, and no reason for a flag either.
template <class T, class R>
[[gnu::cold, gnu::noinline]] R norm_of_infinities(R norm, zor_int n, const T* x, zor_int step,
                                                  zor::control_word before) {
  zor::write_control((zor::read_control() & ~invalid_flag) | (before & invalid_flag));
  return any_nan(n, x, step) ? norm : std::numeric_limits<R>::infinity();
}

template <class T, class R>
R nrm2(zor::asum_fn<T, R>* routine, const zor_int* n, const T* x, const zor_int* incx) {
  const zor::control_word before = zor::read_control();
  const R norm = routine(n, x, incx);
  if (!is_nan(norm)) return norm;
  return norm_of_infinities(norm, *n, x, *incx < 0 ? -*incx : *incx, before);
}

template <class T>
auto magnitude(const T& x) {
  if constexpr (is_complex<T>)
    return std::fabs(x.re) + std::fabs(x.im);
  else
    return std::fabs(x);
}

// The routine takes a NaN where it meets one, the reference only at the first place.
template <class T>
[[gnu::cold, gnu::noinline]] zor_int search_beside_nan(bool largest, zor_int n, const T* x, zor_int step) {
  zor_int found = 0;
  for (zor_int i = 1; i < n; ++i) {
    const auto kept = magnitude(x[found * step]), next = magnitude(x[i * step]);
    if (largest ? next > kept : next < kept) found = i;
  }
  return found + 1;
}

// Up to this length a look at every element costs less than two at the exception flags.
constexpr zor_int short_search = 64;

// In a long vector a NaN shows by the invalid flag that its comparisons raise.
template <bool Largest, class T>
zor_int search(zor::iamax_fn<T>* routine, const zor_int* n, const T* x, const zor_int* incx) {
  if (*n <= short_search && *incx > 0) {
    if (*n > 1 && x != nullptr && any_nan(*n, x, *incx)) [[unlikely]]
      return search_beside_nan(Largest, *n, x, *incx);
    return routine(n, x, incx);
  }
  const zor::control_word before = zor::read_control();
  if ((before & invalid_flag) != 0) zor::write_control(before & ~invalid_flag);
  zor_int found = routine(n, x, incx);
  const zor::control_word after = zor::read_control();
  if ((after & invalid_flag) != 0)
    found = search_beside_nan(Largest, *n, x, *incx);
  else if ((before & invalid_flag) != 0)
    zor::write_control(after | invalid_flag);
  return found;
}

// CBLAS counts from 0, and finds 0 in nothing.
inline size_t index(zor_int position) { return position > 0 ? size_t(position) - 1 : 0; }

}  // namespace zor_libblas
