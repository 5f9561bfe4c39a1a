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

  // Arrays of a matrix that a call has made, which belong to the record.
  zor_core::owned_arrays own;

  // The same matrix in compressed rows, made by the first call that has no kernel of the format; null before.
  // Calls may share a matrix, so it is read and set atomically.
  zor_sparse_matrix* rows_form;

  // What the check has found. All of it is made anew by each check.
  bool checked;               // the last check found no fault
  const void *val, *indx;     // of CSR, in the base of the description
  const void *pntrb, *pntre;  // the row pointers that the kernels take: the caller's, or own_pointers
  void* own_pointers;         // copies of the row pointers that begin at 0, null where they are not needed
  zor_int used;               // entries up to the end of the last row; elements of the other formats
  void* own_blocks;           // block columns counted from 1, null where those of the description are
  bool blocks_serve;          // the kernels of BSR read the blocks as the description means them

  bool ascending;  // the columns of every row of CSR ascend strictly

  // What hinders a solve. Of a result it is looked for by the first call that asks; calls may share a matrix,
  // so it is then read and set atomically, behind the row.
  enum fault : int32_t { none, unsorted, no_pivot, zero_pivot, two_pivots, not_looked_for } unsolvable;
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

  // Describes the matrix as `a` in a format, and by arrays that become its own.
  void take_view(const zor_sparse_matrix& a, int32_t in_format) {
    wide = a.wide, format = in_format, type = a.type, base = a.base, rows = a.rows, cols = a.cols;
    structure = a.structure, triangle = a.triangle, diagonal = a.diagonal;
  }
  void take_arrays(const zor_core::owned_arrays& made, size_t pointer_size) {
    own = made;
    given_val = own.val, given_indx = own.indx, given_rowind = own.rowind, given_pntrb = own.pntr;
    given_pntre = own.pntr == nullptr ? nullptr : static_cast<const char*>(own.pntr) + pointer_size;
  }
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

  csr_arrays(const void* v, const void* i, const void* begins, const void* ends)
      : val(static_cast<const T*>(v)),
        indx(static_cast<const I*>(i)),
        pntrb(static_cast<const I*>(begins)),
        pntre(static_cast<const I*>(ends)) {}
  explicit csr_arrays(const sparse_matrix& a) : csr_arrays(a.val, a.indx, a.pntrb, a.pntre) {}

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

// The same for a result whose indices need no check. In compressed rows it has the general view, its rows are
// there and follow one another, and their columns ascend strictly.
template <class I>
int32_t make_result_handle(sparse_matrix& a, zor_sparse* handle);

// Reads all row pointers and indices, and fills in what the check finds. The status of the first fault.
template <class I>
int32_t check_csr(sparse_matrix& a);

// What hinders a solve with a checked matrix or a result, and the first row of it.
sparse_matrix::fault solve_fault(const sparse_matrix& a);

// check_csr for the other formats, and what it does where the indices need no check.
template <class I>
int32_t check_format(sparse_matrix& a);
template <class I>
int32_t look_at_format(sparse_matrix& a);

// A matrix of another format in compressed rows, sorted, with a handle of its own.
template <class I>
int32_t make_rows_form(const sparse_matrix& a, zor_sparse* form);

// A matrix in compressed rows: itself, or the form that is kept with it from the first call on.
int32_t kept_rows_form(const sparse_matrix& a, const sparse_matrix** form);

// The same for one call: made where it is not kept, and then freed at the end of the scope.
struct scoped_rows_form {
  explicit scoped_rows_form(const sparse_matrix& a);
  ~scoped_rows_form();
  scoped_rows_form(const scoped_rows_form&) = delete;
  scoped_rows_form& operator=(const scoped_rows_form&) = delete;

  const sparse_matrix* data = nullptr;
  int32_t status = 0;

 private:
  zor_sparse made_ = nullptr;
};

// Fills in the parts of a checked matrix. They depend on the matrix alone, since they decide the order of
// sums.
template <class I>
void cut_into_parts(sparse_matrix& a);
// Those of coordinates: parts of equally many entries, with an output each.
void cut_entries_into_parts(sparse_matrix& a);

}  // namespace zor_core
