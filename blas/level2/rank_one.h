// SPDX-License-Identifier: MIT
// What the rank updates of a triangle share: the rows of a column, and diagonals that are kept real.
#pragma once

#include "blas/level2/triangle.h"
#include "serv/mul_add.h"

namespace zor {

// Rows of column j of the triangle among rows first to end - 1, without the diagonal where that is apart.
struct column_rows {
  zor_int first, end;
};
template <bool DiagonalApart, class T>
[[gnu::always_inline]] inline column_rows rows_beside_diagonal(const stored_triangle<T>& a, zor_int j,
                                                               zor_int first, zor_int end) {
  const zor_int top = a.first_row(j) + (DiagonalApart && !a.upper);
  const zor_int bottom = a.end_row(j) - (DiagonalApart && a.upper);
  return {top > first ? top : first, bottom < end ? bottom : end};
}

// The real part of `term`: the imaginary part is not computed, so that it raises no
// flag.
template <class T>
[[gnu::always_inline]] inline real_t<T> real_of_product(T x, T y) {
  return mul_add(x.re, y.re, -(x.im * y.im));
}

// (re, im) := (re + term, 0); im is not read.
template <class T>
[[gnu::always_inline]] inline void add_to_real_diagonal(real_t<T> term, T* diagonal) {
  store_element(diagonal, T{load_element(diagonal).re + term, 0});
}

}  // namespace zor
