// SPDX-License-Identifier: MIT
// Products of a CSR matrix and many right-hand sides: what they are given, and the function behind all names
// of one type.
#pragma once

#include "spblas/csr/matrix.h"
#include "spblas/panel.h"
#include "spblas/view.h"

namespace zor::sparse {

// C := C + alpha op(A) B for the right-hand sides first to last - 1 of n, counted from 0; A has m rows.
template <class T, bool RowMajor, class I>
struct matrix_product {
  csr<T, I> a;
  zor_int m, n, first, last;
  T alpha;
  dense<const T, RowMajor> b;
  dense<T, RowMajor> c;
};

template <class T, bool RowMajor, class I>
void multiply(view v, const matrix_product<T, RowMajor, I>& p);

// For one type and both widths of integers; a source file for each layout, so that they compile side by side.
#define ZOR_CSR_MATRIX_PRODUCTS(T, RowMajor)                                                           \
  template void zor::sparse::multiply(view, const zor::sparse::matrix_product<T, RowMajor, int32_t>&); \
  template void zor::sparse::multiply(view, const zor::sparse::matrix_product<T, RowMajor, int64_t>&);

}  // namespace zor::sparse
