// SPDX-License-Identifier: MIT
#include "spblas/sweep/gauss_lanes.h"

ZOR_BLOCK_SWEEPS(zor::c32)
