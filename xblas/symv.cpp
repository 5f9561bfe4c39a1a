// SPDX-License-Identifier: MIT
// Products of a symmetric or Hermitian matrix and a vector in a precision of the caller's choice.
#include "xblas/arguments.h"
#include "xblas/multiply.h"
#include "zor/signatures/xblas.h"

namespace zor {
namespace {

// One triangle stands for both, conjugated on the other side when the matrix is Hermitian; the diagonal of
// that one is real whatever is stored.
template <bool Hermitian, class T>
struct symmetric_matrix {
  const T* a;
  zor_int lda;
  bool upper;
  zor_int n;

  zor_int same_until(zor_int first, zor_int rows, zor_int k) const {
    return k < first ? first : k < first + rows ? first + rows : n;
  }
  T element(zor_int i, zor_int j) const {
    const bool stored = upper ? i <= j : i >= j;
    T e = load_element(stored ? a + i + j * lda : a + j + i * lda);
    if constexpr (Hermitian) {
      if (!stored) e = conj_by_sign(e);
      if (i == j) e.im = 0;
    }
    return e;
  }
  template <int Vectors, class R>
  void pack(zor_int first, zor_int rows, zor_int k, zor_int count, R* panel) const {
    if (k >= first && k < first + rows)
      pack_elements<Vectors>(rows, count, panel,
                             [&](zor_int i, zor_int j) { return element(first + i, k + j); });
    else if (upper == (k > first))
      pack_block_of_columns<Vectors>(rows, count, a + first + k * lda, lda, panel);
    else
      pack_block_of_lines<Vectors>(Hermitian, rows, count, a + k + first * lda, lda, panel);
  }
};

template <bool Hermitian, int Forms, class T>
void symv(const char* routine, int uplo, zor_int n, T alpha, const T* a, zor_int lda, const T* head,
          const T* tail, zor_int incx, T beta, T* y, zor_int incy, int precision) {
  constexpr int moved = Forms == 2 ? 1 : 0;
  const symmetric_matrix<Hermitian, T> matrix = {a, lda, uplo == upper_triangle, n};
  if (Hermitian) report_all(routine, argument_check{!is_precision(precision), -12 - moved, precision});
  with_arithmetic<T>(precision, [&]<class A>() {
    report_first(routine, argument_check{n < 0, -3, n}, argument_check{incx == 0, -8 - moved, incx},
                 argument_check{incy == 0, -11 - moved, incy});
    multiply<A, Forms>(ending_of(alpha, beta), n, n,
                       operands_of(alpha, head, tail, n, incx, beta, y, n, incy), matrix);
  });
}

}  // namespace
}  // namespace zor

#define ROW_SYMV_X(name, T, routine)                                                                   \
  extern "C" SIG_SYMV_X(name, T) {                                                                     \
    zor::symv<false, 1, T>(routine, zor::code(uplo), *n, *alpha, a, *lda, x, nullptr, *incx, *beta, y, \
                           *incy, zor::code(prec));                                                    \
  }
#define ROW_SYMV2_X(name, T, routine)                                                                      \
  extern "C" SIG_SYMV2_X(name, T) {                                                                        \
    zor::symv<false, 2, T>(routine, zor::code(uplo), *n, *alpha, a, *lda, head_x, tail_x, *incx, *beta, y, \
                           *incy, zor::code(prec));                                                        \
  }
#define ROW_HEMV_X(name, T, routine)                                                                         \
  extern "C" SIG_SYMV_X(name, T) {                                                                           \
    zor::symv<true, 1, T>(routine, zor::code(uplo), *n, *alpha, a, *lda, x, nullptr, *incx, *beta, y, *incy, \
                          zor::code(prec));                                                                  \
  }
#define ROW_HEMV2_X(name, T, routine)                                                                     \
  extern "C" SIG_SYMV2_X(name, T) {                                                                       \
    zor::symv<true, 2, T>(routine, zor::code(uplo), *n, *alpha, a, *lda, head_x, tail_x, *incx, *beta, y, \
                          *incy, zor::code(prec));                                                        \
  }
#include "zor/tables/xblas.inc"
