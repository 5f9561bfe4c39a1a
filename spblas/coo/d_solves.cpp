// SPDX-License-Identifier: MIT
#include "spblas/coo/solve.h"

ZOR_COO_SOLVES(double)
