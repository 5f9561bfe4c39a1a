// SPDX-License-Identifier: MIT
// The spectrum of a chirp, which the chirp transform multiplies by.
#pragma once

#include "dft/engine/roots/root_table.h"

namespace zor::dft {

// Longest padded length whose spectrum is computed in more precision than it is kept in. That costs some 100
// times a transform in the precision itself, and what it saves, half the error, counts less and less beside
// those of the two transforms of a run.
inline constexpr int32_t longest_wide_spectrum = 1 << 18;

// With e(k) = conj c(|k|) for |k| < n, c(k) = exp(-pi i k^2 / n), and zero elsewhere modulo m: value k of the
// transform of e, divided by m, at k / blocks + m / blocks * (k mod blocks). Each is the exact value rounded
// once, up to some 2^-9 units in the last place of the largest. The tables have the roots of 2 n and of m, a
// product of 2, 3 and 5. False when memory is short.
template <class R>
bool chirp_spectrum(const root_table& chirp, const root_table& roots, int32_t blocks, R* re, R* im);

}  // namespace zor::dft
