// SPDX-License-Identifier: MIT
// A sparse matrix of the public side: the caller's arrays, what the check has found in them, and the parts in
// which products that add to outputs of other rows run.
#pragma once

#include <algorithm>

#include "core/spblas/owned_arrays.h"
#include "core/spblas/thresholds.h"
#include "zor/sparse.h"

struct zor_sparse_matrix {
  // What the description says.
  uint64_t magic;
  bool wide;  // 64-bit indices
  int32_t format;
  char type, structure, triangle, diagonal;  // '_' where the view has no triangle or no diagonal
  int32_t base;
  zor_int rows, cols, nnz, lb, lval;
  const void *given_val, *given_indx, *given_rowind, *given_pntrb, *given_pntre;

  // Arrays that belong to the record: of a matrix that a call has made, and of the CSR form of other formats.
  zor_core::owned_arrays own, expanded;

  // What the check has found. All of it is made anew by each check.
  bool checked;               // the last check found no fault
  const void *val, *indx;     // of the CSR form, in the base of the description
  zor_int stored;             // entries that val and indx hold
  const void *pntrb, *pntre;  // the row pointers that the kernels take: the caller's, or own_pointers
  void* own_pointers;         // copies of the row pointers that begin at 0, null where they are not needed
  zor_int used;               // entries up to the end of the last row

  enum fault : int32_t { none, unsorted, no_pivot, zero_pivot } unsolvable;
  zor_int unsolvable_row;  // the first row that a solve cannot take

  // Part p is made of the rows first[p] to first[p + 1] - 1. When the parts alternate, no two even parts and
  // no two odd ones add to the same output. When they do not, each part has an output of its own; those of a
  // mirrored view are then part_rows rows each, the last one maybe fewer.
  zor_int parts;
  bool alternating;
  zor_int part_rows;
  zor_int first[zor_core::sparse_thresholds::most_parts + 1];

  // One triangle stands for both.
  bool mirrored() const { return structure == 's' || structure == 'h' || structure == 'a'; }
  bool identity() const { return structure == 'd' && diagonal == 'u'; }
};

namespace zor_core {

using sparse_matrix = zor_sparse_matrix;

template <class T>
inline constexpr char type_letter = 0;
template <>
inline constexpr char type_letter<float> = 's';
template <>
inline constexpr char type_letter<double> = 'd';
template <>
inline constexpr char type_letter<zor_c32> = 'c';
template <>
inline constexpr char type_letter<zor_c64> = 'z';

// The arrays of a matrix in CSR format. Row r holds the entries begin(r) to end(r) - 1 of val and indx.
template <class T, class I>
struct csr_arrays {
  const T* val;
  const I *indx, *pntrb, *pntre;

  explicit csr_arrays(const sparse_matrix& a)
      : val(static_cast<const T*>(a.val)),
        indx(static_cast<const I*>(a.indx)),
        pntrb(static_cast<const I*>(a.pntrb)),
        pntre(static_cast<const I*>(a.pntre)) {}

  zor_int begin(zor_int r) const { return zor_int(pntrb[r]) - zor_int(pntrb[0]); }
  zor_int end(zor_int r) const { return zor_int(pntre[r]) - zor_int(pntrb[0]); }
};

// Where part `index` of `parts` begins when the rows are cut so that each part holds about as many entries.
template <class T, class I>
zor_int cut_rows(const csr_arrays<T, I>& m, zor_int rows, zor_int parts, zor_int index) {
  if (index == parts || rows == 0) return index == parts ? rows : 0;
  const zor_int wanted = zor_int(__int128(m.end(rows - 1)) * index / parts) + zor_int(m.pntrb[0]);
  return std::lower_bound(m.pntrb, m.pntrb + rows, wanted, [](I p, zor_int w) { return zor_int(p) < w; }) -
         m.pntrb;
}

// Describes a: options, sizes and arrays. A value that cannot be is a failure; the arrays are not read.
template <class Description>
int32_t read_description(sparse_matrix& a, const Description& d);

// Checks a described matrix and makes a handle of it. On failure its arrays are released.
template <class I>
int32_t make_handle(sparse_matrix& a, zor_sparse* handle);

// Reads all row pointers and indices, and fills in what the check finds. The status of the first fault.
template <class I>
int32_t check_csr(sparse_matrix& a);

// The same for the other formats: checks the arrays, and makes the CSR form that products and solves run on.
template <class I>
int32_t expand(sparse_matrix& a);

// Fills in the parts of a checked matrix. They depend on the matrix alone, since they decide the order of
// sums.
template <class I>
void cut_into_parts(sparse_matrix& a);

}  // namespace zor_core
