// SPDX-License-Identifier: MIT
// Operations on real and complex elements, each rounded as its formula says.
#pragma once

#include <cmath>
#include <type_traits>

#include "zor/types.h"

namespace zor_ref {

template <class T>
inline constexpr bool is_complex = std::is_same_v<T, zor_c32> || std::is_same_v<T, zor_c64>;
template <class T>
using real_t = std::conditional_t<std::is_same_v<T, zor_c32> || std::is_same_v<T, float>, float, double>;
template <class T>
using same = std::type_identity_t<T>;

template <class T>
T element_of(real_t<T> re, real_t<T> im = 0) {
  if constexpr (is_complex<T>)
    return {re, im};
  else
    return re;
}
template <class T>
T unity() {
  return element_of<T>(1);
}
template <class T>
real_t<T> real_part(T a) {
  if constexpr (is_complex<T>)
    return a.re;
  else
    return a;
}
template <class T>
real_t<T> imaginary_part(T a) {
  if constexpr (is_complex<T>)
    return a.im;
  else
    return 0;
}
template <class T>
bool is(T a, real_t<T> v) {
  return real_part(a) == v && imaginary_part(a) == 0;
}

template <class T>
T plus(T a, same<T> b) {
  return element_of<T>(real_part(a) + real_part(b), imaginary_part(a) + imaginary_part(b));
}
template <class T>
T minus(T a, same<T> b) {
  return element_of<T>(real_part(a) - real_part(b), imaginary_part(a) - imaginary_part(b));
}
template <class T>
T negative(T a) {
  return element_of<T>(-real_part(a), -imaginary_part(a));
}
template <class T>
T conj(T a) {
  return element_of<T>(real_part(a), -imaginary_part(a));
}
template <class T>
T conj_if(bool wanted, T a) {
  return wanted ? conj(a) : a;
}
template <class T>
T by_real(real_t<T> c, T a) {
  return element_of<T>(c * real_part(a), c * imaginary_part(a));
}
template <class T>
T times(T a, same<T> b) {
  if constexpr (is_complex<T>)
    return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
  else
    return a * b;
}
// conj(a) b with the conjugation within the product.
template <class T>
T conj_times(T a, same<T> b) {
  if constexpr (is_complex<T>)
    return {a.re * b.re + a.im * b.im, a.re * b.im - a.im * b.re};
  else
    return a * b;
}
// Smith's quotient.
template <class T>
T quotient(T a, same<T> b) {
  if constexpr (!is_complex<T>) {
    return a / b;
  } else if (std::fabs(b.re) >= std::fabs(b.im)) {
    const auto r = b.im / b.re, d = b.re + b.im * r;
    return {(a.re + a.im * r) / d, (a.im - a.re * r) / d};
  } else {
    const auto r = b.re / b.im, d = b.im + b.re * r;
    return {(a.re * r + a.im) / d, (a.im * r - a.re) / d};
  }
}
// The quotient by one reciprocal in wider arithmetic.
template <class T>
T over(T n, same<T> d) {
  if constexpr (is_complex<T>) {
    using wider = std::conditional_t<std::is_same_v<T, zor_c32>, double, long double>;
    const wider nr = n.re, ni = n.im, dr = d.re, di = d.im, u = 1 / (dr * dr + di * di);
    return {real_t<T>((nr * dr + ni * di) * u), real_t<T>((ni * dr - nr * di) * u)};
  } else {
    return n / d;
  }
}

}  // namespace zor_ref
