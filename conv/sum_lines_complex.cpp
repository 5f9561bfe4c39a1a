// SPDX-License-Identifier: MIT
// Sums of complex lines in their own precision.
#include "conv/sum_lines.h"

namespace zor::conv {

template void sum_lines<c32, c32>(const line_geometry&, const line_pairs<c32>&, zor_int, c32*, zor_int);
template void sum_lines<c64, c64>(const line_geometry&, const line_pairs<c64>&, zor_int, c64*, zor_int);

}  // namespace zor::conv
