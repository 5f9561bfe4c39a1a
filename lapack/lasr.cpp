// SPDX-License-Identifier: MIT
// Sequences of plane rotations applied to the rows of A from the left. Columns are independent, and each has
// one chain of rotations: the element that the next rotation needs again is carried in a register. With a, b
// the elements of a rotation from before it, a := c a + s b and b := c b - s a, one rounding an operation.
//
// A column is a lane. Squares of U rows by U columns are transposed in registers, so that a vector holds one
// row of U columns, and several groups of U columns run side by side to hide the latency of the chain.
#include "serv/element.h"
#include "zor/signatures/lapack.h"

namespace zor {
namespace {

enum class pivot { variable, top, bottom };

// The rows of rotation r, as distances from r: the one that is not carried, before and after the rotation.
// With a variable pivot the carried element moves on by a row.
template <pivot P, bool Forward>
inline constexpr zor_int read_row = P == pivot::top || (P == pivot::variable && Forward) ? 1 : 0;
template <pivot P, bool Forward>
inline constexpr zor_int written_row = P == pivot::variable ? 1 - read_row<P, Forward> : read_row<P, Forward>;

// Rotates the carried x with y. Returns what stays in the row that the chain leaves.
template <pivot P, bool Forward, class V>
[[gnu::always_inline]] inline V rotate(V c, V s, V& x, V y) {
  constexpr bool x_is_a = P == pivot::top || (P == pivot::variable && Forward);
  const V a = x_is_a ? x : y, b = x_is_a ? y : x;
  const V new_a = c * a + s * b, new_b = c * b - s * a;
  constexpr bool carries_a = P == pivot::top || (P == pivot::variable && !Forward);
  x = carries_a ? new_a : new_b;
  return carries_a ? new_b : new_a;
}

// One row of U columns as a vector, and back.
template <class V, class T>
[[gnu::always_inline]] inline V load_row(const T* a, zor_int lda) {
  T row[sizeof(V) / sizeof(T)];
#pragma GCC unroll 16
  for (size_t k = 0; k < sizeof(V) / sizeof(T); ++k) row[k] = load_element(a + zor_int(k) * lda);
  return load_units<V>(row);
}
template <class V, class T>
[[gnu::always_inline]] inline void store_row(T* a, zor_int lda, V v) {
  T row[sizeof(V) / sizeof(T)];
  store_units(row, v);
#pragma GCC unroll 16
  for (size_t k = 0; k < sizeof(V) / sizeof(T); ++k) store_element(a + zor_int(k) * lda, row[k]);
}

// Vectors of squares that stay in registers beside the carried rows.
inline constexpr int square_vectors = width == 64 ? 16 : 8;
template <class T, int Bytes>
inline constexpr int side_by_side = units<T, Bytes> >= square_vectors      ? 1
                                    : square_vectors / units<T, Bytes> > 4 ? 4
                                                                           : square_vectors / units<T, Bytes>;

// All rotations on Groups * U columns.
template <pivot P, bool Forward, int Bytes, int Groups, class T>
void rotate_columns(zor_int m, const real_t<T>* c, const real_t<T>* s, T* a, zor_int lda) {
  using V = vec<real_t<T>, Bytes>;
  constexpr int U = units<T, Bytes>;
  constexpr zor_int read = read_row<P, Forward>, written = written_row<P, Forward>;
  constexpr bool from_last_row = P == pivot::bottom || (P == pivot::variable && !Forward);
  constexpr bool to_last_row = P == pivot::bottom || (P == pivot::variable && Forward);
  const zor_int rotations = m - 1;
  V x[Groups];
#pragma GCC unroll 4
  for (int g = 0; g < Groups; ++g) x[g] = load_row<V>(a + (from_last_row ? m - 1 : 0) + g * U * lda, lda);

  zor_int done = 0;
  if constexpr (U > 1) {
    for (; done + U <= rotations; done += U) {
      const zor_int first = Forward ? done : rotations - done - U;
      V square[Groups][U];
#pragma GCC unroll 4
      for (int g = 0; g < Groups; ++g) {
#pragma GCC unroll 16
        for (int k = 0; k < U; ++k) square[g][k] = load_units<V>(a + first + read + (g * U + k) * lda);
        transpose_units<parts<T>>(square[g]);
      }
#pragma GCC unroll 16
      for (int k = 0; k < U; ++k) {
        const int r = Forward ? k : U - 1 - k;
        const V vc = broadcast<V>(load_element(c + first + r)),
                vs = broadcast<V>(load_element(s + first + r));
#pragma GCC unroll 4
        for (int g = 0; g < Groups; ++g) square[g][r] = rotate<P, Forward>(vc, vs, x[g], square[g][r]);
      }
#pragma GCC unroll 4
      for (int g = 0; g < Groups; ++g) {
        transpose_units<parts<T>>(square[g]);
#pragma GCC unroll 16
        for (int k = 0; k < U; ++k) store_units(a + first + written + (g * U + k) * lda, square[g][k]);
      }
    }
  }
  for (; done < rotations; ++done) {
    const zor_int r = Forward ? done : rotations - 1 - done;
    const V vc = broadcast<V>(load_element(c + r)), vs = broadcast<V>(load_element(s + r));
#pragma GCC unroll 4
    for (int g = 0; g < Groups; ++g) {
      T* column = a + r + g * U * lda;
      const V y = load_row<V>(column + read, lda);
      store_row(column + written, lda, rotate<P, Forward>(vc, vs, x[g], y));
    }
  }
#pragma GCC unroll 4
  for (int g = 0; g < Groups; ++g) store_row(a + (to_last_row ? m - 1 : 0) + g * U * lda, lda, x[g]);
}

template <pivot P, bool Forward, class T>
void lasr(zor_int m, zor_int n, const real_t<T>* c, const real_t<T>* s, T* a, zor_int lda) {
  if (m < 2 || n < 1) return;
  constexpr int groups = side_by_side<T, width>, columns = groups * units<T, width>;
  zor_int j = 0;
  for (; j + columns <= n; j += columns) rotate_columns<P, Forward, width, groups>(m, c, s, a + j * lda, lda);
  for_vectors<T>(j, n, [&]<int Bytes>(zor_int column) {
    rotate_columns<P, Forward, Bytes, 1>(m, c, s, a + column * lda, lda);
  });
}

}  // namespace
}  // namespace zor

#define ROW_LASR(name, T, R, P, forward) \
  extern "C" SIG_LASR(name, T, R) { zor::lasr<zor::pivot::P, forward, T>(*m, *n, c, s, a, *lda); }
#include "zor/tables/lapack.inc"
