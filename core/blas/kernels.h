// SPDX-License-Identifier: MIT
// The kernel of each public routine, by element type.
#pragma once

#include "zor/blas.h"

namespace zor_core {

template <class T>
struct kernels;

#define KERNELS(letter)                                            \
  static constexpr auto* gemm = &zor_blas_x##letter##gemm;         \
  static constexpr auto* mscale = &zor_blas_##letter##gemm_mscale; \
  static constexpr auto* gemv = &zor_blas_x##letter##gemv;         \
  static constexpr auto* axpy = &zor_blas_x##letter##axpy;         \
  static constexpr auto* copy = &zor_blas_x##letter##copy;         \
  static constexpr auto* swap = &zor_blas_x##letter##swap;         \
  static constexpr auto* copyan = &zor_blas_##letter##gemm_copyan; \
  static constexpr auto* copyat = &zor_blas_##letter##gemm_copyat; \
  static constexpr auto* copybn = &zor_blas_##letter##gemm_copybn; \
  static constexpr auto* copybt = &zor_blas_##letter##gemm_copybt;
template <>
struct kernels<float> {
  KERNELS(s)
  static constexpr auto* dot = &zor_blas_xsdot;
  static constexpr auto* syr = &zor_blas_xssyr;
};
template <>
struct kernels<double> {
  KERNELS(d)
  static constexpr auto* dot = &zor_blas_xddot;
  static constexpr auto* syr = &zor_blas_xdsyr;
};
template <>
struct kernels<zor_c32> {
  KERNELS(c)
  static constexpr auto* copyac = &zor_blas_cgemm_copyac;
  static constexpr auto* copybc = &zor_blas_cgemm_copybc;
};
template <>
struct kernels<zor_c64> {
  KERNELS(z)
  static constexpr auto* copyac = &zor_blas_zgemm_copyac;
  static constexpr auto* copybc = &zor_blas_zgemm_copybc;
};
#undef KERNELS

}  // namespace zor_core
