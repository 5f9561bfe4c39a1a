// SPDX-License-Identifier: MIT
// The upper or lower triangle of A := alpha x x^T + A, by columns in order: A(i,j) := A(i,j) + (alpha x[j])
// x[i], alpha x[j] rounded once. A column whose x[j] or alpha x[j] equals 0 is left alone.
#include "blas/level2/matvec.h"
#include "zor/signatures/blas.h"

namespace zor {
namespace {

// The part of the triangle in rows first to first + rows - 1; x points to the unit-stride piece of these
// rows.
template <class T>
void syr_rows(bool upper, zor_int n, T alpha, const T* x0, zor_int incx, zor_int first, zor_int rows,
              const T* x, T* a, zor_int lda) {
  const zor_int begin = upper ? first : 0, end = upper ? n : first + rows;
  for (zor_int j = begin; j < end; ++j) {
    const T xj = load_element(x0 + j * incx);
    if (is_zero(xj)) continue;
    const T s = mul_adding(alpha, xj);
    if (is_zero(s)) continue;
    const zor_int top = upper || j < first ? first : j;
    const zor_int bottom = upper && j + 1 < first + rows ? j + 1 : first + rows;
    add_columns<1>(bottom - top, &s, x + (top - first), 0, a + top + j * lda);
  }
}

template <class T>
void syr(char uplo, zor_int n, T alpha, const T* x, zor_int incx, T* a, zor_int lda) {
  if (n <= 0 || is_zero(alpha)) return;
  const bool upper = uplo == 'U' || uplo == 'u';
  x = walk_start(x, n, incx);
  if (incx == 1) return syr_rows(upper, n, alpha, x, incx, zor_int(0), n, x, a, lda);
  T piece[staged_long];
  for (zor_int first = 0; first < n; first += staged_long) {
    const zor_int rows = n - first < staged_long ? n - first : staged_long;
    gather(rows, x + first * incx, incx, piece);
    syr_rows(upper, n, alpha, x, incx, first, rows, piece, a, lda);
  }
}

}  // namespace
}  // namespace zor

#define ROW_XSYR(name, T) \
  extern "C" SIG_SYR(name, T) { zor::syr(*uplo, *n, *alpha, x, *incx, a, *lda); }
#include "zor/tables/blas_matvec.inc"
