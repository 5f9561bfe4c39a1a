// SPDX-License-Identifier: MIT
// y := alpha op(A) x + beta y with a band matrix, in the orders of gemv: beta first; op(A) = A by columns in
// order, y := y + (alpha x[j]) A(:,j), alpha x[j] rounded once; otherwise one running sum from 0 over the
// rows of a column in order, y[j] := y[j] + alpha sum. Only elements of the band are read.
#include "blas/level2/band_rows.h"
#include "zor/signatures/blas.h"

namespace zor {
namespace {

// Element (i, j) is column(j)[i] for rows first_row(j) to end_row(j) - 1, which may be none.
template <class T>
struct band {
  const T* data;
  zor_int m, kl, ku, lda;

  const T* column(zor_int j) const { return data + ku + j * (lda - 1); }
  zor_int first_row(zor_int j) const { return j > ku ? j - ku : 0; }
  zor_int end_row(zor_int j) const { return m - j > kl ? j + kl + 1 : m; }
};

template <class T>
void add_columns_of(const band<T>& a, zor_int n, T alpha, const T* x, zor_int incx, T* y, zor_int incy) {
  for (zor_int j = 0; j < n; ++j) {
    const T s = mul_adding(alpha, load_element(x + j * incx));
    const T* const column = a.column(j);
    const zor_int first = a.first_row(j), end = a.end_row(j);
    if (incy == 1) {
      add_column(end - first, s, column + first, y + first);
    } else {
      for (zor_int i = first; i < end; ++i) add_term(s, column + i, y + i * incy);
    }
  }
}

template <bool Conj, class T>
void add_dot(const band<T>& a, zor_int j, T alpha, const T* x, zor_int incx, T* yj) {
  const T* const column = a.column(j);
  const zor_int end = a.end_row(j);
  value<T> sum{};
  for (zor_int i = a.first_row(j); i < end; ++i)
    sum = plus_term<Conj>(sum, load_element(x + i * incx), column + i);
  T total;
  store_value(&total, sum);
  add_term(alpha, &total, yj);
}

// The columns whose band lies in the matrix as a whole are taken as lanes.
template <bool Conj, class T>
void add_dots(const band<T>& a, zor_int n, T alpha, const T* x, zor_int incx, T* y, zor_int incy) {
  constexpr int U = units<T, square_width>;
  using V = vec<real_t<T>, square_width>;
  const zor_int rows = a.kl + a.ku + 1, whole_end = incx == 1 && rows >= U ? a.m - a.kl : 0;
  for (zor_int j = 0; j < n;) {
    if (j < a.ku || j + U > n || j + U > whole_end) {
      add_dot<Conj>(a, j, alpha, x, incx, y + j * incy);
      ++j;
      continue;
    }
    const zor_int first = j - a.ku;
    T sums[U];
    store_units(sums, add_band_rows<Conj, true>(V{}, a.column(j) + first, a.lda, rows, x + first));
    for (int l = 0; l < U; ++l) add_term(alpha, sums + l, y + (j + l) * incy);
    j += U;
  }
}

template <class T>
void multiply(char trans, zor_int m, zor_int n, zor_int kl, zor_int ku, T alpha, const T* a, zor_int lda,
              const T* x, zor_int incx, T beta, T* y, zor_int incy) {
  if (m <= 0 || n <= 0 || (is_zero(alpha) && is_one(beta))) return;
  const bool transposed = trans != 'N' && trans != 'n';
  const zor_int inputs = transposed ? m : n, outputs = transposed ? n : m;
  x = walk_start(x, inputs, incx);
  y = walk_start(y, outputs, incy);
  scale(outputs, beta, y, incy);
  if (is_zero(alpha)) return;
  const band<T> stored{a, m, kl, ku, lda};
  if (!transposed)
    add_columns_of(stored, n, alpha, x, incx, y, incy);
  else if (is_complex<T> && (trans == 'C' || trans == 'c'))
    add_dots<is_complex<T>>(stored, n, alpha, x, incx, y, incy);
  else
    add_dots<false>(stored, n, alpha, x, incx, y, incy);
}

}  // namespace
}  // namespace zor

#define ROW_XGBMV(name, T)                                                               \
  extern "C" SIG_XGBMV(name, T) {                                                        \
    zor::multiply(*trans, *m, *n, *kl, *ku, *alpha, a, *lda, x, *incx, *beta, y, *incy); \
  }
#include "zor/tables/blas_level2.inc"
