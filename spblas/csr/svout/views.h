// SPDX-License-Identifier: MIT
// Solves op(T) x = b for one right-hand side, y holding b and then x. T is the triangle or the diagonal of a
// CSR matrix with sorted rows. A pivot is found by a walk along its row and never tested; alpha is read by
// the diagonal view alone. Every quotient is a division.
#pragma once

#include <algorithm>

#include "spblas/csr/runs.h"
#include "spblas/csr/svout/grid_lines.h"
#include "spblas/csr/svout/svout.h"
#include "spblas/csr/transposed_solve.h"
#include "spblas/row_dot.h"

namespace zor::sparse {

// The row dot of fewer than eight entries, the first of which meets the element solved last: the plain chain
// ((0 + p0) + p1) + ..., with p0 last to arrive. Whether 0 meets p0 or p1 decides nothing.
template <bool Conj, class T, class I>
[[gnu::always_inline]] inline one<T> chain_from(csr<T, I> a, zor_int k, zor_int count,
                                                const solved_element<T>& previous, const T* x) {
  const auto term = [=](zor_int i) __attribute__((always_inline)) {
    return mul_at<T, Conj>(a.val + i, load<T, 1>(x + a.indx[i]));
  };
  one<T> s{};
  if (count > 1) s = s + term(k + 1);
  s = s + previous.times(conj_if<T>(Conj, load<T, 1>(a.val + k)));
#pragma GCC unroll 8
  for (zor_int i = 2; i < count; ++i) s = s + term(k + i);
  return s;
}

// Rows first to last - 1 of a lower solve: s = sum of a x(col) in one chain over the entries below the
// diagonal, x(r) = (x(r) - s) / pivot, or x(r) - s for a unit diagonal.
template <bool Conj, class T, class I>
void forward_rows(csr<T, I> a, bool unit, zor_int first, zor_int last, T* y) {
  // Addressed by columns in the base of the matrix.
  T* const x = opaque(y - a.base);
  solved_element<T> previous;
  if (first > 0) previous = solved_element<T>(y + first - 1);
  // Adds the entries before `stop` to s. Whether all of them stand below the diagonal of row r is told at the
  // end: with one branch an entry less the processor foresees the ends of short rows for longer.
  const auto sum_below = [=](zor_int k, zor_int stop, zor_int r, one<T> & s) __attribute__((always_inline)) {
    zor_int passed = 0;
    for (; k < stop; ++k) {
      const zor_int col = a.indx[k];
      passed |= r - 1 - col;
      s = s + solved_element<T>(x + col).times(conj_if<T>(Conj, load<T, 1>(a.val + k)));
    }
    return passed >= 0;
  };
  const auto solve = [&]<int Count>(zor_int row) __attribute__((always_inline)) {
    const zor_int r = row + a.base;
    one<T> s{};
    // In a row of known length it is the last entry before the diagonal that meets the element solved last;
    // to look for it elsewhere costs more than it saves.
    const auto below = [&]<bool MayBeLast>(zor_int k) __attribute__((always_inline)) {
      const zor_int col = a.indx[k];
      if (col >= r) return false;
      const one<T> entry = conj_if<T>(Conj, load<T, 1>(a.val + k));
      if (MayBeLast && col == r - 1) [[likely]]
        s = s + previous.times(entry);
      else
        s = s + solved_element<T>(x + col).times(entry);
      return true;
    };
    const zor_int begin = a.begin(row);
    zor_int k = begin;
    if constexpr (Count == 0) {
      const zor_int end = a.end(row);
      // Nothing beyond the diagonal is multiplied where rows are sorted.
      const zor_int pivot = end - 1;
      const bool at_end = begin < end && a.indx[pivot] >= r && (begin == pivot || a.indx[pivot - 1] < r);
      if (at_end && sum_below(begin, pivot, r, s)) [[likely]] {
        k = pivot;
      } else {
        s = one<T>{};
        for (; k < end && below.template operator()<false>(k);) ++k;
      }
    } else {
      [&]<int... E>(std::integer_sequence<int, E...>) __attribute__((always_inline)) {
        (void)((below.template operator()<E == Count - 2>(k) && (k += 1, true)) && ...);
      }
      (std::make_integer_sequence<int, Count>{});
    }
    end_row(load<T, 1>(x + r) - s, unit, a.val + k, Conj, x + r, previous);
  };
  for_rows<thresholds::solve_runs>(a, first, last, solve);
}

// The same rows of an upper solve: s = row dot over the entries behind the pivot, x(r) = (x(r) - s) / pivot.
// A unit diagonal steps over the stopping position only when it is the diagonal: x(r) = x(r) - s.
template <bool Conj, class T, class I>
void backward_rows(csr<T, I> a, bool unit, zor_int first, zor_int last, zor_int m, T* x) {
  const T* const shifted = opaque(x - a.base);
  solved_element<T> previous;
  if (last < m) previous = solved_element<T>(x + last);
  const auto solve = [&]<int Count>(zor_int row) __attribute__((always_inline)) {
    const summed_entries sum = entries_to_sum<true>(a, unit, row);
    const zor_int k = sum.first, count = sum.count;
    one<T> s;
    if (Count > 0 && count > 0 && count < thresholds::least_for_accumulators && a.column(k) == row + 1) {
      const zor_int begin = a.begin(row);
      if (Count > 1 && k == begin + 1)
        s = chain_from<Conj>(a, begin + 1, Count - 1, previous, shifted);
      else
        s = chain_from<Conj>(a, k, count, previous, shifted);
    } else if (count < thresholds::least_for_accumulators) {
      s = one<T>{};
      for (zor_int i = 0; i < count; ++i)
        s = s + mul_at<T, Conj>(a.val + k + i, load<T, 1>(shifted + a.indx[k + i]));
    } else {
      s = row_dot<T, Conj>(stored_entries<T, I>{a.val + k, a.indx + k}, count, shifted);
    }
    end_row(load<T, 1>(x + row) - s, unit, a.val + sum.pivot, Conj, x + row, previous);
  };
  for_rows<thresholds::solve_runs, true>(a, first, last, solve);
}

// Rows counted in the order in which they are solved.
template <bool Down, class T, class I>
struct solved_rows {
  csr<T, I> a;
  zor_int m;

  zor_int row(zor_int i) const { return Down ? m - 1 - i : i; }
  zor_int length(zor_int i) const { return a.end(row(i)) - a.begin(row(i)); }
  // The first row from `i` on where a line may begin: where the length of rows changes, with two rows of one
  // length.
  zor_int next_line(zor_int i) const {
    if (i > 0 && i < m) i += equal_steps<Down>(a.pntre + row(i), a.pntrb + row(i), length(i - 1), m - i);
    while (i + 1 < m && length(i) != length(i + 1)) ++i;
    return i;
  }
};

// The lines of grids abreast, the other rows one by one. Where lines were looked for in vain, they are looked
// for again after twice as many rows.
template <bool Down, bool Conj, class T, class I>
void solve_rows(csr<T, I> a, bool unit, zor_int m, T* x) {
  using namespace thresholds;
  a = a.with_pointers_as_positions();
  const solved_rows<Down, T, I> rows{a, m};
  zor_int between_searches = m < lines_abreast * shortest_line<T> ? m : 0;
  for (zor_int done = 0; done < m;) {
    const zor_int next = rows.next_line(std::min(done + between_searches, m));
    if constexpr (Down)
      backward_rows<Conj>(a, unit, m - next, m - done, m, x);
    else
      forward_rows<Conj>(a, unit, done, next, x);
    const zor_int found = next < m ? solve_grid<Conj, Down>(a, unit, rows.row(next), m - next, x) : 0;
    between_searches = found != 0 ? 1 : std::min<zor_int>(2 * between_searches + 1, rows_between_searches);
    done = next + found;
  }
}

template <bool Down, class T, class I>
void solve_triangle(view v, csr<T, I> a, zor_int m, T* x) {
  if (is_complex<T> && v.conjugated())
    solve_rows<Down, is_complex<T>>(a, v.unit(), m, x);
  else
    solve_rows<Down, false>(a, v.unit(), m, x);
}

template <class T, class I>
void solve_one(view v, csr<T, I> a, zor_int m, T alpha, T* y) {
  const dense<T, false> x{y, 0};
  if (v.structure == 'd') return scale_by_pivots(a, v.conjugated(), m, alpha, x, right_hand_sides{0, 1});
  if (v.transposed()) return push_rows(a, v, m, x, one_right_hand_side{});
  v.triangle == 'l' ? solve_triangle<false>(v, a, m, y) : solve_triangle<true>(v, a, m, y);
}

}  // namespace zor::sparse
