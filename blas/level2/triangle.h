// SPDX-License-Identifier: MIT
// One stored triangle of a square matrix, by columns: full (in an array with a leading dimension), banded
// (its diagonals as the rows of an array) or packed (its columns one behind the other).
#pragma once

#include "zor/types.h"

namespace zor {

constexpr bool is_upper(char uplo) { return uplo == 'U' || uplo == 'u'; }

// Element (i, j) of the stored triangle is column(j)[i], for rows first_row(j) to end_row(j) - 1. T may be
// const.
template <class T>
struct stored_triangle {
  T* data;           // where row 0 of column 0 stands, or would stand
  zor_int n, reach;  // order, and number of diagonals beside the main one
  zor_int step,
      bend;  // row 0 moves by `step` from column 0 to 1, and by `bend` more from each column to the next
  bool upper;

  // From a row of column j to the same row of the next.
  zor_int column_step(zor_int j) const { return step + j * bend; }
  T* column(zor_int j) const { return data + j * step + j * (j - 1) / 2 * bend; }
  zor_int first_row(zor_int j) const { return !upper ? j : j > reach ? j - reach : 0; }
  zor_int end_row(zor_int j) const { return upper ? j + 1 : n - j > reach ? j + reach + 1 : n; }
};

template <class T>
constexpr stored_triangle<T> full_triangle(bool upper, zor_int n, T* a, zor_int lda) {
  return {a, n, n - 1, lda, 0, upper};
}

// k diagonals beside the main one, which is row k of an upper and row 0 of a lower band.
template <class T>
constexpr stored_triangle<T> banded_triangle(bool upper, zor_int n, zor_int k, T* a, zor_int lda) {
  return {upper ? a + k : a, n, k, lda - 1, 0, upper};
}

template <class T>
constexpr stored_triangle<T> packed_triangle(bool upper, zor_int n, T* ap) {
  return upper ? stored_triangle<T>{ap, n, n - 1, 1, 1, true}
               : stored_triangle<T>{ap, n, n - 1, n - 1, -1, false};
}

}  // namespace zor
