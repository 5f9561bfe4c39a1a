// SPDX-License-Identifier: MIT
// Dot products of single-precision vectors in double: elements are widened first, so products are exact. With
// equal increments of at least 1 there are two accumulators, for elements of even and odd place; they are
// added at the end, and an odd last element after that. Otherwise one accumulator follows the standard walk.
// sdsdot starts its first accumulator from sb and rounds the result once to single.
#include "zor/signatures/blas.h"

#include "blas/level1/walk.h"

namespace zor {
namespace {

[[gnu::always_inline]] inline double product(const float* x, const float* y) {
  return double(load_element(x)) * double(load_element(y));
}

double dsdot_even_odd(double start, zor_int n, const float* x, const float* y, zor_int inc) {
  vec<double, 16> sum = {start, 0.0};
  zor_int i = 0;
  if (inc == 1) {
    using V = vec<double>;
    for (; i + lanes<V> <= n; i += lanes<V>) {
      const V p = load_widened<V>(x + i) * load_widened<V>(y + i);
      [&]<int... K>(std::integer_sequence<int, K...>) __attribute__((always_inline)) {
        ((sum += slice<16, K>(p)), ...);
      }
      (std::make_integer_sequence<int, width / 16>{});
    }
  }
  for (; i + 2 <= n; i += 2)
    sum += vec<double, 16>{product(x + i * inc, y + i * inc), product(x + (i + 1) * inc, y + (i + 1) * inc)};
  const double joined = sum[0] + sum[1];
  return i < n ? joined + product(x + i * inc, y + i * inc) : joined;
}

double dsdot(double start, zor_int n, const float* x, zor_int incx, const float* y, zor_int incy) {
  if (n < 1) return start;
  if (incx == incy && incx >= 1) return dsdot_even_odd(start, n, x, y, incx);
  x = walk_start(x, n, incx);
  y = walk_start(y, n, incy);
  double sum = start;
  for (zor_int i = 0; i < n; ++i) sum = sum + product(x + i * incx, y + i * incy);
  return sum;
}

}  // namespace
}  // namespace zor

#define ROW_DSDOT(name) \
  extern "C" SIG_DSDOT(name) { return zor::dsdot(0, *n, x, *incx, y, *incy); }
#define ROW_SDSDOT(name)                                                          \
  extern "C" SIG_SDSDOT(name) {                                                   \
    return *n < 1 ? *sb : float(zor::dsdot(double(*sb), *n, x, *incx, y, *incy)); \
  }
#include "zor/tables/blas_vector.inc"
