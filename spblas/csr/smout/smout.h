// SPDX-License-Identifier: MIT
// Solves with a CSR matrix and many right-hand sides: what they are given, and the function behind all names
// of one type.
#pragma once

#include "spblas/csr/matrix.h"
#include "spblas/panel.h"
#include "spblas/view.h"

namespace zor::sparse {

// op(T) X = B for the right-hand sides first to last - 1 of n, counted from 0; x holds B and then X. T is a
// triangle or the diagonal of A, which has m rows. alpha is that of the diagonal view.
template <class T, bool RowMajor, class I>
struct matrix_solve {
  csr<T, I> a;
  zor_int m, n, first, last;
  T alpha;
  dense<T, RowMajor> x;
};

template <class T, bool RowMajor, class I>
void solve_many(view v, const matrix_solve<T, RowMajor, I>& p);

// For one type and both widths of integers; a source file for each layout, so that they compile side by side.
#define ZOR_CSR_MATRIX_SOLVES(T, RowMajor)                                                             \
  template void zor::sparse::solve_many(view, const zor::sparse::matrix_solve<T, RowMajor, int32_t>&); \
  template void zor::sparse::solve_many(view, const zor::sparse::matrix_solve<T, RowMajor, int64_t>&);

}  // namespace zor::sparse
