// SPDX-License-Identifier: MIT
// Products and solves by the kernels of coordinates, diagonals, blocks and skyline. Operands have been
// checked; there is something to read and to write.
#pragma once

#include "core/spblas/kernels.h"

namespace zor_core {

// Whether the kernels of the matrix's own format multiply by op(A). Compressed rows take over otherwise: none
// of the kernels conjugates a general or triangular matrix in diagonals without transposing it, conjugates
// blocks or profiles, has a Hermitian view of them, or knows a unit diagonal inside blocks of a mirrored
// view.
template <class T>
bool has_product(const sparse_matrix& a, int32_t op) {
  const bool conjugated = is_conjugated<T>(op);
  if (a.identity()) return false;
  switch (a.format) {
    case ZOR_SPARSE_COO:
      return true;
    case ZOR_SPARSE_DIA:
      return !conjugated || is_transposed(op) || (a.structure != 'g' && a.structure != 't');
    case ZOR_SPARSE_BSR:
      return !conjugated && a.structure != 'h' && a.blocks_serve && !(a.mirrored() && a.diagonal == 'u');
    case ZOR_SPARSE_SKY:
      return !conjugated && a.structure != 'h';
    default:
      return false;
  }
}
// The same for many right-hand sides. The kernels of blocks take one vector at a time, in columns: compressed
// rows are faster by rows, and for several columns of small blocks unless they are transposed.
template <class T>
bool has_product(const sparse_matrix& a, int32_t op, int32_t layout, zor_int n) {
  if (!has_product<T>(a, op) || a.format != ZOR_SPARSE_BSR) return has_product<T>(a, op);
  using namespace sparse_thresholds;
  return layout == ZOR_SPARSE_COLUMN_MAJOR &&
         (n < columns_for_rows || a.lb >= block_for_columns || is_transposed(op));
}
// The same for solves with op(A), of triangular and diagonal views. There are none for blocks.
template <class T>
bool has_solve(const sparse_matrix& a, int32_t op) {
  const bool conjugated = is_conjugated<T>(op);
  if (a.identity()) return false;
  switch (a.format) {
    case ZOR_SPARSE_COO:
      return true;
    case ZOR_SPARSE_DIA:
      return !conjugated || is_transposed(op) || a.structure == 'd';
    case ZOR_SPARSE_SKY:
      return !conjugated;
    default:
      return false;
  }
}

// y := beta y + alpha op(A) x, and the same for n right-hand sides.
template <class T, class I>
int32_t multiply_in_format(const sparse_matrix& a, int32_t op, T alpha, const T* x, T beta, T* y);
template <class T, class I>
int32_t multiply_in_format_many(const sparse_matrix& a, int32_t op, int32_t layout, zor_int n, T alpha,
                                const T* b, zor_int ldb, T beta, T* c, zor_int ldc);

// X := alpha op(A)^-1 B.
template <class T, class I>
int32_t solve_in_format(const sparse_matrix& a, int32_t op, int32_t layout, zor_int n, T alpha, const T* b,
                        zor_int ldb, T* x, zor_int ldx);

#define ZOR_FOR_EVERY_TYPE(row)                                                                           \
  row(float, int32_t) row(float, int64_t) row(double, int32_t) row(double, int64_t) row(zor_c32, int32_t) \
      row(zor_c32, int64_t) row(zor_c64, int32_t) row(zor_c64, int64_t)

}  // namespace zor_core
