// SPDX-License-Identifier: MIT
// The sizes at which dense code takes another way, for the kernels and for the core. Widths of vectors and
// shapes of tiles are not among them; they stand with their loops.
//
// Contract: a result's bits, the bytes asked of the pool or the sizes told to a caller follow from the value,
// so it never changes. Measured: only the clock tells. The gain is the one for which the value was set, on a
// server processor with 512-bit units unless the comment names a build.
#pragma once

#include "zor/types.h"

namespace zor::thresholds {

// ---- Vector kernels.

// Bytes of a vector from which several of them are taken to lie beyond the second-level cache. Their lines
// are then asked for ahead, long_vector_block bytes at a time, and loads take widest_of_chains bytes. Loads
// of 16 bytes are slow enough for the hardware's own prefetch, so the baseline has no such length. Measured:
// scaling 10^6 complex doubles by a real number no longer falls behind a plain loop.
template <int Width>
inline constexpr zor_int long_vector_bytes = Width > 16 ? zor_int(1) << 19 : INT64_MAX;
inline constexpr int long_vector_block = 256;
// The widest vector of loops that wait for memory or for one chain of additions. Measured: a dot product of
// 2000 doubles takes 160 ns with vectors of 32 bytes and 255 ns with vectors of 64.
inline constexpr int widest_of_chains = 32;
// Full vectors in an operand from which its stores are brought to a boundary of the vector: one that
// straddles a line takes two accesses.
inline constexpr int aligned_store_vectors = 16;
// Bytes that a search for the largest magnitude takes before it asks whether its answer lies among them: if
// so they are read again, from the first-level cache.
inline constexpr int search_block_bytes = 2048;

// ---- Matrix-vector products.

// Elements of the longer and the shorter piece of strided vectors that are staged on the stack. Contract: in
// a transposed product each longer piece of x adds its own alpha times sum to y.
inline constexpr zor_int staged_long = 1000, staged_short = 128;

// ---- Matrix products.

// Depth from which the product of two transposed matrices of doubles, computed without blocks, has four
// partial sums. Contract.
inline constexpr zor_int paired_sums_depth = 9;

// Rows of C up to which a panel of op(B) is read where it stands, being read too seldom to be worth packing,
// and columns of C up to which one of A is. Measured: 64 x 64 x 4000 gains 10 to 25 %.
inline constexpr zor_int thin_product = 96;
// Bytes between the columns of such a panel: 112 of them should stay in the second-level cache with all that
// lies between them, in 256 KiB.
inline constexpr zor_int thin_panel_step = (zor_int(1) << 18) / 112;
// Columns of B that are multiples of a page apart share the sets of the first-level cache: they are packed.
inline constexpr zor_int page_bytes = 4096;
// Strips of A up to which a B that the kernels of packed panels read spread over vectors is not packed.
// Measured on the baseline build: complex products of 32 to 100 gain 10 to 20 % from the packing above it.
inline constexpr zor_int unspread_strips = 4;
// Bytes of a packed block of A in the build with vectors of 32 bytes, if its panel of B has at most so many:
// a low tile reads its strip of A so often that the block should stay in the first-level cache, where the
// panel of B stays in the second. Measured on that build: 2 to 5 % at n = 256 and 500.
inline constexpr zor_int low_tile_block_bytes = 28 << 10;
inline constexpr zor_int low_tile_panel_bytes = zor_int(1) << 19;
// Columns of A that are packed side by side: as many as the TLB and the hardware's prefetch follow.
inline constexpr zor_int packed_columns = 8;

// ---- Division over threads, in the core. Below the least sizes one thread does the work. Measured on Zen 4:
// at them one thread takes 50 microseconds for a product of doubles, 12 for a matrix times a vector and 11
// for an elementwise routine, of which two threads that are awake take half.

// Multiplications of a matrix product.
inline constexpr zor_int threaded_products = zor_int(1) << 20;
// Bytes of the matrix of a matrix-vector product or rank-one update.
inline constexpr zor_int threaded_matrix_bytes = zor_int(1) << 20;
// Bytes of each vector of an elementwise routine.
inline constexpr zor_int threaded_vector_bytes = zor_int(1) << 19;
// Rows and columns of C at multiples of which it is cut. Contract: a multiple of all groups of rows and
// columns that the register kernels take, so that the rows and columns left over are those of the whole.
inline constexpr zor_int product_cut = 8;
// Elements of y at multiples of which a matrix-vector product is cut: whole vectors of any width.
inline constexpr zor_int matvec_cut = 64;
// Bytes of a vector at multiples of which it is cut: whole pages.
inline constexpr zor_int vector_cut_bytes = page_bytes;

// Order of the diagonal blocks of the plain triangular product. Contract: the terms beside a block are added
// by the matrix product.
inline constexpr zor_int triangle_block = 64;
// The same of the triangular solve with one vector. Contract.
inline constexpr zor_int solve_block = 32;

}  // namespace zor::thresholds
