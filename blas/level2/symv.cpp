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
#include "blas/level2/squares.h"
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
  value<T> sum = load_value(panel.sum + l);
  const T* const column = panel.column[l];
  for (zor_int i = first; i < end; ++i) {
    add_term(panel.s[l], column + i, y + i * incy);
    sum = plus_term<Hermitian>(sum, load_element(x + i * incx), column + i);
  }
  store_value(panel.sum + l, sum);
}

// y[j] + s A(j,j), with the real part of a Hermitian A(j,j).
template <bool Hermitian, class T>
[[gnu::always_inline]] inline value<T> plus_diagonal(value<T> yj, T s, const T* diagonal) {
  if constexpr (Hermitian) {
    return mul_add(broadcast<value<T>>(load_element(diagonal).re), load_value(&s), yj);
  } else {
    return plus_term(yj, s, diagonal);
  }
}

// The rectangle of rows first to end - 1, whole squares, and all columns of the panel.
template <bool Hermitian, int Columns, class T>
void add_rectangle(column_panel<Columns, T>& panel, zor_int first, zor_int end, const T* x, T* y) {
  using V = vec<real_t<T>, square_bytes<T, Columns>>;
  constexpr int U = units<T, sizeof(V)>, groups = Columns / U;
  factor<T, V> s[Columns];
#pragma GCC unroll 16
  for (int l = 0; l < Columns; ++l) s[l] = make_factor<V>(panel.s[l]);
  const column_panel<Columns, T> p = panel;
  V sum[groups];
  for (int g = 0; g < groups; ++g) sum[g] = load_units<V>(p.sum + g * U);
  for (zor_int row = first; row < end; row += U) {
    V yi = load_units<V>(y + row);
#pragma GCC unroll 8
    for (int g = 0; g < groups; ++g) {
      V square[U];
      load_square<T>(
          square, [&](int l) __attribute__((always_inline)) { return p.column[g * U + l] + row; });
#pragma GCC unroll 16
      for (int l = 0; l < U; ++l) yi = mul_add(s[g * U + l], square[l], yi);
      make_terms<Hermitian, T>(square, load_units<V>(x + row));
#pragma GCC unroll 16
      for (int i = 0; i < U; ++i)
        sum[g] = plus_terms<Hermitian>(sum[g], square[i], load_element(x + row + i));
    }
    store_units(y + row, yi);
  }
  for (int g = 0; g < groups; ++g) store_units(panel.sum + g * U, sum[g]);
}

// The triangle on the diagonal in registers: rows first + i of columns first + l. A lower triangle begins the
// sums of its columns, an upper one ends them.
template <bool Hermitian, bool Upper, int Columns, class T>
void add_triangle(column_panel<Columns, T>& panel, T alpha, const T* x, T* y) {
  const column_panel<Columns, T> p = panel;
  const zor_int first = p.first;
  value<T> yv[Columns], sum[Columns];
  T xv[Columns];
#pragma GCC unroll 16
  for (int l = 0; l < Columns; ++l) {
    yv[l] = load_value(y + first + l);
    sum[l] = load_value(p.sum + l);
    xv[l] = load_element(x + first + l);
  }
#pragma GCC unroll 16
  for (int l = 0; l < Columns; ++l) {
    const T* const column = p.column[l] + first;
    if (!Upper) yv[l] = plus_diagonal<Hermitian>(yv[l], p.s[l], column + l);
#pragma GCC unroll 16
    for (int i = Upper ? 0 : l + 1; i < (Upper ? l : Columns); ++i) {
      const value<T> a = load_value(column + i);
      yv[i] = plus_term(yv[i], p.s[l], a);
      sum[l] = plus_term<Hermitian>(sum[l], xv[i], a);
    }
    if (Upper) yv[l] = plus_term(plus_diagonal<Hermitian>(yv[l], p.s[l], column + l), alpha, sum[l]);
  }
#pragma GCC unroll 16
  for (int l = 0; l < Columns; ++l) {
    store_value(y + first + l, yv[l]);
    if (!Upper) store_value(panel.sum + l, sum[l]);
  }
}

// The columns first to first + Columns - 1 with unit strides. Between the triangle on the diagonal and the
// rows that not all columns have lie whole squares.
template <bool Hermitian, int Columns, class T>
void add_panel(const stored_triangle<const T>& a, zor_int first, T alpha, const T* x, T* y) {
  constexpr int U = units<T, square_bytes<T, Columns>>;
  const zor_int one = 1;
  column_panel<Columns, T> panel;
  panel.first = first;
  for (int l = 0; l < Columns; ++l) {
    panel.column[l] = a.column(first + l);
    panel.s[l] = mul_adding(alpha, load_element(x + first + l));
    panel.sum[l] = T{};
  }
  if (a.upper) {
    const zor_int squares = (first - a.first_row(first + Columns - 1)) / U, top = first - squares * U;
    for (int l = 0; l < Columns; ++l)
      add_rows<Hermitian>(panel, l, a.first_row(first + l), top, x, one, y, one);
    if (squares > 0) add_rectangle<Hermitian>(panel, top, first, x, y);
    add_triangle<Hermitian, true>(panel, alpha, x, y);
  } else {
    const zor_int begin = first + Columns, squares = (a.end_row(first) - begin) / U,
                  end = begin + squares * U;
    add_triangle<Hermitian, false>(panel, alpha, x, y);
    if (squares > 0) add_rectangle<Hermitian>(panel, begin, end, x, y);
    for (int l = 0; l < Columns; ++l) {
      add_rows<Hermitian>(panel, l, end, a.end_row(first + l), x, one, y, one);
      add_term(alpha, panel.sum + l, y + first + l);
    }
  }
}

// Columns first to end - 1 by panels, the rest by narrower ones. The rest stands at the end of an upper
// triangle and at the beginning of a lower one, so that a full triangle has whole squares beside every panel.
template <bool Hermitian, int Columns, class T>
void add_panels(const stored_triangle<const T>& a, zor_int first, zor_int end, T alpha, const T* x, T* y) {
  const zor_int rest = (end - first) % Columns, whole = end - first - rest;
  const zor_int begin = a.upper ? first : first + rest;
  const auto narrower = [&] {
    if constexpr (Columns > 1) {
      if (rest > 0)
        add_panels<Hermitian, fewer_columns<T, Columns>>(a, a.upper ? end - rest : first,
                                                         a.upper ? end : begin, alpha, x, y);
    }
  };
  if (!a.upper) narrower();
  for (zor_int j = begin; j < begin + whole; j += Columns) add_panel<Hermitian, Columns>(a, j, alpha, x, y);
  if (a.upper) narrower();
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
    T* const yj = y + j * incy;
    const value<T> own = plus_diagonal<Hermitian>(load_value(yj), panel.s[0], column + j);
    store_value(yj, plus_term(own, alpha, panel.sum));
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
  constexpr int columns = sizeof(T) == 16 ? 4 : 8;
  const bool narrow = a.reach < 2 * columns && a.reach < a.n - 1;
  if (incx == 1 && incy == 1 && !narrow)
    add_panels<Hermitian, columns>(a, 0, a.n, alpha, x, y);
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
