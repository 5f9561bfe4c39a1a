// SPDX-License-Identifier: MIT
// Plain references of the vector kernels: scalar loops in the promised order of sums. A grouped sum is
// written as a map from an element's place to its accumulator and lane.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "tests/ref/arithmetic.h"
#include "tests/ref/element.h"

namespace ref {

using zor_ref::conj_times, zor_ref::is, zor_ref::is_complex, zor_ref::minus, zor_ref::plus, zor_ref::times;
template <class T>
using real_of = zor_ref::real_t<T>;

// Element i of a walk; the address need not be aligned.
template <class T>
T at(const T* x, zor_int n, zor_int inc, zor_int i) {
  const zor_int place = inc < 0 ? (i - n + 1) * inc : i * inc;
  T v;
  std::memcpy(&v, reinterpret_cast<const char*>(x) + place * zor_int(sizeof(T)), sizeof v);
  return v;
}
template <class T>
void set(T* x, zor_int n, zor_int inc, zor_int i, T v) {
  const zor_int place = inc < 0 ? (i - n + 1) * inc : i * inc;
  std::memcpy(reinterpret_cast<char*>(x) + place * zor_int(sizeof(T)), &v, sizeof v);
}

inline uintptr_t address(const void* x) { return reinterpret_cast<uintptr_t>(x); }
// Elements of `size` bytes in front of the next 16-byte boundary.
inline zor_int peel(const void* x, size_t size) { return zor_int((16 - address(x) % 16) % 16 / size); }

template <class T>
real_of<T> cabs1(T a) {
  if constexpr (is_complex<T>)
    return std::fabs(a.re) + std::fabs(a.im);
  else
    return std::fabs(a);
}

struct slot {
  int accumulator, lane;
};

// Lanes of an accumulator joined in order.
template <class R, int L>
R join(const R (&a)[L]) {
  R s = a[0];
  for (int i = 1; i < L; ++i) s = s + a[i];
  return s;
}
// ((a0 + a1) + a2) + a3, then the lanes.
template <class R, int L>
R join4(const R (&a)[4][L]) {
  R s[L];
  for (int i = 0; i < L; ++i) s[i] = ((a[0][i] + a[1][i]) + a[2][i]) + a[3][i];
  return join(s);
}

inline slot asum_slot(zor_int i, zor_int n, zor_int L) {
  static const int block[8] = {0, 1, 0, 1, 0, 1, 0, 1}, tail[4] = {0, 1, 3, 2};
  const zor_int blocks = n / (8 * L) * 8 * L;
  const int lane = int(i % L);
  if (i < blocks) return {block[i / L % 8], lane};
  i -= blocks;
  zor_int left = n - blocks;
  if (left >= 4 * L) {
    if (i < 4 * L) return {tail[i / L], lane};
    i -= 4 * L;
    left -= 4 * L;
  }
  return i / L < left / L ? slot{i / L < 2 && left >= 2 * L ? int(i / L) : 0, lane} : slot{0, 0};
}

template <class R>
R asum_real(zor_int n, const R* x, zor_int incx) {
  constexpr int L = 16 / sizeof(R);
  const bool unit = incx == 1 || incx == -1;
  if (unit) incx = 1;
  if (!unit || address(x) % sizeof(R) != 0) {
    R s = 0;
    for (zor_int i = 0; i < n; ++i) s = s + std::fabs(at(x, n, incx, i));
    return s;
  }
  R a[4][L] = {};
  const zor_int p = peel(x, sizeof(R)) < n ? peel(x, sizeof(R)) : n;
  for (zor_int i = 0; i < n; ++i) {
    const slot s = i < p ? slot{0, 0} : asum_slot(i - p, n - p, L);
    a[s.accumulator][s.lane] = a[s.accumulator][s.lane] + std::fabs(x[i]);
  }
  return join4(a);
}

template <class T>
real_of<T> asum(zor_int n, const T* x, zor_int incx) {
  using R = real_of<T>;
  if (n < 1) return 0;
  if constexpr (!is_complex<T>) {
    return asum_real(n, x, incx);
  } else {
    if (incx == 1) return asum_real(2 * n, reinterpret_cast<const R*>(x), 1);
    R even = 0, odd = 0;
    for (zor_int i = 0; i < n; ++i) {
      R& s = i % 2 == 0 ? even : odd;
      s = s + std::fabs(at(x, n, incx, i).re);
      s = s + std::fabs(at(x, n, incx, i).im);
    }
    return even + odd;
  }
}

inline slot dot_slot(zor_int i, zor_int n, zor_int L, bool together) {
  const zor_int blocks = n / (4 * L) * 4 * L, groups = n / L * L;
  if (i >= groups) return {0, 0};
  if (i < blocks) return {int(i / L % 4), int(i % L)};
  // What is left of a block: with equal positions a tail of two groups goes to a0 and a1, one of one to a0.
  const bool second_of_two = groups - blocks >= 2 * L && (i - blocks) / L == 1;
  return {together && second_of_two ? 1 : 0, int(i % L)};
}

template <class R>
R dot(zor_int n, const R* x, zor_int incx, const R* y, zor_int incy) {
  constexpr int L = 16 / sizeof(R);
  if (n < 1) return 0;
  const bool unit = incx == incy && (incx == 1 || incx == -1);
  if (unit) incx = incy = 1;
  if (!unit || address(x) % sizeof(R) != 0 || address(y) % sizeof(R) != 0) {
    R s = 0;
    for (zor_int i = 0; i < n; ++i) s = s + at(x, n, incx, i) * at(y, n, incy, i);
    return s;
  }
  const bool together = address(x) % 16 == address(y) % 16;
  const zor_int p = peel(x, sizeof(R)) < n ? peel(x, sizeof(R)) : n;
  R a[4][L] = {};
  for (zor_int i = 0; i < n; ++i) {
    const slot s = i < p ? slot{0, 0} : dot_slot(i - p, n - p, L, together);
    a[s.accumulator][s.lane] = a[s.accumulator][s.lane] + x[i] * y[i];
  }
  return join4(a);
}

template <class T, bool Conj>
T cdot(zor_int n, const T* x, zor_int incx, const T* y, zor_int incy) {
  T s = {0, 0};
  for (zor_int i = 0; i < n; ++i) {
    const T a = at(x, n, incx, i), b = at(y, n, incy, i);
    s = plus(s, Conj ? conj_times(a, b) : times(a, b));
  }
  return s;
}

inline double dsdot(double start, zor_int n, const float* x, zor_int incx, const float* y, zor_int incy) {
  const auto product = [&](zor_int i) { return double(at(x, n, incx, i)) * double(at(y, n, incy, i)); };
  double even = start, odd = 0;
  const bool two = incx == incy && incx >= 1;
  for (zor_int i = 0; i < n; ++i) {
    if (two && i == n - 1 && n % 2 == 1) return (even + odd) + product(i);
    double& s = two && i % 2 == 1 ? odd : even;
    s = s + product(i);
  }
  return n < 1 || !two ? even : even + odd;
}

inline void scaled_step(double x, double& scale, double& sumsq) {
  if (x == 0) return;
  const double a = std::fabs(x);
  if (std::isgreater(a, scale)) {
    const double t = scale / a;
    sumsq = sumsq * t * t + 1;
    scale = a;
  } else {
    const double t = a / scale;
    sumsq = sumsq + t * t;
  }
}

template <class T>
double nrm2_double(zor_int n, const T* x, zor_int incx) {
  if (n < 1) return 0;
  if (incx < 0 && n > 1) incx = -incx;
  double scale = 0, sumsq = 1;
  for (zor_int i = 0; i < n; ++i) {
    const T v = at(x, n, incx, i);
    if constexpr (is_complex<T>) {
      scaled_step(v.re, scale, sumsq);
      scaled_step(v.im, scale, sumsq);
    } else {
      if (n == 1) return std::fabs(v);
      scaled_step(v, scale, sumsq);
    }
  }
  return scale * std::sqrt(sumsq);
}

inline slot square_slot(zor_int i, zor_int n) {
  const zor_int blocks = n / 16 * 16;
  zor_int first = blocks;
  if (i < blocks) return {int(i % 16 / 2), int(i % 2)};
  for (zor_int tail = 8; tail >= 2; tail /= 2) {
    if (n - first < tail) continue;
    if (i < first + tail) return {int((i - first) / 2), int(i % 2)};
    first += tail;
  }
  return {0, 0};
}

inline double square(float x) { return double(x) * double(x); }

template <class T>
float nrm2_single(zor_int n, const T* x, zor_int incx) {
  if (n < 1) return 0;
  const bool unit = incx == 1 || incx == -1;
  if (unit) incx = 1;
  if (unit && address(x) % sizeof(float) == 0) {
    const float* part = reinterpret_cast<const float*>(x);
    const zor_int count = is_complex<T> ? 2 * n : n;
    const zor_int p = peel(x, sizeof(float)) < count ? peel(x, sizeof(float)) : count;
    double a[8][2] = {};
    for (zor_int i = 0; i < count; ++i) {
      const slot s = i < p ? slot{0, 0} : square_slot(i - p, count - p);
      a[s.accumulator][s.lane] = a[s.accumulator][s.lane] + square(part[i]);
    }
    double lane[2];
    for (int k = 0; k < 2; ++k)
      lane[k] = ((a[0][k] + a[1][k]) + (a[2][k] + a[3][k])) + ((a[4][k] + a[5][k]) + (a[6][k] + a[7][k]));
    return float(std::sqrt(lane[0] + lane[1]));
  }
  double s[4] = {};
  for (zor_int i = 0; i < n; ++i) {
    const zor_int left = n - n / 4 * 4, r = i - n / 4 * 4;
    zor_int k = i % 4;
    if (r >= 0) k = left >= 2 && r < 2 ? r : 0;
    if (incx == 0) k = 0;
    const T v = at(x, n, incx, i);
    if constexpr (is_complex<T>) {
      s[k] = s[k] + square(v.re);
      s[k] = s[k] + square(v.im);
    } else {
      s[k] = s[k] + square(v);
    }
  }
  return float(std::sqrt(((s[0] + s[1]) + s[2]) + s[3]));
}

template <class T>
real_of<T> nrm2(zor_int n, const T* x, zor_int incx) {
  if constexpr (sizeof(real_of<T>) == 8)
    return nrm2_double(n, x, incx);
  else
    return nrm2_single(n, x, incx);
}

// Largest magnitude, or smallest.
template <class T>
zor_int iamax(zor_int n, const T* x, zor_int incx, bool smallest) {
  if (n < 1 || incx <= 0) return 0;
  zor_int index = 1;
  if (n == 1) return 1;
  real_of<T> current = cabs1(at(x, n, incx, 0));
  for (zor_int i = 1; i < n; ++i) {
    const real_of<T> m = cabs1(at(x, n, incx, i));
    if (smallest ? current <= m : current >= m) continue;
    current = m;
    index = i + 1;
  }
  return index;
}

template <class T, class A>
void scal(zor_int n, A alpha, T* x, zor_int incx) {
  if (is(alpha, 1)) return;
  for (zor_int i = 0; i < n; ++i) {
    const T v = at(x, n, incx, i);
    if constexpr (std::is_same_v<A, T>)
      set(x, n, incx, i, times(alpha, v));
    else
      set(x, n, incx, i, zor_ref::by_real(alpha, v));
  }
}

template <class T>
void axpy(zor_int n, T alpha, const T* x, zor_int incx, T* y, zor_int incy) {
  if (is(alpha, 0)) return;
  for (zor_int i = 0; i < n; ++i)
    set(y, n, incy, i, zor_ref::plus_term(at(y, n, incy, i), alpha, at(x, n, incx, i)));
}

template <class T>
void copy(zor_int n, const T* x, zor_int incx, T* y, zor_int incy) {
  for (zor_int i = 0; i < n; ++i) set(y, n, incy, i, at(x, n, incx, i));
}

template <class T>
void swap(zor_int n, T* x, zor_int incx, T* y, zor_int incy) {
  for (zor_int i = 0; i < n; ++i) {
    const T a = at(x, n, incx, i);
    set(x, n, incx, i, at(y, n, incy, i));
    set(y, n, incy, i, a);
  }
}

template <class T, class C, class S>
void rot(zor_int n, T* x, zor_int incx, T* y, zor_int incy, C c, S s) {
  for (zor_int i = 0; i < n; ++i) {
    const T a = at(x, n, incx, i), b = at(y, n, incy, i);
    T sb, sa;
    if constexpr (is_complex<S>) {
      sb = zor_ref::term(s, b);
      sa = zor_ref::term<true>(s, a);
    } else {
      sb = zor_ref::by_real(s, b);
      sa = zor_ref::by_real(s, a);
    }
    set(x, n, incx, i, zor_ref::plus_real_times(sb, c, a));
    set(y, n, incy, i, zor_ref::plus_real_times(zor_ref::negative(sa), c, b));
  }
}

template <class T>
void rotm(zor_int n, T* x, zor_int incx, T* y, zor_int incy, const T* param) {
  if (param[0] == -2) return;
  for (zor_int i = 0; i < n; ++i) {
    const T a = at(x, n, incx, i), b = at(y, n, incy, i);
    T u, v;
    if (param[0] == -1) {
      u = param[1] * a + param[3] * b;
      v = param[2] * a + param[4] * b;
    } else if (param[0] == 0) {
      u = a + param[3] * b;
      v = param[2] * a + b;
    } else {
      u = param[1] * a + b;
      v = -a + param[4] * b;
    }
    set(x, n, incx, i, u);
    set(y, n, incy, i, v);
  }
}

}  // namespace ref
