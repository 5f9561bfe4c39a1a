// SPDX-License-Identifier: MIT
// A sparse matrix of the public side: the caller's arrays, what the check found out about them, and the parts
// in which scattering products run.
#pragma once

#include <algorithm>

#include "zor/sparse.h"

struct zor_sparse_matrix {
  uint64_t magic;
  bool wide;     // 64-bit indices
  bool checked;  // the last check found no fault
  char type, structure, triangle, diagonal;
  int32_t base;
  zor_int rows, cols, nnz;
  zor_int used;                            // entries up to the last row's end
  const void *val, *indx, *pntrb, *pntre;  // as the kernels take them
  const void *given_pntrb, *given_pntre;
  void* own_pointers;  // row pointers that begin at 0, null when the caller's serve

  enum fault : int32_t { none, unsorted, no_pivot, zero_pivot } unsolvable;
  zor_int unsolvable_row;

  // Rows first[p] to first[p+1] - 1 are part p. `neighbours`: outputs of parts of equal parity do not meet.
  // Parts of a mirrored triangle that are none have part_rows rows each, the last one maybe fewer.
  static constexpr zor_int most_parts = 64;
  zor_int parts;
  bool neighbours;
  zor_int part_rows;
  zor_int first[most_parts + 1];

  // Entries of the rows of a triangular view that a transposed product hands over at a time.
  static constexpr zor_int most_shifted = 2048;

  // One triangle stands for both.
  bool mirrored() const { return structure == 's' || structure == 'h' || structure == 'a'; }
  bool identity() const { return structure == 'd' && diagonal == 'u'; }
};

namespace zor_core {

using sparse_matrix = zor_sparse_matrix;

// Keeps a text for the calling thread and returns the status.
[[gnu::cold, gnu::format(printf, 2, 3)]] int32_t sparse_failure(int32_t status, const char* format, ...);

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

// 0 when the handle is a checked matrix of that type and the option known, and 0 when the matrix can be
// solved with.
int32_t bad_matrix(zor_sparse a, char type, int32_t op);
int32_t bad_solve(const sparse_matrix& a);

// 0 when a dense operand of so many rows and n columns can be addressed. `name` is that of the leading
// dimension.
template <class I>
int32_t bad_dense(const char* name, int32_t layout, zor_int rows, zor_int n, zor_int ld, size_t element);

template <class T, class I>
struct csr_arrays {
  const T* val;
  const I *indx, *pntrb, *pntre;

  explicit csr_arrays(const sparse_matrix& a)
      : val(static_cast<const T*>(a.val)),
        indx(static_cast<const I*>(a.indx)),
        pntrb(static_cast<const I*>(a.pntrb)),
        pntre(static_cast<const I*>(a.pntre)) {}
};

// Where part `index` of `parts` begins when rows are cut so that each part holds about as many entries.
template <class I>
zor_int cut_rows(const I* pntrb, const I* pntre, zor_int rows, zor_int parts, zor_int index) {
  if (index == parts || rows == 0) return index == parts ? rows : 0;
  const zor_int entries = zor_int(pntre[rows - 1]) - zor_int(pntrb[0]);
  const zor_int wanted = zor_int(__int128(entries) * index / parts) + zor_int(pntrb[0]);
  return std::lower_bound(pntrb, pntrb + rows, wanted, [](I p, zor_int w) { return zor_int(p) < w; }) - pntrb;
}

}  // namespace zor_core
