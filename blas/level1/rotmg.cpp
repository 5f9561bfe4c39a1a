// SPDX-License-Identifier: MIT
// Setup of a modified rotation (gamma = 4096): the H that clears y1 of (sqrt(d1) x1, sqrt(d2) y1), with d1
// and d2 brought between 2^-24 and 2^24. Every scaling is by a power of two, hence exact short of over- and
// underflow. A d1 or d2 that came out infinite is left so: no scaling could end.
#include "zor/signatures/blas.h"

#include "blas/level1/walk.h"

namespace zor {
namespace {

inline constexpr double gamma = 4096, rgamma = 0x1p-12, gamma_sq = 0x1p24, rgamma_sq = 0x1p-24;

template <class T>
struct modified {
  T flag, h11, h21, h12, h22;
};

// Writes the entries that an implicit form leaves out, as a scaling changes them.
template <class T>
void make_explicit(modified<T>& h) {
  if (h.flag == 0) {
    h.h11 = 1;
    h.h22 = 1;
  } else if (h.flag > 0) {
    h.h21 = -1;
    h.h12 = 1;
  }
  h.flag = -1;
}

// Brings the magnitude of d into range; scale_row(factor) multiplies what belongs to it.
template <class T, class Row>
void rescale(T& d, modified<T>& h, Row scale_row) {
  const T inf = __builtin_huge_val();
  while (magnitude(d) <= T(rgamma_sq) && d != 0) {
    make_explicit(h);
    d *= T(gamma_sq);
    scale_row(T(rgamma));
  }
  while (magnitude(d) >= T(gamma_sq) && magnitude(d) < inf) {
    make_explicit(h);
    d *= T(rgamma_sq);
    scale_row(T(gamma));
  }
}

template <class T>
void store_param(const modified<T>& h, T* param) {
  param[0] = h.flag;
  if (h.flag <= 0) {
    param[2] = h.h21;
    param[3] = h.h12;
  }
  if (h.flag != 0) {
    param[1] = h.h11;
    param[4] = h.h22;
  }
}

// No rotation exists: everything is cleared.
template <class T>
void clear(T& d1, T& d2, T& x1, T* param) {
  d1 = d2 = x1 = 0;
  store_param<T>({-1, 0, 0, 0, 0}, param);
}

template <class T>
void rotmg(T& d1, T& d2, T& x1, T y1, T* param) {
  if (d1 < 0) return clear(d1, d2, x1, param);
  const T p2 = d2 * y1;
  if (p2 == 0) {
    param[0] = -2;
    return;
  }
  const T q2 = y1 * p2, p1 = d1 * x1, q1 = x1 * p1;
  const bool keep_order = magnitude(q1) > magnitude(q2);
  if (!keep_order && q2 < 0) return clear(d1, d2, x1, param);
  modified<T> h = {};
  if (keep_order) {
    const T t = y1 / p1;
    h.h12 = t * d2;
    h.h21 = 0 - d1 * t;
    const T u = 1 - h.h21 * h.h12;
    const T r = 1 / u;
    x1 *= u;
    d1 *= r;
    d2 *= r;
  } else {
    const T t = x1 / p2;
    h.flag = 1;
    h.h11 = d1 * t;
    h.h22 = d2 * t;
    const T u = h.h11 * h.h22 + 1;
    const T r = 1 / u;
    const T old_d1 = d1;
    x1 = u * y1;
    d1 = d2 * r;
    d2 = old_d1 * r;
  }
  rescale(d1, h, [&](T factor) { x1 *= factor, h.h11 *= factor, h.h12 *= factor; });
  rescale(d2, h, [&](T factor) { h.h21 *= factor, h.h22 *= factor; });
  store_param(h, param);
}

}  // namespace
}  // namespace zor

#define ROW_ROTMG(name, T) \
  extern "C" SIG_ROTMG(name, T) { zor::rotmg<T>(*d1, *d2, *x1, *y1, param); }
#include "zor/tables/blas_vector.inc"
