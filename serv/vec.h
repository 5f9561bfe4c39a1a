// SPDX-License-Identifier: MIT
// The one vector header. A build fixes the width in bytes; every kernel is written against the names below,
// so the three builds run the same arithmetic on more or fewer lanes at once. Lane arithmetic (+ - * /,
// comparisons, ?:) is the compiler's own on these types: one IEEE operation a lane, never fused, never
// reassociated.
#pragma once

#include <immintrin.h>

#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "serv/scalar.h"

#ifndef ZOR_VEC_BYTES
#error "the build defines ZOR_VEC_BYTES: 16, 32 or 64"
#endif

namespace zor {

// Bytes in the widest vector of this build.
inline constexpr int width = ZOR_VEC_BYTES;
// The peel boundary of every build: it regroups sums, so it never follows the width.
inline constexpr uintptr_t peel_bytes = 16;

template <class T, int Bytes>
struct vec_of {
  typedef T type __attribute__((vector_size(Bytes)));
};
// A vector of real lanes; Bytes may be smaller than the build's width.
template <class T, int Bytes = width>
using vec = typename vec_of<T, Bytes>::type;

template <class V>
using lane_t = std::remove_reference_t<decltype(std::declval<V&>()[0])>;
template <class V>
inline constexpr int lanes = int(sizeof(V) / sizeof(lane_t<V>));
// Lanes of T in the build's widest vector.
template <class T>
inline constexpr int lanes_of = int(width / sizeof(T));

template <class V>
[[gnu::always_inline]] inline V load(const lane_t<V>* p) {
  V v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
template <class V>
[[gnu::always_inline]] inline V load_aligned(const lane_t<V>* p) {
  return *static_cast<const V*>(__builtin_assume_aligned(p, sizeof(V)));
}
template <class V>
[[gnu::always_inline]] inline void store(lane_t<V>* p, V v) {
  std::memcpy(p, &v, sizeof v);
}
template <class V>
[[gnu::always_inline]] inline void store_aligned(lane_t<V>* p, V v) {
  *static_cast<V*>(__builtin_assume_aligned(p, sizeof(V))) = v;
}

// Every lane x. Bits are moved, nothing is computed.
template <class V>
[[gnu::always_inline]] inline V broadcast(lane_t<V> x) {
  // A list of lanes: a loop of lane stores becomes one masked insertion a lane.
  return [x]<int... I>(std::integer_sequence<int, I...>) __attribute__((always_inline)) {
    return V{(void(I), x)...};
  }
  (std::make_integer_sequence<int, lanes<V>>{});
}

// Singles from memory, widened to the double lanes of V.
template <class V>
[[gnu::always_inline]] inline V load_widened(const float* p) {
#if ZOR_VEC_BYTES == 64
  if constexpr (sizeof(V) == 64) {
    return V(_mm512_maskz_cvtps_pd(0xFF, _mm256_loadu_ps(p)));
  } else
#endif
#if ZOR_VEC_BYTES >= 32
      if constexpr (sizeof(V) == 32) {
    return V(_mm256_cvtps_pd(_mm_loadu_ps(p)));
  } else
#endif
  {
    static_assert(sizeof(V) == 16);
    double both;
    std::memcpy(&both, p, sizeof both);
    return V(_mm_cvtps_pd(_mm_castpd_ps(_mm_set_sd(both))));
  }
}

// Asks for the cache line at p; any address will do.
[[gnu::always_inline]] inline void touch(const void* p) { __builtin_prefetch(p); }

// Lanes 0 to count-1 from memory, the others `fill`; nothing past p[count-1] is read.
template <class V>
[[gnu::always_inline]] inline V load_partial(const lane_t<V>* p, int count, lane_t<V> fill) {
  V v = broadcast<V>(fill);
  for (int i = 0; i < count; ++i) v[i] = p[i];
  return v;
}
// Stores lanes 0 to count-1; nothing past p[count-1] is written.
template <class V>
[[gnu::always_inline]] inline void store_partial(lane_t<V>* p, int count, V v) {
  std::memcpy(p, &v, size_t(count) * sizeof(lane_t<V>));
}

// The integer vector with the lanes of V, for work on bits.
template <class V>
struct bits_of {
  using lane = std::conditional_t<sizeof(lane_t<V>) == 8, int64_t, int32_t>;
  using type = typename vec_of<lane, sizeof(V)>::type;
};
template <class V>
using bits_t = typename bits_of<V>::type;

// Magnitude: the sign bit cleared, so a NaN stays a NaN and no flag is raised.
template <class V>
[[gnu::always_inline]] inline V abs_lanes(V v) {
  using I = typename bits_of<V>::lane;
  return V(bits_t<V>(v) & broadcast<bits_t<V>>(I(~(uint64_t(1) << (8 * sizeof(I) - 1)))));
}

// Lanes K n to K n + n - 1, n being the lanes in Bytes bytes.
template <int Bytes, int K, class V>
[[gnu::always_inline]] inline vec<lane_t<V>, Bytes> slice(V v) {
  if constexpr (Bytes == sizeof(V)) {
    return v;
  } else {
    constexpr int count = int(Bytes / sizeof(lane_t<V>));
    return [&]<int... I>(std::integer_sequence<int, I...>) __attribute__((always_inline)) {
      return __builtin_shufflevector(v, v, (K * count + I)...);
    }
    (std::make_integer_sequence<int, count>{});
  }
}

// Lanes 2i and 2i+1, the real and imaginary part of interleaved complex values: exchanged, the first of them
// twice, the second twice.
template <class V>
[[gnu::always_inline]] inline V swap_pairs(V v) {
  return [&]<int... I>(std::integer_sequence<int, I...>) __attribute__((always_inline)) {
    return __builtin_shufflevector(v, v, (I ^ 1)...);
  }
  (std::make_integer_sequence<int, lanes<V>>{});
}
template <class V>
[[gnu::always_inline]] inline V dup_even(V v) {
  return [&]<int... I>(std::integer_sequence<int, I...>) __attribute__((always_inline)) {
    return __builtin_shufflevector(v, v, (I & ~1)...);
  }
  (std::make_integer_sequence<int, lanes<V>>{});
}
template <class V>
[[gnu::always_inline]] inline V dup_odd(V v) {
  return [&]<int... I>(std::integer_sequence<int, I...>) __attribute__((always_inline)) {
    return __builtin_shufflevector(v, v, (I | 1)...);
  }
  (std::make_integer_sequence<int, lanes<V>>{});
}
// The pair (re, im) in every pair of lanes.
template <class V>
[[gnu::always_inline]] inline V broadcast_pair(lane_t<V> re, lane_t<V> im) {
  return [ re, im ]<int... I>(std::integer_sequence<int, I...>) __attribute__((always_inline)) {
    return V{(I % 2 == 0 ? re : im)...};
  }
  (std::make_integer_sequence<int, lanes<V>>{});
}
// The sign bit flipped in the first (Odd = 0) or second (Odd = 1) lane of every pair; no flag is raised.
template <int Odd, class V>
[[gnu::always_inline]] inline V negate_pairs(V v) {
  using B = bits_t<V>;
  using I = typename bits_of<V>::lane;
  const I sign = I(uint64_t(1) << (8 * sizeof(I) - 1));
  return V(B(v) ^ broadcast_pair<B>(Odd ? 0 : sign, Odd ? sign : 0));
}
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

// The complex product x y of each pair: (xr yr - xi yi, xr yi + xi yr), rounded once an operation. With
// ConjX, x is conjugated: (xr yr + xi yi, xr yi - xi yr). The parts of x may be at hand apart, each in both
// lanes of a pair: loads from memory spread them without a shuffle.
template <bool ConjX = false, class V>
[[gnu::always_inline]] inline V complex_mul(V xr, V xi, V y) {
  asm("" : "+v"(y));  // Held in a register: else y is loaded twice, once for each use.
  const V straight = xr * y, crossed = xi * swap_pairs(y);
  if constexpr (ConjX)
    return straight + negate_pairs<1>(crossed);
  else
    return subtract_add_pairs(straight, crossed);
}
template <bool ConjX = false, class V>
[[gnu::always_inline]] inline V complex_mul(V x, V y) {
  return complex_mul<ConjX>(spread_even(x), dup_odd(x), y);
}

// The larger of each pair of lanes, b where either is a NaN.
template <class V>
[[gnu::always_inline]] inline V max_lanes(V a, V b) {
  return a > b ? a : b;
}
template <class V>
[[gnu::always_inline]] inline V min_lanes(V a, V b) {
  return a < b ? a : b;
}

// Bit i is the sign bit of lane i; lanes of a comparison's result answer as its truth.
template <class V>
[[gnu::always_inline]] inline unsigned sign_mask(V v) {
  static_assert(sizeof(V) <= size_t(width));
#if ZOR_VEC_BYTES == 64
  if constexpr (sizeof(V) == 64) {
    return sizeof(lane_t<V>) == 8 ? _mm512_movepi64_mask(__m512i(v)) : _mm512_movepi32_mask(__m512i(v));
  } else
#endif
#if ZOR_VEC_BYTES >= 32
      if constexpr (sizeof(V) == 32) {
    return unsigned(sizeof(lane_t<V>) == 8 ? _mm256_movemask_pd(__m256d(v)) : _mm256_movemask_ps(__m256(v)));
  } else
#endif
  {
    static_assert(sizeof(V) == 16);
    return unsigned(sizeof(lane_t<V>) == 8 ? _mm_movemask_pd(__m128d(v)) : _mm_movemask_ps(__m128(v)));
  }
}

// Whether any lane seen was a NaN; only a signalling one raises a flag.
template <class V>
class nan_watch {
 public:
  [[gnu::always_inline]] void see(V a, V b) {
#if ZOR_VEC_BYTES == 64
    if constexpr (sizeof(lane_t<V>) == 8)
      seen_ |= _mm512_cmp_pd_mask(__m512d(a), __m512d(b), _CMP_UNORD_Q);
    else
      seen_ |= _mm512_cmp_ps_mask(__m512(a), __m512(b), _CMP_UNORD_Q);
#elif ZOR_VEC_BYTES == 32
    if constexpr (sizeof(lane_t<V>) == 8)
      seen_ |= bits_t<V>(_mm256_cmp_pd(__m256d(a), __m256d(b), _CMP_UNORD_Q));
    else
      seen_ |= bits_t<V>(_mm256_cmp_ps(__m256(a), __m256(b), _CMP_UNORD_Q));
#else
    if constexpr (sizeof(lane_t<V>) == 8)
      seen_ |= bits_t<V>(_mm_cmpunord_pd(__m128d(a), __m128d(b)));
    else
      seen_ |= bits_t<V>(_mm_cmpunord_ps(__m128(a), __m128(b)));
#endif
  }
  [[gnu::always_inline]] bool any() const {
#if ZOR_VEC_BYTES == 64
    return seen_ != 0;
#else
    return sign_mask(seen_) != 0;
#endif
  }

 private:
#if ZOR_VEC_BYTES == 64
  std::conditional_t<sizeof(lane_t<V>) == 8, __mmask8, __mmask16> seen_ = 0;
#else
  bits_t<V> seen_ = {};
#endif
};

// Lanes added in the order of elements: ((l0 + l1) + l2) + ...
template <class V>
[[gnu::always_inline]] inline lane_t<V> sum_lanes(V v) {
  lane_t<V> s = v[0];
  for (int i = 1; i < lanes<V>; ++i) s = s + v[i];
  return s;
}

// Units of U lanes, a 16-byte lane group at a time: the low (High = 0) or high half of each group of a
// interleaved with that of b.
template <int U, int High, class V>
[[gnu::always_inline]] inline V interleave_groups(V a, V b) {
  constexpr int per_group = int(16 / sizeof(lane_t<V>));
  constexpr auto source = [](int lane) {
    const int group = lane / per_group, unit = lane % per_group / U, half = per_group / (2 * U);
    const int from = group * per_group + (High * half + unit / 2) * U + lane % U;
    return unit % 2 == 0 ? from : from + lanes<V>;
  };
  return [&]<int... I>(std::integer_sequence<int, I...>) {
    return __builtin_shufflevector(a, b, source(I)...);
  }
  (std::make_integer_sequence<int, lanes<V>>{});
}

// Whole 16-byte groups of a, then of b: every Step-th one from First on, half of them from each.
template <int First, int Step, class V>
[[gnu::always_inline]] inline V pick_groups(V a, V b) {
  constexpr int per_group = int(16 / sizeof(lane_t<V>)), half = int(sizeof(V) / 32);
  constexpr auto source = [](int lane) {
    const int group = lane / per_group;
    const int from = (First + group % half * Step) * per_group + lane % per_group;
    return group < half ? from : from + lanes<V>;
  };
  return [&]<int... I>(std::integer_sequence<int, I...>) {
    return __builtin_shufflevector(a, b, source(I)...);
  }
  (std::make_integer_sequence<int, lanes<V>>{});
}

// Transposes a square of units of U lanes each, one row a vector: 4x4 floats or 2x2 doubles inside each
// 16-byte group first, then the groups. Only moves bits.
template <int U, class V>
[[gnu::always_inline]] inline void transpose_units(V (&rows)[lanes<V> / U]) {
  constexpr int inner = int(16 / sizeof(lane_t<V>)) / U, groups = int(sizeof(V) / 16);
  if constexpr (sizeof(V) >= 16) {
#pragma GCC unroll 16
    for (int round = 1; round < inner; round *= 2) {
#pragma GCC unroll 16
      for (int g = 0; g < groups; ++g) {
        V from[inner];
#pragma GCC unroll 16
        for (int i = 0; i < inner; ++i) from[i] = rows[g * inner + i];
#pragma GCC unroll 16
        for (int i = 0; i < inner / 2; ++i) {
          rows[g * inner + 2 * i] = interleave_groups<U, 0>(from[i], from[i + inner / 2]);
          rows[g * inner + 2 * i + 1] = interleave_groups<U, 1>(from[i], from[i + inner / 2]);
        }
      }
    }
  }
  if constexpr (groups == 2) {
#pragma GCC unroll 16
    for (int i = 0; i < inner; ++i) {
      const V a = rows[i], b = rows[inner + i];
      rows[i] = pick_groups<0, 1>(a, b);
      rows[inner + i] = pick_groups<1, 1>(a, b);
    }
  }
  if constexpr (groups == 4) {
#pragma GCC unroll 16
    for (int i = 0; i < inner; ++i) {
      const V a = rows[i], b = rows[inner + i], c = rows[2 * inner + i], d = rows[3 * inner + i];
      const V ab_low = pick_groups<0, 1>(a, b), ab_high = pick_groups<2, 1>(a, b);
      const V cd_low = pick_groups<0, 1>(c, d), cd_high = pick_groups<2, 1>(c, d);
      rows[i] = pick_groups<0, 2>(ab_low, cd_low);
      rows[inner + i] = pick_groups<1, 2>(ab_low, cd_low);
      rows[2 * inner + i] = pick_groups<0, 2>(ab_high, cd_high);
      rows[3 * inner + i] = pick_groups<1, 2>(ab_high, cd_high);
    }
  }
}

// The lanes of a and b taken in turn, a first: the low and the high half of the result.
template <class V>
[[gnu::always_inline]] inline V zip_low(V a, V b) {
  return [&]<int... I>(std::integer_sequence<int, I...>) {
    return __builtin_shufflevector(a, b, (I / 2 + I % 2 * lanes<V>)...);
  }
  (std::make_integer_sequence<int, lanes<V>>{});
}
template <class V>
[[gnu::always_inline]] inline V zip_high(V a, V b) {
  return [&]<int... I>(std::integer_sequence<int, I...>) {
    return __builtin_shufflevector(a, b, ((I + lanes<V>) / 2 + I % 2 * lanes<V>)...);
  }
  (std::make_integer_sequence<int, lanes<V>>{});
}
// The even or the odd lanes of a followed by those of b.
template <int Odd, class V>
[[gnu::always_inline]] inline V unzip(V a, V b) {
  return [&]<int... I>(std::integer_sequence<int, I...>) {
    return __builtin_shufflevector(a, b, (2 * I + Odd)...);
  }
  (std::make_integer_sequence<int, lanes<V>>{});
}
// The even lanes of a and the odd lanes of b.
template <class V>
[[gnu::always_inline]] inline V pick_odd(V a, V b) {
  return [&]<int... I>(std::integer_sequence<int, I...>) {
    return __builtin_shufflevector(a, b, (I + I % 2 * lanes<V>)...);
  }
  (std::make_integer_sequence<int, lanes<V>>{});
}
// Lanes in reverse.
template <class V>
[[gnu::always_inline]] inline V reverse_lanes(V a) {
  return [&]<int... I>(std::integer_sequence<int, I...>) {
    return __builtin_shufflevector(a, a, (lanes<V> - 1 - I)...);
  }
  (std::make_integer_sequence<int, lanes<V>>{});
}

}  // namespace zor
