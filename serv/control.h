// SPDX-License-Identifier: MIT
// The caller's floating-point modes, which every result follows.
#pragma once

#include <immintrin.h>

namespace zor {

// Whether results too small for a normal number become zero.
[[gnu::always_inline]] inline bool flushes_results() { return (_mm_getcsr() & _MM_FLUSH_ZERO_ON) != 0; }

// Whether results round alike under either sign: to nearest or towards zero.
[[gnu::always_inline]] inline bool rounds_alike_under_signs() {
  const unsigned mode = _mm_getcsr() & _MM_ROUND_MASK;
  return mode == _MM_ROUND_NEAREST || mode == _MM_ROUND_TOWARD_ZERO;
}

}  // namespace zor
