// SPDX-License-Identifier: MIT
// Solves op(T) x = b for one right-hand side, y holding b and then x. T is the triangle or the diagonal of a
// CSR matrix with sorted rows. A pivot is found by a walk along its row and never tested; alpha is read by
// the diagonal view alone. Every quotient is a division.
#include <algorithm>

#include "spblas/csr/row_dot.h"
#include "spblas/csr/solve.h"
#include "spblas/csr/stencil.h"
#include "zor/signatures/spblas.h"

namespace zor::sparse {
namespace {

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

// Lines of a grid. The rows of a line stand one behind another, those of the next line a period further on;
// the entries of a row that are summed stand at fixed distances from the diagonal.
constexpr int lines_abreast = 4;
template <class T, int Count>
struct stencil {
  const T* val;       // the first of these entries, in the row that is solved first
  zor_int next_row;   // from there to the same entry of the next row
  zor_int next_line;  // and of the next line
  zor_int pivot;      // and to the pivot of the row
  T* x;               // x(r)
  zor_int period;     // from there to the next line
  zor_int distance[Count];
};

// x(r) = (x(r) - s) / pivot, s = ((0 + p0) + p1) + ..., for the rows of all lines abreast. A row waits for
// the one before it in its line, which the last entry of a lower triangle or the first of an upper one meets.
// Product 0 joins behind product 1 when it is the last to arrive: whether 0 meets the one or the other
// decides nothing.
template <bool Down, bool Conj, class T, int Count>
void solve_lines(const stencil<T, Count>& p, zor_int rows, bool unit) {
  constexpr zor_int step = Down ? -1 : 1;
  constexpr int meets = Down ? 0 : Count - 1, swap = Down;
  const T* at[Count];
  for (int e = 0; e < Count; ++e) at[e] = settled(p.x + p.distance[e]);
  T* const x = p.x;
  const zor_int pivot = p.pivot, next_row = p.next_row;
  const zor_int next_lines = lines_abreast * p.next_line;
  zor_int line[lines_abreast];
  const T* val[lines_abreast];
  solved_element<T> last[lines_abreast];
  for (int l = 0; l < lines_abreast; ++l) {
    line[l] = settled(l * p.period);
    val[l] = settled(p.val + l * p.next_line);
    last[l] = solved_element<T>(x + line[l] - step);
  }
  for (zor_int i = 0, k = 0; i != rows * step; i += step, k = settled(k + next_row)) {
#pragma GCC unroll 4
    for (int l = 0; l < lines_abreast; ++l) {
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
      T* const place = x + i + line[l];
      solve_row(load<T, 1>(place) - s, unit, val[l] + k + pivot, Conj, place, last[l]);
    }
  }
}

template <bool Down, bool Conj, class T, class I>
struct triangle {
  static constexpr zor_int step = Down ? -1 : 1;
  // The processor overlaps shorter lines by itself, and narrow vectors find lines late.
  static constexpr zor_int shortest = is_complex<T> ? 8 : width == 16 ? 400 : 24;
  csr<T, I> a;
  bool unit;
  T* x;

  // The entries of a row that are summed: those before the diagonal, or those behind the pivot. A unit
  // diagonal steps over the stopping position only when it is the diagonal.
  struct summed {
    zor_int stop, k, count;
  };
  [[gnu::always_inline]] summed entries(zor_int row) const {
    const zor_int stop = walk_forward(a, row), begin = a.begin(row), end = a.end(row);
    if (!Down) return {stop, begin, stop - begin};
    const zor_int k = behind_pivot(a, unit, row, stop);
    return {stop, k, end - k};
  }

  // A row of few entries, between lines.
  void solve_alone(zor_int row) const {
    const summed u = entries(row);
    one<T> s{};
    for (zor_int k = u.k; k < u.k + u.count; ++k)
      s = s + solved_element<T>(x + a.column(k)).times(conj_if<T>(Conj, load<T, 1>(a.val + k)));
    solved_element<T> solved;
    solve_row(load<T, 1>(x + row) - s, unit, a.val + u.stop, Conj, x + row, solved);
  }
  // Whether it has few entries, none of which meets a row of the lines that begin at row `first`.
  bool is_alone(zor_int row, zor_int first, zor_int rows, zor_int period) const {
    const summed u = entries(row);
    if (u.count >= 8) return false;
    for (zor_int k = u.k; k < u.k + u.count; ++k) {
      const zor_int to = (a.column(k) - first) * step;
      if (to >= 0 && to % period < rows) return false;
    }
    return true;
  }

  // Solves the lines that begin at `row`, and the rows between them ahead of these. Returns the number of
  // rows solved, 0 when there are no such lines or one would need elements of another too early.
  template <int Count>
  zor_int solve_lines_of(zor_int row, zor_int rest, summed u) const {
    constexpr int close = Down ? 0 : Count - 1, next = Down ? 1 : Count - 2;
    stencil<T, Count> s{a.val + u.k, 0, 0, u.stop - u.k, x + row, 0, {}};
    for (int e = 0; e < Count; ++e) s.distance[e] = a.column(u.k + e) - row;
    const zor_int period = -step * s.distance[next];
    if (s.distance[close] != -step || period < shortest || lines_abreast * period > rest) return 0;
    for (int e = 0; e < Count; ++e)
      for (int l = 1; l < lines_abreast && e != close; ++l) {
        const zor_int back = -step * s.distance[e], late = l * period - back;
        if (back < period || (late > 0 && late < period)) return 0;
      }
    const zor_int rows = 1 + repeating_rows<Down>(a, row, 1, period - 1);
    if (rows == period || rows + 2 < period) return 0;
    const zor_int all = (lines_abreast - 1) * period + rows;
    const auto between = [&](const auto& each) {
      for (zor_int i = rows; i < all; i += rows)
        for (const zor_int line = i + period - rows; i < line; ++i)
          if (!each(row + i * step)) return false;
      return true;
    };
    if (!between([&](zor_int r) { return is_alone(r, row, rows, period); })) return 0;
    if (repeating_rows<Down>(a, row, period, all - period) != all - period) return 0;
    between([&](zor_int r) { return solve_alone(r), true; });
    s.period = period * step;
    s.next_row = a.begin(row + step) - a.begin(row), s.next_line = a.begin(row + s.period) - a.begin(row);
    solve_lines<Down, Conj>(s, rows, unit);
    return all;
  }
  // The same for the grids of two and three dimensions.
  zor_int solve_grid(zor_int row, zor_int rest) const {
    const summed u = entries(row);
    return u.count == 2   ? solve_lines_of<2>(row, rest, u)
           : u.count == 3 ? solve_lines_of<3>(row, rest, u)
                          : 0;
  }
};

// Rows first to last - 1 of a lower solve: s = sum of a x(col) in one chain over the entries below the
// diagonal, x(r) = (x(r) - s) / pivot, or x(r) - s for a unit diagonal.
template <bool Conj, class T, class I>
void forward_rows(csr<T, I> a, bool unit, zor_int first, zor_int last, T* y) {
  // Addressed by columns in the base of the matrix.
  T* const x = settled(y - a.base);
  solved_element<T> previous;
  if (first > 0) previous = solved_element<T>(y + first - 1);
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
    zor_int k = a.begin(row);
    if constexpr (Count == 0) {
      for (const zor_int end = a.end(row); k < end && below.template operator()<false>(k);) ++k;
    } else {
      [&]<int... E>(std::integer_sequence<int, E...>) __attribute__((always_inline)) {
        (void)((below.template operator()<E == Count - 2>(k) && (k += 1, true)) && ...);
      }
      (std::make_integer_sequence<int, Count>{});
    }
    solve_row(load<T, 1>(x + r) - s, unit, a.val + k, Conj, x + r, previous);
  };
  for_rows<4>(a, first, last, solve);
}

// The same rows of an upper solve: s = row dot over the entries behind the pivot, x(r) = (x(r) - s) / pivot.
// A unit diagonal steps over the stopping position only when it is the diagonal: x(r) = x(r) - s.
template <bool Conj, class T, class I>
void backward_rows(csr<T, I> a, bool unit, zor_int first, zor_int last, zor_int m, T* x) {
  const T* const shifted = settled(x - a.base);
  solved_element<T> previous;
  if (last < m) previous = solved_element<T>(x + last);
  const auto solve = [&]<int Count>(zor_int row) __attribute__((always_inline)) {
    const zor_int begin = a.begin(row), end = a.end(row), stop = walk_forward(a, row);
    const zor_int k = behind_pivot(a, unit, row, stop);
    const zor_int count = end - k;
    one<T> s;
    if (count > 0 && count < 8 && a.column(k) == row + 1) {
      if (Count > 1 && k == begin + 1)
        s = chain_from<Conj>(a, begin + 1, Count - 1, previous, shifted);
      else
        s = chain_from<Conj>(a, k, count, previous, shifted);
    } else {
      s = row_dot<T, Conj>(a.val + k, a.indx + k, count, shifted);
    }
    solve_row(load<T, 1>(x + row) - s, unit, a.val + stop, Conj, x + row, previous);
  };
  for_rows<4, 2, true>(a, first, last, solve);
}

// The lines of grids abreast, the other rows one by one. A line begins where the length of rows changes, with
// two rows of one length. Where lines were looked for in vain, they are looked for again after twice as many
// rows.
template <bool Down, bool Conj, class T, class I>
void row_solve(csr<T, I> a, bool unit, zor_int m, T* x) {
  a = a.moved();
  const triangle<Down, Conj, T, I> t{a, unit, x};
  const auto row = [=](zor_int i) { return Down ? m - 1 - i : i; };
  const auto length = [=](zor_int i) { return a.end(row(i)) - a.begin(row(i)); };
  for (zor_int done = 0, alone = m < lines_abreast * t.shortest ? m : 0; done < m;) {
    zor_int next = std::min(done + alone, m);
    if (next > 0 && next < m)
      next += equal_steps<Down>(a.pntre + row(next), a.pntrb + row(next), length(next - 1), m - next);
    while (next + 1 < m && length(next) != length(next + 1)) ++next;
    if constexpr (Down)
      backward_rows<Conj>(a, unit, m - next, m - done, m, x);
    else
      forward_rows<Conj>(a, unit, done, next, x);
    const zor_int found = next < m ? t.solve_grid(row(next), m - next) : 0;
    alone = found != 0 ? 1 : std::min<zor_int>(2 * alone + 1, 4095);
    done = next + found;
  }
}

template <view V, class T, class I>
void solve(csr<T, I> a, zor_int m, T alpha, T* y) {
  const dense<T, false> x{y, 0};
  if constexpr (V.structure == 'd')
    diagonal_solve(a, V.conjugated(), m, 0, 1, alpha, x);
  else if constexpr (V.transposed())
    push_rows<T, true>(
        a, V, m, rows_of_block(V, a.base, false), x,
        [](const auto& body) __attribute__((always_inline)) { body.template operator()<1>(0); });
  else
    row_solve<V.triangle == 'u', V.conjugated()>(a, V.unit(), m, y);
}

}  // namespace
}  // namespace zor::sparse

#define ROW_csr_svout_seq(name, T, I, base, op, shape, tri, diag)                                           \
  extern "C" SIG_csr_svout_seq(name, T, I) {                                                                \
    if (*m < 1) return;                                                                                     \
    constexpr auto v = ZOR_VIEW(op, shape, tri, diag);                                                      \
    zor::sparse::solve<v, T, I>({val, indx, pntrb, pntre, base}, *m, v.structure == 'd' ? *alpha : T{}, y); \
  }
#include "zor/tables/spblas_csr.inc"
