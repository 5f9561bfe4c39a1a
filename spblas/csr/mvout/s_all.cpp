// SPDX-License-Identifier: MIT
#include "spblas/csr/mvout/all.h"

ZOR_CSR_ALL_PRODUCTS(float)
