// SPDX-License-Identifier: MIT
// A triangle of A := alpha x y^T + alpha y x^T + A, full or packed, by columns in order:
// A(i,j) := (A(i,j) + (alpha y[j]) x[i]) + (alpha x[j]) y[i], alpha y[j] and alpha x[j] rounded once. For
// Hermitian A the factors are alpha conj(y[j]) and conj(alpha x[j]), and the diagonal becomes real in every
// column. A column whose x[j] and y[j] both equal 0 is left alone.
#include "blas/level2/matvec.h"
#include "blas/level2/rank_one.h"
#include "blas/thresholds.h"
#include "zor/signatures/blas.h"

namespace zor {
namespace {

// Rows first to end - 1 of the triangle; the pieces hold the elements of x and y of these rows.
template <bool Hermitian, class T>
[[gnu::flatten]] void update_rows(const stored_triangle<T> a, T alpha, const T* x, zor_int incx, const T* y,
                                  zor_int incy, zor_int first, zor_int end, const T* x_piece,
                                  const T* y_piece) {
  const zor_int begin_column = a.upper ? first : 0, end_column = a.upper ? a.n : end;
  T* column = a.column(begin_column);
  for (zor_int j = begin_column; j < end_column; column += a.column_step(j), ++j) {
    const T xj = load_element(x + j * incx), yj = load_element(y + j * incy);
    const bool left_alone = is_zero(xj) && is_zero(yj), on_diagonal = j >= first && j < end;
    if (left_alone) {
      if constexpr (Hermitian) {
        if (on_diagonal) add_to_real_diagonal(0, column + j);
      }
      continue;
    }
    const T s[2] = {mul_adding(alpha, conj_by_sign_if(Hermitian, yj)),
                    conj_by_sign_if(Hermitian, mul_adding(alpha, xj))};
    const column_rows rows = rows_beside_diagonal<Hermitian>(a, j, first, end);
    if constexpr (Hermitian) {
      if (on_diagonal) {
        add_to_real_diagonal(real_of_product(xj, s[0]), column + j);
        add_to_real_diagonal(real_of_product(yj, s[1]), column + j);
      }
    }
    const T* const piece[2] = {x_piece + (rows.first - first), y_piece + (rows.first - first)};
    add_columns<2>(
        rows.end - rows.first, s, [&](int k) { return piece[k]; }, column + rows.first);
  }
}

template <bool Hermitian, class T>
void add_rank_two(const stored_triangle<T> a, T alpha, const T* x, zor_int incx, const T* y, zor_int incy) {
  if (a.n <= 0 || is_zero(alpha)) return;
  x = walk_start(x, a.n, incx);
  y = walk_start(y, a.n, incy);
  if (incx == 1 && incy == 1)
    return update_rows<Hermitian>(a, alpha, x, incx, y, incy, zor_int(0), a.n, x, y);
  constexpr zor_int most = thresholds::staged_long / 2;
  T x_piece[most], y_piece[most];
  for (zor_int first = 0; first < a.n; first += most) {
    const zor_int end = a.n - first < most ? a.n : first + most;
    gather(end - first, x + first * incx, incx, x_piece);
    gather(end - first, y + first * incy, incy, y_piece);
    update_rows<Hermitian>(a, alpha, x, incx, y, incy, first, end, x_piece, y_piece);
  }
}

}  // namespace
}  // namespace zor

#define ROW_XSYR2(name, T, hermitian)                                                                        \
  extern "C" SIG_XSYR2(name, T) {                                                                            \
    zor::add_rank_two<hermitian>(zor::full_triangle(zor::is_upper(*uplo), *n, a, *lda), *alpha, x, *incx, y, \
                                 *incy);                                                                     \
  }
#define ROW_XSPR2(name, T, hermitian)                                                                     \
  extern "C" SIG_XSPR2(name, T) {                                                                         \
    zor::add_rank_two<hermitian>(zor::packed_triangle(zor::is_upper(*uplo), *n, ap), *alpha, x, *incx, y, \
                                 *incy);                                                                  \
  }
#include "zor/tables/blas_level2.inc"
