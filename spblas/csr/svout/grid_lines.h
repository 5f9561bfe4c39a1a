// SPDX-License-Identifier: MIT
// Four lines of a grid solved side by side, so that the chains from row to row are waited for together.
//
// A grid of two or three dimensions makes a triangle whose rows come in lines. The rows of a line stand one
// behind another, and each meets the row solved before it; the next line stands a period further on, with at
// most two rows of another shape between them, those of the edge. Solving is upwards through the rows, or
// downwards with Down; "before" and "behind" are in that direction.
#pragma once

#include "spblas/csr/pivot.h"
#include "spblas/csr/svout/repeats.h"
#include "spblas/solve_order.h"

namespace zor::sparse {

// Lines that begin at `row`, whose rows sum Count entries each. A search fills it in from the first row on,
// and each piece of the search holds for what the pieces before it have found.
template <bool Down, int Count, class T, class I>
struct grid_lines {
  static constexpr zor_int step = Down ? -1 : 1;
  static constexpr int lines = thresholds::lines_abreast;
  // The entry that meets the row solved before, and the one that tells the period: the next nearest.
  static constexpr int nearest = Down ? 0 : Count - 1, second = Down ? 1 : Count - 2;

  csr<T, I> a;
  bool unit;
  zor_int row, rest;  // the first row, and how many are left from it on
  summed_entries sum;
  zor_int distance[Count] = {};  // from the diagonal to the entries that are summed
  zor_int period = 0, rows = 0;  // from line to line, and rows of a line

  // Rows from the first of the lines to the last, edges between them included.
  zor_int all() const { return (lines - 1) * period + rows; }

  // Distances and period from the first row. Holds then: a row meets the one before it, and the lines do not
  // reach beyond the matrix.
  bool find_period() {
    for (int e = 0; e < Count; ++e) distance[e] = a.column(sum.first + e) - row;
    period = -step * distance[second];
    return distance[nearest] == -step && period >= thresholds::shortest_line<T> && lines * period <= rest;
  }
  // Holds then: what a row of any line reads, but for the row before it, was solved in an earlier step of all
  // lines or in a line before it in the same step. An entry that goes back by `back` rows reads, in line l,
  // the element that stands l period - back rows behind its own place in the first line. If that is more than
  // none and less than a period, the element is still to come.
  bool reads_solved_elements() const {
    for (int e = 0; e < Count; ++e) {
      if (e == nearest) continue;
      const zor_int back = -step * distance[e];
      if (back < period) return false;
      for (int l = 1; l < lines; ++l) {
        const zor_int late = l * period - back;
        if (late > 0 && late < period) return false;
      }
    }
    return true;
  }
  // Rows of the first line. Holds then: they have one shape, and at most two rows follow before the next
  // line.
  bool find_rows() {
    rows = 1 + repeating_rows<Down>(a, row, 1, period - 1);
    return rows < period && rows + 2 >= period;
  }
  // Holds then: the rows between the lines can be solved ahead of them all.
  bool edges_stand_alone() const {
    return for_edges([&](zor_int r) { return stands_alone(r); });
  }
  // Holds then: all lines have the shape of the first.
  bool lines_repeat() const { return repeating_rows<Down>(a, row, period, all() - period) == all() - period; }

  // Calls each(r) for the rows between the lines while it answers true.
  template <class Each>
  bool for_edges(const Each& each) const {
    for (int l = 0; l + 1 < lines; ++l)
      for (zor_int i = l * period + rows; i < (l + 1) * period; ++i)
        if (!each(row + i * step)) return false;
    return true;
  }
  // Whether a row has few entries, none of which meets a row of the lines.
  bool stands_alone(zor_int r) const {
    const summed_entries s = entries_to_sum<Down>(a, unit, r);
    if (s.count >= thresholds::least_for_accumulators) return false;
    for (zor_int k = s.first; k < s.first + s.count; ++k) {
      const zor_int behind = (a.column(k) - row) * step;
      if (behind >= 0 && behind % period < rows) return false;
    }
    return true;
  }
};

// A row of few entries between the lines.
template <bool Down, bool Conj, class T, class I>
void solve_edge_row(csr<T, I> a, bool unit, zor_int row, T* x) {
  const summed_entries sum = entries_to_sum<Down>(a, unit, row);
  one<T> s{};
  for (zor_int k = sum.first; k < sum.first + sum.count; ++k)
    s = s + solved_element<T>(x + a.column(k)).times(conj_if<T>(Conj, load<T, 1>(a.val + k)));
  solved_element<T> solved;
  end_row(load<T, 1>(x + row) - s, unit, a.val + sum.pivot, Conj, x + row, solved);
}

// x(r) = (x(r) - s) / pivot, s = ((0 + p0) + p1) + ..., for the rows of all lines. A row waits for the one
// before it in its line, which the last entry of a lower triangle or the first of an upper one meets. Product
// 0 joins behind product 1 when it is the last to arrive: whether 0 meets the one or the other decides
// nothing.
template <bool Conj, bool Down, int Count, class T, class I>
void solve_lines(const grid_lines<Down, Count, T, I>& g, T* x) {
  constexpr int lines = thresholds::lines_abreast;
  constexpr zor_int step = Down ? -1 : 1;
  constexpr int meets = grid_lines<Down, Count, T, I>::nearest, swap = Down;
  const csr<T, I>& a = g.a;
  const zor_int to_pivot = g.sum.pivot - g.sum.first;
  const zor_int next_row = a.begin(g.row + step) - a.begin(g.row);
  const zor_int next_line = a.begin(g.row + g.period * step) - a.begin(g.row), next_lines = lines * next_line;
  T* const first = x + g.row;
  const T* at[Count];
  for (int e = 0; e < Count; ++e) at[e] = opaque(first + g.distance[e]);
  zor_int line[lines];
  const T* val[lines];
  solved_element<T> last[lines];
  for (int l = 0; l < lines; ++l) {
    line[l] = opaque(l * g.period * step);
    val[l] = opaque(a.val + g.sum.first + l * next_line);
    last[l] = solved_element<T>(first + line[l] - step);
  }
  const bool unit = g.unit;
  const zor_int beyond = g.rows * step;
  for (zor_int i = 0, k = 0; i != beyond; i += step, k = opaque(k + next_row)) {
#pragma GCC unroll 4
    for (int l = 0; l < lines; ++l) {
      touch(val[l] + k + next_lines);
      const auto term = [&]<int E>() __attribute__((always_inline)) {
        const one<T> entry = conj_if<T>(Conj, load<T, 1>(val[l] + k + E));
        return (E == meets ? last[l] : solved_element<T>(at[E] + i + line[l])).times(entry);
      };
      one<T> s{};
      [&]<int... E>(std::integer_sequence<int, E...>) __attribute__((always_inline)) {
        ((s = s + term.template operator()<(E < 2 ? E ^ swap : E)>()), ...);
      }
      (std::make_integer_sequence<int, Count>{});
      T* const place = first + i + line[l];
      end_row(load<T, 1>(place) - s, unit, val[l] + k + to_pivot, Conj, place, last[l]);
    }
  }
}

// Solves the lines that begin at `row`, and the rows between them ahead of these. Returns the number of rows
// solved, 0 when no such lines begin there.
template <bool Conj, bool Down, int Count, class T, class I>
zor_int solve_lines_of(csr<T, I> a, bool unit, zor_int row, zor_int rest, summed_entries sum, T* x) {
  grid_lines<Down, Count, T, I> g{a, unit, row, rest, sum};
  if (!g.find_period() || !g.reads_solved_elements() || !g.find_rows()) return 0;
  if (!g.edges_stand_alone() || !g.lines_repeat()) return 0;
  g.for_edges([&](zor_int r) { return solve_edge_row<Down, Conj>(a, unit, r, x), true; });
  solve_lines<Conj>(g, x);
  return g.all();
}
// The same for grids of two and of three dimensions.
template <bool Conj, bool Down, class T, class I>
zor_int solve_grid(csr<T, I> a, bool unit, zor_int row, zor_int rest, T* x) {
  const summed_entries sum = entries_to_sum<Down>(a, unit, row);
  return sum.count == 2   ? solve_lines_of<Conj, Down, 2>(a, unit, row, rest, sum, x)
         : sum.count == 3 ? solve_lines_of<Conj, Down, 3>(a, unit, row, rest, sum, x)
                          : 0;
}

}  // namespace zor::sparse
