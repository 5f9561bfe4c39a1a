// SPDX-License-Identifier: MIT
// y := alpha x + y. The product is formed first, complex as (ar xr - ai xi, ar xi + ai xr), and added to y.
// alpha of 0 does nothing; a NaN alpha is no 0. Increments whose product is 1 walk forward, others the
// standard walk in the order of elements, so that incy of 0 adds every term to y[0]. x and y do not overlap.
//
// Two sources hold it: `axpy` of the sparse kernels is the separate one in both arithmetics, the exported
// names and the rank-one updates follow the arithmetic. The functions here are local to each.
#pragma once

#include "blas/level1/vector.h"
#include "blas/level1/walk.h"
#include "serv/control.h"
#include "serv/mul_add.h"

namespace zor {

// The axpy of the exported names.
template <class T>
void axpy_of_arithmetic(zor_int n, T alpha, const T* x, zor_int incx, T* y, zor_int incy);

// alpha v where results round alike under either sign: the sign of -ai xi goes to alpha, which saves the
// widest vectors an operation. v is held in a register: else it is loaded twice, once for each use.
template <class T, class V>
[[gnu::always_inline]] inline V times_signed(T alpha, V v) {
  asm("" : "+v"(v));
  return mul_add(broadcast<V>(alpha.re), v, broadcast_pair<V>(-alpha.im, alpha.im) * swap_pairs(v));
}

// Whole vectors of the unit path; returns the elements done.
template <class T>
static zor_int axpy_runs(zor_int n, T alpha, const T* x, T* y) {
  using R = real_t<T>;
  const R* from = reals(x);
  R* to = reals(y);
  const auto add_runs = [=](auto plus) __attribute__((always_inline)) {
    return for_runs_of(
        n * parts<T>, {from, to}, [=]<class V>(zor_int i) __attribute__((always_inline)) {
          store<V>(to + i, plus(load<V>(to + i), load<V>(from + i)));
        });
  };
  zor_int done;
  if constexpr (!is_complex<T>) {
    done = add_runs([=]<class V>(V sum, V v)
                        __attribute__((always_inline)) { return mul_add(broadcast<V>(alpha), v, sum); });
  } else if (width > 32 && rounds_alike_under_signs()) {
    done = add_runs([=]<class V>(V sum, V v)
                        __attribute__((always_inline)) { return sum + times_signed(alpha, v); });
  } else {
    done = add_runs([=]<class V>(V sum, V v) __attribute__((always_inline)) {
      return sum + term_pairs(broadcast_pair<V>(alpha.re, alpha.im), v);
    });
  }
  return done / parts<T>;
}

template <class T>
static void axpy_walk(zor_int n, T alpha, const T* x, zor_int incx, T* y, zor_int incy) {
  if (n < 1 || is_zero(alpha)) return;
  zor_int done = 0;
  if (unit_pair(incx, incy)) {
    done = axpy_runs(n, alpha, x, y);
    incx = incy = 1;
  }
  x = walk_start(x, n, incx);
  y = walk_start(y, n, incy);
  for (zor_int i = done; i < n; ++i)
    store_element(y + i * incy, mul_add(alpha, load_element(x + i * incx), load_element(y + i * incy)));
}

}  // namespace zor
