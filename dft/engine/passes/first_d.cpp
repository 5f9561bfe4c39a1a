// SPDX-License-Identifier: MIT
// First passes in double precision.
#include "dft/engine/passes/bodies.h"

namespace zor::dft {

template <>
pass_run<double> find_first<double>(form outer, form inner, int32_t radix, int width_index) {
  if (width_index == 0) return first_of<double, 0>(outer, inner, radix);
  if (width_index == 1) return first_of<double, 1>(outer, inner, radix);
  return first_of<double, 2>(outer, inner, radix);
}

}  // namespace zor::dft
