// SPDX-License-Identifier: MIT
// y := x. Bits are moved as they are, in the order of elements; increments whose product is 1 walk forward,
// others the standard walk. x and y do not overlap.
#include "zor/signatures/blas.h"

#include "blas/level1/vector.h"
#include "blas/level1/walk.h"

namespace zor {

template <class T>
void copy(zor_int n, const T* x, zor_int incx, T* y, zor_int incy) {
  using R = real_t<T>;
  if (n < 1) return;
  zor_int done = 0;
  if (unit_pair(incx, incy)) {
    const R* from = reals(x);
    R* to = reals(y);
    done = for_runs_of(
        n * parts<T>, {from, to}, [=]<class V>(zor_int i) __attribute__((always_inline)) {
          store<V>(to + i, load<V>(from + i));
        });
    done /= parts<T>;
    incx = incy = 1;
  }
  x = walk_start(x, n, incx);
  y = walk_start(y, n, incy);
  for (zor_int i = done; i < n; ++i) store_element(y + i * incy, load_element(x + i * incx));
}

}  // namespace zor

#define ROW_COPY(name, T) \
  extern "C" SIG_COPY(name, T) { zor::copy<T>(*n, x, *incx, y, *incy); }
#include "zor/tables/blas_vector.inc"
