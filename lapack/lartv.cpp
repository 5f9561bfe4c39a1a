// SPDX-License-Identifier: MIT
// A vector of independent plane rotations: (x, y) := (c x + s y, c y - conj(s) x), element by element, c
// real. A complex product with s is formed first: s y = (sr yr - si yi, sr yi + si yr), conj(s) x = (sr xr +
// si xi, sr xi - si xr).
#include "serv/element.h"
#include "zor/signatures/lapack.h"

namespace zor {
namespace {

template <class T, class V>
[[gnu::always_inline]] inline void rotate_units(V c, const T* s, T* x, T* y) {
  const V vs = load_units<V>(s), vx = load_units<V>(x), vy = load_units<V>(y);
  store_units(x, c * vx + mul_units<T>(vs, vy));
  store_units(y, c * vy - mul_units<T, is_complex<T>>(vs, vx));
}

// Whole vectors of contiguous operands; returns the elements done.
template <class T>
zor_int lartv_runs(zor_int n, T* x, T* y, const real_t<T>* c, const T* s) {
  using R = real_t<T>;
  if constexpr (is_complex<T>) {
    // A vector of c serves two vectors of elements.
    return for_vectors<R, narrowing{.least = 16}>(
        0, n, [=]<int Bytes>(zor_int i) __attribute__((always_inline)) {
          using V = vec<R, Bytes>;
          const V both = load<V>(c + i);
          rotate_units<T>(zip_low(both, both), s + i, x + i, y + i);
          const zor_int next = i + units<T, Bytes>;
          rotate_units<T>(zip_high(both, both), s + next, x + next, y + next);
        });
  } else {
    return for_vectors<T, narrowing{.least = 16}, 4>(
        0, n, [=]<int Bytes>(zor_int i) __attribute__((always_inline)) {
          rotate_units<T>(load<vec<R, Bytes>>(c + i), s + i, x + i, y + i);
        });
  }
}

template <class T>
void lartv(zor_int n, T* x, zor_int incx, T* y, zor_int incy, const real_t<T>* c, const T* s, zor_int incc) {
  if (n < 1) return;
  const bool contiguous = incx == 1 && incy == 1 && incc == 1;
  for (zor_int i = contiguous ? lartv_runs(n, x, y, c, s) : 0; i < n; ++i) {
    const T xi = load_element(x + i * incx), yi = load_element(y + i * incy);
    const T si = load_element(s + i * incc);
    const real_t<T> ci = load_element(c + i * incc);
    store_element(x + i * incx, add(scaled(ci, xi), mul(si, yi)));
    store_element(y + i * incy, sub(scaled(ci, yi), mul<is_complex<T>>(si, xi)));
  }
}

}  // namespace
}  // namespace zor

#define ROW_LARTV(name, T, R) \
  extern "C" SIG_LARTV(name, T, R) { zor::lartv(*n, x, *incx, y, *incy, c, s, *incc); }
#include "zor/tables/lapack.inc"
