// SPDX-License-Identifier: MIT
// axpy as the sparse kernels call it: they keep the separate arithmetic in every library.
#include "blas/level1/axpy.h"

namespace zor {

template <class T>
void axpy(zor_int n, T alpha, const T* x, zor_int incx, T* y, zor_int incy) {
  axpy_walk(n, alpha, x, incx, y, incy);
}

template void axpy(zor_int, float, const float*, zor_int, float*, zor_int);
template void axpy(zor_int, double, const double*, zor_int, double*, zor_int);
template void axpy(zor_int, c32, const c32*, zor_int, c32*, zor_int);
template void axpy(zor_int, c64, const c64*, zor_int, c64*, zor_int);

}  // namespace zor
