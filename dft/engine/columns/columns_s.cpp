// SPDX-License-Identifier: MIT
// Column passes in single precision.
#include "dft/engine/columns/bodies.h"

namespace zor::dft {

template <>
column_set<float> find_column_set<float>(form outer, int32_t radix, int32_t lanes) {
  return choose_column_set<float>(outer, radix, lanes);
}

}  // namespace zor::dft
