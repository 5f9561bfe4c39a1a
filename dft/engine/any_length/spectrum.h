// SPDX-License-Identifier: MIT
// The spectrum of a chirp, which the chirp transform multiplies by.
#pragma once

#include "dft/engine/roots/root_table.h"

namespace zor::dft {

// Let e(k) = conj(c(|k|)) for |k| < n, with c(k) = exp(-pi i k^2 / n), and zero elsewhere modulo m. Value k
// of the transform of e, divided by m, goes to place k / blocks + m / blocks * (k mod blocks). Each is the
// exact value rounded once, up to some 2^-9 units in the last place of the largest. The tables hold the roots
// of 2 n and of m, which is a product of 2, 3 and 5. False when memory is short.
template <class R>
bool chirp_spectrum(const root_table& chirp, const root_table& roots, int32_t blocks, R* re, R* im);

}  // namespace zor::dft
