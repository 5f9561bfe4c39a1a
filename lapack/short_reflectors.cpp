// SPDX-License-Identifier: MIT
// Householder reflectors of two and three elements on contiguous vectors, element by element.
//   two, real:      t = (v y + x) tau, y := y - t v
//   two, complex:   t = tau (v y + x), y := y - conj(v) t
//   three, real:    t = ((h1 y + x) + h2 z) tau, y := y - h1 t, z := z - h2 t
//   three, complex: t = tau ((h1 y + h2 z) + x), y := y - conj(h1) t, z := z - conj(h2) t
// and x := x - t in all. Complex products: (ar br - ai bi, ar bi + ai br), and (ar br + ai bi, ar bi - ai br)
// with a conjugated.
#include "blas/level1/walk.h"
#include "zor/signatures/lapack.h"

namespace zor {
namespace {

// The same element in every unit of V.
template <class V, class T>
[[gnu::always_inline]] inline V spread_units(T e) {
  if constexpr (is_complex<T>)
    return broadcast_pair<V>(e.re, e.im);
  else
    return broadcast<V>(e);
}

template <class T>
void rot2(zor_int n, T* x, T* y, T tau, T v) {
  constexpr bool conj = is_complex<T>;
  for_vectors<T, narrowing{}, 4>(
      0, n, [=]<int Bytes>(zor_int i) __attribute__((always_inline)) {
        using V = vec<real_t<T>, Bytes>;
        const V vv = spread_units<V>(v), vy = load_units<V>(y + i), vx = load_units<V>(x + i);
        const V t = mul_units<T>(spread_units<V>(tau), mul_units<T>(vv, vy) + vx);
        store_units(x + i, vx - t);
        store_units(y + i, vy - mul_units<T, conj>(vv, t));
      });
}

template <class T>
void rot3(zor_int n, T* x, T* y, T* z, T tau, T h1, T h2) {
  constexpr bool conj = is_complex<T>;
  for_vectors<T, narrowing{}, 4>(
      0, n, [=]<int Bytes>(zor_int i) __attribute__((always_inline)) {
        using V = vec<real_t<T>, Bytes>;
        const V v1 = spread_units<V>(h1), v2 = spread_units<V>(h2);
        const V vx = load_units<V>(x + i), vy = load_units<V>(y + i), vz = load_units<V>(z + i);
        V w;
        if constexpr (is_complex<T>)
          w = mul_units<T>(v1, vy) + mul_units<T>(v2, vz) + vx;
        else
          w = v1 * vy + vx + v2 * vz;
        const V t = mul_units<T>(spread_units<V>(tau), w);
        store_units(x + i, vx - t);
        store_units(y + i, vy - mul_units<T, conj>(v1, t));
        store_units(z + i, vz - mul_units<T, conj>(v2, t));
      });
}

}  // namespace
}  // namespace zor

#define ROW_ROT2(name, T)                      \
  extern "C" SIG_ROT2(name, T) {               \
    (void)incx, (void)incy;                    \
    if (*n > 0) zor::rot2(*n, x, y, *tau, *v); \
  }
#define ROW_ROT3(name, T)                               \
  extern "C" SIG_ROT3(name, T) {                        \
    (void)incx, (void)incy, (void)incz;                 \
    if (*n > 0) zor::rot3(*n, x, y, z, *tau, *h1, *h2); \
  }
#include "zor/tables/lapack.inc"
