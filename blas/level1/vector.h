// SPDX-License-Identifier: MIT
// The vector kernels as other kernels call them: sizes and scalars by value. What each promises about
// increments, NaN and the order of its sum stands at its definition. T is float, double, c32 or c64 as the
// table of exported names has it.
#pragma once

#include "serv/vec.h"

namespace zor {

template <class T>
real_t<T> asum(zor_int n, const T* x, zor_int incx);
template <class T>
real_t<T> nrm2(zor_int n, const T* x, zor_int incx);
template <class T>
zor_int iamax(zor_int n, const T* x, zor_int incx);
template <class T>
zor_int iamin(zor_int n, const T* x, zor_int incx);
template <class T, class A>
void scal(zor_int n, A alpha, T* x, zor_int incx);
template <class T>
void axpy(zor_int n, T alpha, const T* x, zor_int incx, T* y, zor_int incy);
template <class T>
void copy(zor_int n, const T* x, zor_int incx, T* y, zor_int incy);
template <class T>
void swap(zor_int n, T* x, zor_int incx, T* y, zor_int incy);
template <class T>
T dot(zor_int n, const T* x, zor_int incx, const T* y, zor_int incy);
template <class T, bool Conj>
T cdot(zor_int n, const T* x, zor_int incx, const T* y, zor_int incy);
template <class T, class C, class S>
void rot(zor_int n, T* x, zor_int incx, T* y, zor_int incy, C c, S s);

}  // namespace zor
