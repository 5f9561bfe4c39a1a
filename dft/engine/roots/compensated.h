// SPDX-License-Identifier: MIT
// Compensated numbers hi + lo on lanes: V is a vector of doubles or one double, and each lane has the bits of
// the one.
#pragma once

namespace zor::dft {

template <class V>
struct compensated {
  V hi, lo;
};

// |a| >= |b| or a = 0.
template <class V>
[[gnu::always_inline]] inline compensated<V> fast_two_sum(V a, V b) {
  const V s = a + b;
  return {s, b - (s - a)};
}

template <class V>
[[gnu::always_inline]] inline compensated<V> two_sum(V a, V b) {
  const V s = a + b, v = s - a;
  return {s, (a - (s - v)) + (b - v)};
}

// The upper 26 bits and the rest.
template <class V>
[[gnu::always_inline]] inline compensated<V> halves(V a) {
  const V t = a * 134217729.0, hi = t - (t - a);
  return {hi, a - hi};
}

// The exact product; b may be one double beside lanes of a.
template <class V, class W>
[[gnu::always_inline]] inline compensated<V> two_product(V a, W b) {
  const V p = a * b;
  const compensated<V> x = halves(a);
  const compensated<W> y = halves(b);
  return {p, ((x.hi * y.hi - p) + x.hi * y.lo + x.lo * y.hi) + x.lo * y.lo};
}

// Operations on both parts, lo collecting in plain arithmetic what those on hi lose.
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

}  // namespace zor::dft
