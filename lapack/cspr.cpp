// SPDX-License-Identifier: MIT
// The packed complex symmetric update A := alpha x x^T + A by columns in order: A(i,j) := A(i,j) + t x(i), t
// = alpha x(j) rounded first. A column whose x(j) is 0 in both parts is left alone.
#include "blas/level2/matvec.h"
#include "blas/level2/triangle.h"
#include "zor/signatures/lapack.h"

namespace zor {
namespace {

template <class T>
void add_symmetric(const stored_triangle<T> a, T alpha, const T* x, zor_int incx) {
  if (a.n < 1 || is_zero(alpha)) return;
  x = walk_start(x, a.n, incx);
  T* column = a.data;
  for (zor_int j = 0; j < a.n; column += a.column_step(j), ++j) {
    const T xj = load_element(x + j * incx);
    if (is_zero(xj)) continue;
    const T t = mul_adding(alpha, xj);
    const zor_int first = a.first_row(j), end = a.end_row(j);
    if (incx == 1) {
      add_columns<1>(end - first, &t, x + first, 0, column + first);
    } else {
      for (zor_int i = first; i < end; ++i) add_term(t, x + i * incx, column + i);
    }
  }
}

}  // namespace
}  // namespace zor

#define ROW_CSPR(name, T)                                                                     \
  extern "C" SIG_CSPR(name, T) {                                                              \
    zor::add_symmetric(zor::packed_triangle(zor::is_upper(*uplo), *n, ap), *alpha, x, *incx); \
  }
#include "zor/tables/lapack.inc"
