// SPDX-License-Identifier: MIT
// One triangle of a matrix product: halved until its diagonal blocks are small, so that nearly all of it is
// rectangles, which the plain product computes. A small block is computed whole on the stack and its triangle
// stored, so no memory is asked for.
#include <algorithm>

#include "core/blas/argument_list.h"
#include "zor/signatures/blas.h"

namespace zor_core {
namespace {

constexpr zor_int block_order = 32;

constexpr auto* gemm_of(float) { return &zor_blas_sgemm; }
constexpr auto* gemm_of(double) { return &zor_blas_dgemm; }
constexpr auto* gemm_of(zor_c32) { return &zor_blas_cgemm; }
constexpr auto* gemm_of(zor_c64) { return &zor_blas_zgemm; }

template <class T>
struct product {
  bool lower, plain_a, plain_b;
  const char *transa, *transb;
  zor_int k;
  const T* alpha;
  const T* a;
  zor_int lda;
  const T* b;
  zor_int ldb;
  const T* beta;
  T* c;
  zor_int ldc;

  // Block of C that begins at (i, j), into target.
  void compute(zor_int i, zor_int j, zor_int rows, zor_int columns, T* target, zor_int ld) const {
    gemm_of(T{})(transa, transb, &rows, &columns, &k, alpha, a + (plain_a ? i : i * lda), &lda,
                 b + (plain_b ? j * ldb : j), &ldb, beta, target, &ld);
  }
};

template <class T>
void diagonal_block(const product<T>& p, zor_int first, zor_int order) {
  T block[block_order * block_order]{};
  const auto for_columns = [&](const auto& move) {
    for (zor_int j = 0; j < order; ++j) {
      const zor_int begin = p.lower ? j : 0, end = p.lower ? order : j + 1;
      move(p.c + first + (first + j) * p.ldc + begin, block + j * block_order + begin, end - begin);
    }
  };
  if (!is_zero(*p.beta)) for_columns([](const T* c, T* t, zor_int count) { std::copy_n(c, count, t); });
  p.compute(first, first, order, order, block, block_order);
  for_columns([](T* c, const T* t, zor_int count) { std::copy_n(t, count, c); });
}

template <class T>
void triangle(const product<T>& p, zor_int first, zor_int order) {
  if (order <= block_order) return diagonal_block(p, first, order);
  const zor_int half = (order / 2 + block_order - 1) / block_order * block_order;
  triangle(p, first, half);
  const zor_int i = p.lower ? first + half : first, j = p.lower ? first : first + half;
  p.compute(i, j, p.lower ? order - half : half, p.lower ? half : order - half, p.c + i + j * p.ldc, p.ldc);
  triangle(p, first + half, order - half);
}

template <class T>
void gemmt(const char* routine, const char* uplo, const char* transa, const char* transb, const zor_int* n,
           const zor_int* k, const T* alpha, const T* a, const zor_int* lda, const T* b, const zor_int* ldb,
           const T* beta, T* c, const zor_int* ldc) {
  const zor_int order = value(n), depth = value(k);
  const bool read = order > 0 && depth > 0 && alpha != nullptr && !is_zero(*alpha);
  const bool written = order > 0 && (read || (beta != nullptr && !is_one(*beta)));
  const bool plain_a = is_letter(transa, 'N'), plain_b = is_letter(transb, 'N');
  argument_list list;
  list.option("uplo", uplo, 'U', 'L').next("transa", is_trans(transa)).next("transb", is_trans(transb));
  list.size("n", n).size("k", k).pointer("alpha", alpha);
  list.matrix("a", a, "lda", lda, plain_a ? order : depth, plain_a ? depth : order, read);
  list.matrix("b", b, "ldb", ldb, plain_b ? depth : order, plain_b ? order : depth, read);
  list.pointer("beta", beta).matrix("c", c, "ldc", ldc, order, order, written);
  if (list.reported(routine) || !written) return;
  triangle(product<T>{is_letter(uplo, 'L'), plain_a, plain_b, transa, transb, depth, alpha, a, *lda, b, *ldb,
                      beta, c, *ldc},
           0, order);
}

}  // namespace
}  // namespace zor_core

#define ROW_GEMMT(name, T)                                                                   \
  extern "C" SIG_GEMMT(name, T) {                                                            \
    zor_core::gemmt(#name, uplo, transa, transb, n, k, alpha, a, lda, b, ldb, beta, c, ldc); \
  }
#include "zor/tables/core_level3.inc"
