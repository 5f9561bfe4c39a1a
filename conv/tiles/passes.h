// SPDX-License-Identifier: MIT
// The passes of tiles. Lanes are columns, in the last radix blocks; each lane is computed by itself. The way
// back is a way forward on values whose real and imaginary parts are exchanged. Instances: float and double.
#pragma once

#include "conv/tiles/tile.h"

namespace zor::conv {

// The radices of passes in falling order, in which a length is tried for them; the choice shows in the bits.
inline constexpr int32_t tile_radices[] = {16, 12, 8, 6, 5, 4, 3, 2};
inline constexpr int tile_radix_count = int(sizeof tile_radices / sizeof *tile_radices);

// The pass of one radix, with or without multipliers; and without them from and to interleaved boxes.
template <class R>
struct tile_pass_set {
  tile_run<R> forward, backward, plain_forward, plain_backward, spread, join;
};
template <class R>
tile_pass_set<R> find_tile_passes(int32_t radix);

// The last radix of blocks, a multiple of leaf_radix of them: to the spectrum, or to the products with one
// and back.
template <class R>
void transform_leaves(const tile_plan<R>& p, zor_int first, zor_int count, const R* re, const R* im,
                      R* spectrum);
template <class R>
void multiply_leaves(const tile_plan<R>& p, zor_int first, zor_int count, const R* spectrum, R* re, R* im);

template <class R>
void copy_to_parts(zor_int count, const R* pairs, const R* none, R* re, R* im);
template <class R>
void copy_to_pairs(zor_int count, const R* re, const R* im, R* pairs, R* none);

}  // namespace zor::conv
