// SPDX-License-Identifier: MIT
// The caller's floating-point modes, which every result follows, and the modes that tables are made in.
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

// Round to nearest, denormals kept, no exception trapped, no flag raised.
inline constexpr unsigned default_control = 0x1F80;

// What a call returns under these modes; the caller's modes and flags are back afterwards. It is not inlined,
// so that no arithmetic leaves its modes.
template <class Call>
[[gnu::noinline]] auto called(const Call& call) {
  asm volatile("" ::: "memory");
  return call();
}
template <class Call>
auto in_default_modes(const Call& call) {
  const unsigned caller = _mm_getcsr();
  _mm_setcsr(default_control);
  const auto result = called(call);
  _mm_setcsr(caller);
  return result;
}

}  // namespace zor
