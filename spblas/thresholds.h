// SPDX-License-Identifier: MIT
// The numbers that sparse kernels decide by. Contract: results or requests of memory show it, so it never
// changes. Tuned: it moves time alone, and was set on an AMD Zen 4 with 512-bit vectors unless its comment
// names a build.
#pragma once

#include "serv/element.h"

namespace zor::sparse::thresholds {

// ---- Memory.

// Contract: bytes of a row of B in the copy that a general product of many right-hand sides makes. The pool
// sees the request, so it is the same in every build: a cache line of a column-major B, two of a row-major
// one.
template <bool RowMajor>
inline constexpr zor_int copied_row_bytes = RowMajor ? 128 : 64;

// Tuned: bytes that the second cache is taken to hold. A row-major B is copied when the rows that are used
// need more than twice as much, and their copy less.
inline constexpr zor_int second_cache = zor_int(1) << 21;
// Tuned: rows in the middle of A that tell how many rows of B are used.
inline constexpr zor_int sampled_rows = 64;
// Tuned: entries for each row of B from which a copy pays. An element of a column-major B costs a cache line.
template <bool RowMajor>
inline constexpr zor_int uses_for_copy = RowMajor ? 16 : 2;

// Tuned: bytes of values from which entries come from memory and are asked for a page ahead; the processor's
// own prefetch ends with the page. Nearer entries are not asked for, which takes two instructions a row.
inline constexpr zor_int cached_values = zor_int(1) << 24;
inline constexpr zor_int page_ahead = 4096;
// Tuned: bytes ahead of the entries of a long row under many right-hand sides, and of columns that are only
// looked at.
inline constexpr zor_int entries_ahead = 1024, columns_ahead = 2048;

// ---- Right-hand sides.

// Tuned: packs of right-hand sides abreast. Eight packs of the widest build are eight cache lines, and one
// sum for each leaves room in the registers of every build.
inline constexpr int packs_abreast = 8;
// Tuned: the same for products that change or weigh more than one sum. A column-major pack is put together
// from as many lines as it has elements: one at a time.
template <bool RowMajor>
inline constexpr int packs_abreast_in = RowMajor ? packs_abreast / 2 : 1;
// Tuned: packs, or columns, of right-hand sides abreast where entries come one by one.
template <bool RowMajor>
inline constexpr int entries_abreast = RowMajor ? 2 : 4;
// Tuned: packs with four sums each that have room in the registers; more are taken by halves.
inline constexpr int packs_of_four_sums = width == 64 ? 4 : 2;
// Tuned: a panel has the rows that fill half a page of the dense operand, and four more: all right-hand sides
// pass over them before the next rows, so that a row-major operand is one stream.
inline constexpr zor_int panel_bytes = 2048, panel_rows_more = 4;

// ---- Rows.

// Contract: accumulators of a row dot, and the entries from which a row has more than one chain. With less
// than two groups every accumulator takes one entry at most, and their sum is the chain of the entries.
inline constexpr int accumulators = 4, least_for_accumulators = 8;

// Rows of one length that follow one another have code for that length, without a loop over entries whose end
// is mispredicted. Tuned: lengths up to `longest`, where at least `rows` such rows follow one another.
struct run_rule {
  int longest, rows;
};
inline constexpr run_rule no_runs{0, 2}, dot_runs{7, 2}, unit_runs{5, 2}, scatter_runs{5, 3},
    classified_runs{5, 8}, solve_runs{4, 2}, panel_runs{5, 2};
// Tuned: where no runs are met they are looked for ever less often, but once in so many rows.
inline constexpr zor_int rows_between_looks = 16;

// Tuned: entries a row on average from which a symmetric product looks at a group of them at once, with one
// branch for the group. In short rows this costs more than it saves.
inline constexpr zor_int long_classified_row = 16;
inline constexpr int classified_at_once = 6;

// ---- Lines of a grid in solves of one right-hand side.

// Tuned: lines side by side, so that their chains from row to row are waited for together.
inline constexpr int lines_abreast = 4;
// Tuned: rows of the shortest lines. The processor overlaps shorter lines by itself, and narrow vectors find
// lines late.
template <class T>
inline constexpr zor_int shortest_line = is_complex<T> ? 8
                                         : width == 16 ? 400
                                                       : 24;
// Tuned: entries of the longest row, on both sides of the diagonal, that may belong to a line.
inline constexpr zor_int longest_line_row = 9;
// Tuned: where no lines are found they are looked for again after twice as many rows, but after so many at
// the latest.
inline constexpr zor_int rows_between_searches = 4095;

// ---- Merges.

// Tuned: real numbers of y that are merged at a time, so that they stay in the first cache while the parts
// pass.
inline constexpr zor_int merged_at_once = 1024;

}  // namespace zor::sparse::thresholds
