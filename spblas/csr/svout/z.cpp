// SPDX-License-Identifier: MIT
#include "spblas/csr/svout/views.h"

ZOR_CSR_VECTOR_SOLVES(zor::c64)
