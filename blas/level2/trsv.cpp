// SPDX-License-Identifier: MIT
// op(A) x = b with a triangle, x over b. A full one is taken in diagonal blocks, each after one product of
// the public gemv with the rectangle beside it, which takes what is solved off the block and may be divided
// over threads; banded and packed ones by rows or columns of the whole. Nothing looks for zeros on the
// diagonal.
#include "blas/level2/triangular.h"
#include "blas/thresholds.h"
#include "serv/imports.h"

namespace zor {
namespace {

template <class T>
constexpr auto* public_gemv = &core::zor_blas_dgemv;
template <>
constexpr auto* public_gemv<float> = &core::zor_blas_sgemv;
template <>
constexpr auto* public_gemv<c32> = &core::zor_blas_cgemv;
template <>
constexpr auto* public_gemv<c64> = &core::zor_blas_zgemv;

template <class T>
void solve_full(const triangular_options& o, zor_int n, const T* a, zor_int lda, T* x, zor_int incx) {
  block_walk<task::solve, T, std::remove_reference_t<decltype(*public_gemv<T>)>>(
      o, n, thresholds::solve_block, a, lda, walk_start(x, n, incx), incx, *public_gemv<T>)
      .run();
}

}  // namespace
}  // namespace zor

#define ROW_XTRSV(name, T)                                                      \
  extern "C" SIG_XTRMV(name, T) {                                               \
    if (*n > 0) zor::solve_full({*uplo, *trans, *diag}, *n, a, *lda, x, *incx); \
  }
#define ROW_XTBSV(name, T)                                                                                 \
  extern "C" SIG_XTBMV(name, T) {                                                                          \
    if (*n > 0)                                                                                            \
      zor::walk_triangle<zor::task::solve, T>({*uplo, *trans, *diag},                                      \
                                              zor::banded_triangle(zor::is_upper(*uplo), *n, *k, a, *lda), \
                                              zor::walk_start(x, *n, *incx), *incx);                       \
  }
#define ROW_XTPSV(name, T)                                                                        \
  extern "C" SIG_XTPMV(name, T) {                                                                 \
    if (*n > 0)                                                                                   \
      zor::walk_triangle<zor::task::solve, T>({*uplo, *trans, *diag},                             \
                                              zor::packed_triangle(zor::is_upper(*uplo), *n, ap), \
                                              zor::walk_start(x, *n, *incx), *incx);              \
  }
#include "zor/tables/blas_level2.inc"
