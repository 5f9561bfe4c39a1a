// SPDX-License-Identifier: MIT
// The kernels of small factorisations by element type, and Cholesky on one matrix.
#pragma once

#include "core/blas/arguments.h"
#include "zor/blas.h"
#include "zor/lapack.h"

namespace zor_core {

template <class T>
struct small_kernels;
#define CHOLESKY(letter)                                                   \
  static constexpr auto* potrf_l = &zor_lapack_ps_##letter##potrf_l_small; \
  static constexpr auto* potrf_u = &zor_lapack_ps_##letter##potrf_u_small; \
  static constexpr auto* trsm = &zor_blas_x##letter##trsm;
#define BUNCH_KAUFMAN(letter)                                              \
  static constexpr auto* sytrf_l = &zor_lapack_ps_##letter##sytrf_l_small; \
  static constexpr auto* sytrf_u = &zor_lapack_ps_##letter##sytrf_u_small;
template <>
struct small_kernels<float> {
  CHOLESKY(s)
  BUNCH_KAUFMAN(s)
};
template <>
struct small_kernels<double> {
  CHOLESKY(d)
  BUNCH_KAUFMAN(d)
};
template <>
struct small_kernels<zor_c32> {
  CHOLESKY(c)
};
template <>
struct small_kernels<zor_c64> {
  CHOLESKY(z)
};
#undef CHOLESKY
#undef BUNCH_KAUFMAN

// Returns the number of the pivot that failed, or 0.
template <class T>
zor_int factor_cholesky(char uplo, zor_int n, T* a, zor_int lda) {
  zor_int info = 0;
  (is_letter(&uplo, 'U') ? small_kernels<T>::potrf_u : small_kernels<T>::potrf_l)(&uplo, &n, a, &lda, &info);
  return info;
}

template <class T>
void solve_triangle(const char* uplo, const char* trans, const char* diag, zor_int n, zor_int nrhs,
                    const T* a, zor_int lda, T* b, zor_int ldb) {
  const T one = zor::one_of<T>();
  small_kernels<T>::trsm("L", uplo, trans, diag, &n, &nrhs, &one, a, &lda, b, &ldb);
}

template <class T>
void solve_cholesky(char uplo, zor_int n, zor_int nrhs, const T* a, zor_int lda, T* b, zor_int ldb) {
  const bool upper = is_letter(&uplo, 'U');
  solve_triangle(&uplo, upper ? "C" : "N", "N", n, nrhs, a, lda, b, ldb);
  solve_triangle(&uplo, upper ? "N" : "C", "N", n, nrhs, a, lda, b, ldb);
}

}  // namespace zor_core
