// SPDX-License-Identifier: MIT
#include "spblas/csr/mvout/rows.h"

ZOR_CSR_ROWS_PRODUCTS(zor::c64, int32_t)
