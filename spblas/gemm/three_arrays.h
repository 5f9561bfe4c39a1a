// SPDX-License-Identifier: MIT
// What sums and products of CSR matrices share: rows in the three-array form counted from 1, requests, and
// the sort of a row.
#pragma once

#include "spblas/pack.h"

namespace zor::sparse {

// What a call is asked for.
enum class request { all, counts, values };
template <class I>
inline request request_of(I r) {
  return r == 0 ? request::all : r == 1 ? request::counts : request::values;
}

// Row r (from 0) of a matrix whose row pointers, columns and positions count from 1.
template <class T, class I>
struct matrix_row {
  I* columns;
  T* values;
  zor_int count;
};
template <class T, class I, class Pointers>
[[gnu::always_inline]] inline matrix_row<T, I> row_of(const Pointers* ia, I* ja, T* a, zor_int r) {
  const zor_int start = zor_int(ia[r]) - 1;
  return {ja + start, a + start, zor_int(ia[r + 1]) - 1 - start};
}

// Sorts a row by column; entries of one column keep their order.
template <class T, class I>
void sort_row(const matrix_row<T, I>& row);

#define ZOR_EACH_ELEMENT_AND_INDEX(next)                                                \
  next(float, int32_t) next(float, int64_t) next(double, int32_t) next(double, int64_t) \
      next(zor::c32, int32_t) next(zor::c32, int64_t) next(zor::c64, int32_t) next(zor::c64, int64_t)

}  // namespace zor::sparse
