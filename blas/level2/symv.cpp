// SPDX-License-Identifier: MIT
// y := alpha A x + beta y with one triangle of a symmetric or Hermitian A, full, banded or packed. Orders of
// sums, the same at every width: beta first; then by columns of the stored triangle in order, with
// s = alpha x[j] rounded once:
//   y[i] := y[i] + s A(i,j) for the rows i beside the diagonal;
//   sum of A(i,j) x[i] (A conjugated for Hermitian A) from 0 over these rows in order;
//   y[j] := (y[j] + s A(j,j)) + alpha sum, with the real part of a Hermitian A(j,j).
//
// A panel of columns is read once for both sums: squares of it go to y as they stand and, transposed in
// registers, to the running sums of the columns, which are lanes.
#include "blas/level2/matvec.h"
#include "blas/level2/triangle.h"
#include "zor/signatures/blas.h"

namespace zor {
namespace {

// Columns that are worked together, their sums beside each other.
template <int Count, class T>
struct column_panel {
  const T* column[Count];  // element (i, j) of column `first` + l is column[l][i]
  zor_int first;
  T s[Count], sum[Count];
};

// Rows first to end - 1 of column l of the panel; x and y may have any stride.
template <bool Hermitian, int Count, class T>
[[gnu::always_inline]] inline void add_rows(column_panel<Count, T>& panel, int l, zor_int first, zor_int end,
                                            const T* x, zor_int incx, T* y, zor_int incy) {
  element<T> sum = load_units<element<T>>(panel.sum + l);
  const T* const column = panel.column[l];
  for (zor_int i = first; i < end; ++i) {
    add_term(panel.s[l], column + i, y + i * incy);
    sum = plus_term<Hermitian>(sum, load_element(x + i * incx), column + i);
  }
  store_units(panel.sum + l, sum);
}

template <bool Hermitian, int Count, class T>
[[gnu::always_inline]] inline void add_diagonal(const column_panel<Count, T>& panel, int l, T* y,
                                                zor_int incy) {
  const zor_int j = panel.first + l;
  const T* const diagonal = panel.column[l] + j;
  T* const yj = y + j * incy;
  if constexpr (Hermitian)
    store_element(yj, add(load_element(yj), scaled(load_element(diagonal).re, panel.s[l])));
  else
    add_term(panel.s[l], diagonal, yj);
}

// The rectangle of rows first to end - 1, a whole number of squares, and all columns of the panel.
template <bool Hermitian, int Bytes, class T>
void add_rectangle(column_panel<units<T, Bytes>, T>& panel, zor_int first, zor_int end, const T* x, T* y) {
  using V = vec<real_t<T>, Bytes>;
  constexpr int U = units<T, Bytes>;
  factor<T, V> s[U];
#pragma GCC unroll 16
  for (int l = 0; l < U; ++l) s[l] = make_factor<V>(panel.s[l]);
  V sum = load_units<V>(panel.sum);
  for (zor_int row = first; row < end; row += U) {
    V square[U];
    V yi = load_units<V>(y + row);
#pragma GCC unroll 16
    for (int l = 0; l < U; ++l) {
      square[l] = load_units<V>(panel.column[l] + row);
      yi = yi + s[l] * square[l];
    }
    store_units(y + row, yi);
    transpose_units<int(sizeof(T) / sizeof(real_t<T>))>(square);
#pragma GCC unroll 16
    for (int i = 0; i < U; ++i) sum = sum + make_factor<V, Hermitian>(load_element(x + row + i)) * square[i];
  }
  store_units(panel.sum, sum);
}

// The columns first to first + units - 1 with unit strides. Between the triangle on the diagonal and the rows
// that not all columns have lie whole squares.
template <bool Hermitian, int Bytes, class T>
void add_panel(const stored_triangle<const T>& a, zor_int first, T alpha, const T* x, T* y) {
  constexpr int U = units<T, Bytes>;
  const zor_int one = 1;
  column_panel<U, T> panel;
  panel.first = first;
  for (int l = 0; l < U; ++l) {
    panel.column[l] = a.column(first + l);
    panel.s[l] = mul_adding(alpha, load_element(x + first + l));
    panel.sum[l] = T{};
  }
  if (a.upper) {
    const zor_int squares = (first - a.first_row(first + U - 1)) / U, top = first - squares * U;
    for (int l = 0; l < U; ++l) add_rows<Hermitian>(panel, l, a.first_row(first + l), top, x, one, y, one);
    if (squares > 0) add_rectangle<Hermitian, Bytes>(panel, top, first, x, y);
    for (int l = 0; l < U; ++l) {
      add_rows<Hermitian>(panel, l, first, first + l, x, one, y, one);
      add_diagonal<Hermitian>(panel, l, y, one);
      add_term(alpha, panel.sum + l, y + first + l);
    }
  } else {
    const zor_int begin = first + U, squares = (a.end_row(first) - begin) / U, end = begin + squares * U;
    for (int l = 0; l < U; ++l) {
      add_diagonal<Hermitian>(panel, l, y, one);
      add_rows<Hermitian>(panel, l, first + l + 1, begin, x, one, y, one);
    }
    if (squares > 0) add_rectangle<Hermitian, Bytes>(panel, begin, end, x, y);
    for (int l = 0; l < U; ++l) {
      add_rows<Hermitian>(panel, l, end, a.end_row(first + l), x, one, y, one);
      add_term(alpha, panel.sum + l, y + first + l);
    }
  }
}

// Columns first to end - 1 by panels of Bytes, the rest by narrower ones. The rest stands at the end of an
// upper triangle and at the beginning of a lower one, so that a full triangle has whole squares beside every
// panel.
template <bool Hermitian, int Bytes, class T>
void add_panels(const stored_triangle<const T>& a, zor_int first, zor_int end, T alpha, const T* x, T* y) {
  constexpr int U = units<T, Bytes>;
  const zor_int rest = (end - first) % U;
  if constexpr (U > 1) {
    constexpr int next = Bytes > 16 ? Bytes / 2 : int(sizeof(T));
    if (rest > 0 && !a.upper) add_panels<Hermitian, next>(a, first, first + rest, alpha, x, y);
  }
  const zor_int begin = a.upper ? first : first + rest;
  for (zor_int j = begin; j + U <= begin + (end - first - rest); j += U)
    add_panel<Hermitian, Bytes>(a, j, alpha, x, y);
  if constexpr (U > 1) {
    constexpr int next = Bytes > 16 ? Bytes / 2 : int(sizeof(T));
    if (rest > 0 && a.upper) add_panels<Hermitian, next>(a, end - rest, end, alpha, x, y);
  }
}

// Column by column, for strided vectors and narrow bands.
template <bool Hermitian, class T>
void add_single_columns(const stored_triangle<const T>& a, T alpha, const T* x, zor_int incx, T* y,
                        zor_int incy) {
  const T* column = a.data;
  for (zor_int j = 0; j < a.n; column += a.column_step(j), ++j) {
    column_panel<1, T> panel{{column}, j, {mul_adding(alpha, load_element(x + j * incx))}, {T{}}};
    add_rows<Hermitian>(panel, 0, a.upper ? a.first_row(j) : j + 1, a.upper ? j : a.end_row(j), x, incx, y,
                        incy);
    add_diagonal<Hermitian>(panel, 0, y, incy);
    add_term(alpha, panel.sum, y + j * incy);
  }
}

template <bool Hermitian, class T>
void multiply(const stored_triangle<const T> a, T alpha, const T* x, zor_int incx, T beta, T* y,
              zor_int incy) {
  if (a.n <= 0 || (is_zero(alpha) && is_one(beta))) return;
  x = walk_start(x, a.n, incx);
  y = walk_start(y, a.n, incy);
  scale(a.n, beta, y, incy);
  if (is_zero(alpha)) return;
  const bool narrow = a.reach < 2 * units<T> && a.reach < a.n - 1;
  if (incx == 1 && incy == 1 && !narrow)
    add_panels<Hermitian, width>(a, 0, a.n, alpha, x, y);
  else
    add_single_columns<Hermitian>(a, alpha, x, incx, y, incy);
}

}  // namespace
}  // namespace zor

#define ROW_XSYMV(name, T, hermitian)                                                                    \
  extern "C" SIG_XSYMV(name, T) {                                                                        \
    zor::multiply<hermitian, T>(zor::full_triangle(zor::is_upper(*uplo), *n, a, *lda), *alpha, x, *incx, \
                                *beta, y, *incy);                                                        \
  }
#define ROW_XSBMV(name, T, hermitian)                                                                   \
  extern "C" SIG_XSBMV(name, T) {                                                                       \
    zor::multiply<hermitian, T>(zor::banded_triangle(zor::is_upper(*uplo), *n, *k, a, *lda), *alpha, x, \
                                *incx, *beta, y, *incy);                                                \
  }
#define ROW_XSPMV(name, T, hermitian)                                                                        \
  extern "C" SIG_XSPMV(name, T) {                                                                            \
    zor::multiply<hermitian, T>(zor::packed_triangle(zor::is_upper(*uplo), *n, ap), *alpha, x, *incx, *beta, \
                                y, *incy);                                                                   \
  }
#include "zor/tables/blas_level2.inc"
