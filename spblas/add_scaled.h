// SPDX-License-Identifier: MIT
// y := y + alpha x over neighbouring elements: what a unit diagonal adds.
#pragma once

#include "spblas/panel.h"

namespace zor::sparse {

template <class T>
[[gnu::noinline]] void add_scaled(zor_int n, T alpha, const T* x, T* y) {
  for_packs<T>(
      0, n, [&]<int N>(zor_int i) __attribute__((always_inline)) {
        store<T, N>(y + i, load<T, N>(y + i) + mul<T>(spread<T, N>(&alpha), load<T, N>(x + i)));
      });
}

}  // namespace zor::sparse
