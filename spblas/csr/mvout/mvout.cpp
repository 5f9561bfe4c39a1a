// SPDX-License-Identifier: MIT
// The names of products of a CSR matrix and one vector, and the plain row product of gemvout.
#include "spblas/csr/mvout/mvout.h"
#include "blas/level1/vector.h"
#include "spblas/csr/thresholds.h"
#include "zor/signatures/spblas.h"

namespace zor::sparse {
namespace {

// s plus the products of positions k to end - 1, one after the other.
template <class T, class I>
[[gnu::always_inline]] inline T add_products(csr<T, I> a, zor_int k, zor_int end, const T* x, T s) {
  for (; k < end; ++k) s = s + a.val[k] * x[a.column(k)];
  return s;
}

// y of as many rows from r on as go side by side.
template <class T, class I>
void row_products_abreast(csr<T, I> a, zor_int r, const T* x, T* y) {
  using thresholds::rows_abreast;
  zor_int begin[rows_abreast], common = a.end(r) - a.begin(r);
  for (int i = 0; i < rows_abreast; ++i) {
    begin[i] = a.begin(r + i);
    const zor_int count = a.end(r + i) - begin[i];
    common = count < common ? count : common;
  }
  T s[rows_abreast] = {};
  for (zor_int k = 0; k < common; ++k) {
    // The hardware follows one stream through memory better than four pieces of it.
    touch(a.val + begin[0] + rows_abreast * k + thresholds::abreast_ahead / zor_int(sizeof(T)));
    touch(a.indx + begin[0] + rows_abreast * k + thresholds::abreast_ahead / zor_int(sizeof(I)));
#pragma GCC unroll 4
    for (int i = 0; i < rows_abreast; ++i) s[i] = s[i] + a.val[begin[i] + k] * x[a.column(begin[i] + k)];
  }
  for (int i = 0; i < rows_abreast; ++i) y[r + i] = add_products(a, begin[i] + common, a.end(r + i), x, s[i]);
}

// One chain a row, no alpha, and y is overwritten. The row pointers are the three-array form.
template <class T, class I>
void row_products(zor_int first, zor_int last, const T* val, const I* indx, const I* ia, const T* x, T* y) {
  using namespace thresholds;
  const csr<T, I> a{val, indx, ia, ia + 1, 1};
  zor_int r = first;
  if (a.begin(last) - a.begin(first) >= least_abreast * (last - first))
    for (; r + rows_abreast <= last; r += rows_abreast) row_products_abreast(a, r, x, y);
  for (; r < last; ++r) y[r] = add_products(a, a.begin(r), a.end(r), x, T{0});
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
