// SPDX-License-Identifier: MIT
// The names of products of a CSR matrix and one vector, and the plain row product of gemvout.
#include "spblas/csr/mvout/mvout.h"
#include "blas/level1/vector.h"
#include "zor/signatures/spblas.h"

namespace zor::sparse {
namespace {

// One chain a row, no alpha, and y is overwritten. The row pointers are the three-array form.
template <class T, class I>
void row_products(zor_int first, zor_int last, const T* val, const I* indx, const I* ia, const T* x, T* y) {
  const csr<T, I> a{val, indx, ia, ia + 1, 1};
  for (zor_int r = first; r < last; ++r) {
    T s = 0;
    for (zor_int k = a.begin(r); k < a.end(r); ++k) s = s + val[k] * x[a.column(k)];
    y[r] = s;
  }
}

}  // namespace
}  // namespace zor::sparse

#define ROW_csr_mvout_par(name, T, I, base, op, shape, tri, diag)                                         \
  extern "C" SIG_csr_mvout_par(name, T, I) {                                                              \
    (void)m;                                                                                              \
    if (*last < *first) return;                                                                           \
    zor::sparse::multiply_rows<T, I>(ZOR_VIEW(op, shape, tri, diag),                                      \
                                     {{val, indx, pntrb, pntre, base}, *first - 1, *last, *alpha, x, y}); \
  }
#define ROW_csr_mvout_seq(name, T, I, base, op, shape, tri, diag)                                 \
  extern "C" SIG_csr_mvout_seq(name, T, I) {                                                      \
    if (*m < 1) return;                                                                           \
    constexpr auto v = ZOR_VIEW(op, shape, tri, diag);                                            \
    if constexpr (v.structure == 'd' && v.unit())                                                 \
      zor::axpy<T>(*m, *alpha, x, 1, y, 1);                                                       \
    else                                                                                          \
      zor::sparse::multiply_all<T, I>(v, {{val, indx, pntrb, pntre, base}, 0, *m, *alpha, x, y}); \
  }
#define ROW_csr_gemvout_par(name, T, I, base, ...)                           \
  extern "C" SIG_csr_gemvout_par(name, T, I) {                               \
    (void)unread1, (void)unread2, (void)unread3;                             \
    if (*last < *first) return;                                              \
    zor::sparse::row_products<T, I>(*first - 1, *last, val, indx, ia, x, y); \
  }
#include "zor/tables/spblas_csr.inc"
