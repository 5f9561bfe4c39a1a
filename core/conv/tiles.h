// SPDX-License-Identifier: MIT
// The tiles of the kernel library that is loaded.
#pragma once

#include "conv/tiles/tile.h"

namespace zor_core {

// From a task that is made for the purpose; null when memory is short.
const zor::conv::tile_table* find_tiles();

}  // namespace zor_core
