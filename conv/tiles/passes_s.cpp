// SPDX-License-Identifier: MIT
// Passes of tiles in single precision.
#include "conv/tiles/bodies.h"

namespace zor::conv {

ZOR_TILE_PASSES(float)

}  // namespace zor::conv
