// SPDX-License-Identifier: MIT
// The floating-point control word of the calling thread: rounding and denormal modes, which every result
// follows, masks, the exception flags raised so far; and the modes that tables are made in.
#pragma once

#include <immintrin.h>

namespace zor {

using control_word = unsigned;
// The exception flags of a control word, that of a denormal operand among them.
inline constexpr control_word exception_flags = _MM_EXCEPT_MASK;
// Round to nearest, denormals kept, no exception trapped, no flag raised.
inline constexpr control_word default_control = _MM_MASK_MASK;

[[gnu::always_inline]] inline control_word read_control() { return _mm_getcsr(); }
[[gnu::always_inline]] inline void write_control(control_word word) { _mm_setcsr(word); }

// Whether results too small for a normal number become zero.
[[gnu::always_inline]] inline bool flushes_results() { return (read_control() & _MM_FLUSH_ZERO_ON) != 0; }

// Whether results round alike under either sign: to nearest or towards zero.
[[gnu::always_inline]] inline bool rounds_alike_under_signs() {
  const control_word mode = read_control() & _MM_ROUND_MASK;
  return mode == _MM_ROUND_NEAREST || mode == _MM_ROUND_TOWARD_ZERO;
}

// What a call returns under the default control word; the caller's modes and flags are back afterwards. It is
// not inlined, so that no arithmetic leaves its modes.
template <class Call>
[[gnu::noinline]] auto called(const Call& call) {
  asm volatile("" ::: "memory");
  return call();
}
template <class Call>
auto in_default_modes(const Call& call) {
  const control_word caller = read_control();
  write_control(default_control);
  const auto result = called(call);
  write_control(caller);
  return result;
}

}  // namespace zor
