// SPDX-License-Identifier: MIT
// How the vector kernels step through their operands: peels to 16 bytes, and the loops for elementwise work
// on vectors of any length.
#pragma once

#include "blas/thresholds.h"
#include "serv/element.h"

namespace zor {

template <class T>
[[gnu::always_inline]] inline uintptr_t position(const T* x) {
  return reinterpret_cast<uintptr_t>(x) % peel_bytes;
}
// Elements before the next 16-byte boundary, at most n.
template <class T>
[[gnu::always_inline]] inline zor_int peel_count(const T* x, zor_int n) {
  const zor_int peel = zor_int((0 - position(x)) % peel_bytes / sizeof(T));
  return peel < n ? peel : n;
}

// Calls step<V>(i) for runs of lanes<V> reals that together cover first to n-1 in rising order, up to a rest
// of less than 16 bytes: full vectors, then at most one of each half. Returns where it stopped. For work
// without sums, where the grouping cannot show.
template <class R, int Widest = width, class Step>
[[gnu::always_inline]] inline zor_int for_runs(zor_int n, Step step, zor_int first = 0) {
  return for_vectors<R, narrowing{.widest = Widest, .least = 16}, 8>(
      first, n, [&]<int Bytes>(zor_int i) __attribute__((always_inline)) {
        step.template operator()<vec<R, Bytes>>(i);
      });
}

inline constexpr zor_int long_bytes = thresholds::long_vector_bytes<width>;
inline constexpr int block_bytes = thresholds::long_vector_block;
inline constexpr int long_width = width < thresholds::widest_of_chains ? width : thresholds::widest_of_chains;

[[gnu::always_inline]] inline void touch_block(const void* p) {
#pragma GCC unroll 4
  for (int line = 0; line < block_bytes; line += 64) touch(static_cast<const char*>(p) + line);
}

// The runs that bring `written` from a boundary of 16 bytes to one of a full vector.
template <class R, class Step>
[[gnu::always_inline]] inline zor_int aligning_runs(zor_int n, const R* written, Step& step) {
  constexpr zor_int worthwhile = thresholds::aligned_store_vectors * width;
  zor_int i = 0;
  if constexpr (width > 16) {
    if (n * zor_int(sizeof(R)) < worthwhile || position(written) != 0) return 0;
    const uintptr_t missing = -reinterpret_cast<uintptr_t>(written) % width;
    if (missing & 16) {
      step.template operator()<vec<R, 16>>(i);
      i += lanes<vec<R, 16>>;
    }
    if constexpr (width > 32) {
      if (missing & 32) {
        step.template operator()<vec<R, 32>>(i);
        i += lanes<vec<R, 32>>;
      }
    }
  }
  return i;
}

// for_runs over whole operands, which may be long; the last of them is written. Touch asks for the lines of a
// block before its loads, which pays where a step does little else.
template <bool Touch = true, class R, size_t Count, class Step>
[[gnu::always_inline]] inline zor_int for_runs_of(zor_int n, const R* const (&operands)[Count], Step step) {
  zor_int i = aligning_runs(n, operands[Count - 1], step);
  if (n * zor_int(sizeof(R)) >= long_bytes) {
    using V = vec<R, long_width>;
    constexpr int block = block_bytes / int(sizeof(R));
    for (; i + block <= n; i += block) {
      if constexpr (Touch) {
        for (const R* operand : operands) touch_block(operand + i);
      }
#pragma GCC unroll 16
      for (int k = 0; k < block; k += lanes<V>) step.template operator()<V>(i + k);
    }
  }
  return for_runs<R>(n, step, i);
}

}  // namespace zor
