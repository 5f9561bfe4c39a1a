// SPDX-License-Identifier: MIT
// y := y + alpha op(A) x for a CSR matrix under the views that take all rows: transposed ones, which may
// write any y(c), and the diagonal one. x and y do not overlap; rows need not be sorted.
#pragma once

#include "spblas/csr/mvout/row_entries.h"

namespace zor::sparse {

// Transposed, general view: t = x(r) alpha, then y(c) = y(c) + a t for every entry.
template <class T, bool Conj, class I>
void scatter_rows(const vector_product<T, I>& given) {
  const vector_product<T, I> p = given.with_stored_numbers();
  const one<T> alpha = p.scale();
  each_row<thresholds::dot_runs>(
      p, [&](zor_int r, auto row) __attribute__((always_inline)) {
        const factor<T> t(mul<T>(p.x_at(r), alpha));
        const auto term = [&]<int N>(const T* a) __attribute__((always_inline)) {
          return t.template times_conj<Conj, N>(a);
        };
        row.each_term(
            term, [&](one<T> at, zor_int c) __attribute__((always_inline)) { p.set_y(c, p.y_at(c) + at); });
      });
}

// Transposed, triangular view, a row: every entry is scattered as y(c) = y(c) + (a alpha) x(r), a unit
// diagonal adds x(r) alpha, and a second pass takes away what the entries outside the view brought in.
template <class T, class I>
[[gnu::noinline]] void scatter_twice(view v, const vector_product<T, I>& given, zor_int r,
                                     row_entries<0, T, I> row) {
  const vector_product<T, I> p = given.with_stored_numbers();
  const one<T> x = p.x_at(r), alpha = p.scale();
  const auto term = [&](const T* a) {
    return mul<T>(x, mul<T>(conj_if<T>(v.conjugated(), load<T, 1>(a)), alpha));
  };
  row.each([&](const T* a, zor_int c) { p.set_y(c, p.y_at(c) + term(a)); });
  if (v.unit()) p.set_y(r, p.y_at(r) + mul<T>(x, alpha));
  row.each([&](const T* a, zor_int c) {
    if (v.leaves_out(r, c)) p.set_y(c, p.y_at(c) - term(a));
  });
}

// All rows. Where no column comes twice, as in rows that ascend, y(c) has all of its share at once.
template <class T, int Side, bool Unit, bool Conj, class I>
void scatter_triangle_rows(view v, const vector_product<T, I>& given) {
  const vector_product<T, I> p = given.with_stored_numbers();
  const factor<T> alpha(p.scale());
  each_row<thresholds::unit_runs>(
      p, [&](zor_int r, auto row) __attribute__((always_inline)) {
        // Given `given`, since p would have to stand in memory to be handed over.
        if (!row.ascends()) [[unlikely]]
          return scatter_twice<T, I>(v, given, r, {row.val, row.indx, row.count});
        const one<T> x = p.x_at(r);
        bool met = !Unit;
        const auto term = [&]<int N>(const T* a) __attribute__((always_inline)) {
          return mul<T>(spread<T, N>(x), alpha.template times_conj<Conj, N>(a));
        };
        row.each_term(
            term, [&](one<T> t, zor_int c) __attribute__((always_inline)) {
              one<T> s = p.y_at(c) + t;
              if (Unit && c == r) {
                s = s + mul<T>(x, alpha.value);
                met = true;
              }
              if (outside<Side, Unit>::holds(c, r)) s = s - t;
              p.set_y(c, s);
            });
        if (!met) p.set_y(r, p.y_at(r) + mul<T>(x, alpha.value));
      });
}

// Diagonal view: y(r) = y(r) + (a alpha) x(r) for every entry on the diagonal, duplicates included.
template <class T, bool Conj, class I>
void diagonal_rows(const vector_product<T, I>& given) {
  const vector_product<T, I> p = given.with_stored_numbers();
  const factor<T> alpha(p.scale());
  each_row<thresholds::dot_runs>(
      p, [&](zor_int r, auto row) __attribute__((always_inline)) {
        row.each_in(
            on_diagonal{}, r, [&](const T* a, zor_int) __attribute__((always_inline)) {
              p.set_y(r, p.y_at(r) + mul_at<T>(p.x + r, alpha.template times_conj<Conj>(a)));
            });
      });
}

template <class T, int Side, bool Conj, class I>
void scatter_triangle(view v, const vector_product<T, I>& p) {
  v.unit() ? scatter_triangle_rows<T, Side, true, Conj>(v, p)
           : scatter_triangle_rows<T, Side, false, Conj>(v, p);
}

template <class T, bool Conj, class I>
void multiply_all_rows(view v, const vector_product<T, I>& p) {
  if (v.structure == 'g')
    scatter_rows<T, Conj>(p);
  else if (v.structure == 'd')
    diagonal_rows<T, Conj>(p);
  else
    v.side() > 0 ? scatter_triangle<T, 1, Conj>(v, p) : scatter_triangle<T, -1, Conj>(v, p);
}

template <class T, class I>
void multiply_all(view v, const vector_product<T, I>& p) {
  if (is_complex<T> && v.conjugated())
    multiply_all_rows<T, is_complex<T>>(v, p);
  else
    multiply_all_rows<T, false>(v, p);
}

}  // namespace zor::sparse
