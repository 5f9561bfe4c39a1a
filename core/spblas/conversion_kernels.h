// SPDX-License-Identifier: MIT
// The kernels that convert matrices of doubles, and those that sort, add and multiply.
#pragma once

#include "core/spblas/kernels.h"
#include "zor/signatures/spblas_matrix.h"

namespace zor_core {

ZOR_ONE_KERNEL(coo_conversion)
ZOR_ONE_KERNEL(dia_conversion)
ZOR_ONE_KERNEL(sky_conversion)
ZOR_ONE_KERNEL(bsr_conversion)
#define ROW_CSR_COO(name, I) ZOR_ONE(coo_conversion, name, double, I)
#define ROW_CSR_DIA(name, I) ZOR_ONE(dia_conversion, name, double, I)
#define ROW_CSR_SKY(name, I) ZOR_ONE(sky_conversion, name, double, I)
#define ROW_CSR_BSR(name, I) ZOR_ONE(bsr_conversion, name, double, I)
#include "zor/tables/spblas_conv.inc"

ZOR_ONE_KERNEL(row_sort_of)
ZOR_ONE_KERNEL(sum_of)
ZOR_ONE_KERNEL(product_of)
#define ROW_SORT_ROWS(...) ZOR_ONE(row_sort_of, __VA_ARGS__)
#define ROW_CSR_SUM(...) ZOR_ONE(sum_of, __VA_ARGS__)
#define ROW_CSR_PRODUCT(...) ZOR_ONE(product_of, __VA_ARGS__)
#include "zor/tables/spblas_gemm.inc"

// Sorts all rows of a matrix whose row pointers begin at `base`; the kernel takes positions from 1 on.
template <class T, class I>
void sort_all_rows(zor_int rows, zor_int base, const I* ia, I* ja, T* a) {
  const I first = 1, last = I(rows);
  row_sort_of<T, I>(&first, &last, ia, ja + (1 - base), a + (1 - base));
}

}  // namespace zor_core
