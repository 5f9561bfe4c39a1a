// SPDX-License-Identifier: MIT
// The tiles of the kernel library that is loaded.
#pragma once

#include <type_traits>

#include "conv/tiles/tile.h"

namespace zor_core {

// From a task that is made for the purpose; null when memory is short.
const zor::conv::tile_table* find_tiles();

template <class R>
const zor::conv::tile_kernels<R>& tiles_in(const zor::conv::tile_table& table) {
  if constexpr (std::is_same_v<R, float>)
    return table.s;
  else
    return table.d;
}

}  // namespace zor_core
