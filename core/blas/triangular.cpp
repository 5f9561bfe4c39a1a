// SPDX-License-Identifier: MIT
// Triangular solves and products with many right-hand sides: threads take columns of B from the left, rows
// from the right.
#include "blas/level3/blocks.h"
#include "core/blas/argument_list.h"
#include "core/blas/division.h"
#include "zor/signatures/blas.h"

namespace zor_core {
namespace {

using namespace zor::level3;

// Blocks of the free dimension in the kernels: those of the last and of the first level.
template <class T>
kernel_blocks solve_blocks(bool left, bool plain) {
  if (left) return plain ? kernel_blocks{solve_left_columns, solve_left_columns} : kernel_blocks{0, 0};
  const level &first = solve_right_blocks<T>[0], &last = solve_right_blocks<T>[solve_right_levels<T> - 1];
  return first.free == all_free ? kernel_blocks{0, 0} : kernel_blocks{last.free, first.free};
}
template <class T>
kernel_blocks product_blocks(bool left, bool plain) {
  if (!left) return {multiply_right_blocks[multiply_levels - 1].free, multiply_right_blocks[0].free};
  const zor_int columns = plain ? multiply_left_columns : multiply_left_blocks[0].free;
  return {columns, columns};
}

template <class T>
void triangular(const char* routine, zor::xtrsm_fn<T>* kernel, kernel_blocks (*blocks)(bool, bool),
                const char* side, const char* uplo, const char* transa, const char* diag, const zor_int* m,
                const zor_int* n, const T* alpha, const T* a, const zor_int* lda, T* b, const zor_int* ldb) {
  const bool left = is_letter(side, 'L');
  const zor_int rows = value(m), columns = value(n), order = left ? rows : columns;
  const bool some = rows > 0 && columns > 0, read = some && alpha != nullptr && !is_zero(*alpha);
  argument_list list;
  list.option("side", side, 'L', 'R').option("uplo", uplo, 'U', 'L').next("transa", is_trans(transa));
  list.option("diag", diag, 'N', 'U').size("m", m).size("n", n).pointer("alpha", alpha);
  list.matrix("a", a, "lda", lda, order, order, read).matrix("b", b, "ldb", ldb, rows, columns, some);
  if (list.reported(routine) || !some) return;
  for_divisions(left ? columns : rows, read ? saturating_product(rows, columns, order) : 0,
                blocks(left, is_plain(transa)), [&](zor_int first, zor_int count) {
                  kernel(side, uplo, transa, diag, left ? m : &count, left ? &count : n, alpha, a, lda,
                         b + (left ? first * *ldb : first), ldb);
                });
}

}  // namespace
}  // namespace zor_core

#define ROW_TRSM(name, T, kernel)                                                                            \
  extern "C" SIG_XTRSM(name, T) {                                                                            \
    zor_core::triangular<T>(#name, kernel, zor_core::solve_blocks<T>, side, uplo, transa, diag, m, n, alpha, \
                            a, lda, b, ldb);                                                                 \
  }
#define ROW_TRMM(name, T, kernel)                                                                       \
  extern "C" SIG_XTRSM(name, T) {                                                                       \
    zor_core::triangular<T>(#name, kernel, zor_core::product_blocks<T>, side, uplo, transa, diag, m, n, \
                            alpha, a, lda, b, ldb);                                                     \
  }
#include "zor/tables/core_level3.inc"
