// SPDX-License-Identifier: MIT
// Sums over the rows of neighbouring columns of a band, a lane a column: row r of column l meets x[r + l], so
// that a row of the band's array meets a run of x.
#pragma once

#include "blas/level2/squares.h"

namespace zor {

// sum + element r of column l times x[r + l] in lane l, r rising from 0 to count - 1, or falling. Columns are
// lda apart; count is at least the number of lanes. The last rows come from a square that reaches back over
// rows already added, of which it adds none.
template <bool Conj, bool Up, class T, class V>
[[gnu::always_inline]] inline V add_band_rows(V sum, const T* a, zor_int lda, zor_int count, const T* x) {
  constexpr int U = int(sizeof(V) / sizeof(T));
  const auto add_square = [&]<bool Whole>(std::bool_constant<Whole>, zor_int row, int skip)
      __attribute__((always_inline)) {
    V square[U];
    load_square<T>(
        square, [&](int l) __attribute__((always_inline)) { return a + row + l * lda; });
    transpose_square<T>(square);
#pragma GCC unroll 8
    for (int k = 0; k < U; ++k) {
      const int i = Up ? k : U - 1 - k;
      if (Whole || k >= skip) sum = mul_add(factor_of<T, Conj>(load_units<V>(x + row + i)), square[i], sum);
    }
  };
  zor_int done = 0;
  for (; done + U <= count; done += U) add_square(std::true_type{}, Up ? done : count - U - done, 0);
  if (done < count) add_square(std::false_type{}, Up ? count - U : 0, int(U - (count - done)));
  return sum;
}

}  // namespace zor
