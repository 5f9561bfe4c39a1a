// SPDX-License-Identifier: MIT
// Every size at which a transform changes its way, and the sizes of blocks. Three kinds:
//   contract  part of the interface: statuses, flags, bytes of work or records depend on it
//   bits      chosen for speed or accuracy once; results depend on it, so it stays
//   measured  chosen for speed, on one thread of a Granite Rapids Xeon with 64-byte vectors; no result
//   depends on it
#pragma once

#include <cstdint>

#include "zor/types.h"

namespace zor::dft {

// ---- Descriptor and commit.

// Dimensions of a transform made by the front ends, and of a real one. Contract.
inline constexpr zor_int most_dimensions = 7, most_real_dimensions = 3;

// The public calls refuse data that spread over more than a process can address, and limits of more callers
// than a process has threads: each of those would cost memory from commit on. Contract.
inline constexpr zor_int most_bytes = zor_int(1) << 47;
inline constexpr zor_int most_user_threads = 65536;

// What a precision allows. Contract.
template <class R>
struct precision_limits;
template <>
struct precision_limits<double> {
  static constexpr zor_int longest = 33554431, longest_power_of_two = 134217727;  // a planned length
  static constexpr zor_int unit_padded_real =
      4096;  // longest padded real line that goes to its kernel at once
  static constexpr zor_int fixed_real_1d = 64, fixed_real_nd = 64;  // longest fixed real kernel, by rank
  static constexpr zor_int fixed_complex = 1024;                    // longest fixed complex kernel, any rank
};
template <>
struct precision_limits<float> {
  static constexpr zor_int longest = 67108863, longest_power_of_two = 268435455;
  static constexpr zor_int unit_padded_real = 8192;
  static constexpr zor_int fixed_real_1d = 64, fixed_real_nd = 32;
  static constexpr zor_int fixed_complex = 4;
};

// Longest line in double precision that takes a fixed complex kernel, by rank. One dimension of each rank has
// a limit of its own; `alone` holds when neither callers nor threads share the descriptor. Contract.
struct fixed_limit {
  zor_int special_dimension;
  struct {
    zor_int special, other;
  } alone, shared;
};
// In place or strided, and out of place without strides; for ranks 1, 2, and 3 and more.
inline constexpr fixed_limit fixed_in_place_or_strided[3] = {
    {0, {1024, 1024}, {128, 128}}, {0, {512, 256}, {64, 64}}, {1, {256, 512}, {64, 32}}};
inline constexpr fixed_limit fixed_out_of_place[3] = {
    {0, {1024, 1024}, {128, 128}}, {0, {256, 256}, {128, 128}}, {1, {64, 32}, {64, 32}}};

// Threads worth using: one for so many n log n bytes to start with, and more with the square root. Contract.
inline constexpr double bytes_of_a_thread = 313600.0;
// On some processors a small problem of rank 2 and up, of this many elements and more, wants a fixed number.
// Contract.
inline constexpr zor_int small_problem_least = 343;
struct small_problem_threads {
  int32_t processor_kind;
  zor_int below;
  double wanted;
};
inline constexpr small_problem_threads small_problems[] = {{3, 8192, 4.0}, {2, 32000, 2.0}};

// A plane of fewer elements goes to its routine with no driver around it. Contract.
inline constexpr zor_int direct_plane_below = 2048;
// A contiguous complex line above the longest planned length runs as two dimensions from 2^16 on. Contract.
inline constexpr zor_int two_dimensions_least_log2 = 16;
// Longest such line: up to here roots of unity are exact to half a unit. Its data take 16 TiB.
inline constexpr zor_int longest_by_two_dimensions = zor_int(1) << 40;

// A plan that takes the place of a commit: its longest length, the most bytes of work it may ask for, and the
// bytes on the stack that serve them. Contract.
inline constexpr zor_int small_plan_longest = 4096;
inline constexpr int32_t small_plan_work = 2048, small_plan_stack = 2080;

// Bytes of work that a kernel finds on its own stack: that of fixed lengths up to 128 complex doubles.
// Measured: no traffic with the pool.
inline constexpr int32_t kernel_stack_work = 2048;

// ---- Batches, tiles and threads.

// Lines that a tile of neighbours takes: eight from this many transforms or above this length, else four.
// Contract.
inline constexpr zor_int eight_lines_transforms = 16384, eight_lines_length = 32;
// Columns gathered and rows written together by a line that runs as two dimensions. Contract.
inline constexpr int lines_of_two_dimensions = 4;
// Rows and lines of scratch begin on a cache line; where they would lie a page (of the tile: a quarter of it)
// apart, they are moved on by a cache line so that they do not share cache sets. Contract for rows of two
// dimensions.
inline constexpr zor_int cache_line = 64, page = 4096, tile_page = 1024;
// Boundary of scratch and of slices of work. Contract.
inline constexpr zor_int work_boundary = 256;

// Threads take columns by tiles, and none at all below so many elements, where one costs more than it does.
// Measured.
inline constexpr zor_int columns_of_a_thread = 8;
inline constexpr zor_int least_elements_for_threads = 8192;

// ---- Selection of a method by length. Contract: the bytes of work follow.

inline constexpr int32_t straight_below = 17;  // one butterfly
inline constexpr int32_t direct_below = 91;  // lengths without usable factors: by definition, above by chirp
inline constexpr int32_t factors_searched_to = 90;
inline constexpr int32_t widest_last_factor_even = 150, widest_last_factor_odd = 90;
inline constexpr int32_t largest_small_factor = 13;  // larger ones are wide, and ask for work
inline constexpr int32_t unordered_above = 5000;     // unordered mixed-radix plans keep their own order
inline constexpr int32_t least_planned_power = 32;   // powers of two below are butterflies

// Lengths that a chirp transform pads to; powers of two above the last.
inline constexpr int16_t padded_lengths[] = {128,  144,  160,  192,  200,  256,  288,  320,  384,  400,  512,
                                             576,  640,  768,  800,  1024, 1152, 1280, 1536, 1600, 2048, 2304,
                                             2560, 3072, 3200, 4096, 4608, 5120, 6144, 6400, 8192};

// Work of powers of two: none up to order 5, one line up to order 14, tiles from 15 on, by the top and the
// tile bits of an order; from order 19 on at least 2^13 elements.
inline constexpr int32_t no_work_below_order = 6, tiled_from_order = 15;
struct tile_bits {
  int32_t up_to_order, top, tile;
};
inline constexpr tile_bits tiles_of_orders[] = {
    {15, 3, 8}, {18, 4, 10}, {20, 6, 13}, {21, 7, 14}, {30, 8, 14}};
inline constexpr int32_t least_tile_from_order = 19, least_tile_bits = 13;

// ---- Engine.

// Powers of two up to this order run as one chain of passes, above as a grid. Bits.
inline constexpr int32_t longest_chain_order = 14;
// Radices of a chain are tried in any order while there are fewer columns than this, and in falling order
// from there on. Bits.
inline constexpr int32_t many_columns = 64;
// Most columns of a tile of the grid. Bits: the grid's twiddles are split at its tiles.
inline constexpr int32_t widest_grid_tile = 16;
// A chirp's padded power of two is taken apart into blocks from here on: below, all of it is in the first
// cache anyway. Bits.
inline constexpr int32_t chirp_blocks_from = 4096;
inline constexpr int32_t chirp_blocks = 16;
// Longest padded length whose spectrum is computed in more precision than it is kept in: some 100 times the
// cost of a transform, for half of the error that the two transforms of a run have. Bits.
inline constexpr int32_t longest_wide_spectrum = 1 << 18;

// Pairs of a real spectrum are taken by aligned blocks from this many on: below, waiting for the neighbour
// costs more than the loads across cache lines. Measured.
inline constexpr int32_t pairs_by_blocks_from = 64;
// Longest line with a column form, whose tile is half a megabyte. Measured.
inline constexpr int32_t longest_column = 4096;
// Rows that lie pages apart and together pass this many bytes are fetched in order before their first pass.
// Measured.
inline constexpr int64_t rows_in_order_above = int64_t{4} << 20;

}  // namespace zor::dft
