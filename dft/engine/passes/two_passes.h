// SPDX-License-Identifier: MIT
// Short transforms of two passes and their tables.
#pragma once

#include "dft/engine/passes/bodies.h"
#include "dft/engine/passes/chain.h"

namespace zor::dft {

// Two passes over tables made by the compiler, of radices r and l.
template <class R, int N>
struct two_passes {
  static constexpr int r = first_of_two(N), l = N / r, m = r;
  static constexpr int first_lanes = lanes_of<R> < l ? lanes_of<R> : l;
  // No wider than what the first pass stores: a load across two stores waits until the cache has both.
  static constexpr int last_lanes = first_lanes < m ? first_lanes : m;
  using first_vector = lanes_or_real<R, first_lanes>;
  using last_vector = lanes_or_real<R, last_lanes>;

  struct twiddle_table {
    alignas(64) R values[2 * l * (r - 1)];
  };
  static constexpr twiddle_table make() {
    twiddle_table t{};
    R* w = t.values;
    for (int p = 0; p < l; p += first_lanes)
      for (int s = 1; s < r; ++s, w += 2 * first_lanes)
        for (int j = 0; j < first_lanes; ++j) {
          const zor_c64 v = dd::constant_root((p + j) * s, N);
          w[j] = R(v.re);
          w[first_lanes + j] = R(v.im);
        }
    return t;
  }
  static constexpr twiddle_table table = make();
};

}  // namespace zor::dft
