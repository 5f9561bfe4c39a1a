// SPDX-License-Identifier: MIT
// The numbers that kernels whose result is a matrix, and solves with an LDLT factor, decide by; see
// spblas/thresholds.h for the kinds.
#pragma once

#include "serv/scalar.h"

namespace zor::sparse::thresholds {

// Contract: rows from which the solve with pivots of order 1 has its backward stage.
inline constexpr zor_int least_for_backward = 2000;

// Tuned: entries of the longest row that is sorted by insertion, and of the runs that merges begin with.
inline constexpr zor_int longest_inserted_row = 64, inserted_run = 16;

// Tuned: entries of A from one whose row of B is multiplied to one whose row is asked for.
inline constexpr zor_int rows_ahead = 8;
// Tuned: vectors of columns of the longest row that is put in order by ranks.
inline constexpr zor_int vectors_ranked = 8;

}  // namespace zor::sparse::thresholds
