// SPDX-License-Identifier: MIT
// Last passes in double precision.
#include "dft/engine/passes/bodies.h"

namespace zor::dft {

template <>
pass_run<double> find_last<double>(form inner, form outer, int32_t radix, int width_index) {
  if (width_index == 0) return last_of<double, 0>(inner, outer, radix);
  if (width_index == 1) return last_of<double, 1>(inner, outer, radix);
  return last_of<double, 2>(inner, outer, radix);
}

}  // namespace zor::dft
