// SPDX-License-Identifier: MIT
// Partial sums of fixed number and lanes, held in registers of the build's width: a wide build keeps several
// accumulators in one register, a narrow one spreads a group over several. Which element goes to which lane
// is the kernel's business and never follows the width.
#pragma once

#include "serv/vec.h"

namespace zor {

// Bytes consecutive bytes of accumulators of R, in registers of at most Widest bytes.
template <class R, int Bytes, int Widest = width>
struct partial_sums {
  static constexpr int part_bytes = Bytes < Widest ? Bytes : Widest;
  static constexpr int count = Bytes / part_bytes;
  using V = vec<R, part_bytes>;
  static constexpr int step = lanes<V>;

  V part[count] = {};

  // The 16-byte accumulator K.
  template <int K>
  [[gnu::always_inline]] vec<R, 16> accumulator() const {
    constexpr int a_part = part_bytes / 16;
    return slice<16, K % a_part>(part[K / a_part]);
  }
};

}  // namespace zor
