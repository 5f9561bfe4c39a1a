// SPDX-License-Identifier: MIT
// Plane rotation (x, y) := (c x + s y, c y - conj(s) x), c real. With complex s the products are formed
// first: s y = (sr yr - si yi, sr yi + si yr), conj(s) x = (sr xr + si xi, sr xi - si xr). Increments whose
// product is 1 walk forward, others the standard walk in the order of elements. x and y do not overlap.
#include "zor/signatures/blas.h"

#include "blas/level1/vector.h"
#include "blas/level1/walk.h"
#include "serv/mul_add.h"

namespace zor {
namespace {

// c x + t, or with Minus c x - t.
template <bool Minus, class C, class T>
[[gnu::always_inline]] inline T scaled_plus(C c, T x, T t) {
  if constexpr (is_complex<T>)
    return {scaled_plus<Minus>(c, x.re, t.re), scaled_plus<Minus>(c, x.im, t.im)};
  else
    return mul_add(c, x, Minus ? -t : t);
}

// Whole vectors of the unit path; returns the elements done.
template <class T, class C, class S>
zor_int rot_runs(zor_int n, T* x, T* y, C c, S s) {
  using R = real_t<T>;
  R* a = reals(x);
  R* b = reals(y);
  const zor_int done = for_runs_of<false>(
      n * parts<T>, {a, b}, [=]<class V>(zor_int i) __attribute__((always_inline)) {
        const V va = load<V>(a + i), vb = load<V>(b + i), vc = broadcast<V>(c);
        if constexpr (is_complex<S>) {
          const V vs = broadcast_pair<V>(s.re, s.im);
          store<V>(a + i, mul_add(vc, va, term_pairs(vs, vb)));
          store<V>(b + i, mul_add(vc, vb, -term_pairs<true>(vs, va)));
        } else {
          const V vs = broadcast<V>(s);
          store<V>(a + i, mul_add(vc, va, vs * vb));
          store<V>(b + i, mul_add(vc, vb, -(vs * va)));
        }
      });
  return done / parts<T>;
}

}  // namespace

template <class T, class C, class S>
void rot(zor_int n, T* x, zor_int incx, T* y, zor_int incy, C c, S s) {
  if (n < 1) return;
  zor_int done = 0;
  if (unit_pair(incx, incy)) {
    done = rot_runs(n, x, y, c, s);
    incx = incy = 1;
  }
  x = walk_start(x, n, incx);
  y = walk_start(y, n, incy);
  for (zor_int i = done; i < n; ++i) {
    const T xi = load_element(x + i * incx), yi = load_element(y + i * incy);
    if constexpr (is_complex<S>) {
      store_element(x + i * incx, scaled_plus<false>(c, xi, term(s, yi)));
      store_element(y + i * incy, scaled_plus<true>(c, yi, term<true>(s, xi)));
    } else {
      store_element(x + i * incx, scaled_plus<false>(c, xi, scaled(s, yi)));
      store_element(y + i * incy, scaled_plus<true>(c, yi, scaled(s, xi)));
    }
  }
}

}  // namespace zor

#define ROW_ROT(name, T, C, S) \
  extern "C" SIG_ROT(name, T, C, S) { zor::rot<T, C, S>(*n, x, *incx, y, *incy, *c, *s); }
#include "zor/tables/blas_vector.inc"
