// SPDX-License-Identifier: MIT
// Plain loops of the matrix-vector kernels in their stated orders of sums.
#pragma once

#include <type_traits>
#include <vector>

#include "zor/types.h"

namespace zor_ref {

inline float times(float a, float b) { return a * b; }
inline double times(double a, double b) { return a * b; }
inline zor_c32 times(zor_c32 a, zor_c32 b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }
inline zor_c64 times(zor_c64 a, zor_c64 b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }
inline float plus(float a, float b) { return a + b; }
inline double plus(double a, double b) { return a + b; }
inline zor_c32 plus(zor_c32 a, zor_c32 b) { return {a.re + b.re, a.im + b.im}; }
inline zor_c64 plus(zor_c64 a, zor_c64 b) { return {a.re + b.re, a.im + b.im}; }
inline float conj(float a) { return a; }
inline double conj(double a) { return a; }
inline zor_c32 conj(zor_c32 a) { return {a.re, -a.im}; }
inline zor_c64 conj(zor_c64 a) { return {a.re, -a.im}; }
inline bool is(float a, int n) { return a == float(n); }
inline bool is(double a, int n) { return a == n; }
inline bool is(zor_c32 a, int n) { return a.re == float(n) && a.im == 0; }
inline bool is(zor_c64 a, int n) { return a.re == n && a.im == 0; }

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
        yi = plus(yi, times(s, a[i + j * lda]));
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
        sum = plus(sum, times(at(x, inputs, incx, i), conjugate ? conj(aij) : aij));
      }
      yj = plus(yj, times(alpha, sum));
    }
  }
}

template <class T>
void syr(char uplo, zor_int n, T alpha, const T* x, zor_int incx, T* a, zor_int lda) {
  const bool upper = uplo == 'U' || uplo == 'u';
  for (zor_int j = 0; j < n && alpha != 0; ++j) {
    const T xj = at(x, n, incx, j);
    const T s = alpha * xj;
    if (xj == 0 || s == 0) continue;
    for (zor_int i = upper ? 0 : j; i < (upper ? j + 1 : n); ++i) a[i + j * lda] += s * at(x, n, incx, i);
  }
}

}  // namespace zor_ref
