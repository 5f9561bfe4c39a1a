// SPDX-License-Identifier: MIT
// The complex product of the vector header for a factor whose parts are at hand apart, each in both lanes of
// a pair: loads from memory spread them without a shuffle.
#pragma once

#include "serv/vec.h"

namespace zor {

// a - b in the first lane of every pair, a + b in the second.
template <class V>
[[gnu::always_inline]] inline V subtract_add_pairs(V a, V b) {
#if ZOR_VEC_BYTES >= 32
  if constexpr (sizeof(V) == 32)
    return sizeof(lane_t<V>) == 8 ? V(_mm256_addsub_pd(__m256d(a), __m256d(b)))
                                  : V(_mm256_addsub_ps(__m256(a), __m256(b)));
#endif
  if constexpr (sizeof(V) == 16)
    return sizeof(lane_t<V>) == 8 ? V(_mm_addsub_pd(__m128d(a), __m128d(b)))
                                  : V(_mm_addsub_ps(__m128(a), __m128(b)));
  return a + negate_pairs<0>(b);
}

// The first lane of every pair in both.
template <class V>
[[gnu::always_inline]] inline V spread_even(V v) {
  // By name: from memory this one is a load and no shuffle.
#if ZOR_VEC_BYTES >= 32
  if constexpr (sizeof(V) == 32 && sizeof(lane_t<V>) == 8) return V(_mm256_movedup_pd(__m256d(v)));
#endif
  if constexpr (sizeof(V) == 16 && sizeof(lane_t<V>) == 8) return V(_mm_movedup_pd(__m128d(v)));
  return dup_even(v);
}

// x y of each pair: (xr yr - xi yi, xr yi + xi yr), rounded once an operation. With ConjX, x is conjugated:
// (xr yr + xi yi, xr yi - xi yr).
template <bool ConjX = false, class V>
[[gnu::always_inline]] inline V complex_product(V xr, V xi, V y) {
  asm("" : "+v"(y));  // Held in a register: else y is loaded twice, once for each use.
  const V straight = xr * y, crossed = xi * swap_pairs(y);
  if constexpr (ConjX)
    return straight + negate_pairs<1>(crossed);
  else
    return subtract_add_pairs(straight, crossed);
}
template <bool ConjX = false, class V>
[[gnu::always_inline]] inline V complex_product(V x, V y) {
  return complex_product<ConjX>(spread_even(x), dup_odd(x), y);
}

}  // namespace zor
