// SPDX-License-Identifier: MIT
#include "spblas/csr/smout/views.h"

ZOR_CSR_MATRIX_SOLVES(zor::c32, false)
