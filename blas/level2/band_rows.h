// SPDX-License-Identifier: MIT
// Sums of a narrow band in lanes.
#pragma once

#include "blas/level2/squares.h"

namespace zor {

// Asks for columns of a band before they are needed: a walk that takes a piece of each of many columns at a
// time is none that the hardware follows. Measured on Zen 4: products of 10^5 rows and 21 diagonals of
// doubles take 0.6 of the time, those of complex doubles 0.7 of what they take with the lines asked for in
// the first-level cache. Bands that fit the third-level cache would only lose by it.
template <class T>
class band_ahead {
 public:
  band_ahead(zor_int columns, zor_int rows, zor_int lda)
      : rows_(columns * rows * zor_int(sizeof(T)) < long_bytes ? 0 : rows),
        lda_(lda),
        distance_((bytes_ahead / zor_int(sizeof(T)) + rows - 1) / rows * lda) {}

  // The walk stands at `a`, the beginning of `count` columns.
  [[gnu::always_inline]] void touch_columns(const T* a, int count, bool upwards) const {
    constexpr zor_int line = 64 / sizeof(T);
    a += upwards ? distance_ : -distance_;
    if (rows_ == 0) return;
    for (int c = 0; c < count; ++c, a += lda_)
      for (zor_int row = 0; row < rows_; row += line) touch_second_level(a + row);
  }

 private:
  static constexpr zor_int bytes_ahead = 16384, long_bytes = zor_int(12) << 20;
  const zor_int rows_, lda_, distance_;
};

// Sums over the rows of neighbouring columns, a lane a column: row r of column l meets x[r + l], so that a
// row of the band's array meets a run of x. The result is sum + element r of column l times x[r + l] in lane
// l, r rising from 0 to count - 1, or falling. Columns are lda apart; count is at least the number of lanes.
// The last rows come from a square that reaches back over rows already added, of which it adds none.
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

// Sums over columns, a lane a row, of so many neighbouring rows: most columns of the band hold all of them,
// the first and the last ones some. Few rows leave many such columns.
template <class T>
inline constexpr int tile_rows = units<T, square_width> < 4 ? units<T, square_width> : 4;
template <class T>
using tile_vector = vec<real_t<T>, tile_rows<T>* int(sizeof(T))>;

// sum + s a over `count` columns, of which the next begins a_step elements on and has the next factor s.
template <int SStep, class T, class V>
[[gnu::always_inline]] inline V add_tile_columns(V sum, const T* a, zor_int a_step, zor_int count,
                                                 const T* s) {
  for (; count > 0; --count, a += a_step, s += SStep)
    sum = mul_add(make_factor<V>(load_element(s)), load_units<V>(a), sum);
  return sum;
}

// The sums of neighbouring rows of a band go on with `count` columns each, at least as many as there are
// rows; those of a row begin one column after those of the row before. `a` is where the first row meets its
// first column, s the factor of that column; the next column begins a_step elements on.
template <class T>
[[gnu::always_inline]] inline void add_tile(value<T> (&v)[tile_rows<T>], const T* a, zor_int a_step,
                                            zor_int count, const T* s) {
  constexpr int U = tile_rows<T>;
  const zor_int whole = count - (U - 1);
#pragma GCC unroll 8
  for (int q = 0; q < U - 1; ++q, a += a_step, ++s) {
#pragma GCC unroll 8
    for (int r = 0; r <= q; ++r) v[r] = plus_term(v[r], load_element(s), a + r);
  }
  split_values<T>(add_tile_columns<1>(join_values<tile_vector<T>>(v), a, a_step, whole, s), v);
  a += whole * a_step, s += whole;
#pragma GCC unroll 8
  for (int q = 1; q < U; ++q, a += a_step, ++s) {
#pragma GCC unroll 8
    for (int r = q; r < U; ++r) v[r] = plus_term(v[r], load_element(s), a + r);
  }
}

}  // namespace zor
