// SPDX-License-Identifier: MIT
// y := alpha op(A) x + beta y. Orders of sums, the same at every width:
//   beta first: y := beta y (0 writes zeros, 1 does nothing);
//   op(A) = A: y := y + (alpha x[j]) A(:,j), columns in order, alpha x[j] rounded once;
//   otherwise: one running sum from 0 over the rows in order, y[j] := y[j] + alpha sum. With an increment
//   other than 1 the inputs are staged in pieces of 1000, and every piece adds its own alpha sum to y[j];
//   operands that are not aligned to their real type are not staged and have one sum.
// A product of complex values is formed from its four real products before it is added.
#include "blas/level2/squares.h"
#include "blas/thresholds.h"
#include "zor/signatures/blas.h"

namespace zor {
namespace {

using thresholds::staged_long;
using thresholds::staged_short;

// Rows up to which y stays in registers over all columns, so many vectors at a time; the strips of a
// triangular solve have 32. Measured on Zen 4: single and double solves of order 500 gain 10 %, products of
// 64 rows 60 % in single.
constexpr int few_vectors = 8;
template <class T>
constexpr zor_int rows_in_registers = few_vectors* units<T, width>;
template <class T>
constexpr zor_int few_rows = rows_in_registers<T> > 32 ? rows_in_registers<T> : 32;
// Bytes that their columns span from which these are asked for ahead, and how many columns ahead. Measured on
// Zen 4: solves of order 4000, which meet another page with each column, take 40 % of the time.
constexpr zor_int far_columns_bytes = zor_int(1) << 22, columns_ahead = 32;

// The m rows of y that Vectors vectors hold, and fewer do not, stay in registers over all columns. The last
// vector reaches back over rows of the one before, where both come to the same sums. Pieces of columns so
// short are no run that the hardware would fetch ahead: with Ahead they are asked for some columns before.
template <int Vectors, bool Ahead, class T>
void add_to_vectors(zor_int m, zor_int n, T alpha, const T* a, zor_int lda, const T* x, T* y) {
  using V = vec<real_t<T>>;
  constexpr int U = units<T, width>;
  const auto row = [=](int v) __attribute__((always_inline)) { return v < Vectors - 1 ? v * U : m - U; };
  V sum[Vectors];
#pragma GCC unroll 8
  for (int v = 0; v < Vectors; ++v) sum[v] = load_units<V>(y + row(v));
  for (zor_int j = 0; j < n; ++j, a += lda) {
    if constexpr (Ahead) {
#pragma GCC unroll 16
      for (int line = 0; line < Vectors * width; line += 64)
        touch_second_level(reinterpret_cast<const char*>(a + columns_ahead * lda) + line);
    }
    const factor<T, V> s = make_factor<V>(mul_adding(alpha, x[j]));
#pragma GCC unroll 8
    for (int v = 0; v < Vectors; ++v) sum[v] = mul_add(s, load_units<V>(a + row(v)), sum[v]);
  }
#pragma GCC unroll 8
  for (int v = 0; v < Vectors; ++v) store_units(y + row(v), sum[v]);
}
// All rows, or those before a rest that fills no vector; returns how many these are.
template <bool Ahead, class T>
zor_int add_to_few_rows(zor_int m, zor_int n, T alpha, const T* a, zor_int lda, const T* x, T* y) {
  constexpr int U = units<T, width>;
  constexpr zor_int most = few_vectors * U;
  zor_int i = 0;
  for (; i + U <= m; i += m - i < most ? m - i : most) {
    const zor_int rows = m - i < most ? m - i : most, vectors = (rows + U - 1) / U;
    [&]<int... Fewer>(std::integer_sequence<int, Fewer...>) {
      ((vectors == Fewer + 1 ? add_to_vectors<Fewer + 1, Ahead>(rows, n, alpha, a + i, lda, x, y + i)
                             : void()),
       ...);
    }
    (std::make_integer_sequence<int, few_vectors>{});
  }
  return i;
}

template <class T>
void gemv_n(zor_int m, zor_int n, T alpha, const T* a, zor_int lda, const T* x, T* y) {
  constexpr int group = is_complex<T> ? 4 : 8;
  if (m <= few_rows<T> && n > group) {
    const bool ahead = n > columns_ahead && n * lda >= far_columns_bytes / zor_int(sizeof(T));
    const zor_int done = ahead ? add_to_few_rows<true>(m, n, alpha, a, lda, x, y)
                               : add_to_few_rows<false>(m, n, alpha, a, lda, x, y);
    if (done == m) return;
    m -= done, a += done, y += done;
  }
  T s[group];
  for (zor_int j = 0; j < n;) {
    const zor_int left = n - j;
    const int columns = left >= group ? group : left >= 4 ? 4 : left >= 2 ? 2 : 1;
    for (int k = 0; k < columns; ++k) s[k] = mul_adding(alpha, x[j + k]);
    const T* aj = a + j * lda;
    switch (columns) {
      case 1:
        add_columns<1>(m, s, aj, lda, y);
        break;
      case 2:
        add_columns<2>(m, s, aj, lda, y);
        break;
      case 4:
        add_columns<4>(m, s, aj, lda, y);
        break;
      default:
        add_columns<group>(m, s, aj, lda, y);
    }
    j += columns;
  }
}

// Sums of Groups * U columns side by side, of which the first `columns` are wanted: past the last one the
// groups repeat it. The last rows come from squares that reach back over rows already summed, and only their
// new rows are used.
template <int Bytes, int Groups, bool Whole, bool Conj, class T>
void dot_columns(zor_int m, int columns, T alpha, const T* a, zor_int lda, const T* x, T* y) {
  using V = vec<real_t<T>, Bytes>;
  constexpr int U = units<T, Bytes>;
  V sum[Groups] = {};
  if constexpr (Whole) {
    add_rows<Conj>(sum, m, a, lda, x);
  } else {
    const auto add_squares = [&]<bool All>(std::bool_constant<All>, zor_int row, int skip) {
      for (int g = 0; g < Groups; ++g) {
        const auto at = [=](int l) __attribute__((always_inline)) {
          const int j = g * U + l;
          return a + (j < columns ? j : columns - 1) * lda + row;
        };
        add_square<Conj, All>(sum[g], at, x + row, skip);
      }
    };
    zor_int row = 0;
    for (; row + U <= m; row += U) add_squares(std::true_type{}, row, 0);
    if (row < m) add_squares(std::false_type{}, m - U, int(U - (m - row)));
  }
  if constexpr (Whole) {
    for (int g = 0; g < Groups; ++g)
      store_units(y + g * U, mul_add(make_factor<V>(alpha), sum[g], load_units<V>(y + g * U)));
  } else {
    T sums[Groups * U];
    for (int g = 0; g < Groups; ++g) store_units(sums + g * U, sum[g]);
    for (int j = 0; j < columns; ++j) add_term(alpha, sums + j, y + j);
  }
}

// All columns with vectors of Bytes, or narrower ones when there are fewer rows or columns than fill them.
template <int Bytes, bool Conj, class T>
void gemv_t(zor_int m, zor_int n, T alpha, const T* a, zor_int lda, const T* x, T* y) {
  constexpr int U = units<T, Bytes>, groups = groups_read<T, Bytes>;
  if constexpr (U > 1) {
    constexpr int next = Bytes > 16 ? Bytes / 2 : int(sizeof(T));
    if (m < U || 2 * n <= U) return gemv_t<next, Conj>(m, n, alpha, a, lda, x, y);
  }
  zor_int j = 0;
  for (; j + groups * U <= n; j += groups * U)
    dot_columns<Bytes, groups, true, Conj>(m, groups * U, alpha, a + j * lda, lda, x, y + j);
  for (; j < n; j += 2 * U) {
    const int columns = int(n - j < 2 * U ? n - j : 2 * U);
    if (columns > U)
      dot_columns<Bytes, 2, false, Conj>(m, columns, alpha, a + j * lda, lda, x, y + j);
    else
      dot_columns<Bytes, 1, false, Conj>(m, columns, alpha, a + j * lda, lda, x, y + j);
  }
}

template <class T>
void gemv_n_staged(zor_int m, zor_int n, T alpha, const T* a, zor_int lda, const T* x, zor_int incx, T* y,
                   zor_int incy) {
  T xs[staged_short], ys[staged_long];
  for (zor_int i = 0; i < m; i += staged_long) {
    const zor_int rows = m - i < staged_long ? m - i : staged_long;
    gather(rows, y + i * incy, incy, ys);
    for (zor_int j = 0; j < n; j += staged_short) {
      const zor_int columns = n - j < staged_short ? n - j : staged_short;
      gather(columns, x + j * incx, incx, xs);
      gemv_n(rows, columns, alpha, a + i + j * lda, lda, xs, ys);
    }
    scatter(rows, ys, y + i * incy, incy);
  }
}

template <bool Conj, class T>
void gemv_t_staged(zor_int m, zor_int n, T alpha, const T* a, zor_int lda, const T* x, zor_int incx, T* y,
                   zor_int incy) {
  T xs[staged_long], ys[staged_short];
  for (zor_int j = 0; j < n; j += staged_short) {
    const zor_int columns = n - j < staged_short ? n - j : staged_short;
    gather(columns, y + j * incy, incy, ys);
    for (zor_int i = 0; i < m; i += staged_long) {
      const zor_int rows = m - i < staged_long ? m - i : staged_long;
      gather(rows, x + i * incx, incx, xs);
      gemv_t<square_width, Conj>(rows, columns, alpha, a + i + j * lda, lda, xs, ys);
    }
    scatter(columns, ys, y + j * incy, incy);
  }
}

template <bool Conj, class T>
void gemv_t_plain(zor_int m, zor_int n, T alpha, const T* a, zor_int lda, const T* x, zor_int incx, T* y,
                  zor_int incy) {
  using E = element<T>;
  for (zor_int j = 0; j < n; ++j) {
    E sum{};
    for (zor_int i = 0; i < m; ++i)
      sum = mul_add(make_factor<E, Conj>(load_element(x + i * incx)), load_units<E>(a + i + j * lda), sum);
    store_units(y + j * incy, mul_add(make_factor<E>(alpha), sum, load_units<E>(y + j * incy)));
  }
}

template <bool Conj, class T>
void gemv_transposed(zor_int m, zor_int n, T alpha, const T* a, zor_int lda, const T* x, zor_int incx, T* y,
                     zor_int incy) {
  if (!on_real_boundary(a) || !on_real_boundary(x) || !on_real_boundary(y))
    gemv_t_plain<Conj>(m, n, alpha, a, lda, x, incx, y, incy);
  else if (incx == 1 && incy == 1)
    gemv_t<square_width, Conj>(m, n, alpha, a, lda, x, y);
  else
    gemv_t_staged<Conj>(m, n, alpha, a, lda, x, incx, y, incy);
}

template <class T>
void gemv(char trans, zor_int m, zor_int n, T alpha, const T* a, zor_int lda, const T* x, zor_int incx,
          T beta, T* y, zor_int incy) {
  if (m <= 0 || n <= 0 || (is_zero(alpha) && is_one(beta))) return;
  const bool transposed = trans != 'N' && trans != 'n';
  const zor_int inputs = transposed ? m : n, outputs = transposed ? n : m;
  x = walk_start(x, inputs, incx);
  y = walk_start(y, outputs, incy);
  scale(outputs, beta, y, incy);
  if (is_zero(alpha)) return;
  if (!transposed) {
    if (incx == 1 && incy == 1 && on_real_boundary(x))
      gemv_n(m, n, alpha, a, lda, x, y);
    else
      gemv_n_staged(m, n, alpha, a, lda, x, incx, y, incy);
  } else if (is_complex<T> && (trans == 'C' || trans == 'c')) {
    gemv_transposed<is_complex<T>>(m, n, alpha, a, lda, x, incx, y, incy);
  } else {
    gemv_transposed<false>(m, n, alpha, a, lda, x, incx, y, incy);
  }
}

}  // namespace
}  // namespace zor

#define ROW_XGEMV(name, T) \
  extern "C" SIG_GEMV(name, T) { zor::gemv(*trans, *m, *n, *alpha, a, *lda, x, *incx, *beta, y, *incy); }
#include "zor/tables/blas_matvec.inc"
