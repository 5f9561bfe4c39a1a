// SPDX-License-Identifier: MIT
// y := beta y + alpha A x, A symmetric or Hermitian and given by k columns of one triangle: the first k of a
// lower, the last k of an upper one. All of y is scaled first (by 0: cleared, not read). Columns go in groups
// of four from the corner of the diagonal where the trapezoid begins, then one by one. For a group of columns
// j + c, with s(c) = alpha x(j+c) rounded first:
//   rows of the group   y(j+r) := y(j+r) + s(0) A(r,0) + s(1) A(r,1) + ..., one addition after the other
//   rows beyond it      y(i) := y(i) + s(0) A(i,0) + s(1) A(i,1) + ..., and the sums over these rows, in
//   rising order
//                       from 0, of conj(A(i,c)) x(i)
//   at last             y(j+c) := y(j+c) + alpha sum(c)
// Of a Hermitian diagonal the real part is read.
#include "blas/level2/matvec.h"
#include "blas/level2/triangle.h"
#include "lapack/parts.h"
#include "zor/signatures/lapack.h"

namespace zor {
namespace {

// Tuned: rows whose part of the columns stays in the first-level cache between the two uses.
inline constexpr zor_int block_rows = 256;

template <class T>
void scale(zor_int n, T beta, T* y) {
  if (is_one(beta)) return;
  for_vectors<T>(
      0, n, [&]<int Bytes>(zor_int i) __attribute__((always_inline)) {
        using V = vec<real_t<T>, Bytes>;
        store_units(y + i, is_zero(beta) ? V{} : make_factor<V>(beta) * load_units<V>(y + i));
      });
}

// y := y + s A(r, c) within the group, whose stored triangle begins at a.
template <bool Upper, class T>
[[gnu::always_inline]] inline void add_within(T s, const T* a, zor_int lda, int r, int c, T* y) {
  const bool stored = Upper ? r <= c : r >= c;
  const T e = conj_by_sign_if(!stored, load_element(stored ? a + r + c * lda : a + c + r * lda));
  if constexpr (is_complex<T>) {
    if (r == c) return store_value(y, mul_add(broadcast<element<T>>(e.re), load_value(&s), load_value(y)));
  }
  add_term(s, &e, y);
}

template <bool Upper, int Columns, class T>
void add_group(zor_int n, zor_int j, T alpha, const T* a, zor_int lda, const T* x, T* y) {
  using E = element<T>;
  T s[Columns];
#pragma GCC unroll 4
  for (int c = 0; c < Columns; ++c) s[c] = mul_adding(alpha, load_parts(x + j + c));
  const T* columns = a + j * lda;
  for (int r = 0; r < Columns; ++r)
    for (int c = 0; c < Columns; ++c) add_within<Upper>(s[c], columns + j, lda, r, c, y + j + r);

  E sum[Columns] = {};
  const zor_int end = Upper ? j : n;
  for (zor_int i = Upper ? 0 : j + Columns; i < end; i += block_rows) {
    const zor_int rows = end - i < block_rows ? end - i : block_rows;
    add_columns<Columns>(rows, s, columns + i, lda, y + i);
    for (zor_int r = i; r < i + rows; ++r) {
      const factor<T, E> f = make_factor<E, is_complex<T>>(load_parts(x + r));
#pragma GCC unroll 4
      for (int c = 0; c < Columns; ++c) sum[c] = mul_add(f, load_units<E>(columns + r + c * lda), sum[c]);
    }
  }
#pragma GCC unroll 4
  for (int c = 0; c < Columns; ++c)
    store_units(y + j + c, mul_add(make_factor<E>(alpha), sum[c], load_units<E>(y + j + c)));
}

template <bool Upper, class T>
void symv_nb(zor_int n, zor_int k, T alpha, const T* a, zor_int lda, const T* x, T beta, T* y) {
  if (n < 1 || k < 1) return;
  scale(n, beta, y);
  zor_int t = 0;
  for (; t + 4 <= k; t += 4) add_group<Upper, 4>(n, Upper ? n - 4 - t : t, alpha, a, lda, x, y);
  for (; t < k; ++t) add_group<Upper, 1>(n, Upper ? n - 1 - t : t, alpha, a, lda, x, y);
}

}  // namespace
}  // namespace zor

#define ROW_SYMV_NB(name, T)                                     \
  extern "C" SIG_SYMV_NB(name, T) {                              \
    (void)incx;                                                  \
    if (zor::is_upper(*uplo))                                    \
      zor::symv_nb<true>(*n, *k, *alpha, a, *lda, x, *beta, y);  \
    else                                                         \
      zor::symv_nb<false>(*n, *k, *alpha, a, *lda, x, *beta, y); \
  }
#include "zor/tables/lapack.inc"
