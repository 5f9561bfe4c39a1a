// SPDX-License-Identifier: MIT
// Skyline kernels: rows one after the other and in a row all right-hand sides. Sums are those of dot and axpy
// with increments of 1.
#pragma once

#include "blas/level1/vector.h"
#include "spblas/quotient.h"
#include "spblas/sky/profile_dot.h"
#include "spblas/sky/sky.h"

namespace zor::sparse {

template <class T>
[[gnu::always_inline]] inline T profile_dot(zor_int n, const T* a, const T* x) {
  return n < 1 ? T{} : profile_dot(n, a, x, x[n - 1]);
}
template <class T>
void profile_axpy(zor_int n, T alpha, const T* a, T* y) {
  zor::axpy<T>(n, alpha, a, 1, y, 1);
}

// Dot: c(r, j) = c(r, j) + alpha s, s over the profile and b at its rows. Axpy: alpha b(r, j) times the
// profile is added to c at its rows.
template <class T>
void multiply_triangle(bool push, bool stored, const sky_product<T>& p) {
  const sky<T> a = p.a;
  for (zor_int r = 0; r < p.m; ++r) {
    const auto row = a.at(r);
    const zor_int length = row.strict + (stored ? 1 : 0);
    for (zor_int j = 0; j < p.n; ++j) {
      if (push) {
        profile_axpy(length, zor::mul(p.alpha, *p.b.at(r, j)), row.val, p.c.at(row.first, j));
      } else {
        T& c = *p.c.at(r, j);
        c = add(c, zor::mul(p.alpha, profile_dot(length, row.val, p.b.at(row.first, j))));
      }
    }
  }
}

// Both, the diagonal in the dot alone.
template <class T>
void multiply_symmetric(bool stored, const sky_product<T>& p) {
  for (zor_int r = 0; r < p.m; ++r) {
    const auto row = p.a.at(r);
    for (zor_int j = 0; j < p.n; ++j) {
      const T s = profile_dot(row.strict + (stored ? 1 : 0), row.val, p.b.at(row.first, j));
      T& c = *p.c.at(r, j);
      c = add(c, zor::mul(s, p.alpha));
      profile_axpy(row.strict, zor::mul(*p.b.at(r, j), p.alpha), row.val, p.c.at(row.first, j));
    }
  }
}

template <class T>
void multiply_skew(bool minus, const sky_product<T>& p) {
  const T direct = minus ? zero_minus(p.alpha) : p.alpha, image = zero_minus(direct);
  for (zor_int r = 0; r < p.m; ++r) {
    const auto row = p.a.at(r);
    if (row.strict == 0) continue;
    for (zor_int j = 0; j < p.n; ++j) {
      T& c = *p.c.at(r, j);
      c = add(c, zor::mul(profile_dot(row.strict, row.val, p.b.at(row.first, j)), direct));
      profile_axpy(row.strict, zor::mul(image, *p.b.at(r, j)), row.val, p.c.at(row.first, j));
    }
  }
}

// Forwards y(r) = (y(r) - s) / diagonal; backwards the quotient is pushed to the rows of the profile.
template <class T>
void solve_profiles(bool push, bool stored, const sky<T>& of, zor_int m, T* y) {
  const sky<T> a = of;
  T t{};
  for (zor_int n = 0; n < m; ++n) {
    const zor_int r = push ? m - 1 - n : n;
    const auto row = a.at(r);
    t = push ? y[r] : sub(y[r], profile_dot(row.strict, row.val, y + row.first, t));
    if (stored) t = quotient(t, *row.diagonal());
    if (push) profile_axpy(row.strict, zero_minus(t), row.val, y + row.first);
    y[r] = t;
  }
}

}  // namespace zor::sparse
