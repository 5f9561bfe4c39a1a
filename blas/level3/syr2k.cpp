// SPDX-License-Identifier: MIT
// Rank-2k updates of one triangle: C := alpha op(A) op(B)^T + alpha op(B) op(A)^T + beta C, and with
// conjugate transposes and the conjugate of alpha in the second product for Hermitian C.
//
// On the diagonal one product serves both terms: the second is the transpose of the first.
#include "blas/level3/rank_update.h"

namespace zor::level3 {
namespace {

// C(i, j) := (C(i, j) + T(i, j)) + T(j, i) in the triangle, T(j, i) conjugated for Hermitian C.
template <bool Hermitian, class T>
void add_tile_and_transpose(const triangle_of<T>& t, const T* tile) {
  for (zor_int j = 0; j < t.n; ++j) {
    const zor_int end = t.first_row(j) + t.rows(j);
    for (zor_int i = t.first_row(j); i < end; ++i) {
      T& c = t.c[i + j * t.ldc];
      c = add(add(c, tile[i + j * tile_order]), conj_by_sign_if(Hermitian, tile[j + i * tile_order]));
    }
    if (Hermitian) clear_imaginary(t.c[j + j * t.ldc]);
  }
}

template <bool Hermitian, class T, class S>
void syr2k(bool lower, bool trans, zor_int n, zor_int k, T alpha, const T* a, zor_int lda, const T* b,
           zor_int ldb, S beta, T* c, zor_int ldc) {
  const triangle_of<T> t{c, ldc, n, lower};
  if (!begin_update<Hermitian>(t, k, is_zero(alpha), beta)) return;
  const T mirrored = conj_by_sign_if(Hermitian, alpha);
  const char other = transpose_letter(Hermitian);
  const char first = trans ? other : 'N', second = trans ? 'N' : other;
  alignas(64) T tile[tile_order * tile_order];
  for_diagonal_blocks(
      t, diagonal_order<T>(trans, true),
      [&](zor_int j, zor_int order) {
        multiply_add(first, second, order, order, k, alpha, rows_of(trans, a, lda, j), lda,
                     rows_of(trans, b, ldb, j), ldb, from_real<T>(0), tile, tile_order);
        add_tile_and_transpose<Hermitian>(t.block(j, order), tile);
      },
      [&](zor_int row, zor_int rows, zor_int column, zor_int columns) {
        T* const rectangle = c + row + column * ldc;
        multiply_add(first, second, rows, columns, k, alpha, rows_of(trans, a, lda, row), lda,
                     rows_of(trans, b, ldb, column), ldb, from_real<T>(1), rectangle, ldc);
        multiply_add(first, second, rows, columns, k, mirrored, rows_of(trans, b, ldb, row), ldb,
                     rows_of(trans, a, lda, column), lda, from_real<T>(1), rectangle, ldc);
      });
}

}  // namespace
}  // namespace zor::level3

#define ROW_RANK_2K(name, T, S, hermitian)                                                                   \
  extern "C" SIG_RANK_2K(name, T, S) {                                                                       \
    zor::level3::syr2k<hermitian>(zor::is_letter(uplo, 'L'), !zor::is_letter(trans, 'N'), *n, *k, *alpha, a, \
                                  *lda, b, *ldb, *beta, c, *ldc);                                            \
  }
#include "zor/tables/blas_level3.inc"
