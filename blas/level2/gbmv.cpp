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
  // The columns of row i, of n.
  zor_int first_column(zor_int i) const { return i > kl ? i - kl : 0; }
  zor_int end_column(zor_int i, zor_int n) const { return n - i > ku ? i + ku + 1 : n; }
};

// Rows from which those that a group of columns has in common are worked together, and the same for a smaller
// group of columns that are added to y.
constexpr zor_int many_rows = 32, some_rows = 12;
// Diagonals below which rows of A are lanes, and the rows that then share the products alpha x[j].
constexpr zor_int narrow_band = 48, rows_of_run = 256;

// y[i] := y[i] + s a[i] over rows of one column; y may have any stride.
template <class T>
void add_rows_of(const T* column, zor_int first, zor_int end, T s, T* y, zor_int incy) {
  if (incy == 1) return add_column(end - first, s, column + first, y + first);
  for (zor_int i = first; i < end; ++i) add_term(s, column + i, y + i * incy);
}

// Columns j to j + Count - 1, when they have `least` rows in common and y has a unit stride; says whether so.
template <int Count, class T>
bool add_group_of_columns(const band<T>& a, zor_int j, zor_int least, T alpha, const T* x, zor_int incx,
                          T* y) {
  const zor_int first = a.first_row(j + Count - 1), end = a.end_row(j);
  if (end - first < least) return false;
  T s[Count];
  for (int l = 0; l < Count; ++l) {
    s[l] = mul_adding(alpha, load_element(x + (j + l) * incx));
    add_rows_of(a.column(j + l), a.first_row(j + l), first, s[l], y, 1);
  }
  add_columns<Count>(end - first, s, a.column(j) + first, a.lda - 1, y + first);
  for (int l = 0; l < Count; ++l) add_rows_of(a.column(j + l), end, a.end_row(j + l), s[l], y, 1);
  return true;
}

// y[0], y[incy] ... of neighbouring rows, from which the band goes past neither end of a row. `a` is where
// the first column begins that any of them has, s the factor of that column.
template <class T>
void add_rows_together(const band<T>& b, const T* a, const T* s, T* y, zor_int incy) {
  constexpr int U = tile_rows<T>;
  value<T> v[U];
#pragma GCC unroll 8
  for (int r = 0; r < U; ++r) v[r] = load_value(y + r * incy);
  add_tile<T>(v, a, b.lda - 1, b.kl + b.ku + 1, s);
#pragma GCC unroll 8
  for (int r = 0; r < U; ++r) store_value(y + r * incy, v[r]);
}

// A narrow band: row by row, each with all its columns.
template <class T>
void add_narrow_rows(const band<T>& a, zor_int n, T alpha, const T* x, zor_int incx, T* y, zor_int incy) {
  constexpr int U = tile_rows<T>;
  const band_ahead<T> ahead(n, a.kl + a.ku + 1, a.lda);
  T s[rows_of_run + narrow_band];
  for (zor_int run = 0; run < a.m; run += rows_of_run) {
    const zor_int end = a.m - run < rows_of_run ? a.m : run + rows_of_run;
    const zor_int begin = a.first_column(run), columns = a.end_column(end - 1, n) - begin;
    for (zor_int j = 0; j < columns; ++j) s[j] = mul_adding(alpha, load_element(x + (begin + j) * incx));
    for (zor_int i = run; i < end;) {
      const zor_int j = a.first_column(i);
      if (i + U <= end && i >= a.kl && i + U + a.ku <= n) {
        ahead.touch_columns(a.data + (i + a.ku) * a.lda, U, true);
        add_rows_together(a, a.column(j) + i, s + (j - begin), y + i * incy, incy);
        i += U;
      } else {
        value<T> sum = load_value(y + i * incy);
        for (zor_int k = j; k < a.end_column(i, n); ++k) sum = plus_term(sum, s[k - begin], a.column(k) + i);
        store_value(y + i * incy, sum);
        ++i;
      }
    }
  }
}

template <class T>
void add_columns_of(const band<T>& a, zor_int n, T alpha, const T* x, zor_int incx, T* y, zor_int incy) {
  constexpr int group = is_complex<T> ? 4 : 8, small = group / 2;
  for (zor_int j = 0; j < n;) {
    if (incy == 1 && j + group <= n && add_group_of_columns<group>(a, j, many_rows, alpha, x, incx, y)) {
      j += group;
    } else if (incy == 1 && j + small <= n &&
               add_group_of_columns<small>(a, j, some_rows, alpha, x, incx, y)) {
      j += small;
    } else {
      add_rows_of(a.column(j), a.first_row(j), a.end_row(j), mul_adding(alpha, load_element(x + j * incx)), y,
                  incy);
      ++j;
    }
  }
}

// The sum goes on with rows first to end - 1 of one column.
template <bool Conj, class T>
value<T> plus_rows(value<T> sum, const T* column, zor_int first, zor_int end, const T* x, zor_int incx) {
  for (zor_int i = first; i < end; ++i) sum = plus_term<Conj>(sum, load_element(x + i * incx), column + i);
  return sum;
}

// Columns j to j + Groups U - 1, when they have many rows in common, with a unit stride of x; says whether
// they had.
template <int Groups, bool Conj, class T>
bool add_group_of_dots(const band<T>& a, zor_int j, T alpha, const T* x, T* y, zor_int incy) {
  using V = vec<real_t<T>, square_width>;
  constexpr int U = units<T, square_width>, count = Groups * U;
  const zor_int first = a.first_row(j + count - 1), end = a.end_row(j);
  if (end - first < many_rows) return false;
  T sums[count];
  for (int l = 0; l < count; ++l)
    store_value(sums + l, plus_rows<Conj>(value<T>{}, a.column(j + l), a.first_row(j + l), first, x, 1));
  V sum[Groups];
  for (int g = 0; g < Groups; ++g) sum[g] = load_units<V>(sums + g * U);
  add_rows<Conj>(sum, end - first, a.column(j) + first, a.lda - 1, x + first);
  for (int g = 0; g < Groups; ++g) store_units(sums + g * U, sum[g]);
  for (int l = 0; l < count; ++l) {
    store_value(sums + l,
                plus_rows<Conj>(load_value(sums + l), a.column(j + l), end, a.end_row(j + l), x, 1));
    add_term(alpha, sums + l, y + l * incy);
  }
  return true;
}

// Columns are lanes where they have many rows in common, and in a narrow band where it lies in the matrix as
// a whole.
template <bool Conj, class T>
void add_dots(const band<T>& a, zor_int n, T alpha, const T* x, zor_int incx, T* y, zor_int incy) {
  constexpr int U = units<T, square_width>, groups = groups_read<T, square_width>;
  using V = vec<real_t<T>, square_width>;
  const zor_int rows = a.kl + a.ku + 1, whole_end = incx == 1 && rows >= U ? a.m - a.kl : 0;
  const bool wide = incx == 1 && rows >= many_rows;
  const band_ahead<T> ahead(n, rows, a.lda);
  for (zor_int j = 0; j < n;) {
    T* const yj = y + j * incy;
    if (wide && j + groups * U <= n && add_group_of_dots<groups, Conj>(a, j, alpha, x, yj, incy)) {
      j += groups * U;
    } else if (wide && j + U <= n && add_group_of_dots<1, Conj>(a, j, alpha, x, yj, incy)) {
      j += U;
    } else if (j >= a.ku && j + U <= n && j + U <= whole_end) {
      const zor_int first = j - a.ku;
      ahead.touch_columns(a.data + j * a.lda, U, true);
      T sums[U];
      store_units(sums, add_band_rows<Conj, true>(V{}, a.column(j) + first, a.lda, rows, x + first));
      for (int l = 0; l < U; ++l) add_term(alpha, sums + l, yj + l * incy);
      j += U;
    } else {
      T total;
      store_value(&total, plus_rows<Conj>(value<T>{}, a.column(j), a.first_row(j), a.end_row(j), x, incx));
      add_term(alpha, &total, yj);
      ++j;
    }
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
  const zor_int diagonals = kl + ku + 1;
  if (!transposed && diagonals >= tile_rows<T> && diagonals < narrow_band && n - ku <= m)
    add_narrow_rows(stored, n, alpha, x, incx, y, incy);
  else if (!transposed)
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
