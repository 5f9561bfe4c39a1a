// SPDX-License-Identifier: MIT
// Compressed vectors: n values x and their 1-based positions indx in the full vector y, taken in the order of
// i, so a repeated position sees what the earlier one left.
//   axpyi  y += alpha x, the product first; alpha of 0 does nothing
//   doti   two accumulators, even and odd places, added at the end, then an odd last product
//   cdoti  one complex accumulator, products as in cdot.cpp
//   gthr   x := y; gthrz also clears y; sctr y := x
//   roti   (x, y) := (c x + s y, c y - s x); c of 1 with s of 0 computes nothing
#include "zor/signatures/blas.h"

#include "blas/level1/walk.h"

namespace zor {
namespace {

template <class T>
void axpyi(zor_int n, T alpha, const T* x, const zor_int* indx, T* y) {
  if (is_zero(alpha)) return;
  for (zor_int i = 0; i < n; ++i) y[indx[i] - 1] = add(y[indx[i] - 1], mul(alpha, x[i]));
}

template <class T>
T doti(zor_int n, const T* x, const zor_int* indx, const T* y) {
  if (n < 1) return 0;
  T even = 0, odd = 0;
  zor_int i = 0;
  for (; i + 2 <= n; i += 2) {
    even = even + x[i] * y[indx[i] - 1];
    odd = odd + x[i + 1] * y[indx[i + 1] - 1];
  }
  const T sum = even + odd;
  return i < n ? sum + x[i] * y[indx[i] - 1] : sum;
}

template <class T, bool Conj>
T cdoti(zor_int n, const T* x, const zor_int* indx, const T* y) {
  T sum = {0, 0};
  for (zor_int i = 0; i < n; ++i) sum = add(sum, mul<Conj>(x[i], y[indx[i] - 1]));
  return sum;
}

template <class T>
void gthr(zor_int n, const T* y, T* x, const zor_int* indx) {
  for (zor_int i = 0; i < n; ++i) x[i] = y[indx[i] - 1];
}

template <class T>
void gthrz(zor_int n, T* y, T* x, const zor_int* indx) {
  for (zor_int i = 0; i < n; ++i) {
    x[i] = y[indx[i] - 1];
    y[indx[i] - 1] = T{};
  }
}

template <class T>
void sctr(zor_int n, const T* x, const zor_int* indx, T* y) {
  for (zor_int i = 0; i < n; ++i) y[indx[i] - 1] = x[i];
}

template <class T>
void roti(zor_int n, T* x, const zor_int* indx, T* y, T c, T s) {
  if (c == 1 && s == 0) return;
  for (zor_int i = 0; i < n; ++i) {
    T& yi = y[indx[i] - 1];
    const T xi = x[i], t = yi;
    x[i] = c * xi + s * t;
    yi = c * t - s * xi;
  }
}

}  // namespace
}  // namespace zor

#define ROW_AXPYI(name, T) \
  extern "C" SIG_AXPYI(name, T) { zor::axpyi<T>(*n, *alpha, x, indx, y); }
#define ROW_DOTI(name, T) \
  extern "C" SIG_DOTI(name, T) { return zor::doti<T>(*n, x, indx, y); }
#define ROW_CDOTI(name, T, conj) \
  extern "C" SIG_CDOTI(name, T) { *result = zor::cdoti<T, conj>(*n, x, indx, y); }
#define ROW_GTHR(name, T) \
  extern "C" SIG_GTHR(name, T) { zor::gthr<T>(*n, y, x, indx); }
#define ROW_GTHRZ(name, T) \
  extern "C" SIG_GTHRZ(name, T) { zor::gthrz<T>(*n, y, x, indx); }
#define ROW_SCTR(name, T) \
  extern "C" SIG_SCTR(name, T) { zor::sctr<T>(*n, x, indx, y); }
#define ROW_ROTI(name, T) \
  extern "C" SIG_ROTI(name, T) { zor::roti<T>(*n, x, indx, y, *c, *s); }
#include "zor/tables/blas_vector.inc"
