// SPDX-License-Identifier: MIT
// The numbers that CSR kernels alone decide by; see spblas/thresholds.h for the kinds. All are tuned, on an
// AMD Zen 4 with 512-bit vectors.
#pragma once

#include "serv/scalar.h"

namespace zor::sparse::thresholds {

// Entries of the longest row of a transposed solve that looks whether the next row's element is among them.
inline constexpr zor_int longest_keeping_row = 12;

// Plain row products: rows side by side, so that their chains of sums are waited for together, the entries a
// row, on average, from which that pays, and the bytes ahead at which entries are then asked for.
inline constexpr int rows_abreast = 4;
inline constexpr zor_int least_abreast = 16, abreast_ahead = 4096;

}  // namespace zor::sparse::thresholds
