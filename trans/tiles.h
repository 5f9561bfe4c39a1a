// SPDX-License-Identifier: MIT
// Transposition by square tiles that fit the registers. Regions are cut into tiles of the widest vectors;
// what is left over at their right and lower edge is cut into tiles of half the width, down to single
// elements.
#pragma once

#include "trans/term.h"

namespace zor {

// The next narrower tile, in bytes of its vectors; a single element is the last.
template <class T, int Bytes>
inline constexpr int narrower = Bytes > 16 ? Bytes / 2 : int(sizeof(T));

// C(i, j) := straight(i, j) + the sum of crossed(j, i) over one tile at (i, j).
template <int Bytes, class T, class Straight, class... Crossed>
[[gnu::always_inline]] inline void transpose_tile(zor_int i, zor_int j, T* c, zor_int ldc,
                                                  const Straight& straight, const Crossed&... crossed) {
  using V = vec<real_t<T>, Bytes>;
  constexpr int U = units<T, Bytes>;
  V tile[U];
#pragma GCC unroll 16
  for (int k = 0; k < U; ++k) tile[k] = sum_at<V>(j + k, i, crossed...);
  transpose_units<parts<T>>(tile);
#pragma GCC unroll 16
  for (int k = 0; k < U; ++k) {
    if constexpr (!std::is_same_v<Straight, no_term>) tile[k] = straight.template at<V>(i + k, j) + tile[k];
    store_units(c + (i + k) * ldc + j, tile[k]);
  }
}

// Columns of C that are written before its next rows: their lines of the crossed matrices are read once, a
// line being asked for while the tiles of the line before it are moved. Measured: with fewer columns the rows
// of C and of the straight matrix come in pieces too short for the processor's prefetching, with more the
// lines that were asked for leave its tables of pages.
inline constexpr zor_int block_cols = 1024;
inline constexpr zor_int line_bytes = 64;
// A complex sum of more bytes goes through half as many rows of C and of the straight matrix at a time, and
// visits each line of the crossed ones twice: the processor's prefetching follows few rows. Measured.
inline constexpr zor_int far_bytes = 1 << 19, far_tile_bytes = 32;

template <int Bytes, class T, class Straight, class... Crossed>
void transpose_region(zor_int rows, zor_int cols, T* c, zor_int ldc, Straight straight, Crossed... crossed) {
  constexpr int U = units<T, Bytes>;
  constexpr bool half = is_complex<T> && !std::is_same_v<Straight, no_term> && Bytes <= far_tile_bytes;
  constexpr zor_int band = (half ? line_bytes / 2 : line_bytes) / zor_int(sizeof(T));
  const zor_int tiled_rows = rows / U * U, tiled_cols = cols / U * U;
  for (zor_int block = 0; block < tiled_cols; block += block_cols)
    for (zor_int first = 0; first < tiled_rows; first += band)
      for (zor_int j = block; j < tiled_cols && j < block + block_cols; j += U) {
#pragma GCC unroll 16
        for (int k = 0; k < U; ++k) (crossed.touch_at(j + k, first + band), ...);
        for (zor_int i = first; i < tiled_rows && i < first + band; i += U)
          transpose_tile<Bytes>(i, j, c, ldc, straight, crossed...);
      }
  if constexpr (U > 1) {
    constexpr int next = narrower<T, Bytes>;
    if (tiled_cols < cols)
      transpose_region<next>(tiled_rows, cols - tiled_cols, c + tiled_cols, ldc, straight.from(0, tiled_cols),
                             crossed.from(tiled_cols, 0)...);
    if (tiled_rows < rows)
      transpose_region<next>(rows - tiled_rows, cols, c + tiled_rows * ldc, ldc, straight.from(tiled_rows, 0),
                             crossed.from(0, tiled_rows)...);
  }
}

// C(i, j) := straight(i, j) + the sum of crossed(j, i); C is rows by cols, and may be the straight matrix.
template <class T, class Straight, class... Crossed>
void transpose_matrix(zor_int rows, zor_int cols, T* c, zor_int ldc, const Straight& straight,
                      const Crossed&... crossed) {
  if constexpr (is_complex<T> && !std::is_same_v<Straight, no_term> && width > far_tile_bytes)
    if (rows * cols * zor_int(sizeof(T)) > far_bytes)
      return transpose_region<far_tile_bytes>(rows, cols, c, ldc, straight, crossed...);
  transpose_region<width>(rows, cols, c, ldc, straight, crossed...);
}

}  // namespace zor
