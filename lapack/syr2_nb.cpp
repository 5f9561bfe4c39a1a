// SPDX-License-Identifier: MIT
// A := A + alpha x y^T + alpha y x^T, Hermitian A + alpha x y^H + conj(alpha) y x^H, over k columns of one
// triangle: the first k of a lower, the last k of an upper one. Columns go in pairs from the corner of the
// diagonal where the trapezoid begins (a lower one from column 0 up, an upper one from column n-1 down), with
// p = alpha x(j) and q = alpha y(j), each rounded first (Hermitian: p = conj(alpha x(j)), q = alpha
// conj(y(j))):
//   diagonal of the first column of a pair and of a column left over:  a := (p y(j) + a) + q x(j)
//   all other elements, the diagonal of the second column too:         a := (q x(i) + a) + p y(i)
// A Hermitian diagonal is real: imaginary parts are not read and become 0.
#include "blas/level2/triangle.h"
#include "serv/element.h"
#include "zor/signatures/lapack.h"

namespace zor {
namespace {

template <class T>
struct column_factors {
  T p, q;
};
template <class T>
column_factors<T> factors_of(T alpha, T xj, T yj) {
  return {conj_by_sign(mul_adding(alpha, xj)), mul_adding(alpha, conj_by_sign(yj))};
}

// (s u + a) + t v for one element.
template <bool Diagonal, class T>
[[gnu::always_inline]] inline T updated(T a, T s, T u, T t, T v) {
  const T first = mul_adding(s, u), second = mul_adding(t, v);
  if constexpr (Diagonal && is_complex<T>)
    return {first.re + a.re + second.re, 0};
  else
    return add(add(first, a), second);
}

// Rows first to end - 1 of Columns neighbouring columns from a on.
template <int Columns, class T>
void update_rows(zor_int first, zor_int end, const column_factors<T>* f, const T* x, const T* y, T* a,
                 zor_int lda) {
  for_ranges<T>(
      first, end, [&]<int Bytes>(zor_int i, zor_int last) __attribute__((always_inline)) {
        using V = vec<real_t<T>, Bytes>;
        factor<T, V> p[Columns], q[Columns];
#pragma GCC unroll 2
        for (int c = 0; c < Columns; ++c) p[c] = make_factor<V>(f[c].p), q[c] = make_factor<V>(f[c].q);
        for (; i < last; i += units<T, Bytes>) {
          const V vx = load_units<V>(x + i), vy = load_units<V>(y + i);
#pragma GCC unroll 2
          for (int c = 0; c < Columns; ++c) {
            T* place = a + i + c * lda;
            store_units(place, q[c] * vx + load_units<V>(place) + p[c] * vy);
          }
        }
      });
}

template <bool Upper, class T>
void syr2_nb(zor_int n, zor_int k, T alpha, const T* x, const T* y, T* a, zor_int lda) {
  if (n < 1 || k < 1) return;
  constexpr zor_int onwards = Upper ? -1 : 1;
  for (zor_int t = 0; t < k; t += 2) {
    const zor_int j = Upper ? n - 1 - t : t;
    T* column = a + j * lda;
    const column_factors<T> f = factors_of(alpha, x[j], y[j]);
    column[j] = updated<true>(column[j], f.p, y[j], f.q, x[j]);
    if (t + 1 == k) {
      update_rows<1>(Upper ? 0 : j + 1, Upper ? j : n, &f, x, y, column, lda);
      break;
    }
    const zor_int l = j + onwards;
    T* next = a + l * lda;
    const column_factors<T> g = factors_of(alpha, x[l], y[l]);
    column[l] = updated<false>(column[l], f.q, x[l], f.p, y[l]);
    next[l] = updated<true>(next[l], g.q, x[l], g.p, y[l]);
    const column_factors<T> both[2] = {Upper ? g : f, Upper ? f : g};
    update_rows<2>(Upper ? 0 : l + 1, Upper ? l : n, both, x, y, Upper ? next : column, lda);
  }
}

}  // namespace
}  // namespace zor

#define ROW_SYR2_NB(name, T)                              \
  extern "C" SIG_SYR2_NB(name, T) {                       \
    (void)incx, (void)incy;                               \
    if (zor::is_upper(*uplo))                             \
      zor::syr2_nb<true>(*n, *k, *alpha, x, y, a, *lda);  \
    else                                                  \
      zor::syr2_nb<false>(*n, *k, *alpha, x, y, a, *lda); \
  }
#include "zor/tables/lapack.inc"
