// SPDX-License-Identifier: MIT
// Dot products of complex vectors: one complex accumulator from 0, in the order of elements, each product
// formed before it is added: re += xr yr - xi yi, im += xr yi + xi yr, and with conjugated x re += xr yr + xi
// yi, im += xr yi - xi yr. Negative increments start at the far end, also when both are -1.
#include "zor/signatures/blas.h"

#include "blas/level1/vector.h"
#include "blas/level1/walk.h"

namespace zor {
namespace {

// The element K of v in every pair of 16 bytes, so that no lane of a sum holds anything but elements.
template <class T, int K, class V>
[[gnu::always_inline]] inline vec<lane_t<V>, 16> element(V v) {
  if constexpr (sizeof(T) == 16) {
    return slice<16, K>(v);
  } else {
    const vec<lane_t<V>, 16> two = slice<16, K / 2>(v);
    if constexpr (K % 2 == 0)
      return __builtin_shufflevector(two, two, 0, 1, 0, 1);
    else
      return __builtin_shufflevector(two, two, 2, 3, 2, 3);
  }
}

// Whole vectors of the unit path, added to sum; returns the elements done.
template <class T, bool Conj>
zor_int cdot_runs(zor_int n, const T* x, const T* y, T& sum) {
  using R = real_t<T>;
  const R* a = reals(x);
  const R* b = reals(y);
  vec<R, 16> s = {};
  const zor_int done = for_runs<R, long_width>(
      2 * n, [&s, a, b ]<class V>(zor_int i) __attribute__((always_inline)) {
        const V p = complex_mul<Conj>(load<V>(a + i), load<V>(b + i));
        [&]<int... K>(std::integer_sequence<int, K...>) __attribute__((always_inline)) {
          ((s += element<T, K>(p)), ...);
        }
        (std::make_integer_sequence<int, int(sizeof(V) / sizeof(T))>{});
      });
  sum = {s[0], s[1]};
  return done / 2;
}

}  // namespace

template <class T, bool Conj>
T cdot(zor_int n, const T* x, zor_int incx, const T* y, zor_int incy) {
  T sum = {0, 0};
  if (n < 1) return sum;
  x = walk_start(x, n, incx);
  y = walk_start(y, n, incy);
  zor_int i = incx == 1 && incy == 1 ? cdot_runs<T, Conj>(n, x, y, sum) : 0;
  for (; i < n; ++i) sum = add(sum, mul<Conj>(load_element(x + i * incx), load_element(y + i * incy)));
  return sum;
}

}  // namespace zor

#define ROW_CDOT(name, T, conj) \
  extern "C" SIG_CDOT(name, T) { *result = zor::cdot<T, conj>(*n, x, *incx, y, *incy); }
#include "zor/tables/blas_vector.inc"
