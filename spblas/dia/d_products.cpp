// SPDX-License-Identifier: MIT
#include "spblas/dia/product.h"

ZOR_DIA_PRODUCTS(double)
