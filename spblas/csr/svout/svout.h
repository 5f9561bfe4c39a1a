// SPDX-License-Identifier: MIT
// Solves with a CSR matrix and one right-hand side: the function behind all names of one type.
#pragma once

#include "spblas/csr/matrix.h"
#include "spblas/view.h"

namespace zor::sparse {

// op(T) x = b in place, y holding b and then x. T is a triangle or the diagonal of A, which has m rows. alpha
// is that of the diagonal view.
template <class T, class I>
void solve_one(view v, csr<T, I> a, zor_int m, T alpha, T* y);

// For one type and both widths of integers; a source file each, so that they compile side by side.
#define ZOR_CSR_VECTOR_SOLVES(T)                                                            \
  template void zor::sparse::solve_one(view, zor::sparse::csr<T, int32_t>, zor_int, T, T*); \
  template void zor::sparse::solve_one(view, zor::sparse::csr<T, int64_t>, zor_int, T, T*);

}  // namespace zor::sparse
