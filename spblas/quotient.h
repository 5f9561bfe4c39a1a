// SPDX-License-Identifier: MIT
// Divisions of the solves, the same for every format.
#pragma once

#include "spblas/pack.h"

namespace zor::sparse {

// The format in which a complex quotient is worked before it is rounded once.
template <class T>
using wide = std::conditional_t<std::is_same_v<T, c32>, double, long double>;

// n / d, complex by a reciprocal in the wider format.
template <class T>
inline T quotient(T n, T d) {
  return quotient_by_reciprocal<wide<T>>(n, d);
}
template <class T>
inline T reciprocal(T d) {
  return quotient(one_of<T>(), d);
}

// Each element of a pack over d.
template <class T, int N>
[[gnu::always_inline]] inline pack<T, N> divided(pack<T, N> v, T d) {
  if constexpr (is_complex<T> && N == 1) {
    T e;
    std::memcpy(&e, &v, sizeof e);
    e = quotient(e, d);
    return broadcast_pair<pack<T, N>>(e.re, e.im);
  } else if constexpr (is_complex<T>) {
    T e[N];
    std::memcpy(e, &v, sizeof e);
    for (int i = 0; i < N; ++i) e[i] = quotient(e[i], d);
    std::memcpy(&v, e, sizeof e);
    return v;
  } else {
    return v / spread<T, N>(&d);
  }
}

}  // namespace zor::sparse
