// SPDX-License-Identifier: MIT
// axpy as it is exported: in the arithmetic of the library.
#include "zor/signatures/blas.h"

#include "blas/level1/axpy.h"

namespace zor {

template <class T>
void axpy_of_arithmetic(zor_int n, T alpha, const T* x, zor_int incx, T* y, zor_int incy) {
  axpy_walk(n, alpha, x, incx, y, incy);
}

template void axpy_of_arithmetic(zor_int, float, const float*, zor_int, float*, zor_int);
template void axpy_of_arithmetic(zor_int, double, const double*, zor_int, double*, zor_int);
template void axpy_of_arithmetic(zor_int, c32, const c32*, zor_int, c32*, zor_int);
template void axpy_of_arithmetic(zor_int, c64, const c64*, zor_int, c64*, zor_int);

}  // namespace zor

#define ROW_AXPY(name, T) \
  extern "C" SIG_AXPY(name, T) { zor::axpy_of_arithmetic<T>(*n, *alpha, x, *incx, y, *incy); }
#include "zor/tables/blas_vector.inc"
