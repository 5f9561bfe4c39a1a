// SPDX-License-Identifier: MIT
// First passes in single precision.
#include "dft/engine/passes/bodies.h"

namespace zor::dft {

template <>
pass_run<float> find_first<float>(form outer, form inner, int32_t radix, int width_index) {
  if (width_index == 0) return first_of<float, 0>(outer, inner, radix);
  if (width_index == 1) return first_of<float, 1>(outer, inner, radix);
  return first_of<float, 2>(outer, inner, radix);
}

}  // namespace zor::dft
