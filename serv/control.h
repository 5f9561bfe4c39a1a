// SPDX-License-Identifier: MIT
// The caller's floating-point modes, which every result follows.
#pragma once

#include <immintrin.h>

namespace zor {

// Whether results too small for a normal number become zero.
[[gnu::always_inline]] inline bool flushes_results() { return (_mm_getcsr() & _MM_FLUSH_ZERO_ON) != 0; }

}  // namespace zor
