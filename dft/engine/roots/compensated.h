// SPDX-License-Identifier: MIT
// Operations on both parts of compensated numbers, lo collecting in plain arithmetic what those on hi lose.
#pragma once

#include "serv/compensated.h"

namespace zor {

template <class V>
[[gnu::always_inline]] inline compensated<V> operator+(compensated<V> a, compensated<V> b) {
  const compensated<V> s = two_sum(a.hi, b.hi);
  return {s.hi, s.lo + (a.lo + b.lo)};
}
template <class V>
[[gnu::always_inline]] inline compensated<V> operator-(compensated<V> a, compensated<V> b) {
  return a + compensated<V>{-b.hi, -b.lo};
}
template <class V>
[[gnu::always_inline]] inline compensated<V> operator*(compensated<V> a, compensated<double> b) {
  const compensated<V> p = two_product(a.hi, b.hi);
  return {p.hi, p.lo + (a.hi * b.lo + a.lo * b.hi)};
}

namespace dft {
using zor::compensated;
using zor::fast_two_sum;
using zor::two_product;
using zor::two_sum;
}  // namespace dft

}  // namespace zor
