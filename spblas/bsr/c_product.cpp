// SPDX-License-Identifier: MIT
#include "spblas/bsr/product.h"

ZOR_BSR_PRODUCTS(zor::c32)
