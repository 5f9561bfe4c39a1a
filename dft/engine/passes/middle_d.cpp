// SPDX-License-Identifier: MIT
// Middle passes in double precision.
#include "dft/engine/passes/bodies.h"

namespace zor::dft {

template <>
pass_run<double> find_middle<double>(form inner, int32_t radix, int width_index) {
  if (width_index == 0) return middle_of<double, 0>(inner, radix);
  if (width_index == 1) return middle_of<double, 1>(inner, radix);
  return middle_of<double, 2>(inner, radix);
}

}  // namespace zor::dft
