// SPDX-License-Identifier: MIT
// Quotients of the triangular solves.
#pragma once

#include "serv/element.h"

namespace zor {

// x / d of complex lanes by the larger part of d (Smith 1962), so that no square overflows; of real lanes the
// quotient. L is a vector, a plain real number, or complex_lanes of either.
template <class T, class L>
[[gnu::always_inline]] inline L divided(L x, T d) {
  const auto lanes_of = []<class V>(V, real_t<T> value) __attribute__((always_inline)) {
    if constexpr (lane_count<V> == 1)
      return V(value);
    else
      return broadcast<V>(value);
  };
  if constexpr (!is_complex<T>) {
    return x / lanes_of(x, d);
  } else {
    const bool real_larger = magnitude(d.re) >= magnitude(d.im);
    const auto large = real_larger ? d.re : d.im, small = real_larger ? d.im : d.re;
    const auto ratio = small / large, sum = large + small * ratio;
    const auto r = lanes_of(x.re, ratio), s = lanes_of(x.re, sum);
    if (real_larger) return {(x.re + x.im * r) / s, (x.im - x.re * r) / s};
    return {(x.re * r + x.im) / s, (x.im * r - x.re) / s};
  }
}

}  // namespace zor
