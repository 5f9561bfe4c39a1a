// SPDX-License-Identifier: MIT
// Running sums of columns, a lane a column, from squares of the matrix that are transposed in registers.
#pragma once

#include "blas/level2/matvec.h"

namespace zor {

// The factor x of many products x v, or with Conj x conj(v), of vectors of elements.
template <class T, bool Conj, class V>
[[gnu::always_inline]] inline factor<T, V> factor_of(V x) {
  if constexpr (is_complex<T>) {
    const V re = dup_even(x), im = dup_odd(x);
    return {Conj ? negate_pairs<1>(re) : re, Conj ? im : negate_pairs<0>(im)};
  } else {
    return {x, V{}};
  }
}

// A square whose rows join sums: the terms of row i, element (i, l) times x[i] in lane l. Where a product is
// rounded before it joins, all are formed before the transposition, which saves spreading x[i] over lanes:
// measured on Zen 4, transposed products gain 20 %. Otherwise the rows are transposed, and joined with x[i].
template <class T>
inline constexpr bool products_first = is_complex<T> || !ZOR_FUSED;
template <bool Conj, class T, class V, int U>
[[gnu::always_inline]] inline void make_terms(V (&square)[U], V x) {
  if constexpr (products_first<T>) {
    const factor<T, V> f = factor_of<T, Conj>(x);
#pragma GCC unroll 16
    for (int l = 0; l < U; ++l) {
      if constexpr (is_complex<T>)
        square[l] = mul_add(square[l], f.straight, swap_pairs(square[l]) * f.crossed);
      else
        square[l] = square[l] * f.straight;
    }
  }
  transpose_square<T>(square);
}
// sum + term, x being the element that goes with the row.
template <bool Conj, class T, class V>
[[gnu::always_inline]] inline V plus_terms(V sum, V terms, T x) {
  if constexpr (products_first<T>)
    return sum + terms;
  else
    return mul_add(make_factor<V, Conj>(x), terms, sum);
}

// sum + element (i, l) times x[i] in lane l, i rising over the rows of a square whose column l begins at
// at(l). Without All the first `skip` rows are not added.
template <bool Conj, bool All, class T, class V, class At>
[[gnu::always_inline]] inline void add_square(V& sum, const At& at, const T* x, int skip = 0) {
  constexpr int U = units<T, sizeof(V)>;
  V square[U];
  load_square<T>(square, at);
  make_terms<Conj, T>(square, load_units<V>(x));
#pragma GCC unroll 16
  for (int i = 0; i < U; ++i)
    if (All || i >= skip) sum = plus_terms<Conj>(sum, square[i], load_element(x + i));
}

// The same over m rows, as many as a square has at least, of Groups vectors of columns. The last rows come
// from squares that reach back over rows already added.
template <bool Conj, int Groups, class T, class V>
[[gnu::always_inline]] inline void add_rows(V (&sum)[Groups], zor_int m, const T* a, zor_int lda,
                                            const T* x) {
  constexpr int U = units<T, sizeof(V)>;
  // One address a group, and the columns at multiples of lda from it: an address for each column would not
  // stay in a register.
  const T* group[Groups];
#pragma GCC unroll 8
  for (int g = 0; g < Groups; ++g) group[g] = a + g * U * lda;
  zor_int row = 0;
  for (; row + U <= m; row += U) {
#pragma GCC unroll 8
    for (int g = 0; g < Groups; ++g) {
      asm("" : "+r"(group[g]));
      const auto at = [&](int l) __attribute__((always_inline)) { return group[g] + l * lda; };
      add_square<Conj, true>(sum[g], at, x + row);
      group[g] += U;
    }
  }
  if (row == m) return;
  for (int g = 0; g < Groups; ++g)
    add_square<Conj, false>(
        sum[g], [&](int l) { return a + (g * U + l) * lda + (m - U); }, x + (m - U), int(U - (m - row)));
}

// Vectors of columns that are read side by side at most. Measured on Zen 4: of 32 columns the hardware
// fetches fewer ahead, and single products of order 4000 take twice the time.
template <class T, int Bytes>
inline constexpr int groups_read = 16 / units<T, Bytes> < 4 ? 16 / units<T, Bytes> : 4;

}  // namespace zor
