// SPDX-License-Identifier: MIT
// B := alpha op(A). Column-major matrices are row-major ones with rows and columns exchanged. Each element is
// one product, so the order in which elements are taken cannot show.
#include "trans/letters.h"
#include "trans/tiles.h"
#include "zor/signatures/trans.h"

namespace zor {
namespace {

// With strides between the elements of a row, in blocks of elements that stay in the nearest cache.
template <bool Conj, class T>
void copy_strided(zor_int rows, zor_int cols, T alpha, const T* a, zor_int a_row, zor_int a_col, T* b,
                  zor_int b_row, zor_int b_col) {
  constexpr zor_int block = 16;
  for (zor_int i0 = 0; i0 < rows; i0 += block)
    for (zor_int j0 = 0; j0 < cols; j0 += block)
      for (zor_int i = i0; i < rows && i < i0 + block; ++i)
        for (zor_int j = j0; j < cols && j < j0 + block; ++j)
          store_element(b + i * b_row + j * b_col,
                        scaled_element<Conj>(alpha, load_element(a + i * a_row + j * a_col)));
}

template <bool Conj, class T>
void copy(bool transposed, zor_int rows, zor_int cols, T alpha, const T* a, zor_int lda, zor_int stridea,
          T* b, zor_int ldb, zor_int strideb) {
  if (rows <= 0 || cols <= 0) return;
  const term<T, Conj> source = {alpha, a, lda};
  if (stridea != 1 || strideb != 1)
    copy_strided<Conj>(rows, cols, alpha, a, lda, stridea, b, transposed ? strideb : ldb,
                       transposed ? ldb : strideb);
  else if (transposed)
    transpose_matrix(cols, rows, b, ldb, no_term{}, source);
  else
    sum_rows(rows, cols, b, ldb, source);
}

template <class T>
void omatcopy(char ordering, char trans, zor_int rows, zor_int cols, T alpha, const T* a, zor_int lda,
              zor_int stridea, T* b, zor_int ldb, zor_int strideb) {
  const operation op = operation_of(trans);
  if (!is_ordering(ordering) || !op.known) return;
  if (is_column_major(ordering)) std::swap(rows, cols);
  for_conj<T>(op.conj, [&]<bool Conj>() {
    copy<Conj>(op.transposed, rows, cols, alpha, a, lda, stridea, b, ldb, strideb);
  });
}

}  // namespace
}  // namespace zor

#define ROW_OMATCOPY(name, T)                                                \
  extern "C" SIG_OMATCOPY(name, T) {                                         \
    zor::omatcopy(ordering, trans, rows, cols, alpha, a, lda, 1, b, ldb, 1); \
  }
#define ROW_OMATCOPY2(name, T)                                                           \
  extern "C" SIG_OMATCOPY2(name, T) {                                                    \
    zor::omatcopy(ordering, trans, rows, cols, alpha, a, lda, stridea, b, ldb, strideb); \
  }
#include "zor/tables/trans.inc"
