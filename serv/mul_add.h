// SPDX-License-Identifier: MIT
// The product and sum in which the two arithmetics differ. The separate one rounds the product and then the
// sum; the fused one (ZOR_FUSED) rounds once, in one instruction where all processors of the build have it
// and by serv/software_fma.h otherwise. cmake lists the sources that are compiled once for each arithmetic;
// all others are the same in both.
#pragma once

#include "serv/element.h"
#include "serv/software_fma.h"

#ifndef ZOR_FUSED
#define ZOR_FUSED 0
#endif

namespace zor {

// ---- Real numbers and vectors of them.

template <class V>
concept real_lanes = std::is_floating_point_v<V> || requires(V v) {
  v[0];
};

#if ZOR_FUSED
// Two singles as the low half of a register; the zeros of the other half raise no flag.
template <class V>
[[gnu::always_inline]] inline vec<float, 16> with_zeros(V v) {
  double both;
  std::memcpy(&both, &v, sizeof both);
  return vec<float, 16>(_mm_set_sd(both));
}
// a b + c, or with Minus c - a b, rounded once.
template <bool Minus, class V>
[[gnu::always_inline]] inline V fused(V a, V b, V c) {
#if ZOR_VEC_BYTES == 16
  if constexpr (std::is_floating_point_v<V>) {
    return software_fma(Minus ? -a : a, b, c);
  } else {
    for (int i = 0; i < lanes<V>; ++i) c[i] = software_fma(Minus ? -a[i] : a[i], b[i], c[i]);
    return c;
  }
#else
  if constexpr (std::is_floating_point_v<V>) {
    // GCC 12 makes -(a b + c) the operation -(a b) - c, which has another sign where the sum is an exact 0.
    // It is not to see what it negates.
    V sum;
    if constexpr (sizeof(V) == 4)
      sum = __builtin_fmaf(Minus ? -a : a, b, c);
    else
      sum = __builtin_fma(Minus ? -a : a, b, c);
    asm("" : "+x"(sum));
    return sum;
  } else {
    constexpr bool doubles = sizeof(lane_t<V>) == 8;
#if ZOR_VEC_BYTES == 64
    if constexpr (sizeof(V) == 64 && doubles)
      return V(Minus ? _mm512_fnmadd_pd(__m512d(a), __m512d(b), __m512d(c))
                     : _mm512_fmadd_pd(__m512d(a), __m512d(b), __m512d(c)));
    else if constexpr (sizeof(V) == 64)
      return V(Minus ? _mm512_fnmadd_ps(__m512(a), __m512(b), __m512(c))
                     : _mm512_fmadd_ps(__m512(a), __m512(b), __m512(c)));
    else
#endif
        if constexpr (sizeof(V) == 32 && doubles)
      return V(Minus ? _mm256_fnmadd_pd(__m256d(a), __m256d(b), __m256d(c))
                     : _mm256_fmadd_pd(__m256d(a), __m256d(b), __m256d(c)));
    else if constexpr (sizeof(V) == 32)
      return V(Minus ? _mm256_fnmadd_ps(__m256(a), __m256(b), __m256(c))
                     : _mm256_fmadd_ps(__m256(a), __m256(b), __m256(c)));
    else if constexpr (sizeof(V) == 16 && doubles)
      return V(Minus ? _mm_fnmadd_pd(__m128d(a), __m128d(b), __m128d(c))
                     : _mm_fmadd_pd(__m128d(a), __m128d(b), __m128d(c)));
    else if constexpr (sizeof(V) == 16)
      return V(Minus ? _mm_fnmadd_ps(__m128(a), __m128(b), __m128(c))
                     : _mm_fmadd_ps(__m128(a), __m128(b), __m128(c)));
    else if constexpr (lanes<V> == 1)
      return V{fused<Minus>(a[0], b[0], c[0])};
    else
      return slice<8, 0>(fused<Minus>(with_zeros(a), with_zeros(b), with_zeros(c)));
  }
#endif
}
#endif

// a b + c, or with Minus c - a b, in the arithmetic of the build.
template <bool Minus, class V>
[[gnu::always_inline]] inline V product_sum(V a, V b, V c) {
#if ZOR_FUSED
  return fused<Minus>(a, b, c);
#else
  if constexpr (Minus)
    return c - a * b;
  else
    return a * b + c;
#endif
}
// a b + c.
template <real_lanes V>
[[gnu::always_inline]] inline V mul_add(V a, V b, V c) {
  return product_sum<false>(a, b, c);
}
// c - a b.
template <real_lanes V>
[[gnu::always_inline]] inline V mul_sub(V a, V b, V c) {
  return product_sum<true>(a, b, c);
}

// ---- Complex numbers. A product that is a term of a sum is formed before it joins the sum. Of the two
// products in each of its parts the one with the imaginary part of the first factor is rounded, and the one
// with the real part joins it by mul_add.

// x y in the subtracting form, as `mul` in serv/scalar.h; x and y are elements or records of vectors.
template <bool ConjX = false, class T>
[[gnu::always_inline]] inline T term(T x, T y) {
  if constexpr (!has_parts<T>)
    return x * y;
  else
    return {mul_add(x.re, y.re, ConjX ? x.im * y.im : -(x.im * y.im)),
            mul_add(x.re, y.im, ConjX ? -(x.im * y.re) : x.im * y.re)};
}
// The same of vectors of interleaved complex elements, as `complex_mul` in serv/vec.h.
template <bool ConjX = false, class V>
[[gnu::always_inline]] inline V term_pairs(V x, V y) {
#if ZOR_FUSED
  return mul_add(spread_even(x), y, negate_pairs < ConjX ? 1 : 0 > (dup_odd(x) * swap_pairs(y)));
#else
  return complex_mul<ConjX>(x, y);
#endif
}

// x y + sum of elements or records of vectors.
template <class T>
requires has_parts<T>
[[gnu::always_inline]] inline T mul_add(T x, T y, T sum) { return add(sum, term(x, y)); }
// f v + sum in the adding form of a factor.
template <class T, class V>
[[gnu::always_inline]] inline V mul_add(const factor<T, V>& f, V v, V sum) {
  if constexpr (is_complex<T>)
    return sum + mul_add(v, f.straight, swap_pairs(v) * f.crossed);
  else
    return mul_add(v, f.straight, sum);
}

}  // namespace zor
