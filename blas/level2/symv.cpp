// SPDX-License-Identifier: MIT
// y := alpha A x + beta y with one triangle of a symmetric or Hermitian A, full, banded or packed. Orders of
// sums, the same at every width: beta first; then by columns of the stored triangle in order, with
// s = alpha x[j] rounded once:
//   y[i] := y[i] + s A(i,j) for the rows i beside the diagonal;
//   sum of A(i,j) x[i] (A conjugated for Hermitian A) from 0 over these rows in order;
//   y[j] := (y[j] + s A(j,j)) + alpha sum, with the real part of a Hermitian A(j,j).
//
// A panel of columns is read once for both sums: squares of it go to y as they stand and, transposed in
// registers, to the running sums of the columns, which are lanes. A narrow band goes row by row.
#include "blas/level2/band_rows.h"
#include "blas/level2/triangle.h"
#include "zor/signatures/blas.h"

namespace zor {
namespace {

// Rows first to end - 1 of one column: y grows by s times them, and the sum of the column goes on. x and y
// may have any stride.
template <bool Hermitian, class T>
[[gnu::always_inline]] inline value<T> add_rows(value<T> sum, const T* column, T s, zor_int first,
                                                zor_int end, const T* x, zor_int incx, T* y, zor_int incy) {
  for (zor_int i = first; i < end; ++i) {
    add_term(s, column + i, y + i * incy);
    sum = plus_term<Hermitian>(sum, load_element(x + i * incx), column + i);
  }
  return sum;
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

// The squares of groups First to Last - 1 of U columns in rows row to row + U - 1: element (row, j) is
// column[j][row], its factor f[j]; the sums of a group are the lanes of a vector.
template <bool Hermitian, int First, int Last, class T, class V>
[[gnu::always_inline]] inline void add_squares(const T* const* column, const factor<T, V>* f, zor_int row,
                                               const T* x, T* y, V* sum) {
  constexpr int U = units<T, int(sizeof(V))>;
  V yi = load_units<V>(y + row);
#pragma GCC unroll 8
  for (int g = First; g < Last; ++g) {
    V square[U];
    load_square<T>(
        square, [&](int l) __attribute__((always_inline)) { return column[g * U + l] + row; });
#pragma GCC unroll 16
    for (int l = 0; l < U; ++l) {
      yi = mul_add(f[g * U + l], square[l], yi);
      if constexpr (sizeof(V) >= 16) asm("" : "+v"(yi));
    }
    make_terms<Hermitian, T>(square, load_units<V>(x + row));
#pragma GCC unroll 16
    for (int i = 0; i < U; ++i) sum[g] = plus_terms<Hermitian>(sum[g], square[i], load_element(x + row + i));
  }
  store_units(y + row, yi);
}

// The triangle on the diagonal of U columns, of which the first is `first`, in registers. A lower triangle
// begins the sums of its columns, an upper one ends them.
template <bool Hermitian, bool Upper, int U, class T>
void add_triangle(const T* const* columns, zor_int first, const T* s, T alpha, const T* x, T* y, T* sums) {
  value<T> yv[U], sum[U];
  T xv[U], sv[U];
#pragma GCC unroll 16
  for (int l = 0; l < U; ++l) {
    yv[l] = load_value(y + first + l);
    sum[l] = Upper ? load_value(sums + l) : value<T>{};
    xv[l] = load_element(x + first + l);
    sv[l] = load_element(s + l);
  }
#pragma GCC unroll 16
  for (int l = 0; l < U; ++l) {
    const T* const column = columns[l] + first;
    if (!Upper) yv[l] = plus_diagonal<Hermitian>(yv[l], sv[l], column + l);
#pragma GCC unroll 16
    for (int i = Upper ? 0 : l + 1; i < (Upper ? l : U); ++i) {
      const value<T> a = load_value(column + i);
      yv[i] = plus_term(yv[i], sv[l], a);
      sum[l] = plus_term<Hermitian>(sum[l], xv[i], a);
    }
    if (Upper) yv[l] = plus_term(plus_diagonal<Hermitian>(yv[l], sv[l], column + l), alpha, sum[l]);
  }
#pragma GCC unroll 16
  for (int l = 0; l < U; ++l) {
    store_value(y + first + l, yv[l]);
    if (!Upper) store_value(sums + l, sum[l]);
  }
}

// The columns first to first + Columns - 1 with unit strides, in groups whose sums are the lanes of a vector:
// several groups keep several chains of additions under way. Between the triangle on the diagonal and the
// rows that not all columns have lie whole squares. The triangle consists of one for each group and of the
// squares between them.
template <bool Hermitian, int Columns, class T>
void add_panel(const stored_triangle<const T>& a, zor_int first, T alpha, const T* x, T* y) {
  using V = vec<real_t<T>, square_bytes<T, Columns>>;
  constexpr int U = units<T, int(sizeof(V))>, groups = Columns / U;
  constexpr auto each_group = std::make_integer_sequence<int, groups>{};
  const T *column[Columns], *columns[Columns];
  T s[Columns], sums[Columns];
  factor<T, V> f[Columns];
  V sum[groups] = {};
  for (int g = 0; g < groups; ++g)
    store_units(s + g * U, make_factor<V>(alpha) * load_units<V>(x + first + g * U));
  const T* next = a.column(first);
#pragma GCC unroll 16
  for (int l = 0; l < Columns; ++l) {
    column[l] = columns[l] = next;
    next += a.column_step(first + l);
    f[l] = make_factor<V>(s[l]);
  }
  const auto rows_apart = [&](int l, zor_int from, zor_int to) {
    store_value(sums + l, add_rows<Hermitian>(load_value(sums + l), columns[l], s[l], from, to, x, 1, y, 1));
  };
  if (a.upper) {
    const zor_int squares = (first - a.first_row(first + Columns - 1)) / U, top = first - squares * U;
    if (a.first_row(first) < top) {
      for (int l = 0; l < Columns; ++l) {
        sums[l] = T{};
        rows_apart(l, a.first_row(first + l), top);
      }
      for (int g = 0; g < groups; ++g) sum[g] = load_units<V>(sums + g * U);
    }
    for (zor_int row = top; row < first; row += U)
      add_squares<Hermitian, 0, groups>(column, f, row, x, y, sum);
    const auto finish_group = [&]<int G>(std::integral_constant<int, G>) {
      for (int h = 0; h < G; ++h) add_squares<Hermitian, G, G + 1>(column, f, first + h * U, x, y, sum);
      store_units(sums + G * U, sum[G]);
      add_triangle<Hermitian, true, U>(columns + G * U, first + G * U, s + G * U, alpha, x, y, sums + G * U);
    };
    [&]<int... G>(std::integer_sequence<int, G...>) { (finish_group(std::integral_constant<int, G>{}), ...); }
    (each_group);
  } else {
    const zor_int begin = first + Columns, squares = (a.end_row(first) - begin) / U,
                  end = begin + squares * U;
    const auto begin_group = [&]<int G>(std::integral_constant<int, G>) {
      add_triangle<Hermitian, false, U>(columns + G * U, first + G * U, s + G * U, alpha, x, y, sums + G * U);
      sum[G] = load_units<V>(sums + G * U);
      for (int h = G + 1; h < groups; ++h)
        add_squares<Hermitian, G, G + 1>(column, f, first + h * U, x, y, sum);
    };
    [&]<int... G>(std::integer_sequence<int, G...>) { (begin_group(std::integral_constant<int, G>{}), ...); }
    (each_group);
    for (zor_int row = begin; row < end; row += U)
      add_squares<Hermitian, 0, groups>(column, f, row, x, y, sum);
    for (int g = 0; g < groups; ++g) store_units(sums + g * U, sum[g]);
    if (a.end_row(first + Columns - 1) > end)
      for (int l = 0; l < Columns; ++l) rows_apart(l, end, a.end_row(first + l));
    for (int l = 0; l < Columns; ++l) add_term(alpha, sums + l, y + first + l);
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

// Column by column, for strided vectors and the narrowest bands.
template <bool Hermitian, class T>
void add_single_columns(const stored_triangle<const T>& a, T alpha, const T* x, zor_int incx, T* y,
                        zor_int incy) {
  const T* column = a.data;
  for (zor_int j = 0; j < a.n; column += a.column_step(j), ++j) {
    const T s = mul_adding(alpha, load_element(x + j * incx));
    const value<T> sum = add_rows<Hermitian>(value<T>{}, column, s, a.upper ? a.first_row(j) : j + 1,
                                             a.upper ? j : a.end_row(j), x, incx, y, incy);
    T* const yj = y + j * incy;
    store_value(yj, plus_term(plus_diagonal<Hermitian>(load_value(yj), s, column + j), alpha, sum));
  }
}

// Diagonals beside the main one below which a band is narrow, and rows that share the products alpha x[j].
constexpr zor_int narrow_reach = 24, rows_of_run = 256;

// One row of a narrow band: all that y[i] becomes. s is the factor of column 0.
template <bool Hermitian, class T>
void add_band_row(const stored_triangle<const T>& a, zor_int i, const T* s, T alpha, const T* x, T* y) {
  const zor_int left = i < a.reach ? i : a.reach, right = a.n - 1 - i < a.reach ? a.n - 1 - i : a.reach;
  const T* const column = a.column(i);
  value<T> v = load_value(y + i), sum{};
  const auto own = [&] { v = plus_term(plus_diagonal<Hermitian>(v, s[i], column + i), alpha, sum); };
  if (a.upper) {
    for (zor_int r = i - left; r < i; ++r) sum = plus_term<Hermitian>(sum, load_element(x + r), column + r);
    own();
    for (zor_int j = i + 1; j <= i + right; ++j) v = plus_term(v, s[j], a.column(j) + i);
  } else {
    for (zor_int j = i - left; j < i; ++j) v = plus_term(v, s[j], a.column(j) + i);
    for (zor_int r = i + 1; r <= i + right; ++r)
      sum = plus_term<Hermitian>(sum, load_element(x + r), column + r);
    own();
  }
  store_value(y + i, v);
}

// Neighbouring rows of a narrow band that holds them and the columns of the same numbers whole.
template <bool Hermitian, class T>
void add_band_tile(const stored_triangle<const T>& a, zor_int i, const T* s, T alpha, const T* x, T* y) {
  constexpr int U = tile_rows<T>;
  using V = tile_vector<T>;
  const zor_int k = a.reach, lda = a.step + 1;
  const T* const diagonal = a.column(i) + i;
  value<T> v[U], sum[U];
  split_values<T>(add_band_rows<Hermitian, true>(V{}, a.upper ? diagonal - k : diagonal + 1, lda, k,
                                                 a.upper ? x + i - k : x + i + 1),
                  sum);
#pragma GCC unroll 8
  for (int r = 0; r < U; ++r) v[r] = load_value(y + i + r);
  if (!a.upper) add_tile<T>(v, a.column(i - k) + i, a.step, k, s + i - k);
#pragma GCC unroll 8
  for (int r = 0; r < U; ++r)
    v[r] = plus_term(plus_diagonal<Hermitian>(v[r], s[i + r], diagonal + r * lda), alpha, sum[r]);
  if (a.upper) add_tile<T>(v, a.column(i + 1) + i, a.step, k, s + i + 1);
#pragma GCC unroll 8
  for (int r = 0; r < U; ++r) store_value(y + i + r, v[r]);
}

// Row by row with unit strides: column by column each would wait for the stores of the one before.
template <bool Hermitian, class T>
void add_narrow_band(const stored_triangle<const T>& a, T alpha, const T* x, T* y) {
  constexpr int U = tile_rows<T>;
  const zor_int n = a.n, k = a.reach;
  const band_ahead<T> ahead(n, k + 1, a.step + 1);
  const T* const array = a.data - (a.upper ? k : 0);
  T factors[rows_of_run + narrow_reach];
  for (zor_int run = 0; run < n; run += rows_of_run) {
    const zor_int end = n - run < rows_of_run ? n : run + rows_of_run;
    const zor_int begin = a.upper || run < k ? run - (a.upper ? 0 : run) : run - k;
    const zor_int columns_end = !a.upper ? end : n - end < k ? n : end + k;
    for (zor_int j = begin; j < columns_end; ++j) factors[j - begin] = mul_adding(alpha, load_element(x + j));
    const T* const s = factors - begin;
    for (zor_int i = run; i < end;) {
      if (i + U <= end && i >= k && i + U + k <= n) {
        ahead.touch_columns(array + i * (a.step + 1), U, true);
        add_band_tile<Hermitian>(a, i, s, alpha, x, y);
        i += U;
      } else {
        add_band_row<Hermitian>(a, i++, s, alpha, x, y);
      }
    }
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
  constexpr int columns = sizeof(T) == 16 ? 4 : sizeof(T) == 4 && width == 64 ? 16 : 8;
  const bool narrow = a.reach < narrow_reach && a.reach < a.n - 1;
  if (incx != 1 || incy != 1 || (narrow && a.reach < tile_rows<T>))
    add_single_columns<Hermitian>(a, alpha, x, incx, y, incy);
  else if (narrow)
    add_narrow_band<Hermitian>(a, alpha, x, y);
  else
    add_panels<Hermitian, columns>(a, 0, a.n, alpha, x, y);
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
