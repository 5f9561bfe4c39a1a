// SPDX-License-Identifier: MIT
// Column passes in double precision.
#include "dft/engine/columns/bodies.h"

namespace zor::dft {

template <>
column_set<double> find_column_set<double>(form outer, int32_t radix, int32_t lanes) {
  return choose_column_set<double>(outer, radix, lanes);
}

}  // namespace zor::dft
