// SPDX-License-Identifier: MIT
// Rows that repeat, as on a grid: next to one another along a line of it, and line after line. What is found
// out about the first of them holds for all, so that a solve reads no index and compares no column between
// one solved element and the next.
#pragma once

#include <bit>

#include "spblas/csr/matrix.h"
#include "spblas/thresholds.h"

namespace zor::sparse {

// How many of the differences p[i] - q[i] are d, for i = 0, 1, ... or, with Down, 0, -1, ..., `count` of
// them, before the first that is not.
template <bool Down, class I>
[[gnu::always_inline]] inline zor_int equal_steps(const I* p, const I* q, zor_int d, zor_int count) {
  // Wider ones slow the scalar arithmetic that follows.
  constexpr int bytes = width < 32 ? width : 32;
  using V = vec<I, bytes>;
  constexpr zor_int n = lanes<V>, step = Down ? -1 : 1;
  constexpr zor_int ahead = step * thresholds::page_ahead / zor_int(sizeof(I));
  zor_int i = 0;
  for (; i + n <= count; i += n) {
    const zor_int at = Down ? 1 - i - n : i;
    touch(p + at + ahead);
    const unsigned others = sign_mask(zor::load<V>(p + at) - zor::load<V>(q + at) != broadcast<V>(I(d)));
    if (others != 0) return i + (Down ? std::countl_zero(others << (32 - n)) : std::countr_zero(others));
  }
  while (i < count && p[i * step] - q[i * step] == d) ++i;
  return i;
}

// How many rows, from `row` on upwards or, with Down, downwards, `most` at most, stand again `period` rows
// further on in that direction: as long, stored at one distance, with each column moved by the period. Long
// rows are not looked at.
template <bool Down, class T, class I>
[[gnu::always_inline]] inline zor_int repeating_rows(csr<T, I> a, zor_int row, zor_int period, zor_int most) {
  constexpr zor_int step = Down ? -1 : 1;
  const zor_int move = period * step, begin = a.begin(row), end = a.end(row), length = end - begin;
  const zor_int shift = a.begin(row + move) - begin;
  if (length < 1 || length > thresholds::longest_line_row) return 0;
  if (shift * step < length || a.end(row + move) - end != shift) return 0;
  for (zor_int k = begin; k < end; ++k)
    if (a.indx[k + shift] - a.indx[k] != move) return 0;
  zor_int rows = equal_steps<Down>(a.pntrb + row + move, a.pntrb + row, shift, most);
  rows = equal_steps<Down>(a.pntre + row + move, a.pntre + row, shift, rows);
  const zor_int last = row + (rows - 1) * step;
  const zor_int entries = Down ? end - a.begin(last) : a.end(last) - begin;
  const I* const columns = a.indx + (Down ? end - 1 : begin);
  const zor_int same = equal_steps<Down>(columns + shift, columns, move, entries);
  return same >= entries ? rows : same / (shift * step) * period;
}

}  // namespace zor::sparse
