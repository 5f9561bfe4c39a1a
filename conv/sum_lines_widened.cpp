// SPDX-License-Identifier: MIT
// Sums of lines in single precision that are formed in double.
#include "conv/sum_lines.h"

namespace zor::conv {

template void sum_lines<float, double>(const line_geometry&, const line_pairs<float>&, zor_int, float*,
                                       zor_int);
template void sum_lines<c32, c64>(const line_geometry&, const line_pairs<c32>&, zor_int, c32*, zor_int);

}  // namespace zor::conv
