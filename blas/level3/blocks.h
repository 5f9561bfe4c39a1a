// SPDX-License-Identifier: MIT
// Blocks of the Level 3 routines beside the matrix product, for the kernels and for the core, whose pieces
// end where the kernels' own blocks do. All of it is contract: the blocks decide which products join an
// element in which order.
#pragma once

#include <cstdint>
#include <type_traits>

#include "serv/scalar.h"

namespace zor::level3 {

// Diagonal blocks of a triangle, and the right-hand sides that are taken at a time: from level to level down
// to the triangles that are treated directly.
struct level {
  zor_int order, free;
};
inline constexpr zor_int all_free = INT64_MAX;

// Solves from the right; from the left, the rows of a step, the pieces of a step that are solved directly,
// and the right-hand sides for an A that is not transposed.
template <class T>
inline constexpr level solve_right_blocks[] = {{256, 1024}, {128, 1024}, {64, 512}};
template <>
inline constexpr level solve_right_blocks<c64>[] = {{32, all_free}};
template <class T>
inline constexpr int solve_right_levels = sizeof solve_right_blocks<T> / sizeof(level);
inline constexpr zor_int solve_left_step = 64, solve_left_columns = 1024;
inline constexpr int solve_plain_piece = 16, solve_transposed_piece = 32;

// Products; from the left, the right-hand sides for an A that is not transposed.
inline constexpr level multiply_right_blocks[] = {{128, 1024}, {64, 128}, {32, 128}};
inline constexpr level multiply_left_blocks[] = {{512, 1024}, {128, all_free}, {32, all_free}};
inline constexpr int multiply_levels = 3;
inline constexpr zor_int multiply_left_columns = 2048;

// Symmetric and Hermitian products: the diagonal blocks of A, and the columns (A on the left) or rows of C
// that are taken at a time.
template <class T>
inline constexpr zor_int symmetric_order = is_complex<T>    ? 256
                                           : sizeof(T) == 4 ? 192
                                                            : 128;
inline constexpr zor_int hermitian_order = 128, symmetric_free = 5000;

// Rank updates: the diagonal blocks, within which elements are computed in a tile and beside which in a
// rectangle, and the largest of those tiles.
inline constexpr zor_int tile_order = 128;
template <class T>
constexpr zor_int diagonal_order(bool trans, bool both_short) {
  if (std::is_same_v<T, c64> && (trans || both_short)) return 32;
  return trans ? 64 : tile_order;
}

// The complex product by three real ones.
inline constexpr zor_int three_product_rows = 1000, three_product_columns = 1000, three_product_depth = 128;

// The product of a real and a complex matrix: of rows and depth, and the elements of a part of C or B that
// have a place in the scratch block. A step has so many columns that both parts stay within their places.
template <class R>
inline constexpr zor_int mixed_rows = sizeof(R) == 8 ? 500 : 1000;
inline constexpr zor_int mixed_columns = 5000, mixed_depth = 128, mixed_elements = 640000;
template <class R>
constexpr zor_int mixed_step(zor_int m) {
  const zor_int rows = m < mixed_rows<R> ? m : mixed_rows<R>;
  const zor_int fitting = mixed_elements / (rows > mixed_depth ? rows : mixed_depth);
  return fitting < mixed_columns ? fitting : mixed_columns;
}

}  // namespace zor::level3
