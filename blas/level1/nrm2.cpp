// SPDX-License-Identifier: MIT
// Euclidean norms.
// Double: strictly sequential and scaled. From scale = 0 and sumsq = 1, each part that is not 0 (real before
// imaginary), of magnitude a: if a > scale, t = scale/a, sumsq = sumsq t t + 1, scale = a; else t = a/scale,
// sumsq += t t. The result is scale sqrt(sumsq). A NaN takes the second branch; a second infinity gives NaN.
// The walk starts at x[0] with the absolute increment; dnrm2 of one element is its magnitude.
// Single: parts are widened, squared and summed in double, and the root rounded once. Unit increment (1 or
// -1, forward) on an element boundary: eight accumulators of two lanes; an accumulator takes two consecutive
// parts.
//   parts before the 16-byte boundary         lane 0 of a0, one after the other
//   blocks of 16                              a0 to a7
//   tails of 8, 4, 2                          a0 to a3, a0 a1, a0
//   the part that is left                     lane 0 of a0
// joined as ((a0 + a1) + (a2 + a3)) + ((a4 + a5) + (a6 + a7)), then the lanes. Any other increment: four
// sums, element i going to sum i mod 4 in full blocks of four, then two elements to sums 0 and 1, then one to
// sum 0; complex elements add the real part, then the imaginary; joined ((s0 + s1) + s2) + s3. Increment 0
// adds all to s0; a negative one starts at the far end.
#include "zor/signatures/blas.h"

#include "blas/level1/partial_sums.h"
#include "blas/level1/vector.h"
#include "blas/level1/walk.h"

namespace zor {
namespace {

struct scaled_sum {
  double scale = 0, sumsq = 1;
};

[[gnu::always_inline]] inline void add_scaled(scaled_sum& s, double x) {
  if (x == 0) return;
  const double a = magnitude(x);
  if (__builtin_isgreater(a, s.scale)) {
    const double t = s.scale / a;
    s.sumsq = s.sumsq * t * t + 1;
    s.scale = a;
  } else {
    const double t = a / s.scale;
    s.sumsq = s.sumsq + t * t;
  }
}

double root(const scaled_sum& s) { return s.scale * __builtin_sqrt(s.sumsq); }

// 64-byte registers were measured slower here: the comparison for ties leaves the vector registers.
using lanes_d = vec<double, long_width>;
inline constexpr int block = 32, block_parts = block / lanes<lanes_d>;

// Whether a magnitude of the block exceeds scale. They compare as integers, which raises no flag; a NaN
// exceeds.
[[gnu::always_inline]] inline bool block_exceeds(const double* x, double scale) {
  using B = bits_t<lanes_d>;
  const B bound = B(broadcast<lanes_d>(scale));
  B above = {};
#pragma GCC unroll 16
  for (int k = 0; k < block_parts; ++k) above |= bound - B(abs_lanes(load<lanes_d>(x + k * lanes<lanes_d>)));
  return sign_mask(above) != 0;
}

// Adds the squares to sumsq as if one after the other, when a few vector operations can tell that result.
// sumsq lies in a binade [C, 2C) with spacing u, and the squares are at most 1. As long as the sum stays
// below 2C, adding a square moves it by the square rounded to a multiple of u, whatever the sum is, unless
// the square is a tie; these multiples, (C + square) - C, add up exactly in any order. It holds in every
// rounding mode, and the inexact flag is raised by the same squares.
[[gnu::always_inline]] inline bool add_in_binade(double& sumsq, const lanes_d (&square)[block_parts]) {
  if (!__builtin_isless(sumsq, 0x1p52)) return false;
  uint64_t exponent;
  std::memcpy(&exponent, &sumsq, sizeof exponent);
  exponent &= uint64_t(0x7FF) << 52;
  double base;
  std::memcpy(&base, &exponent, sizeof base);
  const lanes_d c = broadcast<lanes_d>(base), half_spacing = broadcast<lanes_d>(base * 0x1p-53);
  lanes_d sum[2] = {};
  bits_t<lanes_d> tie = {};
#pragma GCC unroll 16
  for (int k = 0; k < block_parts; ++k) {
    const lanes_d rounded = (c + square[k]) - c;
    tie |= abs_lanes(square[k] - rounded) == half_spacing;
    sum[k % 2] += rounded;
  }
  const double moved = sumsq + sum_lanes(sum[0] + sum[1]);
  if (sign_mask(tie) != 0 || !__builtin_isless(moved, 2 * base)) return false;
  sumsq = moved;
  return true;
}

scaled_sum nrm2_scaled_unit(zor_int n, const double* x) {
  scaled_sum s;
  zor_int i = 0;
  for (; i + block <= n; i += block) {
    if (s.scale == 0 || block_exceeds(x + i, s.scale)) {
      for (int k = 0; k < block; ++k) add_scaled(s, load_element(x + i + k));
      continue;
    }
    // No magnitude exceeds the scale, and zeros add nothing.
    lanes_d square[block_parts];
#pragma GCC unroll 16
    for (int k = 0; k < block_parts; ++k) {
      const lanes_d t = abs_lanes(load<lanes_d>(x + i + k * lanes<lanes_d>)) / broadcast<lanes_d>(s.scale);
      square[k] = t * t;
    }
    // With two lanes to a register the plain additions are the faster way.
    if (width > 16 && add_in_binade(s.sumsq, square)) continue;
#pragma GCC unroll 32
    for (int k = 0; k < block; ++k) s.sumsq = s.sumsq + square[k / lanes<lanes_d>][k % lanes<lanes_d>];
  }
  for (; i < n; ++i) add_scaled(s, load_element(x + i));
  return s;
}

template <class T>
double nrm2_scaled(zor_int n, const T* x, zor_int incx) {
  if (n < 1) return 0;
  if constexpr (!is_complex<T>)
    if (n == 1) return magnitude(load_element(x));
  const zor_int step = absolute_step(incx);
  if (step == 1) return root(nrm2_scaled_unit(n * parts<T>, reals(x)));
  scaled_sum s;
  for (zor_int i = 0; i < n; ++i) {
    const T xi = load_element(x + i * step);
    if constexpr (is_complex<T>) {
      add_scaled(s, xi.re);
      add_scaled(s, xi.im);
    } else {
      add_scaled(s, xi);
    }
  }
  return root(s);
}

[[gnu::always_inline]] inline double wide_square(float x) { return double(x) * double(x); }

double sum_squares_unit(zor_int n, const float* x) {
  using V = vec<double, 16>;
  const zor_int peel = peel_count(x, n);
  double first = 0;
  for (zor_int i = 0; i < peel; ++i) first = first + wide_square(x[i]);
  x += peel;
  n -= peel;

  partial_sums<double, 128, long_width> sums;
  using P = partial_sums<double, 128, long_width>::V;
  sums.part[0][0] = first;
  for (; n >= 16; n -= 16, x += 16) {
#pragma GCC unroll 8
    for (int k = 0; k < sums.count; ++k) {
      const P w = load_widened<P>(x + k * sums.step);
      sums.part[k] += w * w;
    }
  }
  V a[8] = {sums.accumulator<0>(), sums.accumulator<1>(), sums.accumulator<2>(), sums.accumulator<3>(),
            sums.accumulator<4>(), sums.accumulator<5>(), sums.accumulator<6>(), sums.accumulator<7>()};
  for (int tail = 8; tail >= 2; tail /= 2) {
    if (!(n & tail)) continue;
    for (int k = 0; k < tail / 2; ++k, x += 2) a[k] += V{wide_square(x[0]), wide_square(x[1])};
  }
  if (n & 1) a[0][0] = a[0][0] + wide_square(*x);
  return sum_lanes(((a[0] + a[1]) + (a[2] + a[3])) + ((a[4] + a[5]) + (a[6] + a[7])));
}

template <class T>
double sum_squares_strided(zor_int n, const T* x, zor_int incx) {
  x = walk_start(x, n, incx);
  double sum[4] = {0, 0, 0, 0};
  const zor_int full = n & ~zor_int(3);
  for (zor_int i = 0; i < n; ++i) {
    double& s = sum[incx == 0 || (i == n - 1 && n % 2 == 1) ? 0 : i < full ? i % 4 : i % 2];
    const T xi = load_element(x + i * incx);
    if constexpr (is_complex<T>)
      s = (s + wide_square(xi.re)) + wide_square(xi.im);
    else
      s = s + wide_square(xi);
  }
  return ((sum[0] + sum[1]) + sum[2]) + sum[3];
}

template <class T>
float nrm2_wide(zor_int n, const T* x, zor_int incx) {
  if (n < 1) return 0;
  const bool unit = incx == 1 || incx == -1;
  if (unit && on_real_boundary(x)) return float(__builtin_sqrt(sum_squares_unit(n * parts<T>, reals(x))));
  return float(__builtin_sqrt(sum_squares_strided(n, x, unit ? 1 : incx)));
}

}  // namespace

template <class T>
real_t<T> nrm2(zor_int n, const T* x, zor_int incx) {
  if constexpr (sizeof(real_t<T>) == 8)
    return nrm2_scaled(n, x, incx);
  else
    return nrm2_wide(n, x, incx);
}

}  // namespace zor

#define ROW_NRM2(name, T, R) \
  extern "C" SIG_ASUM(name, T, R) { return zor::nrm2(*n, x, *incx); }
#include "zor/tables/blas_vector.inc"
