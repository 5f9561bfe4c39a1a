// SPDX-License-Identifier: MIT
// The product and sum of the arithmetic in use, for the references of those kernels that follow it.
#pragma once

#include <cmath>
#include <cstring>
#include <type_traits>

#include "zor/core.h"
#include "zor/types.h"

namespace zor_ref {

inline bool fuses() {
  static const bool fused = std::strcmp(zor_arithmetic(), "fused") == 0;
  return fused;
}

// Whether fused operations run in software, fifty times as slow. Other builds of this arithmetic, and this
// build in the other one, have the same blocks and tiles: large sizes are left to them.
inline bool fuses_in_software() { return fuses() && std::strcmp(zor_core_kern_build(), "baseline") == 0; }

// sum + x y and sum - x y of real numbers: the product rounded first, or one rounding.
template <class R>
R plus_product(R sum, R x, R y) {
  return fuses() ? std::fma(x, y, sum) : sum + x * y;
}
template <class R>
R minus_product(R sum, R x, R y) {
  return fuses() ? std::fma(-x, y, sum) : sum - x * y;
}

// A complex product x y, or conj(x) y, that is a term of a sum: in each part the product with the imaginary
// part of x is rounded, and the one with the real part joins it.
template <bool ConjX = false, class C>
C term(C x, C y) {
  const auto re = x.im * y.im, im = x.im * y.re;
  return {plus_product(ConjX ? re : -re, x.re, y.re), plus_product(ConjX ? -im : im, x.re, y.im)};
}

// sum + x y, a complex product being formed first.
template <class T>
T plus_term(T sum, T x, T y) {
  if constexpr (std::is_floating_point_v<T>) {
    return plus_product(sum, x, y);
  } else {
    const T t = term(x, y);
    return {sum.re + t.re, sum.im + t.im};
  }
}

// sum + c x for a real c.
template <class R, class T>
T plus_real_times(T sum, R c, T x) {
  if constexpr (std::is_floating_point_v<T>)
    return plus_product(sum, c, x);
  else
    return {plus_product(sum.re, c, x.re), plus_product(sum.im, c, x.im)};
}

}  // namespace zor_ref
