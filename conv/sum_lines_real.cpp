// SPDX-License-Identifier: MIT
// Sums of real lines in their own precision.
#include "conv/sum_lines.h"

namespace zor::conv {

template void sum_lines<float, float>(const line_geometry&, const line_pairs<float>&, zor_int, float*,
                                      zor_int);
template void sum_lines<double, double>(const line_geometry&, const line_pairs<double>&, zor_int, double*,
                                        zor_int);

}  // namespace zor::conv
