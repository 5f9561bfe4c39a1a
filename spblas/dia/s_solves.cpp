// SPDX-License-Identifier: MIT
#include "spblas/dia/solve.h"

ZOR_DIA_SOLVES(float)
