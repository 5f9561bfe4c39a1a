// SPDX-License-Identifier: MIT
// Copies of the CSR form of a matrix, for calls that need it otherwise than it is stored: without gaps, in
// another base, sorted, transposed, with the entries of one place added.
#pragma once

#include <cstring>

#include "core/spblas/arguments.h"
#include "core/spblas/conversion_kernels.h"
#include "core/spblas/kernels.h"
#include "core/threads.h"
#include "serv/scalar.h"
#include "spblas/transpose.h"

namespace zor_core {

// Rows in the three-array form.
template <class T, class I>
struct row_arrays {
  T* val;
  I *indx, *pntr;
};
template <class T, class I>
row_arrays<T, I> rows_of(const owned_arrays& a) {
  return {static_cast<T*>(a.val), static_cast<I*>(a.indx), static_cast<I*>(a.pntr)};
}
template <class T, class I>
bool allocate_rows(owned_arrays& to, zor_int rows, zor_int entries) {
  return owned_arrays::allocate(to.val, entries, sizeof(T)) &&
         owned_arrays::allocate(to.indx, entries, sizeof(I)) &&
         owned_arrays::allocate(to.pntr, rows + 1, sizeof(I));
}

template <class T, class I>
zor_int entries_of(const sparse_matrix& a) {
  const csr_arrays<T, I> m(a);
  zor_int entries = 0;
  for (zor_int r = 0; r < a.rows; ++r) entries += m.end(r) - m.begin(r);
  return entries;
}

// Columns ascend within each row, entries of one place being neighbours.
template <class T, class I>
bool rows_ascend(const sparse_matrix& a) {
  const csr_arrays<T, I> m(a);
  for (zor_int r = 0; r < a.rows; ++r)
    for (zor_int k = m.begin(r) + 1; k < m.end(r); ++k)
      if (m.indx[k] < m.indx[k - 1]) return false;
  return true;
}

// The rows one behind the other, their positions counted from `base`.
template <class T, class I>
void copy_rows(const sparse_matrix& a, zor_int base, const row_arrays<T, I>& to) {
  const csr_arrays<T, I> m(a);
  zor_int at = 0;
  for (zor_int r = 0; r < a.rows; ++r) {
    to.pntr[r] = I(at + base);
    for (zor_int k = m.begin(r); k < m.end(r); ++k, ++at) {
      to.val[at] = m.val[k];
      to.indx[at] = m.indx[k];
    }
  }
  to.pntr[a.rows] = I(at + base);
}

// Neighbours in one place become their sum, in their order. The rows close up.
template <class T, class I>
void add_repeats(zor_int rows, zor_int base, const row_arrays<T, I>& a) {
  zor_int at = 0, k = 0;
  for (zor_int r = 0; r < rows; ++r) {
    const zor_int start = at, end = zor_int(a.pntr[r + 1]) - base;
    for (; k < end; ++k) {
      if (at > start && a.indx[at - 1] == a.indx[k]) {
        a.val[at - 1] = zor::add(a.val[at - 1], a.val[k]);
      } else {
        a.val[at] = a.val[k];
        a.indx[at++] = a.indx[k];
      }
    }
    a.pntr[r + 1] = I(at + base);
  }
}

// op(A) by rows, positions counted from 1, sorted where the operation transposes.
template <class T, class I>
bool copy_of_operation(const sparse_matrix& a, int32_t op, scoped_arrays& to) {
  const zor_int entries = entries_of<T, I>(a);
  const bool transposed = is_transposed(op);
  scoped_arrays plain;
  owned_arrays& direct = transposed ? static_cast<owned_arrays&>(plain) : to;
  if (!allocate_rows<T, I>(direct, a.rows, entries)) return false;
  copy_rows(a, 1, rows_of<T, I>(direct));
  if (transposed) {
    if (!allocate_rows<T, I>(to, a.cols, entries)) return false;
    const auto from = rows_of<T, I>(plain), result = rows_of<T, I>(to);
    zor::sparse::transpose<T, I>({a.rows, a.cols, from.pntr, from.indx, from.val, a.base, a.base},
                                 {result.pntr, result.indx, result.val, 1});
  }
  if (is_conjugated<T>(op)) {
    T* const val = static_cast<T*>(to.val);
    for (zor_int k = 0; k < entries; ++k) val[k] = zor::conj_by_sign(val[k]);
  }
  return true;
}

}  // namespace zor_core
