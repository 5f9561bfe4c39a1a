// SPDX-License-Identifier: MIT
// The conversion kernels of one width of integers, and the kernels that sort, add and multiply for one
// element type, from the tables of names.
#pragma once

#include <type_traits>

#include "zor/signatures/spblas_matrix.h"

namespace zor_core {

#define ZOR_KERNEL_OF(function, Row)          \
  template <class I>                          \
  constexpr auto function() {                 \
    if constexpr (std::is_same_v<I, int64_t>) \
      return &zor_spblas_##Row;               \
    else                                      \
      return &zor_spblas_lp64_##Row;          \
  }
ZOR_KERNEL_OF(coo_conversion, zor_dcsrcoo)
ZOR_KERNEL_OF(dia_conversion, zor_dcsrdia)
ZOR_KERNEL_OF(sky_conversion, zor_dcsrsky)
ZOR_KERNEL_OF(bsr_conversion, zor_dcsrbsr)
#undef ZOR_KERNEL_OF

template <class T, class I>
constexpr auto row_sort_of() {
#define ROW_SORT_ROWS(name, U, J) \
  if constexpr (std::is_same_v<T, U> && std::is_same_v<I, J>) return &name;
#include "zor/tables/spblas_gemm.inc"
}
template <class T, class I>
constexpr auto sum_of() {
#define ROW_CSR_SUM(name, U, J) \
  if constexpr (std::is_same_v<T, U> && std::is_same_v<I, J>) return &name;
#include "zor/tables/spblas_gemm.inc"
}
template <class T, class I>
constexpr auto product_of() {
#define ROW_CSR_PRODUCT(name, U, J) \
  if constexpr (std::is_same_v<T, U> && std::is_same_v<I, J>) return &name;
#include "zor/tables/spblas_gemm.inc"
}

// Sorts all rows of a matrix whose row pointers begin at `base`; the kernel takes positions from 1 on.
template <class T, class I>
void sort_all_rows(zor_int rows, zor_int base, const I* ia, I* ja, T* a) {
  const I first = 1, last = I(rows);
  row_sort_of<T, I>()(&first, &last, ia, ja + (1 - base), a + (1 - base));
}

}  // namespace zor_core
