// SPDX-License-Identifier: MIT
// The numbers that the public side of the sparse matrices decides by. Contract: the order of sums follows
// from the value, so it never changes. Measured: only the clock tells.
#pragma once

#include "zor/types.h"

namespace zor_core::sparse_thresholds {

// ---- Parts of a product that adds to outputs of other rows.

// Contract: the most parts of a matrix, and the entries for each of them. A part has to be worth a thread.
inline constexpr zor_int most_parts = 64, entries_of_part = 1 << 13;
// Contract: the fewest parts that run as even and odd ones. With fewer, one of the two steps would keep a
// single thread busy.
inline constexpr zor_int least_alternating_parts = 4;
// Contract: parts with an output each, at most, and the entries that each output needs for each of its
// elements. Clearing and merging the outputs must cost less than reading the matrix.
inline constexpr zor_int most_outputs = 8, entries_of_output_element = 2;
// Contract: entries of the longest row of a triangular view whose transposed product runs in parts. The
// columns of a row are copied to the stack, and shifted there.
inline constexpr zor_int longest_shifted_row = 2048;

// ---- Formats.

// Contract: the highest order of the blocks of a BSR matrix, and the elements that DIA, BSR or skyline may
// store for each entry or row. What fills in more is no matrix for that format.
inline constexpr zor_int most_block = 1024, most_fill = 1000;

// Contract: a product of blocks of lower order with as many right-hand sides by columns goes by compressed
// rows, which use each element once for all of them; transposed, and by rows, other rules hold.
inline constexpr zor_int block_for_columns = 8, columns_for_rows = 4;

// ---- Division over threads, which shows in no result.

// Measured: entries times right-hand sides from which a call starts threads.
inline constexpr zor_int least_for_threads = 1 << 15;
// Measured: elements of the output from which a merge is cut once more.
inline constexpr zor_int merge_grain = 4096;
// Measured: rows of a sum that are looked at, and entries for each column in common from which threads count
// the entries of the result before they fill them in.
inline constexpr zor_int looked_at_rows = 64, entries_of_common_column = 4;
// Measured: the most steps in which threads together move their parts of a product to their places.
inline constexpr zor_int most_moves = 8;
// Measured: right-hand sides of a row-major operand that stay with one thread. Eight doubles are a cache
// line.
inline constexpr zor_int row_major_grain = 8;
// Right-hand sides of a row-major operand that are staged in columns at once: a cache line of doubles.
inline constexpr zor_int staged_columns = 8;

}  // namespace zor_core::sparse_thresholds
