// SPDX-License-Identifier: MIT
// The two arithmetics of a sum of products. Each gives a type of number for the sum and its operations; V is
// a vector of real lanes.
#pragma once

#include "serv/compensated.h"
#include "serv/element.h"

namespace zor {

// Numbers of one part, in R.
template <class R>
struct plain {
  using real = R;
  template <class V>
  using number = V;

  template <class V>
  [[gnu::always_inline]] static V product(V a, V x) {
    return a * x;
  }
  template <class V>
  [[gnu::always_inline]] static V wide_product(V y, V b) {
    return y * b;
  }
  template <class V>
  [[gnu::always_inline]] static V sum(V a, V b) {
    return a + b;
  }
  template <class V>
  [[gnu::always_inline]] static V difference(V a, V b) {
    return a - b;
  }
  template <class V>
  [[gnu::always_inline]] static V scaled(V a, V b) {
    return a * b;
  }
  template <class V>
  [[gnu::always_inline]] static V rounded(V a) {
    return a;
  }
};

// Pairs of doubles. With Exact the factors of a term are singles, whose product is one double.
template <bool Exact>
struct extended {
  using real = double;
  template <class V>
  using number = compensated<V>;

  template <class V>
  [[gnu::always_inline]] static compensated<V> product(V a, V x) {
    if constexpr (Exact)
      return {a * x, V{}};
    else
      return two_product(a, x);
  }
  template <class V>
  [[gnu::always_inline]] static compensated<V> wide_product(V y, V b) {
    return two_product(y, b);
  }
  // The accurate sum: the errors of both additions are added up, lower ones last.
  template <class V>
  [[gnu::always_inline]] static compensated<V> sum(compensated<V> a, compensated<V> b) {
    const compensated<V> s = two_sum(a.hi, b.hi), t = two_sum(a.lo, b.lo);
    const compensated<V> u = fast_two_sum(s.hi, s.lo + t.hi);
    return fast_two_sum(u.hi, t.lo + u.lo);
  }
  template <class V>
  [[gnu::always_inline]] static compensated<V> difference(compensated<V> a, compensated<V> b) {
    return sum(a, compensated<V>{-b.hi, -b.lo});
  }
  template <class V>
  [[gnu::always_inline]] static compensated<V> scaled(compensated<V> a, V b) {
    const compensated<V> p = two_product(a.hi, b);
    const compensated<V> r = fast_two_sum(p.hi, a.lo * b);
    return fast_two_sum(r.hi, r.lo + p.lo);
  }
  template <class V>
  [[gnu::always_inline]] static V rounded(compensated<V> a) {
    return a.hi + a.lo;
  }
};

// Values of one or two real parts, each a number of arithmetic A on lanes of V.
template <class A, class V, int Parts>
struct parted {
  typename A::template number<V> part[Parts];
};

// The product a x of parts, `of` being a product of two real parts: (ar xr - ai xi, ar xi + ai xr).
template <class A, int Parts, class V, class Of>
[[gnu::always_inline]] inline parted<A, V, Parts> multiply_parts(const Of& of) {
  if constexpr (Parts == 1)
    return {{of(0, 0)}};
  else
    return {{A::difference(of(0, 0), of(1, 1)), A::sum(of(0, 1), of(1, 0))}};
}
template <class A, class V, int Parts>
[[gnu::always_inline]] inline parted<A, V, Parts> add_parts(const parted<A, V, Parts>& a,
                                                            const parted<A, V, Parts>& b) {
  parted<A, V, Parts> sum;
  for (int p = 0; p < Parts; ++p) sum.part[p] = A::sum(a.part[p], b.part[p]);
  return sum;
}

}  // namespace zor
