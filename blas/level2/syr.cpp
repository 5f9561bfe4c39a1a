// SPDX-License-Identifier: MIT
// A triangle of A := alpha x x^T + A, full or packed, by columns in order: A(i,j) := A(i,j) + (alpha x[j])
// x[i], alpha x[j] rounded once. A column whose x[j] or alpha x[j] equals 0 is left alone.
#include "blas/level2/matvec.h"
#include "blas/level2/triangle.h"
#include "blas/thresholds.h"
#include "zor/signatures/blas.h"

namespace zor {
namespace {

// Rows first to end - 1 of the triangle; `piece` holds the elements of x of these rows. The record by value
// and all in line: a call and a record in memory would cost a short column up to a third more.
template <class T>
[[gnu::flatten]] void update_rows(const stored_triangle<T> a, T alpha, const T* x, zor_int incx,
                                  zor_int first, zor_int end, const T* piece) {
  const zor_int begin_column = a.upper ? first : 0, end_column = a.upper ? a.n : end;
  T* column = a.column(begin_column);
  for (zor_int j = begin_column; j < end_column; column += a.column_step(j), ++j) {
    const T xj = load_element(x + j * incx);
    if (is_zero(xj)) continue;
    const T s = mul_adding(alpha, xj);
    if (is_zero(s)) continue;
    const zor_int top = a.first_row(j) > first ? a.first_row(j) : first;
    const zor_int bottom = a.end_row(j) < end ? a.end_row(j) : end;
    add_columns<1>(bottom - top, &s, piece + (top - first), 0, column + top);
  }
}

template <class T>
void add_rank_one(const stored_triangle<T> a, T alpha, const T* x, zor_int incx) {
  if (a.n <= 0 || is_zero(alpha)) return;
  x = walk_start(x, a.n, incx);
  if (incx == 1) return update_rows(a, alpha, x, incx, zor_int(0), a.n, x);
  constexpr zor_int most = thresholds::staged_long;
  T piece[most];
  for (zor_int first = 0; first < a.n; first += most) {
    const zor_int end = a.n - first < most ? a.n : first + most;
    gather(end - first, x + first * incx, incx, piece);
    update_rows(a, alpha, x, incx, first, end, piece);
  }
}

}  // namespace
}  // namespace zor

#define ROW_XSYR(name, T)                                                                       \
  extern "C" SIG_SYR(name, T) {                                                                 \
    zor::add_rank_one(zor::full_triangle(zor::is_upper(*uplo), *n, a, *lda), *alpha, x, *incx); \
  }
#define ROW_SPR(name, T)                                                                     \
  extern "C" SIG_SPR(name, T) {                                                              \
    zor::add_rank_one(zor::packed_triangle(zor::is_upper(*uplo), *n, ap), *alpha, x, *incx); \
  }
#include "zor/tables/blas_matvec.inc"
