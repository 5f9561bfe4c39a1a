// SPDX-License-Identifier: MIT
// How the vector kernels step through their operands: walks with an increment, scalar elements at any
// address, peels to 16 bytes, and one loop form for elementwise work.
#pragma once

#include "serv/vec.h"

namespace zor {

// The first element of the standard walk: a negative increment starts at the far end.
template <class T>
[[gnu::always_inline]] inline T* walk_start(T* x, zor_int n, zor_int inc) {
  return inc < 0 ? x + (1 - n) * inc : x;
}

// Both increments 1 or both -1: the same pairs of elements, so both vectors are walked forward.
[[gnu::always_inline]] inline bool unit_pair(zor_int incx, zor_int incy) {
  return incx == incy && (incx == 1 || incx == -1);
}
// The same elements with an increment that is not negative. The least integer, good for one element only,
// stays what it is.
[[gnu::always_inline]] inline zor_int absolute_step(zor_int inc) {
  return inc < 0 ? zor_int(0 - uint64_t(inc)) : inc;
}

template <class T>
[[gnu::always_inline]] inline uintptr_t position(const T* x) {
  return reinterpret_cast<uintptr_t>(x) % peel_bytes;
}
template <class T>
[[gnu::always_inline]] inline bool on_element(const T* x) {
  return reinterpret_cast<uintptr_t>(x) % sizeof(T) == 0;
}
// Elements before the next 16-byte boundary, at most n.
template <class T>
[[gnu::always_inline]] inline zor_int peel_count(const T* x, zor_int n) {
  const zor_int peel = zor_int((0 - position(x)) % peel_bytes / sizeof(T));
  return peel < n ? peel : n;
}

// An element at any address.
template <class T>
[[gnu::always_inline]] inline T get(const T* x) {
  T v;
  std::memcpy(&v, x, sizeof v);
  return v;
}
template <class T>
[[gnu::always_inline]] inline void put(T* x, T v) {
  std::memcpy(x, &v, sizeof v);
}

// Complex arithmetic on single elements, rounded as complex_mul of the vector header rounds it.
template <bool ConjX = false, class T>
[[gnu::always_inline]] inline T mul(T x, T y) {
  if constexpr (!is_complex<T>) {
    return x * y;
  } else if constexpr (ConjX) {
    return {x.re * y.re + x.im * y.im, x.re * y.im - x.im * y.re};
  } else {
    return {x.re * y.re - x.im * y.im, x.re * y.im + x.im * y.re};
  }
}
template <class T>
[[gnu::always_inline]] inline T scaled(real_t<T> c, T x) {
  if constexpr (is_complex<T>) {
    return {c * x.re, c * x.im};
  } else {
    return c * x;
  }
}
template <class T>
[[gnu::always_inline]] inline T add(T x, T y) {
  if constexpr (is_complex<T>) {
    return {x.re + y.re, x.im + y.im};
  } else {
    return x + y;
  }
}
template <class T>
[[gnu::always_inline]] inline T sub(T x, T y) {
  if constexpr (is_complex<T>) {
    return {x.re - y.re, x.im - y.im};
  } else {
    return x - y;
  }
}
template <class T>
[[gnu::always_inline]] inline bool equals(T x, real_t<T> re) {
  if constexpr (is_complex<T>) {
    return x.re == re && x.im == 0;
  } else {
    return x == re;
  }
}
// |x|, for complex the sum of the magnitudes of both parts.
template <class T>
[[gnu::always_inline]] inline real_t<T> magnitude(T x) {
  if constexpr (is_complex<T>) {
    return magnitude(x.re) + magnitude(x.im);
  } else if constexpr (sizeof(T) == 8) {
    return __builtin_fabs(x);
  } else {
    return __builtin_fabsf(x);
  }
}

// Real numbers in an element.
template <class T>
inline constexpr zor_int reals = is_complex<T> ? 2 : 1;

template <class R, int Bytes, class Step>
[[gnu::always_inline]] inline zor_int tail_runs(zor_int i, zor_int n, Step& step) {
  if constexpr (Bytes < 16) {
    return i;
  } else {
    using V = vec<R, Bytes>;
    if (i + lanes<V> <= n) {
      step.template operator()<V>(i);
      i += lanes<V>;
    }
    return tail_runs<R, Bytes / 2>(i, n, step);
  }
}

// Calls step<V>(i) for runs of lanes<V> reals that together cover first to n-1 in rising order, up to a rest
// of less than 16 bytes: full vectors, then at most one of each half. Returns where it stopped. For work
// without sums, where the grouping cannot show.
template <class R, int Widest = width, class Step>
[[gnu::always_inline]] inline zor_int for_runs(zor_int n, Step step, zor_int first = 0) {
  using V = vec<R, Widest>;
  constexpr int unroll = 8;
  zor_int i = first;
  for (; i + unroll * lanes<V> <= n; i += unroll * lanes<V>) {
#pragma GCC unroll 8
    for (int k = 0; k < unroll; ++k) step.template operator()<V>(i + k * lanes<V>);
  }
  for (; i + lanes<V> <= n; i += lanes<V>) step.template operator()<V>(i);
  return tail_runs<R, Widest / 2>(i, n, step);
}

// Bytes of a vector from which two of them are taken to lie beyond the second-level cache. 16-byte loads are
// slow enough for the hardware's own prefetch.
inline constexpr zor_int long_bytes = width > 16 ? zor_int(1) << 19 : INT64_MAX;
// Bytes of a vector that a loop over long operands takes at a time.
inline constexpr int block_bytes = 256;
// The widest vector for long operands: from the third-level cache, lines asked for ahead of 32-byte loads
// were measured to arrive faster than with 64-byte loads.
inline constexpr int long_width = width < 32 ? width : 32;

[[gnu::always_inline]] inline void touch_block(const void* p) {
#pragma GCC unroll 4
  for (int line = 0; line < block_bytes; line += 64) touch(static_cast<const char*>(p) + line);
}

// The runs that bring `written` from a boundary of 16 bytes to one of a full vector. A full vector that
// straddles a line takes two accesses.
template <class R, class Step>
[[gnu::always_inline]] inline zor_int aligning_runs(zor_int n, const R* written, Step& step) {
  constexpr zor_int worthwhile = 16 * width;
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
