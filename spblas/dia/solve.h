// SPDX-License-Identifier: MIT
// Solves op(T) X = B in place for a triangle in diagonals. No diagonal of it is nearer to the main one than B
// rows, so the rows of a block of B do not meet: they are divided by their pivots and then pushed, diagonal
// after diagonal, to all rows that depend on them, x(to) = x(to) - a x(from).
#pragma once

#include <algorithm>

#include "spblas/dia/dia.h"
#include "spblas/solve_order.h"

namespace zor::sparse {

// y[i] := y[i] - a[i] x[i] for Columns right-hand sides.
template <int Columns, class T>
[[gnu::noinline]] void push_run(const T* a, bool conj, zor_int count, const T* x, T* y, zor_int ld) {
  for_packs<T>(
      0, count, [&]<int N>(zor_int i) __attribute__((always_inline)) {
        const pack<T, N> entry = conj_if<T>(conj, load<T, N>(a + i));
        each<Columns>([&](int j) __attribute__((always_inline)) {
          const pack<T, N> product = mul<T>(entry, load<T, N>(x + i + j * ld));
          store<T, N>(y + i + j * ld, load<T, N>(y + i + j * ld) - product);
        });
      });
}

// x[i] := x[i] / a[i].
template <class T>
[[gnu::noinline]] void divide_run(const T* a, bool conj, zor_int count, T* x) {
  if constexpr (is_complex<T>)
    for (zor_int i = 0; i < count; ++i) x[i] = quotient(x[i], conj_by_sign_if(conj, a[i]));
  else
    for_packs<T>(
        0, count, [&]<int N>(zor_int i) __attribute__((always_inline)) {
          store<T, N>(x + i, load<T, N>(x + i) / load<T, N>(a + i));
        });
}

// From a solved row to the one that depends on it along diagonal d.
template <class T>
zor_int step_along(view v, const dia_solve<T>& p, zor_int d) {
  return v.transposed() ? p.a.idiag[d] : -p.a.idiag[d];
}

// Pushes rows first to last - 1 along diagonal d, as far as there are rows that they reach.
template <class T>
void push_rows(view v, const dia_solve<T>& p, zor_int d, zor_int first, zor_int last) {
  constexpr int abreast = thresholds::dia_columns_abreast;
  const zor_int step = step_along(v, p, d), ld = p.x.ld;
  first = std::max(first, -step);
  last = std::min(last, p.m - step);
  if (first >= last) return;
  const T* const a = p.a.diagonal(d) + first + (v.transposed() ? 0 : step);
  zor_int j = p.from_column;
  for (; j + abreast <= p.to_column; j += abreast)
    push_run<abreast>(a, v.conjugated(), last - first, p.x.at(first, j), p.x.at(first + step, j), ld);
  for (; j < p.to_column; ++j)
    push_run<1>(a, v.conjugated(), last - first, p.x.at(first, j), p.x.at(first + step, j), ld);
}

// Blocks of one row, Columns right-hand sides: each row takes in turn what the rows before would have pushed
// to it, the farthest first. The row solved last is kept, since most rows begin with it.
template <int Columns, class T>
[[gnu::noinline]] void solve_row_by_row(view v, const dia_solve<T>& p, zor_int j) {
  T* const x = p.x.at(0, j);
  const zor_int ld = p.x.ld, count = p.dlast - p.dfirst + 1, onwards = v.solves_upwards() ? 1 : -1;
  const bool conj = v.conjugated(), lower = v.triangle == 'l';
  packs<T, 1, Columns> solved{};
  zor_int before = -1;
  for (zor_int n = 0, row = onwards > 0 ? 0 : p.m - 1; n < p.m; ++n, row += onwards) {
    packs<T, 1, Columns> rest;
    each<Columns>([&](int i) __attribute__((always_inline)) { rest.at[i] = load<T, 1>(x + row + i * ld); });
    for (zor_int k = 0; k < count; ++k) {
      const zor_int d = lower ? p.dfirst - 1 + k : p.dlast - 1 - k, from = row - step_along(v, p, d);
      if (from < 0 || from >= p.m) continue;
      const one<T> entry = conj_if<T>(conj, load<T, 1>(p.a.diagonal(d) + (v.transposed() ? from : row)));
      each<Columns>([&](int i) __attribute__((always_inline)) {
        const one<T> other = from == before ? solved.at[i] : load<T, 1>(x + from + i * ld);
        rest.at[i] = rest.at[i] - mul<T>(entry, other);
      });
    }
    const T pivot = v.unit() ? T{} : conj_by_sign_if(conj, p.a.diagonal(p.dmain - 1)[row]);
    before = row;
    each<Columns>([&](int i) __attribute__((always_inline)) {
      solved.at[i] = v.unit() ? rest.at[i] : divided<T, 1>(rest.at[i], pivot);
      store<T, 1>(x + row + i * ld, solved.at[i]);
    });
  }
}
template <class T>
void solve_all_row_by_row(view v, const dia_solve<T>& p) {
  constexpr int abreast = thresholds::dia_columns_abreast;
  zor_int j = p.from_column;
  for (; j + abreast <= p.to_column; j += abreast) solve_row_by_row<abreast>(v, p, j);
  for (; j < p.to_column; ++j) solve_row_by_row<1>(v, p, j);
}

// The distance of the nearest diagonal, or all rows when there is none.
template <class T>
zor_int rows_that_do_not_meet(view v, const dia_solve<T>& p) {
  const bool lower = v.triangle == 'l';
  if (lower ? p.dlast == 0 : p.dfirst > p.dlast) return p.m;
  const zor_int nearest = lower ? -p.a.idiag[p.dlast - 1] : p.a.idiag[p.dfirst - 1];
  return nearest == 0 ? p.m : nearest;
}

template <class T>
void divide_rows(view v, const dia_solve<T>& p, zor_int d, zor_int first, zor_int last) {
  for (zor_int j = p.from_column; j < p.to_column; ++j)
    divide_run(p.a.diagonal(d) + first, v.conjugated(), last - first, p.x.at(first, j));
}

// A list without a diagonal on the right side of the main one has blocks of a negative size: at most one, of
// all rows, and nothing is pushed.
template <class T>
void solve(view v, const dia_solve<T>& p) {
  if (v.structure == 'd') {
    for (zor_int d = 0; d < p.a.ndiag; ++d)
      if (p.a.idiag[d] == 0) divide_rows(v, p, d, 0, p.m);
    return;
  }
  const zor_int size = rows_that_do_not_meet(v, p), count = p.m / size + (p.m % size != 0 ? 1 : 0);
  if (size == 1 && count > 1) return solve_all_row_by_row(v, p);
  for (zor_int n = 0; n < count; ++n) {
    const zor_int block = v.solves_upwards() ? n : count - 1 - n;
    const zor_int first = block * size, last = block + 1 < count ? first + size : p.m;
    if (!v.unit()) divide_rows(v, p, p.dmain - 1, first, last);
    if (n + 1 == count) return;
    for (zor_int d = p.dfirst - 1; d < p.dlast; ++d) push_rows(v, p, d, first, last);
  }
}

}  // namespace zor::sparse
