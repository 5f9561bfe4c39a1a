// SPDX-License-Identifier: MIT
// B := alpha op(A) B or alpha B op(A), A a triangle. The triangle is cut into diagonal blocks: a block of B
// is first multiplied by its diagonal block, then the rectangle beside it is added by the matrix product, in
// the order in which the other blocks of B are still unchanged.
#include <algorithm>

#include "blas/thresholds.h"
#include "core/blas/arguments.h"
#include "zor/blas.h"
#include "zor/core.h"
#include "zor/signatures/blas.h"

namespace zor_core {
namespace {

constexpr zor_int block_rows = zor::thresholds::triangle_block;

// op(A) read through strides; `upper` tells the triangle of op(A), not of A.
template <class T>
struct triangle {
  const T* a;
  zor_int row_stride, column_stride;
  bool upper, unit;

  const T* at(zor_int i, zor_int j) const { return a + i * row_stride + j * column_stride; }
  T diagonal(zor_int i) const { return unit ? T(1) : *at(i, i); }
};

// Rows first to last - 1 of one column of B. A row is replaced after every row that still needs its old
// value.
template <class T>
void multiply_left(const triangle<T>& t, zor_int first, zor_int last, T alpha, T* b) {
  for (zor_int step = first; step < last; ++step) {
    const zor_int i = t.upper ? step : first + last - 1 - step;
    T sum = t.diagonal(i) * b[i];
    const zor_int begin = t.upper ? i + 1 : first, end = t.upper ? last : i;
    for (zor_int k = begin; k < end; ++k) sum += *t.at(i, k) * b[k];
    b[i] = alpha * sum;
  }
}

// Columns first to last - 1 of B, all m rows.
template <class T>
void multiply_right(const triangle<T>& t, zor_int first, zor_int last, zor_int m, T alpha, T* b,
                    zor_int ldb) {
  for (zor_int step = first; step < last; ++step) {
    const zor_int j = t.upper ? first + last - 1 - step : step;
    T* bj = b + j * ldb;
    const T d = alpha * t.diagonal(j);
    for (zor_int i = 0; i < m; ++i) bj[i] *= d;
    const zor_int begin = t.upper ? first : j + 1, end = t.upper ? j : last;
    for (zor_int k = begin; k < end; ++k) {
      const T s = alpha * *t.at(k, j);
      const T* bk = b + k * ldb;
      for (zor_int i = 0; i < m; ++i) bj[i] += s * bk[i];
    }
  }
}

constexpr auto* gemm_of(float) { return &zor_blas_sgemm; }
constexpr auto* gemm_of(double) { return &zor_blas_dgemm; }

template <class T>
void trmm(bool left, bool upper, const char* transa, bool unit, zor_int m, zor_int n, T alpha, const T* a,
          zor_int lda, T* b, zor_int ldb) {
  if (m <= 0 || n <= 0) return;
  if (alpha == 0) {
    for (zor_int j = 0; j < n; ++j) std::fill_n(b + j * ldb, m, T(0));
    return;
  }
  const bool plain = is_plain(transa);
  const triangle<T> t{a, plain ? 1 : lda, plain ? lda : 1, upper == plain, unit};
  const zor_int order = left ? m : n, blocks = (order + block_rows - 1) / block_rows;
  const bool ascending = left == t.upper;
  const T one = 1;
  auto* const gemm = gemm_of(one);
  const char* const op = plain ? "N" : "T";
  for (zor_int step = 0; step < blocks; ++step) {
    const zor_int first = (ascending ? step : blocks - 1 - step) * block_rows;
    const zor_int last = std::min(first + block_rows, order), size = last - first;
    // The other blocks of B that enter this one.
    const zor_int begin = ascending ? last : 0, depth = ascending ? order - last : first;
    if (left) {
      for (zor_int j = 0; j < n; ++j) multiply_left(t, first, last, alpha, b + j * ldb);
      if (depth > 0)
        gemm(op, "N", &size, &n, &depth, &alpha, t.at(first, begin), &lda, b + begin, &ldb, &one, b + first,
             &ldb);
    } else {
      multiply_right(t, first, last, m, alpha, b, ldb);
      if (depth > 0)
        gemm("N", op, &m, &size, &depth, &alpha, b + begin * ldb, &ldb, t.at(begin, first), &lda, &one,
             b + first * ldb, &ldb);
    }
  }
}

}  // namespace
}  // namespace zor_core

#define ROW_TRMM(name, T)                                                                                    \
  extern "C" SIG_XTRSM(name, T) {                                                                            \
    using zor_core::is_letter;                                                                               \
    zor_core::trmm(is_letter(side, 'L'), is_letter(uplo, 'U'), transa, is_letter(diag, 'U'), *m, *n, *alpha, \
                   a, *lda, b, *ldb);                                                                        \
  }
#include "zor/tables/core_generic.inc"
