// SPDX-License-Identifier: MIT
// Matrices of square blocks as the sweeps see them: block rows, block columns and positions count from 0.
#pragma once

#include "spblas/pack.h"

namespace zor::sparse {

// A BSR matrix, or with its columns in place of rows a BSC matrix. ByRows: the elements of a block stand by
// rows.
template <class T, class I, bool ByRows>
struct block_matrix {
  zor_int count, lb;  // block rows, order of a block
  const T* val;
  const I *indx, *pntrb, *pntre;
  zor_int base;
  zor_int origin = zor_int(*pntrb);

  [[gnu::always_inline]] zor_int begin(zor_int line) const { return zor_int(pntrb[line]) - origin; }
  [[gnu::always_inline]] zor_int end(zor_int line) const { return zor_int(pntre[line]) - origin; }
  [[gnu::always_inline]] zor_int index(zor_int p) const { return zor_int(indx[p]) - base; }
  [[gnu::always_inline]] const T* block(zor_int p) const { return val + p * lb * lb; }

  // Element (i, j) of a block, and N of them from row i on.
  [[gnu::always_inline]] const T* at(const T* block, zor_int i, zor_int j) const {
    return ByRows ? block + i * lb + j : block + i + j * lb;
  }
  template <int N>
  [[gnu::always_inline]] pack<T, N> column(const T* block, zor_int i, zor_int j) const {
    if constexpr (ByRows && N > 1)
      return collect<T, N>([=, this](int lane) { return at(block, i + lane, j); });
    else
      return load<T, N>(at(block, i, j));
  }

  // The first block of a line whose number is not below the line's, the end of the line if there is none.
  [[gnu::always_inline]] zor_int stop(zor_int line) const {
    zor_int p = begin(line);
    while (p < end(line) && index(p) < line) ++p;
    return p;
  }
};

}  // namespace zor::sparse
