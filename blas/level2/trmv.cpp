// SPDX-License-Identifier: MIT
// x := op(A) x with a triangle. A full one is taken in diagonal blocks, each followed by the product of the
// rectangle beside it, which sums as gemv; banded and packed ones by rows or columns of the whole.
#include "blas/level2/triangular.h"
#include "blas/thresholds.h"
#include "zor/signatures/blas.h"

namespace zor {
namespace {

template <class T>
constexpr gemv_fn<T>* gemv_kernel = nullptr;
template <>
constexpr gemv_fn<float>* gemv_kernel<float> = &zor_blas_xsgemv;
template <>
constexpr gemv_fn<double>* gemv_kernel<double> = &zor_blas_xdgemv;
template <>
constexpr gemv_fn<c32>* gemv_kernel<c32> = &zor_blas_xcgemv;
template <>
constexpr gemv_fn<c64>* gemv_kernel<c64> = &zor_blas_xzgemv;

template <class T>
void multiply_full(const triangular_options& o, zor_int n, const T* a, zor_int lda, T* x, zor_int incx) {
  block_walk<task::multiply, T, std::remove_reference_t<decltype(*gemv_kernel<T>)>>(
      o, n, thresholds::triangle_block, a, lda, walk_start(x, n, incx), incx, *gemv_kernel<T>)
      .run();
}

}  // namespace
}  // namespace zor

#define ROW_XTRMV(name, T)                                                         \
  extern "C" SIG_XTRMV(name, T) {                                                  \
    if (*n > 0) zor::multiply_full({*uplo, *trans, *diag}, *n, a, *lda, x, *incx); \
  }
#define ROW_XTBMV(name, T)                                                                     \
  extern "C" SIG_XTBMV(name, T) {                                                              \
    if (*n > 0)                                                                                \
      zor::walk_triangle<zor::task::multiply, T>(                                              \
          {*uplo, *trans, *diag}, zor::banded_triangle(zor::is_upper(*uplo), *n, *k, a, *lda), \
          zor::walk_start(x, *n, *incx), *incx);                                               \
  }
#define ROW_XTPMV(name, T)                                                                           \
  extern "C" SIG_XTPMV(name, T) {                                                                    \
    if (*n > 0)                                                                                      \
      zor::walk_triangle<zor::task::multiply, T>({*uplo, *trans, *diag},                             \
                                                 zor::packed_triangle(zor::is_upper(*uplo), *n, ap), \
                                                 zor::walk_start(x, *n, *incx), *incx);              \
  }
#include "zor/tables/blas_level2.inc"
