// SPDX-License-Identifier: MIT
// Matrices in blocks in compressed rows: what products are given, and the functions behind all names of one
// type. Widths of integers are values here: an index is read once a block.
#pragma once

#include "spblas/panel.h"
#include "spblas/stored_integers.h"
#include "spblas/view.h"

namespace zor::sparse {

// Blocks of lb by lb elements, stored by columns or by rows. Block rows, block columns and positions count
// from 0.
template <class T>
struct bsr {
  const T* val;
  stored_integers indx, pntrb, pntre;
  zor_int base, lb;
  bool by_rows;

  zor_int begin(zor_int row) const { return pntrb[row] - pntrb[0]; }
  zor_int end(zor_int row) const { return pntre[row] - pntrb[0]; }
  zor_int column(zor_int k) const { return indx[k] - base; }
  const T* block(zor_int k) const { return val + k * lb * lb; }
  // From an element to the next one of its column, and of its row.
  zor_int row_step() const { return by_rows ? lb : 1; }
  zor_int column_step() const { return by_rows ? 1 : lb; }
};

// y := y + alpha op(A) x over the block rows first to last - 1.
template <class T>
struct bsr_product {
  bsr<T> a;
  zor_int first, last;
  T alpha;
  const T* x;
  T* y;
};
// The general view and the triangular ones; a unit diagonal is added once for each diagonal block.
template <class T>
void multiply_blocks(view v, const bsr_product<T>& p);
// y := A x, by columns.
template <class T>
void multiply_plain(const bsr_product<T>& p);
// The symmetric and antisymmetric views, diagonal blocks left out unless they are asked for.
template <class T>
void multiply_mirrored(view v, bool diagonal_blocks, const bsr_product<T>& p);
template <class T>
void multiply_diagonal(bool stored, const bsr_product<T>& p);

// C := C + alpha op(A) B for n right-hand sides, over mb block rows.
template <class T, bool RowMajor>
struct bsr_products {
  bsr<T> a;
  zor_int mb, n;
  T alpha;
  dense<const T, RowMajor> b;
  dense<T, RowMajor> c;
};
// The general view and the symmetric one.
template <class T, bool RowMajor>
void multiply_many(view v, bool diagonal_blocks, const bsr_products<T, RowMajor>& p);

#define ZOR_BSR_PRODUCTS(T)                                                                     \
  template void zor::sparse::multiply_blocks(view, const zor::sparse::bsr_product<T>&);         \
  template void zor::sparse::multiply_plain(const zor::sparse::bsr_product<T>&);                \
  template void zor::sparse::multiply_mirrored(view, bool, const zor::sparse::bsr_product<T>&); \
  template void zor::sparse::multiply_diagonal(bool, const zor::sparse::bsr_product<T>&);
#define ZOR_BSR_MATRIX_PRODUCTS(T)                                                                 \
  template void zor::sparse::multiply_many(view, bool, const zor::sparse::bsr_products<T, true>&); \
  template void zor::sparse::multiply_many(view, bool, const zor::sparse::bsr_products<T, false>&);

}  // namespace zor::sparse
