// SPDX-License-Identifier: MIT
// From the transform of half the length to the spectrum of real data and back, a pair of values at a time.
#pragma once

#include "dft/engine/passes/butterfly.h"

namespace zor::dft {

// Let Z be half of the transform of length h of the pairs x(2j) + i x(2j+1), a = Z(k), b = Z(h-k), E = a +
// conj(b) and T = -i w(k) (a - conj(b)). Values k and h - k of the spectrum are E + T and conj(E - T).
template <class V, class W>
[[gnu::always_inline]] inline void recombine(complex_lanes<V>* a, complex_lanes<V>* b, W w_re, W w_im) {
  const complex_lanes<V> e = {a->re + b->re, a->im - b->im};
  const complex_lanes<V> d = {a->re - b->re, a->im + b->im};
  const complex_lanes<V> t = {d.re * w_im + d.im * w_re, d.im * w_im - d.re * w_re};
  *a = {e.re + t.re, e.im + t.im};
  *b = {e.re - t.re, t.im - e.im};
}

// The way back, unnormalised: a, b = X(k), X(h-k) become Z(k), Z(h-k).
template <class V, class W>
[[gnu::always_inline]] inline void separate(complex_lanes<V>* a, complex_lanes<V>* b, W w_re, W w_im) {
  const complex_lanes<V> e = {a->re + b->re, a->im - b->im};
  const complex_lanes<V> d = {a->re - b->re, a->im + b->im};
  const complex_lanes<V> t = {d.re * w_im - d.im * w_re, d.im * w_im + d.re * w_re};
  *a = {e.re + t.re, e.im + t.im};
  *b = {e.re - t.re, t.im - e.im};
}

// Lane 0 of `first`, then lanes W - 1 to 1 of v.
template <class V>
[[gnu::always_inline]] inline V reversed_behind(V first, V v) {
  return [&]<int... I>(std::integer_sequence<int, I...>) __attribute__((always_inline)) {
    return __builtin_shufflevector(first, v, (I == 0 ? 0 : 2 * lanes<V> - I)...);
  }
  (std::make_integer_sequence<int, lanes<V>>{});
}
template <class V>
[[gnu::always_inline]] inline complex_lanes<V> reversed_behind(complex_lanes<V> first, complex_lanes<V> v) {
  return {reversed_behind(first.re, v.re), reversed_behind(first.im, v.im)};
}

}  // namespace zor::dft
