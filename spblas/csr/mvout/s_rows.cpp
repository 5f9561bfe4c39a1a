// SPDX-License-Identifier: MIT
#include "spblas/csr/mvout/rows.h"

ZOR_CSR_ROWS_PRODUCTS(float, int32_t)
ZOR_CSR_ROWS_PRODUCTS(float, int64_t)
