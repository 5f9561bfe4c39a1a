// SPDX-License-Identifier: MIT
// Where the pivot of a sorted row stands. It is looked for, not tested: a walk along the row stops at the
// first entry that passes the diagonal, which may be that of the next row or the one before.
#pragma once

#include "spblas/csr/matrix.h"

namespace zor::sparse {

// The value at a position, or its conjugate; taken as the pivot, whatever its column.
template <class T, class I>
[[gnu::always_inline]] inline T value_at(csr<T, I> a, zor_int k, bool conj) {
  return conj_by_sign_if(conj, a.val[k]);
}

// The first position of a row whose column is not below the row, or one behind the row.
template <class T, class I>
[[gnu::always_inline]] inline zor_int walk_forward(csr<T, I> a, zor_int row) {
  zor_int k = a.begin(row);
  for (const zor_int end = a.end(row); k < end && a.column(k) < row;) ++k;
  return k;
}
// The last position of a row whose column is not above the row, or one before the row.
template <class T, class I>
[[gnu::always_inline]] inline zor_int walk_backward(csr<T, I> a, zor_int row) {
  zor_int k = a.end(row) - 1;
  for (const zor_int begin = a.begin(row); k >= begin && a.column(k) > row;) --k;
  return k;
}

// Where an upper row goes on behind its pivot, found at `stop`: a unit diagonal is stepped over only when it
// is stored.
template <class T, class I>
[[gnu::always_inline]] inline zor_int behind_pivot(csr<T, I> a, bool unit, zor_int row, zor_int stop) {
  return !unit || (stop < a.end(row) && a.column(stop) == row) ? stop + 1 : stop;
}

// The entries of a row that a plain solve sums, and its pivot.
struct summed_entries {
  zor_int pivot, first, count;
};
// Of a lower triangle those before the pivot, of an upper one (Down) those behind it.
template <bool Down, class T, class I>
[[gnu::always_inline]] inline summed_entries entries_to_sum(csr<T, I> a, bool unit, zor_int row) {
  const zor_int stop = walk_forward(a, row);
  if constexpr (Down) {
    const zor_int first = behind_pivot(a, unit, row, stop);
    return {stop, first, a.end(row) - first};
  } else {
    const zor_int first = a.begin(row);
    return {stop, first, stop - first};
  }
}

}  // namespace zor::sparse
