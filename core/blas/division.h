// SPDX-License-Identifier: MIT
// Rows or columns of a Level 3 call cut into pieces for kernels that work in blocks of their own.
//
// A kernel takes the free dimension in blocks, nested ones at most, and fewer than 8 rows or columns in a
// block go through plain loops with another order of sums. Pieces are therefore cut at multiples of 8, and a
// piece must end in such a short block exactly where the whole does: then no element takes another way for
// being in a piece of its own.
#pragma once

#include "blas/thresholds.h"
#include "core/blas/arguments.h"
#include "core/threads.h"

namespace zor_core {

inline constexpr zor_int division_grain = 8;

// Blocks of a kernel along its free dimension: the smallest and the largest of a nest. Zero stands for no
// blocks.
struct kernel_blocks {
  zor_int smallest, largest;
};

struct division {
  zor_int n, pieces, last;  // `last` is where the last piece begins

  zor_int begin(zor_int piece) const {
    if (piece >= pieces - 1) return piece == pieces ? n : last;
    return cut(last, division_grain, pieces - 1, piece);
  }
};

inline division divide(zor_int n, kernel_blocks blocks, int32_t threads) {
  const zor_int most = n / division_grain, pieces = most < threads ? most : threads;
  if (pieces < 2) return {n, 1, 0};
  zor_int last = cut(n, division_grain, pieces, pieces - 1);
  if (blocks.smallest > 0) {
    const auto short_end = [&](zor_int length) {
      const zor_int rest = length % blocks.smallest;
      return rest > 0 && rest < division_grain;
    };
    if (short_end(n))
      last = last / blocks.largest * blocks.largest;
    else if (short_end(n - last))
      last -= division_grain;
  }
  const zor_int before = last / division_grain < pieces - 1 ? last / division_grain : pieces - 1;
  return {n, before + 1, last};
}

// Calls body(first, count) for the pieces of 0 to n - 1 that threads take, one piece when `products` are few.
template <class Body>
void for_divisions(zor_int n, zor_int products, kernel_blocks blocks, const Body& body) {
  const int32_t threads = products < zor::thresholds::threaded_products ? 1 : usable_threads();
  if (threads == 1) return body(zor_int(0), n);
  const division d = divide(n, blocks, threads);
  for_each_piece(threads, d.pieces,
                 [&](zor_int piece) { body(d.begin(piece), d.begin(piece + 1) - d.begin(piece)); });
}

}  // namespace zor_core
