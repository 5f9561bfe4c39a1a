// SPDX-License-Identifier: MIT
// Products of a general matrix and a vector in a precision of the caller's choice.
#include "xblas/arguments.h"
#include "xblas/multiply.h"
#include "zor/signatures/xblas.h"

namespace zor {
namespace {

template <class T>
void check_gemv(const char* routine, zor_int m, zor_int n, zor_int lda, zor_int incx, zor_int incy,
                bool two) {
  const argument_check rows = {m < 0, -3, m}, cols = {n <= 0, -4, n},
                       step_x = {incx == 0, two ? -10 : -9, incx},
                       step_y = {incy == 0, two ? -13 : -12, incy};
  if (two)
    report_all(routine, rows, cols, step_x, step_y);
  else
    report_first(routine, rows, cols, step_x, step_y);
  report_all(routine, argument_check{lda < m, -7, lda});
}

// Rows of op(A) are rows of A, or its columns, conjugated or not.
template <class T>
struct general_matrix {
  const T* a;
  zor_int lda;
  bool lines, conj;
  zor_int inputs;

  zor_int same_until(zor_int, zor_int, zor_int) const { return inputs; }
  template <int Vectors, class R>
  void pack(zor_int first, zor_int rows, zor_int k, zor_int count, R* panel) const {
    if (lines)
      pack_block_of_lines<Vectors>(conj, rows, count, a + k + first * lda, lda, panel);
    else
      pack_block_of_columns<Vectors>(rows, count, a + first + k * lda, lda, panel);
  }
};

template <int Forms, class T>
void gemv(const char* routine, int trans, zor_int m, zor_int n, T alpha, const T* a, zor_int lda,
          const T* head, const T* tail, zor_int incx, T beta, T* y, zor_int incy, int precision) {
  const bool lines = trans != not_transposed;
  const zor_int outputs = lines ? n : m, inputs = lines ? m : n;
  const general_matrix<T> matrix = {a, lda, lines, is_complex<T> && trans == conjugate_transposed, inputs};
  with_arithmetic<T>(precision, [&]<class A>() {
    check_gemv<T>(routine, m, n, lda, incx, incy, Forms == 2);
    multiply<A, Forms>(ending_of(alpha, beta), outputs, inputs,
                       operands_of(alpha, head, tail, inputs, incx, beta, y, outputs, incy), matrix);
  });
}

}  // namespace
}  // namespace zor

#define ROW_GEMV_X(name, T, routine)                                                                        \
  extern "C" SIG_GEMV_X(name, T) {                                                                          \
    zor::gemv<1, T>(routine, zor::code(trans), *m, *n, *alpha, a, *lda, x, nullptr, *incx, *beta, y, *incy, \
                    zor::code(prec));                                                                       \
  }
#define ROW_GEMV2_X(name, T, routine)                                                                    \
  extern "C" SIG_GEMV2_X(name, T) {                                                                      \
    zor::gemv<2, T>(routine, zor::code(trans), *m, *n, *alpha, a, *lda, head_x, tail_x, *incx, *beta, y, \
                    *incy, zor::code(prec));                                                             \
  }
#include "zor/tables/xblas.inc"
