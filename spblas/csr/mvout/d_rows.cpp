// SPDX-License-Identifier: MIT
#include "spblas/csr/mvout/rows.h"

ZOR_CSR_ROWS_PRODUCTS(double, int32_t)
ZOR_CSR_ROWS_PRODUCTS(double, int64_t)
