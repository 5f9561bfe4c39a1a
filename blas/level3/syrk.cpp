// SPDX-License-Identifier: MIT
// Rank-k updates of one triangle: C := alpha op(A) op(A)^T + beta C, and with the conjugate transpose and
// real factors for Hermitian C. The other triangle is neither read nor written.
#include "blas/level3/rank_update.h"

namespace zor::level3 {
namespace {

// The letters of the products alpha op(A) op(A)^T, or with the conjugate transpose.
struct letters {
  char first, second;
};

// tile := alpha op(A) op(A)^T of a diagonal block, whose rows of op(A) begin at `block`: the wanted triangle.
template <class T>
void multiply_tile(bool lower, bool trans, letters op, zor_int order, zor_int k, T alpha, const T* block,
                   zor_int lda, T* tile) {
  for_strips<T>(lower, order, [&](zor_int column, zor_int columns, zor_int row, zor_int rows) {
    multiply_add(op.first, op.second, rows, columns, k, alpha, rows_of(trans, block, lda, row), lda,
                 rows_of(trans, block, lda, column), lda, from_real<T>(0), tile + row + column * tile_order,
                 tile_order);
  });
}

template <bool Hermitian, class T, class S>
void syrk(bool lower, bool trans, zor_int n, zor_int k, S alpha, const T* a, zor_int lda, S beta, T* c,
          zor_int ldc) {
  const triangle_of<T> t{c, ldc, n, lower};
  if (!begin_update<Hermitian>(t, k, is_zero(alpha), beta)) return;
  T factor;
  if constexpr (Hermitian)
    factor = from_real<T>(alpha);
  else
    factor = alpha;
  const char other = transpose_letter(Hermitian);
  const letters op = trans ? letters{other, 'N'} : letters{'N', other};
  alignas(64) T tile[tile_order * tile_order];
  for_diagonal_blocks(
      t, diagonal_order<T>(trans, false),
      [&](zor_int j, zor_int order) {
        multiply_tile(lower, trans, op, order, k, factor, rows_of(trans, a, lda, j), lda, tile);
        add_tile<Hermitian>(t.block(j, order), tile);
      },
      [&](zor_int row, zor_int rows, zor_int column, zor_int columns) {
        multiply_add(op.first, op.second, rows, columns, k, factor, rows_of(trans, a, lda, row), lda,
                     rows_of(trans, a, lda, column), lda, from_real<T>(1), c + row + column * ldc, ldc);
      });
}

}  // namespace
}  // namespace zor::level3

#define ROW_RANK_K(name, T, S, hermitian)                                                                   \
  extern "C" SIG_RANK_K(name, T, S) {                                                                       \
    zor::level3::syrk<hermitian>(zor::is_letter(uplo, 'L'), !zor::is_letter(trans, 'N'), *n, *k, *alpha, a, \
                                 *lda, *beta, c, *ldc);                                                     \
  }
#include "zor/tables/blas_level3.inc"
