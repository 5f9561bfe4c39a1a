// SPDX-License-Identifier: MIT
// The BLAS routines that the factorisations use, by element type and with arguments by value. Sums of columns
// and updates of a triangle are the core's, which divides large ones over threads; vector routines are the
// kernels themselves.
#pragma once

#include "serv/imports.h"
#include "serv/scalar.h"
#include "zor/blas.h"

namespace zor {

// Of the routines of one operation the one for elements of T: a pair of them by precision, four by type.
template <class T, class Single, class Double>
constexpr auto& of_type(Single& single, Double& twice) {
  if constexpr (sizeof(real_t<T>) == sizeof(float))
    return single;
  else
    return twice;
}
template <class T, class S, class D, class C, class Z>
constexpr auto& of_type(S& s, D& d, C& c, Z& z) {
  if constexpr (is_complex<T>)
    return of_type<T>(c, z);
  else
    return of_type<T>(s, d);
}

template <class T>
inline constexpr auto& gemv_of = of_type<T>(core::zor_blas_sgemv, core::zor_blas_dgemv, core::zor_blas_cgemv,
                                            core::zor_blas_zgemv);
template <class T>
inline constexpr auto& syr_of = of_type<T>(core::zor_blas_ssyr, core::zor_blas_dsyr);
template <class T>
inline constexpr auto& gerc_of = of_type<T>(zor_blas_sger, zor_blas_dger, zor_blas_cgerc, zor_blas_zgerc);

// The sum of |x[i]|^2 as the dot product of x with itself.
template <class T>
inline real_t<T> sum_of_squares(zor_int n, const T* x, zor_int incx) {
  if constexpr (is_complex<T>) {
    T sum;
    of_type<T>(zor_blas_xcdotc, zor_blas_zdotc)(&sum, &n, x, &incx, x, &incx);
    return sum.re;
  } else {
    return of_type<T>(zor_blas_xsdot, zor_blas_xddot)(&n, x, &incx, x, &incx);
  }
}
template <class T>
inline void scale(zor_int n, real_t<T> alpha, T* x, zor_int incx) {
  of_type<T>(zor_blas_sscal, zor_blas_dscal, zor_blas_csscal, zor_blas_zdscal)(&n, &alpha, x, &incx);
}
// Counted from 1.
template <class T>
inline zor_int largest(zor_int n, const T* x, zor_int incx) {
  return of_type<T>(zor_blas_isamax, zor_blas_idamax)(&n, x, &incx);
}
template <class T>
inline void exchange(zor_int n, T* x, zor_int incx, T* y, zor_int incy) {
  of_type<T>(zor_blas_xsswap, zor_blas_xdswap)(&n, x, &incx, y, &incy);
}

}  // namespace zor
