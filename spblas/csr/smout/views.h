// SPDX-License-Identifier: MIT
// Solves op(T) X = B in place. T is the triangle or the diagonal of a CSR matrix with sorted rows. The
// row-dot forms multiply by the reciprocal of the pivot, the transposed forms divide, so that the last bit
// may differ from the solve of one right-hand side.
#pragma once

#include "serv/scratch.h"
#include "spblas/csr/smout/smout.h"
#include "spblas/csr/transposed_solve.h"
#include "spblas/row_dot.h"

namespace zor::sparse {

// A lower solve of right-hand side j alone: s = sum of a x(col) in one chain over the entries below the
// diagonal, x(r) = (x(r) - s) / pivot, or x(r) - s for a unit diagonal.
template <class T, bool RowMajor, class I>
void forward_alone(csr<T, I> a, view v, zor_int m, dense<T, RowMajor> b, zor_int j) {
  solved_element<T> solved;
  for (zor_int row = 0; row < m; ++row) {
    const summed_entries sum = entries_to_sum<false>(a, v.unit(), row);
    one<T> s{};
    for (zor_int k = sum.first; k < sum.first + sum.count; ++k) {
      const one<T> entry = conj_if<T>(v.conjugated(), load<T, 1>(a.val + k));
      s = s + solved_element<T>(b.at(a.column(k), j)).times(entry);
    }
    T* const x = b.at(row, j);
    end_row(load<T, 1>(x) - s, v.unit(), a.val + sum.pivot, v.conjugated(), x, solved);
  }
}

// Without workspace each right-hand side is solved by itself and divided. The 1-based members, which are the
// column-major ones, then take the row pointers as positions just as they stand.
template <class T, bool RowMajor, class I>
void forward_without_workspace(view v, const matrix_solve<T, RowMajor, I>& p) {
  csr<T, I> a = p.a;
  if (!RowMajor) a.origin = 0;
  for (zor_int j = p.first; j < p.last; ++j) forward_alone(a, v, p.m, p.x, j);
}

// The end of row r for R packs of right-hand sides: (x(r, j) - s) t, or x(r, j) - s for a unit diagonal;
// stored and kept, since most rows need the one solved last at once.
template <int N, int R, class T, bool RowMajor>
[[gnu::always_inline]] inline void end_row_of_packs(bool unit, T t, packs<T, N, R> s, dense<T, RowMajor> x,
                                                    zor_int r, kept_row<T, N, R>& last) {
  const auto factor = spread<T, N>(&t);
  last.index = r;
  each<R>([&](int i) __attribute__((always_inline)) {
    const auto rest = x.template get<N>(r, i * N) - s.at[i];
    last.value.at[i] = unit ? rest : mul<T>(rest, factor);
    x.template put<N>(r, i * N, last.value.at[i]);
  });
}

// Lower solve for R packs of right-hand sides from j on, rows `first` to last - 1: s = sum of a x(col, j) in
// one chain over the entries below the diagonal, then with t = 1 / pivot x(r, j) = (x(r, j) - s) t, or x(r,
// j) - s for a unit diagonal. The first of the right-hand sides leave t of each row in `factors`.
template <int N, int R, class T, bool RowMajor, class I>
[[gnu::noinline]] void forward_panel(const matrix_solve<T, RowMajor, I>& p, view v, zor_int first,
                                     zor_int last, zor_int j, T* factors) {
  const csr<T, I> a = p.a.with_pointers_as_positions();
  // Addressed by columns in the base of the matrix.
  const dense<T, RowMajor> x{opaque(p.x.at(-a.base, j)), p.x.ld};
  kept_row<T, N, R> previous;
  for (zor_int row = first; row < last; ++row) {
    const zor_int r = row + a.base, end = opaque(a.end(row));
    packs<T, N, R> s{};
    zor_int k = a.begin(row);
    for (; k < end && a.indx[k] < r; ++k) {
      const zor_int col = a.indx[k];
      const auto entry = spread<T, N>(conj_if<T>(v.conjugated(), load<T, 1>(a.val + k)));
      if (col == previous.index) [[likely]]
        each<R>([&](int i) __attribute__((always_inline)) {
          s.at[i] = s.at[i] + mul<T>(entry, previous.value.at[i]);
        });
      else
        each<R>([&](int i) __attribute__((always_inline)) {
          s.at[i] = s.at[i] + mul<T>(entry, x.template get<N>(col, i * N));
        });
    }
    if (!v.unit() && j == p.first) factors[row - first] = reciprocal(value_at(a, k, v.conjugated()));
    end_row_of_packs<N, R>(v.unit(), v.unit() ? T{} : factors[row - first], s, x, r, previous);
  }
}

// Whether the workspace is there decides between two forms; the sums of this one stay in registers.
template <class T, bool RowMajor, class I>
void forward(view v, const matrix_solve<T, RowMajor, I>& p) {
  const scratch<T> workspace(p.n, 128);
  if (workspace.data == nullptr) return forward_without_workspace(v, p);
  T factors[most_panel_rows<T>];
  for_panels<T>(
      0, p.m, p.first,
      p.last, [&]<int N, int R>(zor_int j, zor_int row, zor_int end) __attribute__((always_inline)) {
        forward_panel<N, R>(p, v, row, end, j, factors);
      });
}

// Upper solve: s = row dot over the entries behind the pivot, t = 1 / pivot, x(r, j) = (x(r, j) - s) t; a
// unit diagonal steps over the stopping position only when it is the diagonal, x(r, j) = x(r, j) - s.
template <int N, int R, class T, bool RowMajor, class I>
[[gnu::noinline]] void backward_panel(const matrix_solve<T, RowMajor, I>& p, view v, zor_int first,
                                      zor_int row, zor_int j, T* factors) {
  const csr<T, I> a = p.a.with_pointers_as_positions();
  const stored_entries<T, I> entries{a.val, a.indx};
  const dense<T, RowMajor> x{opaque(p.x.at(-a.base, j)), p.x.ld};
  const dense<const T, RowMajor> solved{x.data, x.ld};
  kept_row<T, N, R> previous;
  while (row-- > first) {
    const summed_entries sum = entries_to_sum<true>(a, v.unit(), row);
    const auto s =
        row_dots<N, R, 0, true>(entries, v.conjugated(), sum.first, sum.first + sum.count, solved, previous);
    if (!v.unit() && j == p.first) factors[row - first] = reciprocal(value_at(a, sum.pivot, v.conjugated()));
    end_row_of_packs<N, R>(v.unit(), v.unit() ? T{} : factors[row - first], s, x, row + a.base, previous);
  }
}

template <class T, bool RowMajor, class I>
void backward(view v, const matrix_solve<T, RowMajor, I>& p) {
  T factors[most_panel_rows<T>];
  for_panels<T, thresholds::packs_abreast, true>(
      0, p.m, p.first,
      p.last, [&]<int N, int R>(zor_int j, zor_int row, zor_int end) __attribute__((always_inline)) {
        backward_panel<N, R>(p, v, row, end, j, factors);
      });
}

template <class T, bool RowMajor, class I>
void solve_many(view v, const matrix_solve<T, RowMajor, I>& p) {
  const right_hand_sides sides{p.first, p.last};
  if (v.structure == 'd') return scale_by_pivots(p.a, v.conjugated(), p.m, p.alpha, p.x, sides);
  if (v.transposed()) return push_rows(p.a, v, p.m, p.x, sides);
  v.triangle == 'l' ? forward(v, p) : backward(v, p);
}

}  // namespace zor::sparse
