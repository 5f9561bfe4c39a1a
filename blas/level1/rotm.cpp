// SPDX-License-Identifier: MIT
// Modified rotation (x, y) := H (x, y), param = flag, h11, h21, h12, h22. Flag -2 does nothing; -1 takes the
// full H: (h11 x + h12 y, h21 x + h22 y); 0 has h11 = h22 = 1: (x + h12 y, h21 x + y); 1 has h12 = 1, h21 =
// -1: (h11 x + y, h22 y - x). Implied entries have no effect. Increments whose product is 1 walk forward,
// others the standard walk. x and y do not overlap.
#include "zor/signatures/blas.h"

#include "blas/level1/walk.h"

namespace zor {
namespace {

enum class form { full, unit_diagonal, unit_off_diagonal };

// H (x, y) of vectors of lanes or of single elements; the entries come as V.
template <form F, class V>
[[gnu::always_inline]] inline void apply(V h11, V h21, V h12, V h22, V& x, V& y) {
  const V x0 = x, y0 = y;
  if constexpr (F == form::full) {
    x = h11 * x0 + h12 * y0;
    y = h21 * x0 + h22 * y0;
  } else if constexpr (F == form::unit_diagonal) {
    x = x0 + h12 * y0;
    y = h21 * x0 + y0;
  } else {
    x = h11 * x0 + y0;
    y = h22 * y0 - x0;
  }
}

template <form F, class T>
void rotm_form(zor_int n, T* x, zor_int incx, T* y, zor_int incy, const T* param) {
  const T h11 = param[1], h21 = param[2], h12 = param[3], h22 = param[4];
  zor_int done = 0;
  if (unit_pair(incx, incy)) {
    done = for_runs_of<false>(
        n, {x, y}, [=]<class V>(zor_int i) __attribute__((always_inline)) {
          V vx = load<V>(x + i), vy = load<V>(y + i);
          apply<F>(broadcast<V>(h11), broadcast<V>(h21), broadcast<V>(h12), broadcast<V>(h22), vx, vy);
          store<V>(x + i, vx);
          store<V>(y + i, vy);
        });
    incx = incy = 1;
  }
  x = walk_start(x, n, incx);
  y = walk_start(y, n, incy);
  for (zor_int i = done; i < n; ++i) {
    T xi = load_element(x + i * incx), yi = load_element(y + i * incy);
    apply<F>(h11, h21, h12, h22, xi, yi);
    store_element(x + i * incx, xi);
    store_element(y + i * incy, yi);
  }
}

template <class T>
void rotm(zor_int n, T* x, zor_int incx, T* y, zor_int incy, const T* param) {
  const T flag = param[0];
  if (n < 1 || flag == T(-2)) return;
  if (flag < 0) return rotm_form<form::full>(n, x, incx, y, incy, param);
  if (flag == 0) return rotm_form<form::unit_diagonal>(n, x, incx, y, incy, param);
  rotm_form<form::unit_off_diagonal>(n, x, incx, y, incy, param);
}

}  // namespace
}  // namespace zor

#define ROW_ROTM(name, T) \
  extern "C" SIG_ROTM(name, T) { zor::rotm<T>(*n, x, *incx, y, *incy, param); }
#include "zor/tables/blas_vector.inc"
