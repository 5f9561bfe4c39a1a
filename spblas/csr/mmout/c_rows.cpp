// SPDX-License-Identifier: MIT
#include "spblas/csr/mmout/views.h"

ZOR_CSR_MATRIX_PRODUCTS(zor::c32, true)
