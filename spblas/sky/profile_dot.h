// SPDX-License-Identifier: MIT
// The dot of a profile, with the order of sums of blas/level1/dot.cpp: four accumulators of 16 bytes, a peel
// to the boundary of the profile, and a tail that depends on where the two operands stand. The last element
// of x is passed by value: in a solve it is the quotient of the row before, and a load of several elements
// would wait until that has reached the cache.
#pragma once

#include "blas/level1/partial_sums.h"
#include "blas/level1/vector.h"
#include "blas/level1/walk.h"
#include "serv/scalar.h"

namespace zor::sparse {

// Calls body.operator()<n>() for an n from Least to Most.
template <int Least, int Most, class Body>
[[gnu::always_inline]] inline auto with_count(zor_int n, const Body& body) {
  if constexpr (Least == Most) {
    return body.template operator()<Least>();
  } else {
    constexpr int middle = (Least + Most) / 2;
    return n <= middle ? with_count<Least, middle>(n, body) : with_count<middle + 1, Most>(n, body);
  }
}

// The products of a group of lanes, from element At on of the Count that are left.
template <class V, int At, int Count, class R>
[[gnu::always_inline]] inline V group_products(const R* a, const R* x, R last) {
  constexpr int L = lanes<V>;
  if constexpr (At + L < Count) {
    return zor::load<V>(a + At) * zor::load<V>(x + At);
  } else {
    return zor::load<V>(a + At)* [=]<int... I>(std::integer_sequence<int, I...>)
        __attribute__((always_inline)) {
      return V{(I + 1 < L ? x[At + I] : last)...};
    }
    (std::make_integer_sequence<int, L>{});
  }
}

// The sum behind the last of Count elements, at most a block of four groups.
template <int Count, class V, class R>
[[gnu::always_inline]] inline R end_of_dot(V a0, V a1, V a2, V a3, bool together, const R* a, const R* x,
                                           R last) {
  constexpr int L = lanes<V>;
  if constexpr (Count == 4 * L) {
    a0 += group_products<V, 0, Count>(a, x, last);
    a1 += group_products<V, L, Count>(a, x, last);
    a2 += group_products<V, 2 * L, Count>(a, x, last);
    a3 += group_products<V, 3 * L, Count>(a, x, last);
  } else {
    constexpr int pair = Count / (2 * L) * (2 * L), whole = Count / L * L;
    if constexpr (pair > 0) {
      a0 += group_products<V, 0, Count>(a, x, last);
      const V second = group_products<V, L, Count>(a, x, last);
      if (together)
        a1 += second;
      else
        a0 += second;
    }
    if constexpr (whole > pair) a0 += group_products<V, pair, Count>(a, x, last);
#pragma GCC unroll 4
    for (int i = whole; i < Count; ++i) a0[0] = a0[0] + a[i] * (i + 1 < Count ? x[i] : last);
  }
  return sum_lanes(((a0 + a1) + a2) + a3);
}

// `last` is the value of x[n - 1], which also stands in memory.
template <class R>
[[gnu::always_inline]] inline R profile_dot(zor_int n, const R* a, const R* x, R last) {
  using V = vec<R, 16>;
  constexpr int block = 4 * lanes<V>;
  if (n < 1) return 0;
  const uintptr_t off = (reinterpret_cast<uintptr_t>(a) | reinterpret_cast<uintptr_t>(x)) % sizeof(R);
  if (off != 0 || n >= long_bytes / zor_int(sizeof(R))) [[unlikely]]
    return zor::dot<R>(n, a, 1, x, 1);
  const bool together = position(a) == position(x);
  R first = 0;
  if (const zor_int peel = peel_count(a, n); peel != 0) {
    for (zor_int i = 0; i < peel; ++i) first = first + a[i] * (i + 1 < n ? x[i] : last);
    if (peel == n) return first;
    a += peel;
    x += peel;
    n -= peel;
  }
  partial_sums<R, 64, long_width> sums;
  using P = typename partial_sums<R, 64, long_width>::V;
  sums.part[0] = P{first};
  for (; n > block; n -= block, a += block, x += block) {
#pragma GCC unroll 4
    for (int k = 0; k < block; k += sums.step)
      sums.part[k / sums.step] += zor::load<P>(a + k) * zor::load<P>(x + k);
  }
  return with_count<1, block>(
      n, [&]<int Count>() __attribute__((always_inline)) {
        return end_of_dot<Count>(sums.template accumulator<0>(), sums.template accumulator<1>(),
                                 sums.template accumulator<2>(), sums.template accumulator<3>(), together, a,
                                 x, last);
      });
}
template <class T>
requires is_complex<T>
[[gnu::always_inline]] inline T profile_dot(zor_int n, const T* a, const T* x, T) {
  return zor::cdot<T, false>(n, a, 1, x, 1);
}

}  // namespace zor::sparse
