// SPDX-License-Identifier: MIT
// Loaded before a program, sets the rounding mode of its first thread towards zero.
#include <xmmintrin.h>

[[gnu::constructor]] static void round_towards_zero() { _MM_SET_ROUNDING_MODE(_MM_ROUND_TOWARD_ZERO); }
