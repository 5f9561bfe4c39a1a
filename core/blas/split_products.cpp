// SPDX-License-Identifier: MIT
// Products with a symmetric matrix, the complex product by three real ones and products of a real and a
// complex matrix: threads take columns of C, or rows where A stands on the right.
#include <algorithm>

#include "blas/level3/blocks.h"
#include "core/blas/argument_list.h"
#include "core/blas/division.h"
#include "core/blas/kernels.h"
#include "zor/signatures/blas.h"

namespace zor_core {
namespace {

// Columns or rows that the kernels take at a time.
constexpr kernel_blocks symmetric_blocks{zor::level3::symmetric_free, zor::level3::symmetric_free},
    three_product_blocks{zor::level3::three_product_columns, zor::level3::three_product_columns};
template <class R>
kernel_blocks mixed_blocks(zor_int m) {
  const zor_int step = zor::level3::mixed_step<R>(m);
  return {step, step};
}

template <class T>
void symm(const char* routine, zor::symm_fn<T>* kernel, const char* side, const char* uplo, const zor_int* m,
          const zor_int* n, const T* alpha, const T* a, const zor_int* lda, const T* b, const zor_int* ldb,
          const T* beta, T* c, const zor_int* ldc) {
  const bool left = is_letter(side, 'L');
  const zor_int rows = value(m), columns = value(n), order = left ? rows : columns;
  const bool some = rows > 0 && columns > 0, read = some && alpha != nullptr && !is_zero(*alpha);
  const bool written = some && (read || (beta != nullptr && !is_one(*beta)));
  argument_list list;
  list.option("side", side, 'L', 'R')
      .option("uplo", uplo, 'U', 'L')
      .size("m", m)
      .size("n", n)
      .pointer("alpha", alpha);
  list.matrix("a", a, "lda", lda, order, order, read).matrix("b", b, "ldb", ldb, rows, columns, read);
  list.pointer("beta", beta).matrix("c", c, "ldc", ldc, rows, columns, written);
  if (list.reported(routine) || !written) return;
  // Without a product A and B are not read: what they hold does not reach C.
  if (!read) return kernels<T>::mscale(m, n, beta, c, ldc);
  for_divisions(left ? columns : rows, saturating_product(rows, columns, order), symmetric_blocks,
                [&](zor_int first, zor_int count) {
                  kernel(side, uplo, left ? m : &count, left ? &count : n, alpha, a, lda,
                         b + (left ? first * *ldb : first), ldb, beta, c + (left ? first * *ldc : first),
                         ldc);
                });
}

// A product with op(A) of elements of type A; Kernel has the signature of the plain product.
template <class A, class T, class Kernel>
void product(const char* routine, Kernel* kernel, kernel_blocks (*blocks)(zor_int), const char* transa,
             const char* transb, const zor_int* m, const zor_int* n, const zor_int* k, const T* alpha,
             const A* a, const zor_int* lda, const T* b, const zor_int* ldb, const T* beta, T* c,
             const zor_int* ldc) {
  const zor_int rows = value(m), columns = value(n), depth = value(k);
  const bool some = rows > 0 && columns > 0, read = some && depth > 0 && alpha != nullptr && !is_zero(*alpha);
  const bool written = some && (read || (beta != nullptr && !is_one(*beta)));
  const bool plain_a = is_letter(transa, 'N'), plain_b = is_letter(transb, 'N');
  argument_list list;
  list.next("transa", is_trans(transa))
      .next("transb", is_trans(transb))
      .size("m", m)
      .size("n", n)
      .size("k", k);
  list.pointer("alpha", alpha)
      .matrix("a", a, "lda", lda, plain_a ? rows : depth, plain_a ? depth : rows, read);
  list.matrix("b", b, "ldb", ldb, plain_b ? depth : columns, plain_b ? columns : depth, read);
  list.pointer("beta", beta).matrix("c", c, "ldc", ldc, rows, columns, written);
  if (list.reported(routine) || !written) return;
  for_divisions(columns, read ? saturating_product(rows, columns, depth) : 0, blocks(rows),
                [&](zor_int first, zor_int count) {
                  kernel(transa, transb, m, &count, k, alpha, a, lda, b + (plain_b ? first * *ldb : first),
                         ldb, beta, c + first * *ldc, ldc);
                });
}

}  // namespace
}  // namespace zor_core

#define ROW_PUBLIC_SYMM(name, T, kernel)                                                     \
  extern "C" SIG_SYMM(name, T) {                                                             \
    zor_core::symm<T>(#name, kernel, side, uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc); \
  }
#define ROW_GEMM3M(name, T, kernel)                                                                     \
  extern "C" SIG_GEMM(name, T) {                                                                        \
    zor_core::product<T, T>(                                                                            \
        #name, kernel, [](zor_int) { return zor_core::three_product_blocks; }, transa, transb, m, n, k, \
        alpha, a, lda, b, ldb, beta, c, ldc);                                                           \
  }
#define ROW_PUBLIC_MIXED(name, T, R, kernel)                                                             \
  extern "C" SIG_MIXED(name, T, R) {                                                                     \
    zor_core::product<R, T>(#name, kernel, zor_core::mixed_blocks<R>, transa, transb, m, n, k, alpha, a, \
                            lda, b, ldb, beta, c, ldc);                                                  \
  }
#include "zor/tables/core_level3.inc"
