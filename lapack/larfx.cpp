// SPDX-License-Identifier: MIT
// C := H C or C H, H = I - tau v v^T, in complex types I - tau v v^H. A reflector of order 1 to 10 is applied
// in one pass: to each column (left) s := v(1) c(1) + v(2) c(2) + ..., v conjugated, and c(i) := c(i) - s
// t(i) with t(i) = tau v(i); to each row (right) the same with v as it is and t(i) = tau conj(v(i)). Order 1
// multiplies by 1 - (tau v(1)) conj(v(1)). Longer ones go through the matrix-vector product and the rank-one
// update.
#include "lapack/blas.h"
#include "serv/element.h"
#include "zor/signatures/lapack.h"

namespace zor {
namespace {

inline constexpr int longest_inline = 10;

// What one pass needs of the reflector: factors of the sum, and of the update.
template <int Order, class T>
struct reflector {
  T v[Order], t[Order];
};
template <int Order, class T>
reflector<Order, T> make_reflector(bool left, const T* v, T tau) {
  reflector<Order, T> h;
  for (int i = 0; i < Order; ++i) {
    const T e = load_element(v + i), conjugated = conj_by_sign(e);
    h.v[i] = left ? conjugated : e;
    h.t[i] = Order == 1 ? sub(one_of<T>(), mul(mul(tau, e), conjugated)) : mul(tau, left ? e : conjugated);
  }
  return h;
}

// Units of V that stand `step` elements apart, from c on.
template <int Order, class V, class T>
[[gnu::always_inline]] inline void apply(const reflector<Order, T>& h, T* c, zor_int step) {
  if constexpr (Order == 1) {
    store_units(c, make_factor<V>(h.t[0]) * load_units<V>(c));
  } else {
    V e[Order];
#pragma GCC unroll 10
    for (int i = 0; i < Order; ++i) e[i] = load_units<V>(c + i * step);
    V sum = make_factor<V>(h.v[0]) * e[0];
#pragma GCC unroll 10
    for (int i = 1; i < Order; ++i) sum = sum + make_factor<V>(h.v[i]) * e[i];
#pragma GCC unroll 10
    for (int i = 0; i < Order; ++i) store_units(c + i * step, e[i] - make_factor<V>(h.t[i]) * sum);
  }
}

template <int Order, class T>
void apply_short(bool left, zor_int count, const T* v, T tau, T* c, zor_int ldc) {
  const reflector<Order, T> h = make_reflector<Order>(left, v, tau);
  if (left) {
    for (zor_int j = 0; j < count; ++j) apply<Order, element<T>>(h, c + j * ldc, 1);
  } else {
    for_vectors<T>(
        0, count, [&]<int Bytes>(zor_int i) __attribute__((always_inline)) {
          apply<Order, vec<real_t<T>, Bytes>>(h, c + i, ldc);
        });
  }
}

template <class T>
void apply_by_calls(bool left, zor_int m, zor_int n, const T* v, T tau, T* c, zor_int ldc, T* work) {
  const zor_int step = 1;
  const T plus = one_of<T>(), nothing{};
  T minus = tau;
  if constexpr (is_complex<T>)
    minus = {-tau.re, -tau.im};
  else
    minus = -tau;
  if (left) {
    gemv_of<T>(is_complex<T> ? "Conjugate transpose" : "Transpose", &m, &n, &plus, c, &ldc, v, &step,
               &nothing, work, &step);
    gerc_of<T>(&m, &n, &minus, v, &step, work, &step, c, &ldc);
  } else {
    gemv_of<T>("No transpose", &m, &n, &plus, c, &ldc, v, &step, &nothing, work, &step);
    gerc_of<T>(&m, &n, &minus, work, &step, v, &step, c, &ldc);
  }
}

template <class T>
using short_fn = void(bool left, zor_int count, const T* v, T tau, T* c, zor_int ldc);
template <class T>
inline constexpr short_fn<T>* short_reflectors[longest_inline] = {
    &apply_short<1, T>, &apply_short<2, T>, &apply_short<3, T>, &apply_short<4, T>, &apply_short<5, T>,
    &apply_short<6, T>, &apply_short<7, T>, &apply_short<8, T>, &apply_short<9, T>, &apply_short<10, T>};

template <class T>
void larfx(bool left, zor_int m, zor_int n, const T* v, T tau, T* c, zor_int ldc, T* work) {
  if (m < 1 || n < 1) return;
  const zor_int order = left ? m : n;
  if (order <= longest_inline)
    short_reflectors<T>[order - 1](left, left ? n : m, v, tau, c, ldc);
  else
    apply_by_calls(left, m, n, v, tau, c, ldc, work);
}

}  // namespace
}  // namespace zor

#define ROW_LARFX(name, T)                                                      \
  extern "C" SIG_LARFX(name, T) {                                               \
    zor::larfx(zor_serv_lsame(side, "L") != 0, *m, *n, v, *tau, c, *ldc, work); \
  }
#include "zor/tables/lapack.inc"
