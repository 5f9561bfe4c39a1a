// SPDX-License-Identifier: MIT
// Matrices in skyline storage: what products and solves are given, and the functions behind all names of one
// type. They consist of dots and axpys over the profiles.
#pragma once

#include "spblas/panel.h"
#include "spblas/stored_integers.h"

namespace zor::sparse {

// Profile r, from 0, ends with the diagonal and reaches back from column r.
template <class T>
struct sky {
  const T* val;
  stored_integers pntr;
  const T* origin = val - pntr[0];

  struct profile {
    zor_int first, strict;  // its first row or column, and its length without the diagonal
    const T* val;
    const T* diagonal() const { return val + strict; }
  };
  profile at(zor_int r) const {
    const zor_int start = pntr[r], strict = pntr[r + 1] - start - 1;
    return {r - strict, strict, origin + start};
  }
};

// C := C + alpha op(A) B for n right-hand sides, column-major.
template <class T>
struct sky_product {
  sky<T> a;
  zor_int m, n;
  T alpha;
  dense<const T, false> b;
  dense<T, false> c;
};

// Triangular: a dot for each profile, or with `push` an axpy; `stored` counts the diagonal.
template <class T>
void multiply_triangle(bool push, bool stored, const sky_product<T>& p);
template <class T>
void multiply_symmetric(bool stored, const sky_product<T>& p);
// The mirror image has the opposite sign; `minus` exchanges the two.
template <class T>
void multiply_skew(bool minus, const sky_product<T>& p);
// y := op(T)^-1 y, forwards by dots or with `push` backwards by axpys; without `stored` the diagonal is one.
template <class T>
void solve_profiles(bool push, bool stored, const sky<T>& a, zor_int m, T* y);

#define ZOR_SKY_KERNELS(T)                                                                      \
  template void zor::sparse::multiply_triangle(bool, bool, const zor::sparse::sky_product<T>&); \
  template void zor::sparse::multiply_symmetric(bool, const zor::sparse::sky_product<T>&);      \
  template void zor::sparse::multiply_skew(bool, const zor::sparse::sky_product<T>&);           \
  template void zor::sparse::solve_profiles(bool, bool, const zor::sparse::sky<T>&, zor_int, T*);

}  // namespace zor::sparse
