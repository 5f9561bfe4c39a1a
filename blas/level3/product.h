// SPDX-License-Identifier: MIT
// The matrix product as the other routines of Level 3 call it: by value, through the exported drivers.
#pragma once

#include "serv/scalar.h"
#include "zor/signatures/blas.h"

namespace zor {

template <class T>
inline constexpr auto* product_driver = &zor_blas_xdgemm;
template <>
inline constexpr auto* product_driver<float> = &zor_blas_xsgemm;
template <>
inline constexpr auto* product_driver<c32> = &zor_blas_xcgemm;
template <>
inline constexpr auto* product_driver<c64> = &zor_blas_xzgemm;

// C := alpha op(A) op(B) + beta C. Sizes of 0 or less do nothing.
template <class T>
inline void multiply_add(char transa, char transb, zor_int m, zor_int n, zor_int k, T alpha, const T* a,
                         zor_int lda, const T* b, zor_int ldb, T beta, T* c, zor_int ldc) {
  product_driver<T>(&transa, &transb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
}

// Fewer rows, columns or depth than these may make a product take another way.
inline constexpr zor_int least_product = 8;

// A real number as an element.
template <class T>
constexpr T from_real(real_t<T> x) {
  if constexpr (is_complex<T>)
    return {x, 0};
  else
    return x;
}

// Whether an option is this upper-case letter, in either case.
inline bool is_letter(const char* option, char letter) { return (*option & ~0x20) == letter; }

// The letter that asks the product for the transpose, or for the conjugate transpose.
constexpr char transpose_letter(bool conj) { return conj ? 'C' : 'T'; }

}  // namespace zor
