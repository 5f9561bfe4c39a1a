// SPDX-License-Identifier: MIT
// Middle passes in single precision.
#include "dft/engine/passes/bodies.h"

namespace zor::dft {

template <>
pass_run<float> find_middle<float>(form inner, int32_t radix, int width_index) {
  if (width_index == 0) return middle_of<float, 0>(inner, radix);
  if (width_index == 1) return middle_of<float, 1>(inner, radix);
  return middle_of<float, 2>(inner, radix);
}

}  // namespace zor::dft
