// SPDX-License-Identifier: MIT
// Scaled copies, transpositions and sums element by element, from the meaning of the letters alone.
#pragma once

#include <vector>

#include "tests/ref/matvec.h"

namespace zor_ref {

inline bool among(char c, const char* letters) {
  for (; *letters != 0; ++letters)
    if (c == *letters) return true;
  return false;
}
inline bool known_ordering(char c) { return among(c, "RrCc"); }
inline bool known_trans(char c) { return among(c, "NnTtRrCc"); }

// Where element (row, col) of a matrix stands; `stride` lies between neighbours of a row, or of a column.
inline zor_int place(char ordering, zor_int row, zor_int col, zor_int ld, zor_int stride) {
  return among(ordering, "Cc") ? col * ld + row * stride : row * ld + col * stride;
}

// alpha x, or alpha conj(x) for the letters that conjugate.
template <class T>
T scaled(char trans, T alpha, T x) {
  return times(alpha, among(trans, "RrCc") ? conj(x) : x);
}

template <class T>
void omatcopy(char ordering, char trans, zor_int rows, zor_int cols, T alpha, const T* a, zor_int lda,
              zor_int stridea, T* b, zor_int ldb, zor_int strideb) {
  if (!known_ordering(ordering) || !known_trans(trans)) return;
  const bool transposed = among(trans, "TtCc");
  for (zor_int r = 0; r < rows; ++r)
    for (zor_int c = 0; c < cols; ++c)
      b[place(ordering, transposed ? c : r, transposed ? r : c, ldb, strideb)] =
          scaled(trans, alpha, a[place(ordering, r, c, lda, stridea)]);
}

// Every element is taken from a copy of the old contents, `count` elements.
template <class T>
void imatcopy(char ordering, char trans, zor_int rows, zor_int cols, T alpha, T* ab, zor_int lda, zor_int ldb,
              size_t count) {
  const std::vector<T> old(ab, ab + count);
  const bool square = rows == cols && rows == lda && rows == ldb;
  omatcopy(square ? 'R' : ordering, trans, rows, cols, alpha, old.data(), lda, zor_int(1), ab, ldb,
           zor_int(1));
}

// a and b are read as they were before c is written.
template <class T>
void omatadd(char ordering, char transa, char transb, zor_int rows, zor_int cols, T alpha, const T* a,
             zor_int lda, T beta, const T* b, zor_int ldb, T* c, zor_int ldc) {
  if (!known_trans(transa) || !known_trans(transb)) return;
  const char order = among(ordering, "Cc") ? 'C' : 'R';
  const auto element = [order](char trans, T factor, const T* x, zor_int ld, zor_int r, zor_int k) {
    return scaled(trans, factor,
                  among(trans, "TtCc") ? x[place(order, k, r, ld, 1)] : x[place(order, r, k, ld, 1)]);
  };
  for (zor_int r = 0; r < rows; ++r)
    for (zor_int k = 0; k < cols; ++k)
      c[place(order, r, k, ldc, 1)] =
          plus(element(transa, alpha, a, lda, r, k), element(transb, beta, b, ldb, r, k));
}

}  // namespace zor_ref
