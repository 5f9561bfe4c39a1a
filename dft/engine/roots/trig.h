// SPDX-License-Identifier: MIT
// Roots of unity, the one source of every trigonometric table of the library.
#pragma once

#include <cstdint>

#include "zor/types.h"

namespace zor {

// exp(-2 pi i k / n) for 0 <= k < n or any larger k, 1 <= n < 2^40, k < 2^60 / 8: real and imaginary part
// each within 0.501 units in the last place. k and n are reduced to an octant in integers, the rest is
// double-double arithmetic rounded once, so the bits are the same on every processor.
zor_c64 root_of_unity(int64_t k, int64_t n);

// The same root as the sum of what root_of_unity returns and a tail, to 2^-62.
struct wide_root {
  zor_c64 head, tail;
};
wide_root wide_root_of_unity(int64_t k, int64_t n);

// The same for k from 0 to count - 1 <= n / 2, by vectors.
void wide_roots_of_unity(int64_t n, int64_t count, wide_root* out);

// Cosine and sine of an angle in radians, |angle| < 2^20, each within 0.501 units in the last place or 2^-62,
// for tables whose angles are given as sums and products of their own. Not a number for larger angles.
struct cosine_and_sine {
  double cosine, sine;
};
cosine_and_sine cosine_and_sine_of(double angle);

}  // namespace zor
