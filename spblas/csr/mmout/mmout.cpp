// SPDX-License-Identifier: MIT
// The names of products of a CSR matrix and many right-hand sides.
#include "spblas/csr/mmout/mmout.h"

#include "blas/level1/vector.h"
#include "zor/signatures/spblas.h"

namespace zor::sparse {
namespace {

// Identity: an axpy a column, or a row in row-major layout.
template <bool RowMajor, class T>
void add_scaled(zor_int m, zor_int n, T alpha, const T* b, zor_int ldb, T* c, zor_int ldc) {
  const zor_int length = RowMajor ? n : m, count = RowMajor ? m : n;
  for (zor_int i = 0; i < count; ++i) zor::axpy<T>(length, alpha, b + i * ldb, 1, c + i * ldc, 1);
}

}  // namespace
}  // namespace zor::sparse

#define ROW_csr_mmout_par(name, T, I, base, op, shape, tri, diag)                                    \
  extern "C" SIG_csr_mmout_par(name, T, I) {                                                         \
    if (*m < 1 || *last < *first) return;                                                            \
    zor::sparse::multiply<T, base == 0, I>(                                                          \
        ZOR_VIEW(op, shape, tri, diag),                                                              \
        {{val, indx, pntrb, pntre, base}, *m, *n, *first - 1, *last, *alpha, {b, *ldb}, {c, *ldc}}); \
  }
#define ROW_csr_mmout_seq(name, T, I, base, op, shape, tri, diag)                             \
  extern "C" SIG_csr_mmout_seq(name, T, I) {                                                  \
    if (*m < 1 || *n < 1) return;                                                             \
    constexpr auto v = ZOR_VIEW(op, shape, tri, diag);                                        \
    if constexpr (v.unit())                                                                   \
      zor::sparse::add_scaled<base == 0>(*m, *n, *alpha, b, *ldb, c, *ldc);                   \
    else                                                                                      \
      zor::sparse::multiply<T, base == 0, I>(                                                 \
          v, {{val, indx, pntrb, pntre, base}, *m, *n, 0, *n, *alpha, {b, *ldb}, {c, *ldc}}); \
  }
#include "zor/tables/spblas_csr.inc"
