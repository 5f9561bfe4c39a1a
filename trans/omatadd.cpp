// SPDX-License-Identifier: MIT
// C := alpha op(A) + beta op(B), both products rounded, then their sum. C may be the matrix of a term that is
// not transposed.
#include "trans/letters.h"
#include "trans/tiles.h"
#include "zor/signatures/trans.h"

namespace zor {
namespace {

template <bool ConjA, bool ConjB, class T>
void add(bool transposed_a, bool transposed_b, zor_int rows, zor_int cols, const term<T, ConjA>& a,
         const term<T, ConjB>& b, T* c, zor_int ldc) {
  if (transposed_a && transposed_b)
    transpose_matrix(rows, cols, c, ldc, no_term{}, a, b);
  else if (transposed_a)
    transpose_matrix(rows, cols, c, ldc, b, a);
  else if (transposed_b)
    transpose_matrix(rows, cols, c, ldc, a, b);
  else
    sum_rows(rows, cols, c, ldc, a, b);
}

template <class T>
void omatadd(char ordering, char transa, char transb, zor_int rows, zor_int cols, T alpha, const T* a,
             zor_int lda, T beta, const T* b, zor_int ldb, T* c, zor_int ldc) {
  const operation op_a = operation_of(transa), op_b = operation_of(transb);
  if (!op_a.known || !op_b.known) return;
  if (is_column_major(ordering)) std::swap(rows, cols);
  if (rows <= 0 || cols <= 0) return;
  for_conj<T>(op_a.conj, [&]<bool ConjA>() {
    for_conj<T>(op_b.conj, [&]<bool ConjB>() {
      add(op_a.transposed, op_b.transposed, rows, cols, term<T, ConjA>{alpha, a, lda},
          term<T, ConjB>{beta, b, ldb}, c, ldc);
    });
  });
}

}  // namespace
}  // namespace zor

#define ROW_OMATADD(name, T)                                                                 \
  extern "C" SIG_OMATADD(name, T) {                                                          \
    zor::omatadd(ordering, transa, transb, rows, cols, alpha, a, lda, beta, b, ldb, c, ldc); \
  }
#include "zor/tables/trans.inc"
