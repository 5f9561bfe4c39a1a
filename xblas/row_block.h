// SPDX-License-Identifier: MIT
// Panels: a block of neighbouring rows of op(A), column after column, in the real type of the sum. A column
// of complex elements is one of real parts and one of imaginary parts. A block has as many rows as Vectors
// vectors have lanes; the lanes past its last row repeat that row.
#pragma once

#include "serv/element.h"

namespace zor {

// Tuned: columns of a panel, which stays in the first-level cache between the vectors that meet it.
inline constexpr zor_int panel_cols = 64;

template <class R, int Vectors>
inline constexpr int block_rows = Vectors* lanes_of<R>;

// Reals as they stand in memory, or widened.
template <class V, class R>
[[gnu::always_inline]] inline V load_as(const R* p) {
  if constexpr (std::is_same_v<lane_t<V>, R>)
    return load<V>(p);
  else
    return load_widened<V>(p);
}

// Element by element; element(i, k) is that of row i and column k.
template <int Vectors, class R, class Element>
void pack_elements(zor_int rows, zor_int count, R* panel, const Element& element) {
  constexpr int B = block_rows<R, Vectors>;
  for (zor_int k = 0; k < count; ++k)
    for (int i = 0; i < B; ++i) {
      const auto e = element(i < rows ? i : rows - 1, k);
      constexpr int P = parts<std::remove_const_t<decltype(e)>>;
      for (int p = 0; p < P; ++p) panel[(k * P + p) * B + i] = R(reals(&e)[p]);
    }
}

// Element (i, k) stands at a + i + k ld; a whole block.
template <int Vectors, class R, class T>
void pack_columns(zor_int count, const T* a, zor_int ld, R* panel) {
  using V = vec<R>;
  constexpr int L = lanes<V>, B = block_rows<R, Vectors>, P = parts<T>;
  for (zor_int k = 0; k < count; ++k) {
    const real_t<T>* column = reals(a + k * ld);
    R* to = panel + k * P * B;
#pragma GCC unroll 4
    for (int s = 0; s < Vectors; ++s) {
      if constexpr (P == 1) {
        store(to + s * L, load_as<V>(column + s * L));
      } else {
        const V low = load_as<V>(column + 2 * s * L), high = load_as<V>(column + (2 * s + 1) * L);
        store(to + s * L, unzip<0>(low, high));
        store(to + B + s * L, unzip<1>(low, high));
      }
    }
  }
}

// Element (i, k) stands at a + k + i ld and is conjugated with Conj; a whole block. Complex rows are real
// ones of twice the length.
template <int Vectors, bool Conj, class R, class T>
void pack_lines(zor_int count, const T* a, zor_int ld, R* panel) {
  using V = vec<R>;
  constexpr int L = lanes<V>, B = block_rows<R, Vectors>, P = parts<T>;
  const zor_int whole = count * P / L * L;
  for (zor_int r = 0; r < whole; r += L)
    for (int s = 0; s < Vectors; ++s) {
      V square[L];
#pragma GCC unroll 16
      for (int i = 0; i < L; ++i) square[i] = load_as<V>(reals(a + (s * L + i) * ld) + r);
      transpose_units<1>(square);
#pragma GCC unroll 16
      for (int q = 0; q < L; ++q)
        store(panel + (r + q) * B + s * L, Conj && q % 2 == 1 ? -square[q] : square[q]);
    }
  const zor_int done = whole / P;
  if (done < count)
    pack_elements<Vectors>(B, count - done, panel + done * P * B, [=](zor_int i, zor_int k) {
      const T e = load_element(a + done + k + i * ld);
      return Conj ? conj_by_sign(e) : e;
    });
}

// The same for any number of rows.
template <int Vectors, class R, class T>
void pack_block_of_columns(zor_int rows, zor_int count, const T* a, zor_int ld, R* panel) {
  if (rows == block_rows<R, Vectors>) return pack_columns<Vectors>(count, a, ld, panel);
  pack_elements<Vectors>(rows, count, panel,
                         [=](zor_int i, zor_int k) { return load_element(a + i + k * ld); });
}
template <int Vectors, class R, class T>
void pack_block_of_lines(bool conj, zor_int rows, zor_int count, const T* a, zor_int ld, R* panel) {
  if (rows < block_rows<R, Vectors>)
    return pack_elements<Vectors>(rows, count, panel, [=](zor_int i, zor_int k) {
      return conj_by_sign_if(conj, load_element(a + k + i * ld));
    });
  if constexpr (is_complex<T>)
    if (conj) return pack_lines<Vectors, true>(count, a, ld, panel);
  pack_lines<Vectors, false>(count, a, ld, panel);
}

}  // namespace zor
