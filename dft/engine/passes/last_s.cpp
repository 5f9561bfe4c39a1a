// SPDX-License-Identifier: MIT
// Last passes in single precision.
#include "dft/engine/passes/bodies.h"

namespace zor::dft {

template <>
pass_run<float> find_last<float>(form inner, form outer, int32_t radix, int width_index) {
  if (width_index == 0) return last_of<float, 0>(inner, outer, radix);
  if (width_index == 1) return last_of<float, 1>(inner, outer, radix);
  return last_of<float, 2>(inner, outer, radix);
}

}  // namespace zor::dft
