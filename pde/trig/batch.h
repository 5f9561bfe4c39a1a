// SPDX-License-Identifier: MIT
// Transforms of many lines with one committed transform.
#pragma once

#include "zor/dft_kern.h"

namespace zor::pde {

// Makes the kernels of pde/kernels.h reachable from a committed real transform of one dimension. False when
// memory is short.
bool attach_kernels(ZorDftDescriptor* d);

}  // namespace zor::pde
