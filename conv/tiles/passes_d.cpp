// SPDX-License-Identifier: MIT
// Passes of tiles in double precision.
#include "conv/tiles/bodies.h"

namespace zor::conv {

ZOR_TILE_PASSES(double)

}  // namespace zor::conv
