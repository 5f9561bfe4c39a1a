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

// a := (s u + a) + t v for one element.
template <bool Diagonal, class T>
[[gnu::always_inline]] inline void update(T* place, T s, T u, T t, T v) {
  const T a = load_element(place), first = mul_adding(s, u), second = mul_adding(t, v);
  if constexpr (Diagonal && is_complex<T>)
    store_element(place, T{first.re + a.re + second.re, 0});
  else
    store_element(place, add(add(first, a), second));
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
    const T xj = load_element(x + j), yj = load_element(y + j);
    const column_factors<T> f = factors_of(alpha, xj, yj);
    update<true>(column + j, f.p, yj, f.q, xj);
    if (t + 1 == k) {
      update_rows<1>(Upper ? 0 : j + 1, Upper ? j : n, &f, x, y, column, lda);
      break;
    }
    const zor_int l = j + onwards;
    T* next = a + l * lda;
    const T xl = load_element(x + l), yl = load_element(y + l);
    const column_factors<T> g = factors_of(alpha, xl, yl);
    update<false>(column + l, f.q, xl, f.p, yl);
    update<true>(next + l, g.q, xl, g.p, yl);
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
