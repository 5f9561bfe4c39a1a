// SPDX-License-Identifier: MIT
// Numbers of two parts, hi + lo, on lanes: V is a vector of doubles or one double, and so every lane has the
// bits of the one. Exact where the caller rounds to nearest and nothing overflows.
#pragma once

namespace zor {

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

// The exact sum (Knuth).
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

// The exact product (Dekker); b may be one double beside lanes of a.
template <class V, class W>
[[gnu::always_inline]] inline compensated<V> two_product(V a, W b) {
  const V p = a * b;
  const compensated<V> x = halves(a);
  const compensated<W> y = halves(b);
  return {p, ((x.hi * y.hi - p) + x.hi * y.lo + x.lo * y.hi) + x.lo * y.lo};
}

}  // namespace zor
