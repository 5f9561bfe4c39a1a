// SPDX-License-Identifier: MIT
// AB := alpha op(AB) in its own place. Column-major matrices are row-major ones with rows and columns
// exchanged.
//
// With one leading dimension a transposition exchanges elements (i, j) and (j, i), by pairs of tiles, and
// moves the part that sticks out of the leading square to its mirror place, where no element of the matrix
// stands. With two leading dimensions it follows the cycles of the permutation, which needs no memory either.
#include "trans/letters.h"
#include "trans/tiles.h"
#include "zor/signatures/trans.h"

namespace zor {
namespace {

template <int Bytes, bool Conj, class T>
using tile = vec<real_t<T>, Bytes>[units<T, Bytes>];

// A tile of a, scaled and transposed.
template <int Bytes, bool Conj, class T>
[[gnu::always_inline]] inline void load_transposed(tile<Bytes, Conj, T>& t, T alpha, const T* a, zor_int ld) {
  using V = vec<real_t<T>, Bytes>;
#pragma GCC unroll 16
  for (int k = 0; k < units<T, Bytes>; ++k) t[k] = scaled_units<Conj>(alpha, load_units<V>(a + k * ld));
  transpose_units<parts<T>>(t);
}
template <int Bytes, bool Conj, class T>
[[gnu::always_inline]] inline void store_tile(const tile<Bytes, Conj, T>& t, T* a, zor_int ld) {
#pragma GCC unroll 16
  for (int k = 0; k < units<T, Bytes>; ++k) store_units(a + k * ld, t[k]);
}

// x(i, j) and y(j, i) exchanged; x is rows by cols, the two do not overlap.
template <int Bytes, bool Conj, class T>
void exchange(zor_int rows, zor_int cols, T alpha, T* x, T* y, zor_int ld) {
  constexpr int U = units<T, Bytes>;
  const zor_int tiled_rows = rows / U * U, tiled_cols = cols / U * U;
  for (zor_int i = 0; i < tiled_rows; i += U)
    for (zor_int j = 0; j < tiled_cols; j += U) {
      tile<Bytes, Conj, T> from_x, from_y;
      load_transposed<Bytes, Conj>(from_x, alpha, x + i * ld + j, ld);
      load_transposed<Bytes, Conj>(from_y, alpha, y + j * ld + i, ld);
      store_tile<Bytes, Conj>(from_y, x + i * ld + j, ld);
      store_tile<Bytes, Conj>(from_x, y + j * ld + i, ld);
    }
  if constexpr (U > 1) {
    constexpr int next = narrower<T, Bytes>;
    if (tiled_cols < cols)
      exchange<next, Conj>(tiled_rows, cols - tiled_cols, alpha, x + tiled_cols, y + tiled_cols * ld, ld);
    if (tiled_rows < rows)
      exchange<next, Conj>(rows - tiled_rows, cols, alpha, x + tiled_rows * ld, y + tiled_rows, ld);
  }
}

// A square of n by n on the diagonal.
template <int Bytes, bool Conj, class T>
void exchange_square(zor_int n, T alpha, T* a, zor_int ld) {
  constexpr int U = units<T, Bytes>;
  const zor_int tiled = n / U * U;
  for (zor_int i = 0; i < tiled; i += U) {
    exchange<Bytes, Conj>(U, i, alpha, a + i * ld, a + i, ld);
    tile<Bytes, Conj, T> diagonal;
    load_transposed<Bytes, Conj>(diagonal, alpha, a + i * ld + i, ld);
    store_tile<Bytes, Conj>(diagonal, a + i * ld + i, ld);
  }
  if constexpr (U > 1) {
    if (tiled < n) {
      exchange<narrower<T, Bytes>, Conj>(n - tiled, tiled, alpha, a + tiled * ld, a + tiled, ld);
      exchange_square<narrower<T, Bytes>, Conj>(n - tiled, alpha, a + tiled * (ld + 1), ld);
    }
  }
}

template <bool Conj, class T>
void transpose_in_place(zor_int rows, zor_int cols, T alpha, T* a, zor_int ld) {
  const zor_int n = rows < cols ? rows : cols;
  exchange_square<width, Conj>(n, alpha, a, ld);
  if (rows > n) transpose_matrix(n, rows - n, a + n, ld, no_term{}, term<T, Conj>{alpha, a + n * ld, ld});
  if (cols > n) transpose_matrix(cols - n, n, a + n * ld, ld, no_term{}, term<T, Conj>{alpha, a + n, ld});
}

// Quotient and remainder by lda. Where all positions have 32 bits the quotient is the upper half of a product
// with 2^64 / lda rounded up: it is too large by less than 2^-32, and so never reaches the next integer.
struct reciprocal {
  uint64_t lda, inverse;
  explicit reciprocal(zor_int d) : lda(uint64_t(d)), inverse(~uint64_t(0) / uint64_t(d) + 1) {}
  [[gnu::always_inline]] zor_int quotient(zor_int p) const {
    return zor_int((unsigned __int128)(uint64_t(p)) * inverse >> 64);
  }
};
struct division {
  zor_int lda;
  [[gnu::always_inline]] zor_int quotient(zor_int p) const { return p / lda; }
};

// Element (i, j) goes from position i lda + j to j ldb + i. A cycle is walked from its smallest position that
// holds an element, which is found by walking each cycle from each of its elements until a smaller one turns
// up. Positions between the rows of the old matrix are passed but not read; what comes after them is not
// written.
template <bool Conj, class T, class Divide>
void follow_cycles(zor_int rows, zor_int cols, T alpha, T* a, zor_int lda, zor_int ldb, Divide by_lda) {
  struct place {
    zor_int i, j;
  };
  const auto place_of = [=](zor_int p) __attribute__((always_inline)) {
    const zor_int i = by_lda.quotient(p);
    return place{i, p - i * lda};
  };
  const auto next = [=](place at) __attribute__((always_inline)) { return at.i + at.j * ldb; };
  for (zor_int i = 0; i < rows; ++i)
    for (zor_int j = 0; j < cols; ++j) {
      const zor_int leader = i * lda + j;
      zor_int p = next({i, j});
      place at = place_of(p);
      while (p > leader || at.j >= cols) {
        p = next(at);
        at = place_of(p);
      }
      if (p != leader) continue;
      T held = load_element(a + leader);
      bool live = true;
      do {
        p = next(at);
        at = place_of(p);
        const bool valid = at.j < cols && at.i < rows;
        T old{};
        if (valid) old = load_element(a + p);
        if (live) store_element(a + p, scaled_element<Conj>(alpha, held));
        held = old;
        live = valid;
      } while (p != leader);
    }
}

template <bool Conj, class T>
void transpose(zor_int rows, zor_int cols, T alpha, T* a, zor_int lda, zor_int ldb) {
  if (rows <= 0 || cols <= 0) return;
  zor_int positions;
  if (lda == ldb)
    transpose_in_place<Conj>(rows, cols, alpha, a, lda);
  else if (lda > 1 && !__builtin_mul_overflow(lda, ldb, &positions) && positions <= INT64_C(1) << 32)
    follow_cycles<Conj>(rows, cols, alpha, a, lda, ldb, reciprocal(lda));
  else
    follow_cycles<Conj>(rows, cols, alpha, a, lda, ldb, division{lda});
}

// One row to a higher place, from its end, so that nothing is overwritten before it is read.
template <int Bytes, bool Conj, class T>
void move_up(zor_int cols, T alpha, const T* from, T* to) {
  constexpr int U = units<T, Bytes>;
  for (; cols >= U; cols -= U)
    store_units(to + cols - U, scaled_units<Conj>(alpha, load_units<vec<real_t<T>, Bytes>>(from + cols - U)));
  if constexpr (U > 1) {
    if (cols > 0) move_up<narrower<T, Bytes>, Conj>(cols, alpha, from, to);
  }
}

template <bool Conj, class T>
void scale(zor_int rows, zor_int cols, T alpha, T* a, zor_int lda, zor_int ldb) {
  if (lda >= ldb)
    sum_rows(rows, cols, a, ldb, term<T, Conj>{alpha, a, lda});
  else
    for (zor_int i = rows; i-- > 0;) move_up<width, Conj>(cols, alpha, a + i * lda, a + i * ldb);
}

template <class T>
void imatcopy(char ordering, char trans, zor_int rows, zor_int cols, T alpha, T* a, zor_int lda,
              zor_int ldb) {
  const operation op = operation_of(trans);
  const bool square = rows == cols && rows == lda && rows == ldb;
  if (!op.known || !(square || is_ordering(ordering))) return;
  if (is_column_major(ordering)) std::swap(rows, cols);
  for_conj<T>(op.conj, [&]<bool Conj>() {
    op.transposed ? transpose<Conj>(rows, cols, alpha, a, lda, ldb)
                  : scale<Conj>(rows, cols, alpha, a, lda, ldb);
  });
}

}  // namespace
}  // namespace zor

#define ROW_IMATCOPY(name, T) \
  extern "C" SIG_IMATCOPY(name, T) { zor::imatcopy(ordering, trans, rows, cols, alpha, ab, lda, ldb); }
#include "zor/tables/trans.inc"
