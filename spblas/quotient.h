// SPDX-License-Identifier: MIT
// Divisions of packs, the same in the solves of every format.
#pragma once

#include "serv/quotient.h"
#include "spblas/pack.h"

namespace zor::sparse {

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
