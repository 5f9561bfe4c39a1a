// SPDX-License-Identifier: MIT
// x := alpha x, complex as (ar xr - ai xi, ar xi + ai xr). alpha of exactly 1 leaves x alone; alpha of 0
// multiplies, so an infinity becomes NaN. A negative increment scales the same elements as its absolute
// value; 0 multiplies x[0] n times.
#include "zor/signatures/blas.h"

#include "blas/level1/vector.h"
#include "blas/level1/walk.h"

namespace zor {
namespace {

// Whole vectors of the unit path; returns the elements done.
template <class T, class A>
zor_int scal_runs(zor_int n, A alpha, T* x) {
  using R = real_t<T>;
  R* p = reals(x);
  const zor_int done = for_runs_of(
      n * parts<T>, {p}, [=]<class V>(zor_int i) __attribute__((always_inline)) {
        if constexpr (is_complex<A>)
          store<V>(p + i, complex_mul(broadcast_pair<V>(alpha.re, alpha.im), load<V>(p + i)));
        else
          store<V>(p + i, broadcast<V>(alpha) * load<V>(p + i));
      });
  return done / parts<T>;
}

// Out of the line of the quick returns, which then need no stack.
template <class T, class A>
[[gnu::noinline]] void scal_elements(zor_int n, A alpha, T* x, zor_int incx) {
  incx = absolute_step(incx);
  for (zor_int i = incx == 1 ? scal_runs(n, alpha, x) : 0; i < n; ++i) {
    if constexpr (is_complex<A>)
      store_element(x + i * incx, mul(alpha, load_element(x + i * incx)));
    else
      store_element(x + i * incx, scaled(alpha, load_element(x + i * incx)));
  }
}

}  // namespace

template <class T, class A>
void scal(zor_int n, A alpha, T* x, zor_int incx) {
  if (n < 1) return;
  // A compiler may compare before it looks at n, and a denormal alpha then raises a flag for an empty vector.
  asm volatile("");
  if (!is_one(alpha)) scal_elements(n, alpha, x, incx);
}

}  // namespace zor

#define ROW_SCAL(name, T, A) \
  extern "C" SIG_SCAL(name, T, A) { zor::scal<T, A>(*n, *alpha, x, *incx); }
#include "zor/tables/blas_vector.inc"
