// SPDX-License-Identifier: MIT
// The BLAS library as a C program declares it, with the integers that it was compiled for.
#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>

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
void xerbla_(const char*, const blasint*, size_t);
void xerbla_array_(const char*, const blasint*, const blasint*);
int lsame_(const char*, const char*);

size_t cblas_idamax(blasint, const double*, blasint);
void cblas_zdotc_sub(blasint, const void*, blasint, const void*, blasint, void*);
void cblas_dgemm(int, int, int, blasint, blasint, blasint, double, const double*, blasint, const double*,
                 blasint, double, double*, blasint);
void cblas_zgemv(int, int, blasint, blasint, const void*, const void*, blasint, const void*, blasint,
                 const void*, void*, blasint);
void cblas_dgemmt(int, int, int, int, blasint, blasint, double, const double*, blasint, const double*,
                  blasint, double, double*, blasint);
void cblas_daxpby(blasint, double, const double*, blasint, double, double*, blasint);
void cblas_domatcopy(int, int, blasint, blasint, double, const double*, blasint, double*, blasint);
void cblas_xerbla(blasint, const char*, const char*, ...);
}

enum {
  by_rows = 101,
  by_columns = 102,
  no_trans = 111,
  trans = 112,
  conj_trans = 113,
  upper = 121,
  lower = 122
};
