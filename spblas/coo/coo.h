// SPDX-License-Identifier: MIT
// Matrices in coordinates: what products and solves are given, and the functions behind all names of one
// type. Entries stand in any order, and all of several entries of one place count.
#pragma once

#include "spblas/panel.h"
#include "spblas/view.h"

namespace zor::sparse {

namespace thresholds {
// Tuned: entries from which operands are taken to be beyond the second cache, the step from one entry to the
// next that no stream of the processor follows, and how far ahead such entries are asked for.
inline constexpr zor_int coo_far_entries = zor_int(1) << 18, coo_far_step = zor_int(1) << 15;
inline constexpr zor_int coo_entries_ahead = 24;
}  // namespace thresholds

// Entry e has row rowind[e] and column colind[e], both in the base of the matrix.
template <class T, class I>
struct coo {
  const T* val;
  const I* rowind;
  const I* colind;
  zor_int nnz, base;
};

// C := C + alpha op(A) B over the entries first to last - 1 and the right-hand sides from_column to
// to_column - 1, counted from 0. A has m rows, which only a unit diagonal reads. A vector is a column-major
// operand of one right-hand side.
template <class T, bool RowMajor, class I>
struct coo_product {
  coo<T, I> a;
  zor_int first, last, m, from_column, to_column;
  T alpha;
  dense<const T, RowMajor> b;
  dense<T, RowMajor> c;
};
template <class T, bool RowMajor, class I>
void multiply(view v, const coo_product<T, RowMajor, I>& p);

// X := op(T)^-1 X in place, T the triangle or the diagonal of A.
template <class T, bool RowMajor, class I>
struct coo_solve {
  coo<T, I> a;
  zor_int m, from_column, to_column;
  dense<T, RowMajor> x;
};
template <class T, bool RowMajor, class I>
void solve(view v, const coo_solve<T, RowMajor, I>& p);

// Each for one type; a source file each, so that they compile side by side.
#define ZOR_COO_PRODUCTS(T)                                                                      \
  template void zor::sparse::multiply(view, const zor::sparse::coo_product<T, true, int32_t>&);  \
  template void zor::sparse::multiply(view, const zor::sparse::coo_product<T, true, int64_t>&);  \
  template void zor::sparse::multiply(view, const zor::sparse::coo_product<T, false, int32_t>&); \
  template void zor::sparse::multiply(view, const zor::sparse::coo_product<T, false, int64_t>&);
#define ZOR_COO_SOLVES(T)                                                                   \
  template void zor::sparse::solve(view, const zor::sparse::coo_solve<T, true, int32_t>&);  \
  template void zor::sparse::solve(view, const zor::sparse::coo_solve<T, true, int64_t>&);  \
  template void zor::sparse::solve(view, const zor::sparse::coo_solve<T, false, int32_t>&); \
  template void zor::sparse::solve(view, const zor::sparse::coo_solve<T, false, int64_t>&);

}  // namespace zor::sparse
