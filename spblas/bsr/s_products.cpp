// SPDX-License-Identifier: MIT
#include "spblas/bsr/products.h"

ZOR_BSR_MATRIX_PRODUCTS(float)
