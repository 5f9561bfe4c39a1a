// SPDX-License-Identifier: MIT
// Matrices in diagonals: what products and solves are given, the functions behind all names of one type, and
// the numbers that they decide by.
#pragma once

#include "spblas/panel.h"
#include "spblas/stored_integers.h"
#include "spblas/view.h"

namespace zor::sparse {

namespace thresholds {
// Contract: rows and columns of the tiles of a product. Contributions reach an element of y tile by tile.
inline constexpr zor_int dia_tile_rows = 20000, dia_tile_columns = 5000;
// Tuned: rows whose part of y stays in the first cache while diagonals pass, and diagonals that pass it
// together.
inline constexpr zor_int dia_rows_at_once = 1024;
inline constexpr int dia_runs_at_once = 16;
// Tuned: the same for a diagonal and its image, which pass one after the other.
inline constexpr zor_int dia_image_rows_at_once = 512;
// Tuned: right-hand sides that share the elements of a diagonal.
inline constexpr int dia_columns_abreast = 4;
}  // namespace thresholds

// Diagonal d has the distance idiag[d], column minus row, and its element of row i, counted from 0, at val[i
// + d lval].
template <class T>
struct dia {
  const T* val;
  zor_int lval;
  stored_integers idiag;
  zor_int ndiag;

  const T* diagonal(zor_int d) const { return val + d * lval; }
};

// C := C + alpha op(A) B for the right-hand sides from_column to to_column - 1, counted from 0, all operands
// column-major; A is m by k.
template <class T>
struct dia_product {
  dia<T> a;
  zor_int m, k, from_column, to_column;
  T alpha;
  dense<const T, false> b;
  dense<T, false> c;
};
// With Many a product is that of a matrix, b (a alpha); else that of a vector, (x alpha) a.
template <bool Many, class T>
void multiply(view v, const dia_product<T>& p);

// X := op(T)^-1 X in place. The triangle consists of the diagonals dfirst to dlast, counted from 1, with
// ascending distances, and of the main one at dmain, which a unit diagonal does not read. The diagonal view
// reads a.ndiag in their stead.
template <class T>
struct dia_solve {
  dia<T> a;
  zor_int m, from_column, to_column, dfirst, dlast, dmain;
  dense<T, false> x;
};
template <class T>
void solve(view v, const dia_solve<T>& p);

#define ZOR_DIA_PRODUCTS(T)                                                             \
  template void zor::sparse::multiply<false>(view, const zor::sparse::dia_product<T>&); \
  template void zor::sparse::multiply<true>(view, const zor::sparse::dia_product<T>&);
#define ZOR_DIA_SOLVES(T) template void zor::sparse::solve(view, const zor::sparse::dia_solve<T>&);

}  // namespace zor::sparse
