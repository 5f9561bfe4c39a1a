// SPDX-License-Identifier: MIT
// Walks over rows that know how long the rows are, where rows of one length follow one another, as a grid
// makes them.
#pragma once

#include "spblas/csr/matrix.h"
#include "spblas/thresholds.h"

namespace zor::sparse {

using thresholds::run_rule;

// A walk over rows upwards, or downwards with Down. Invariant between its steps: the rows before r in that
// direction are done, and the others up to `beyond` are not begun.
template <run_rule Rule, bool Down, bool Far, class T, class I, class Row>
struct row_walk {
  static constexpr zor_int step = Down ? -1 : 1;
  csr<T, I> a;
  zor_int r, beyond;
  const Row& row;

  [[gnu::always_inline]] zor_int rest() const { return (beyond - r) * step; }

  // Row r, which begins at position k.
  template <int Count>
  [[gnu::always_inline]] void take(zor_int k) const {
    constexpr zor_int ahead = step * thresholds::page_ahead / zor_int(sizeof(T));
    if constexpr (Far) touch(a.val + k + ahead), touch(a.indx + k + ahead);
    if constexpr (requires { row.template operator()<Count>(r, k); })
      row.template operator()<Count>(r, k);
    else
      row.template operator()<Count>(r);
  }
  // If row r has Count entries: the rows from r on that have as many and are stored without gaps.
  template <int Count>
  [[gnu::always_inline]] bool take_run_of(zor_int k, zor_int n) {
    if (n != Count) return false;
    do {
      take<Count>(k);
      k += step * Count;
    } while ((r += step) != beyond && a.holds(r, k, k + Count));
    return true;
  }
  template <int... C>
  [[gnu::always_inline]] bool take_run(zor_int k, zor_int n, std::integer_sequence<int, C...>) {
    return (take_run_of<C + 1>(k, n) || ...);
  }
  // Whether a run may begin at row r of n entries. One look at the farthest row that it must have: lengths
  // that vary at random seldom add up.
  [[gnu::always_inline]] bool may_begin_run(zor_int k, zor_int n) const {
    if (rest() < Rule.rows) return false;
    const zor_int other = r + step * (Rule.rows - 1);
    return (Down ? a.end(r) - a.begin(other) : a.end(other) - k) == Rule.rows * n && n <= Rule.longest;
  }
  // So many rows, whatever their lengths.
  [[gnu::always_inline]] void take_any(zor_int count) {
    for (const zor_int stop = r + step * count; r != stop; r += step) take<0>(a.begin(r));
  }
};

// Calls row.operator()<Count>(r, k), or without k, for rows first to last - 1 in order, or in reverse with
// Down; k is the position where row r begins. Count is the number of its entries inside a run of equally long
// rows, as Rule says, and 0 elsewhere. With Far the entries of a page ahead are asked for.
template <run_rule Rule, bool Down = false, bool Far = false, class T, class I, class Row>
[[gnu::always_inline]] inline void for_rows(csr<T, I> a, zor_int first, zor_int last, const Row& row) {
  if (last <= first) return;
  row_walk<Rule, Down, Far, T, I, Row> walk{a, Down ? last - 1 : first, Down ? first - 1 : last, row};
  if constexpr (Rule.longest == 0) {
    walk.take_any(walk.rest());
  } else {
    for (zor_int between_looks = 1; walk.rest() > 0;) {
      const zor_int k = a.begin(walk.r), n = a.end(walk.r) - k;
      if (walk.may_begin_run(k, n) && walk.take_run(k, n, std::make_integer_sequence<int, Rule.longest>{})) {
        between_looks = 1;
        continue;
      }
      const zor_int rest = walk.rest();
      walk.take_any(between_looks < rest ? between_looks : rest);
      if (between_looks < thresholds::rows_between_looks) between_looks *= 2;
    }
  }
}

// Whether the entries of rows first to last - 1 are so many that they come from memory.
template <class T, class I>
bool are_far(csr<T, I> a, zor_int first, zor_int last) {
  return first < last && (a.end(last - 1) - a.begin(first)) * zor_int(sizeof(T)) > thresholds::cached_values;
}

// The same upwards, with Far where that pays. Two loops: a test in each row of one would cost a cycle or two.
template <run_rule Rule, class T, class I, class Row>
[[gnu::always_inline]] inline void for_near_or_far_rows(csr<T, I> a, zor_int first, zor_int last,
                                                        const Row& row) {
  if (are_far(a, first, last))
    for_rows<Rule, false, true>(a, first, last, row);
  else
    for_rows<Rule>(a, first, last, row);
}

}  // namespace zor::sparse
