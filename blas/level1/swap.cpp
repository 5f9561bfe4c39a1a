// SPDX-License-Identifier: MIT
// x and y exchanged, in the order of elements; increments whose product is 1 walk forward, others the
// standard walk. x and y do not overlap.
#include "zor/signatures/blas.h"

#include "blas/level1/vector.h"
#include "blas/level1/walk.h"

namespace zor {

template <class T>
void swap(zor_int n, T* x, zor_int incx, T* y, zor_int incy) {
  using R = real_t<T>;
  if (n < 1) return;
  zor_int done = 0;
  if (unit_pair(incx, incy)) {
    R* a = reals(x);
    R* b = reals(y);
    done = for_runs_of(
        n * parts<T>, {a, b}, [=]<class V>(zor_int i) __attribute__((always_inline)) {
          const V old = load<V>(a + i);
          store<V>(a + i, load<V>(b + i));
          store<V>(b + i, old);
        });
    done /= parts<T>;
    incx = incy = 1;
  }
  x = walk_start(x, n, incx);
  y = walk_start(y, n, incy);
  for (zor_int i = done; i < n; ++i) {
    const T old = load_element(x + i * incx);
    store_element(x + i * incx, load_element(y + i * incy));
    store_element(y + i * incy, old);
  }
}

}  // namespace zor

#define ROW_SWAP(name, T) \
  extern "C" SIG_SWAP(name, T) { zor::swap<T>(*n, x, *incx, y, *incy); }
#include "zor/tables/blas_vector.inc"
