// SPDX-License-Identifier: MIT
// The BLAS library as a C program sees it: its CBLAS header, and the Fortran names with the integers that it
// was compiled for.
#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>

#include "zor/cblas/cblas.h"

using blasint = ZOR_BLAS_INTEGER;
using c64 = std::complex<double>;
using c32 = std::complex<float>;

extern "C" {
double dnrm2_(const blasint*, const double*, const blasint*);
double dznrm2_(const blasint*, const c64*, const blasint*);
double dasum_(const blasint*, const double*, const blasint*);
void dscal_(const blasint*, const double*, double*, const blasint*);
void daxpy_(const blasint*, const double*, const double*, const blasint*, double*, const blasint*);
double ddot_(const blasint*, const double*, const blasint*, const double*, const blasint*);
blasint isamax_(const blasint*, const float*, const blasint*);
blasint idamax_(const blasint*, const double*, const blasint*);
blasint izamax_(const blasint*, const c64*, const blasint*);
void idamaxsub_(const blasint*, const double*, const blasint*, blasint*);
c64 zdotc_(const blasint*, const c64*, const blasint*, const c64*, const blasint*);
c32 cdotu_(const blasint*, const c32*, const blasint*, const c32*, const blasint*);
void zdotcsub_(const blasint*, const c64*, const blasint*, const c64*, const blasint*, c64*);
void dgemm_(const char*, const char*, const blasint*, const blasint*, const blasint*, const double*,
            const double*, const blasint*, const double*, const blasint*, const double*, double*,
            const blasint*, size_t, size_t);
void dgemv_(const char*, const blasint*, const blasint*, const double*, const double*, const blasint*,
            const double*, const blasint*, const double*, double*, const blasint*);
void dsyrk_(const char*, const char*, const blasint*, const blasint*, const double*, const double*,
            const blasint*, const double*, double*, const blasint*);
void domatcopy_(const char*, const char*, const blasint*, const blasint*, const double*, const double*,
                const blasint*, double*, const blasint*);
void dgeadd_(const blasint*, const blasint*, const double*, const double*, const blasint*, const double*,
             double*, const blasint*);
void xerbla_(const char*, const blasint*, size_t);
void xerbla_array_(const char*, const blasint*, const blasint*);
int lsame_(const char*, const char*);
}

constexpr auto by_rows = CblasRowMajor, by_columns = CblasColMajor;
constexpr auto no_trans = CblasNoTrans, trans = CblasTrans, conj_trans = CblasConjTrans;
constexpr auto lower = CblasLower;
