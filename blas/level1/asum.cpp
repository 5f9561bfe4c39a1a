// SPDX-License-Identifier: MIT
// Sum of magnitudes. With increment 1 or -1 (forward from x) and x on an element boundary there are four
// accumulators of 16 bytes, L lanes each (2 double, 4 single); an accumulator takes L consecutive elements:
//   elements before the 16-byte boundary       lane 0 of a0, one after the other
//   blocks of 8L                               a0 a1 a0 a1 a0 a1 a0 a1
//   a tail of 4L                               a0 a1 a3 a2
//   tails of 2L and L                          a0 a1 and a0
//   the elements that are left                 lane 0 of a0, one after the other
// and the result is ((a0 + a1) + a2) + a3, its lanes added in order. Any other vector is one running sum in
// the order of the walk: a negative increment starts at the far end, but -1 of a real vector at x, and 0
// takes x[0] n times. Complex vectors of increment 1 are summed as their 2n parts; others by two running sums
// over elements of even and odd place, real part before imaginary, joined at the end.
#include "zor/signatures/blas.h"

#include "blas/level1/partial_sums.h"
#include "blas/level1/vector.h"
#include "blas/level1/walk.h"

namespace zor {
namespace {

template <class R>
R asum_unit(zor_int n, const R* x) {
  using V = vec<R, 16>;
  constexpr int L = lanes<V>;
  const zor_int peel = peel_count(x, n);
  R first = 0;
  for (zor_int i = 0; i < peel; ++i) first = first + magnitude(x[i]);
  x += peel;
  n -= peel;

  partial_sums<R, 32> sums;
  using P = typename partial_sums<R, 32>::V;
  sums.part[0][0] = first;
  for (; n >= 8 * L; n -= 8 * L, x += 8 * L) {
#pragma GCC unroll 8
    for (int k = 0; k < 8 * L; k += sums.step)
      sums.part[k / sums.step % sums.count] += abs_lanes(load<P>(x + k));
  }
  V a0 = sums.template accumulator<0>(), a1 = sums.template accumulator<1>(), a2 = {}, a3 = {};
  if (n & 4 * L) {
    a0 += abs_lanes(load<V>(x));
    a1 += abs_lanes(load<V>(x + L));
    a3 += abs_lanes(load<V>(x + 2 * L));
    a2 += abs_lanes(load<V>(x + 3 * L));
    x += 4 * L;
  }
  if (n & 2 * L) {
    a0 += abs_lanes(load<V>(x));
    a1 += abs_lanes(load<V>(x + L));
    x += 2 * L;
  }
  if (n & L) {
    a0 += abs_lanes(load<V>(x));
    x += L;
  }
  for (n &= L - 1; n > 0; --n, ++x) a0[0] = a0[0] + magnitude(*x);
  return sum_lanes(((a0 + a1) + a2) + a3);
}

template <class R>
R asum_real(zor_int n, const R* x, zor_int incx) {
  const bool unit = incx == 1 || incx == -1;
  if (unit && on_real_boundary(x)) return asum_unit(n, x);
  if (unit) incx = 1;
  x = walk_start(x, n, incx);
  R sum = 0;
  for (zor_int i = 0; i < n; ++i) sum = sum + magnitude(load_element(x + i * incx));
  return sum;
}

template <class T>
real_t<T> asum_complex(zor_int n, const T* x, zor_int incx) {
  using R = real_t<T>;
  if (incx == 1) return asum_real(2 * n, reals(x), 1);
  x = walk_start(x, n, incx);
  R sum[2] = {0, 0};
  for (zor_int i = 0; i < n; ++i) {
    const T xi = load_element(x + i * incx);
    sum[i & 1] = (sum[i & 1] + magnitude(xi.re)) + magnitude(xi.im);
  }
  return sum[0] + sum[1];
}

}  // namespace

template <class T>
real_t<T> asum(zor_int n, const T* x, zor_int incx) {
  if (n < 1) return 0;
  if constexpr (is_complex<T>)
    return asum_complex(n, x, incx);
  else
    return asum_real(n, x, incx);
}

}  // namespace zor

#define ROW_ASUM(name, T, R) \
  extern "C" SIG_ASUM(name, T, R) { return zor::asum<T>(*n, x, *incx); }
#include "zor/tables/blas_vector.inc"
