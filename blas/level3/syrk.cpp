// SPDX-License-Identifier: MIT
// Rank-k updates of one triangle: C := alpha op(A) op(A)^T + beta C, and with the conjugate transpose and
// real factors for Hermitian C. The other triangle is neither read nor written.
#include "blas/level3/rank_update.h"

namespace zor::level3 {
namespace {

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
  const char first = trans ? other : 'N', second = trans ? 'N' : other;
  alignas(64) T tile[tile_order * tile_order];
  for_diagonal_blocks(t, diagonal_order<T>(trans, false),
                      [&](zor_int j, zor_int order, zor_int row, zor_int rows) {
                        const T* const block = rows_of(trans, a, lda, j);
                        multiply_add(first, second, order, order, k, factor, block, lda, block, lda,
                                     from_real<T>(0), tile, tile_order);
                        add_tile<Hermitian>(t.block(j, order), tile);
                        multiply_add(first, second, rows, order, k, factor, rows_of(trans, a, lda, row), lda,
                                     block, lda, from_real<T>(1), c + row + j * ldc, ldc);
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
