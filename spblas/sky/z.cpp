// SPDX-License-Identifier: MIT
#include "spblas/sky/profiles.h"

ZOR_SKY_KERNELS(zor::c64)
