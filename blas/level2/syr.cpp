// SPDX-License-Identifier: MIT
// A triangle of A := alpha x x^T + A, or alpha x conj(x)^T + A for Hermitian A, full or packed, by columns in
// order: A(i,j) := A(i,j) + (alpha x[j]) x[i], x[j] conjugated for Hermitian A and alpha x[j] rounded once. A
// column whose x[j] or alpha x[j] equals 0 is left alone, but the diagonal of a Hermitian A becomes real in
// every column.
#include "blas/level2/matvec.h"
#include "blas/level2/rank_one.h"
#include "blas/thresholds.h"
#include "zor/signatures/blas.h"

namespace zor {
namespace {

// Rows first to end - 1 of the triangle; `piece` holds the elements of x of these rows. The record by value
// and all in line: a call and a record in memory would cost a short column up to a third more.
template <bool Hermitian, class T, class S>
[[gnu::flatten]] void update_rows(const stored_triangle<T> a, S alpha, const T* x, zor_int incx,
                                  zor_int first, zor_int end, const T* piece) {
  const zor_int begin_column = a.upper ? first : 0, end_column = a.upper ? a.n : end;
  T* column = a.column(begin_column);
  for (zor_int j = begin_column; j < end_column; column += a.column_step(j), ++j) {
    const T xj = load_element(x + j * incx);
    T s{};
    if (!is_zero(xj)) s = scaled(alpha, conj_by_sign_if(Hermitian, xj));
    const bool left_alone = is_zero(s);
    const column_rows rows = rows_beside_diagonal<Hermitian>(a, j, first, end);
    if constexpr (Hermitian) {
      if (j >= first && j < end) add_to_real_diagonal(left_alone ? 0 : real_of_product(xj, s), column + j);
    }
    if (!left_alone) add_column(rows.end - rows.first, s, piece + (rows.first - first), column + rows.first);
  }
}

template <bool Hermitian, class T, class S>
void add_rank_one(const stored_triangle<T> a, S alpha, const T* x, zor_int incx) {
  if (a.n <= 0 || alpha == 0) return;
  x = walk_start(x, a.n, incx);
  if (incx == 1) return update_rows<Hermitian>(a, alpha, x, incx, zor_int(0), a.n, x);
  constexpr zor_int most = thresholds::staged_long;
  T piece[most];
  for (zor_int first = 0; first < a.n; first += most) {
    const zor_int end = a.n - first < most ? a.n : first + most;
    gather(end - first, x + first * incx, incx, piece);
    update_rows<Hermitian>(a, alpha, x, incx, first, end, piece);
  }
}

}  // namespace
}  // namespace zor

#define FULL(hermitian) \
  zor::add_rank_one<hermitian>(zor::full_triangle(zor::is_upper(*uplo), *n, a, *lda), *alpha, x, *incx)
#define PACKED(hermitian) \
  zor::add_rank_one<hermitian>(zor::packed_triangle(zor::is_upper(*uplo), *n, ap), *alpha, x, *incx)

#define ROW_XSYR(name, T) \
  extern "C" SIG_SYR(name, T) { FULL(false); }
#define ROW_SPR(name, T) \
  extern "C" SIG_SPR(name, T) { PACKED(false); }
#include "zor/tables/blas_matvec.inc"

#define ROW_XHER(name, T, R) \
  extern "C" SIG_XHER(name, T, R) { FULL(true); }
#define ROW_XHPR(name, T, R) \
  extern "C" SIG_XHPR(name, T, R) { PACKED(true); }
#include "zor/tables/blas_level2.inc"
