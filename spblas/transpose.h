// SPDX-License-Identifier: MIT
// The transpose of compressed rows by counting: entries of a column follow one another in the order of their
// rows, and within a row as they are stored.
#pragma once

#include "spblas/counting_sort.h"

namespace zor::sparse {

// Rows to be transposed. Row pointers are relative to their first; columns count from `base`, the new row
// numbers from `row_base`. `a` is null where values do not matter.
template <class T, class I>
struct rows_to_transpose {
  zor_int rows, cols;
  const I *ia, *ja;
  const T* a;
  zor_int base, row_base;
};
template <class T, class I>
struct transposed_rows {
  I *it, *jt;
  T* t;
  zor_int origin;  // where it[] begins
};

template <class T, class I>
void transpose(const rows_to_transpose<T, I>& from, const transposed_rows<T, I>& to) {
  const zor_int first = from.rows > 0 ? zor_int(from.ia[0]) : 0;
  const zor_int entries = from.rows > 0 ? zor_int(from.ia[from.rows]) - first : 0;
  const auto by_rows = [&](const auto& visit) __attribute__((always_inline)) {
    for (zor_int r = 0, k = 0; r < from.rows; ++r)
      for (const zor_int end = zor_int(from.ia[r + 1]) - first; k < end; ++k) visit(k, I(r + from.row_base));
  };
  sort_by_key<T, I>(from.cols,
                    keyed_entries<T, I, decltype(by_rows)>{from.ja, entries, from.base, from.a, by_rows},
                    {to.it, to.jt, to.t, to.origin});
}

}  // namespace zor::sparse
