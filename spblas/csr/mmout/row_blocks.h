// SPDX-License-Identifier: MIT
// When a product with many right-hand sides goes over its rows in blocks, so that a block of A and what it
// meets of B and C stay in cache while the right-hand sides pass. Blocks change no sum.
#pragma once

#include <cstdint>
#include <type_traits>

#include "serv/vec.h"

namespace zor::sparse {

namespace thresholds {
// Contract: bytes that a product may take, as `cache_weights` count them, before its rows go in blocks, and
// the blocks that these bytes hold. The copies of B are requests of a block, so that the pool sees the
// blocks.
inline constexpr zor_int bytes_before_blocks = 17000000, blocks_of_those = 4;
}  // namespace thresholds

// Bytes counted for a stored entry and for a right-hand side: `block` weighs them when the size of a block is
// chosen, `test` when it is decided whether to block at all.
struct cache_weights {
  int block_entry, block_column, test_entry, test_column;
};

template <class T>
constexpr cache_weights weights_of(bool conj) {
  if (std::is_same_v<T, float>) return {12, 8, 8, 12};
  if (std::is_same_v<T, c64> || conj) return {20, 36, 36, 20};
  return {12, 20, 20, 12};
}

// Rows in a block for m rows whose last row pointer is `end` (1-based) and n right-hand sides; m itself when
// the rows are not blocked. A total beyond the range of I counts as small, so the largest problems of either
// twin are not blocked. In integers, which raise no exception flags.
template <class I>
zor_int rows_in_block(cache_weights w, I m, I end, I n) {
  using namespace thresholds;
  constexpr __int128 largest = sizeof(I) == 4 ? INT32_MAX : INT64_MAX;
  const __int128 average = (end - 1) / m;
  const __int128 row = w.block_entry * average + w.block_column * __int128(n);
  const __int128 total = (w.test_entry * average + w.test_column * __int128(n)) * m;
  if (total < bytes_before_blocks || total > largest || row < 1) return m;
  const zor_int rows = zor_int(bytes_before_blocks / blocks_of_those / row);
  return rows < 1 || m / rows <= 1 ? m : rows;
}

}  // namespace zor::sparse
