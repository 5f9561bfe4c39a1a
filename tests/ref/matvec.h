// SPDX-License-Identifier: MIT
// Plain loops of the matrix-vector kernels in their stated orders of sums.
#pragma once

#include "tests/ref/arithmetic.h"
#include "tests/ref/element.h"

namespace zor_ref {

// Element i of a vector of n: a negative increment numbers the elements from the far end.
template <class T>
T& at(T* x, zor_int n, zor_int inc, zor_int i) {
  return x[inc >= 0 ? i * inc : (i + 1 - n) * inc];
}

template <class T>
void gemv(char trans, zor_int m, zor_int n, T alpha, const T* a, zor_int lda, const T* x, zor_int incx,
          T beta, T* y, zor_int incy) {
  if (m < 1 || n < 1 || (is(alpha, 0) && is(beta, 1))) return;
  const bool plain = trans == 'N' || trans == 'n', conjugate = trans == 'C' || trans == 'c';
  const zor_int inputs = plain ? n : m, outputs = plain ? m : n;
  for (zor_int i = 0; i < outputs; ++i) {
    T& yi = at(y, outputs, incy, i);
    if (is(beta, 0))
      yi = T{};
    else if (!is(beta, 1))
      yi = times(beta, yi);
  }
  if (is(alpha, 0)) return;
  if (plain) {
    for (zor_int j = 0; j < n; ++j) {
      const T s = times(alpha, at(x, inputs, incx, j));
      for (zor_int i = 0; i < m; ++i) {
        T& yi = at(y, outputs, incy, i);
        yi = plus_term(yi, s, a[i + j * lda]);
      }
    }
    return;
  }
  const zor_int piece = incx == 1 && incy == 1 ? m : 1000;
  for (zor_int j = 0; j < n; ++j) {
    T& yj = at(y, outputs, incy, j);
    for (zor_int first = 0; first < m; first += piece) {
      T sum{};
      for (zor_int i = first; i < m && i < first + piece; ++i) {
        const T aij = a[i + j * lda];
        sum = plus_term(sum, at(x, inputs, incx, i), conjugate ? conj(aij) : aij);
      }
      yj = plus_term(yj, alpha, sum);
    }
  }
}

}  // namespace zor_ref
