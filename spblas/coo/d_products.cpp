// SPDX-License-Identifier: MIT
#include "spblas/coo/product.h"

ZOR_COO_PRODUCTS(double)
