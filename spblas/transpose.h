// SPDX-License-Identifier: MIT
// The transpose of compressed rows by counting: entries of a column follow one another in the order of their
// rows, and within a row as they are stored.
#pragma once

#include "serv/scalar.h"

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

// counts[c] := origin + the number of entries of columns before c, one more element than there are columns.
template <class I>
void starts_of_counts(I* counts, zor_int cols, zor_int origin) {
  zor_int start = origin;
  for (zor_int c = 0; c < cols; ++c) {
    const zor_int count = counts[c];
    counts[c] = I(start);
    start += count;
  }
  counts[cols] = I(start);
}
// The starts again, after each was moved to the end of its run.
template <class I>
void shift_starts_back(I* starts, zor_int cols, zor_int origin) {
  if (cols > 0) std::memmove(starts + 1, starts, size_t(cols) * sizeof(I));
  starts[0] = I(origin);
}

template <class T, class I>
void transpose(const rows_to_transpose<T, I>& from, const transposed_rows<T, I>& to) {
  const zor_int first = from.rows > 0 ? zor_int(from.ia[0]) : 0;
  const zor_int entries = from.rows > 0 ? zor_int(from.ia[from.rows]) - first : 0;
  std::memset(to.it, 0, size_t(from.cols + 1) * sizeof(I));
  I* const starts = to.it - from.base;
  for (zor_int k = 0; k < entries; ++k) ++starts[from.ja[k]];
  starts_of_counts(to.it, from.cols, to.origin);
  I* const rows = to.jt - to.origin;
  T* const values = from.a == nullptr ? nullptr : to.t - to.origin;
  for (zor_int r = 0, k = 0; r < from.rows; ++r) {
    for (const zor_int end = zor_int(from.ia[r + 1]) - first; k < end; ++k) {
      const zor_int at = starts[from.ja[k]]++;
      rows[at] = I(r + from.row_base);
      if (values != nullptr) values[at] = from.a[k];
    }
  }
  shift_starts_back(to.it, from.cols, to.origin);
}

}  // namespace zor::sparse
