// SPDX-License-Identifier: MIT
// A := alpha x y^T + A, or y conjugated, by columns in order: A(i,j) := A(i,j) + (alpha y[j]) x[i], alpha
// y[j] rounded once. Products of complex values are those of the vector kernels. A column whose y[j] or alpha
// y[j] equals 0 is left alone.
#include "zor/signatures/blas.h"

#include "blas/level1/axpy.h"
#include "blas/thresholds.h"
#include "serv/element.h"
#include "serv/imports.h"

namespace zor {
namespace {

// y := s x + y with unit strides. A long column of double complex elements is worked by all threads.
template <class T>
void add_to_column(zor_int m, T s, const T* x, T* column) {
  if constexpr (std::is_same_v<T, c64>) {
    if (m >= thresholds::threaded_vector_bytes / zor_int(sizeof(T))) {
      const zor_int step = 1;
      return core::zor_blas_zaxpy(&m, &s, x, &step, column, &step);
    }
  }
  axpy_of_arithmetic(m, s, x, zor_int(1), column, zor_int(1));
}

template <bool Conj, class T>
void update_rows(zor_int m, zor_int n, T alpha, const T* x, const T* y, zor_int incy, T* a, zor_int lda) {
  for (zor_int j = 0; j < n; ++j) {
    const T yj = load_element(y + j * incy);
    if (!is_zero(yj)) add_to_column(m, mul(alpha, conj_by_sign_if(Conj, yj)), x, a + j * lda);
  }
}

template <bool Conj, class T>
void add_product(zor_int m, zor_int n, T alpha, const T* x, zor_int incx, const T* y, zor_int incy, T* a,
                 zor_int lda) {
  if (m <= 0 || n <= 0 || is_zero(alpha)) return;
  x = walk_start(x, m, incx);
  y = walk_start(y, n, incy);
  if (incx == 1) return update_rows<Conj>(m, n, alpha, x, y, incy, a, lda);
  constexpr zor_int most = thresholds::staged_long;
  T piece[most];
  for (zor_int first = 0; first < m; first += most) {
    const zor_int rows = m - first < most ? m - first : most;
    gather(rows, x + first * incx, incx, piece);
    update_rows<Conj>(rows, n, alpha, piece, y, incy, a + first, lda);
  }
}

}  // namespace
}  // namespace zor

#define ROW_XGER(name, T, conj) \
  extern "C" SIG_XGER(name, T) { zor::add_product<conj>(*m, *n, *alpha, x, *incx, y, *incy, a, *lda); }
#include "zor/tables/blas_level2.inc"
