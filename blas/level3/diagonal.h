// SPDX-License-Identifier: MIT
// Order of the diagonal blocks of rank updates, which kernel and threads share.
#pragma once

#include <type_traits>

#include "serv/scalar.h"

namespace zor::level3 {

inline constexpr zor_int tile_order = 128;

// Order of the diagonal blocks. They decide which element is computed in a tile and which in a rectangle, and
// so belong to the contract of the routines.
template <class T>
constexpr zor_int diagonal_order(bool trans, bool both_short) {
  if (std::is_same_v<T, c64> && (trans || both_short)) return 32;
  return trans ? 64 : tile_order;
}

}  // namespace zor::level3
