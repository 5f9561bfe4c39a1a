// SPDX-License-Identifier: MIT
// The BLAS routines that the factorisations use, by element type and with arguments by value. Sums of columns
// and updates of a triangle are the core's, which divides large ones over threads; vector routines are the
// kernels themselves.
#pragma once

#include "serv/imports.h"
#include "serv/scalar.h"
#include "zor/blas.h"

namespace zor {

template <class T>
struct blas_of;
template <>
struct blas_of<float> {
  static constexpr auto& gemv = core::zor_blas_sgemv;
  static constexpr auto& syr = core::zor_blas_ssyr;
  static constexpr auto* dot = &zor_blas_xsdot;
  static constexpr auto* iamax = &zor_blas_isamax;
  static constexpr auto* swap = &zor_blas_xsswap;
  static constexpr auto* scal_by_real = &zor_blas_sscal;
};
template <>
struct blas_of<double> {
  static constexpr auto& gemv = core::zor_blas_dgemv;
  static constexpr auto& syr = core::zor_blas_dsyr;
  static constexpr auto* gerc = &zor_blas_dger;
  static constexpr auto* dot = &zor_blas_xddot;
  static constexpr auto* iamax = &zor_blas_idamax;
  static constexpr auto* swap = &zor_blas_xdswap;
  static constexpr auto* scal_by_real = &zor_blas_dscal;
};
template <>
struct blas_of<c32> {
  static constexpr auto& gemv = core::zor_blas_cgemv;
  static constexpr auto* gerc = &zor_blas_cgerc;
  static constexpr auto* dotc = &zor_blas_xcdotc;
  static constexpr auto* scal_by_real = &zor_blas_csscal;
};
template <>
struct blas_of<c64> {
  static constexpr auto& gemv = core::zor_blas_zgemv;
  static constexpr auto* dotc = &zor_blas_zdotc;
  static constexpr auto* scal_by_real = &zor_blas_zdscal;
};

// The sum of |x[i]|^2 as the dot product of x with itself.
template <class T>
inline real_t<T> sum_of_squares(zor_int n, const T* x, zor_int incx) {
  if constexpr (is_complex<T>) {
    T sum;
    blas_of<T>::dotc(&sum, &n, x, &incx, x, &incx);
    return sum.re;
  } else {
    return blas_of<T>::dot(&n, x, &incx, x, &incx);
  }
}
template <class T>
inline void scale(zor_int n, real_t<T> alpha, T* x, zor_int incx) {
  blas_of<T>::scal_by_real(&n, &alpha, x, &incx);
}
// Counted from 1.
template <class T>
inline zor_int largest(zor_int n, const T* x, zor_int incx) {
  return blas_of<T>::iamax(&n, x, &incx);
}
template <class T>
inline void exchange(zor_int n, T* x, zor_int incx, T* y, zor_int incy) {
  blas_of<T>::swap(&n, x, &incx, y, &incy);
}

}  // namespace zor
