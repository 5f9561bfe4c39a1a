// SPDX-License-Identifier: MIT
// A CSR operand as the kernels see it: rows, columns and positions count from 0, whatever the index base of
// the column indices and the start value of the row pointers.
#pragma once

#include "spblas/pack.h"

namespace zor::sparse {

template <class T, class I>
struct csr {
  const T* val;
  const I* indx;
  const I* pntrb;
  const I* pntre;
  zor_int base;
  zor_int origin = zor_int(*pntrb);

  // The same matrix with val and indx moved, so that a row pointer is a position as it stands.
  csr with_pointers_as_positions() const {
    return {opaque(val - origin), opaque(indx - origin), pntrb, pntre, base, 0};
  }
  [[gnu::always_inline]] zor_int begin(zor_int row) const { return zor_int(pntrb[row]) - origin; }
  [[gnu::always_inline]] zor_int end(zor_int row) const { return zor_int(pntre[row]) - origin; }
  // Whether a row holds just these positions; compared in the width in which they are stored.
  [[gnu::always_inline]] bool holds(zor_int row, zor_int first, zor_int last) const {
    return pntrb[row] == I(first + origin) && pntre[row] == I(last + origin);
  }
  [[gnu::always_inline]] zor_int column(zor_int k) const { return zor_int(indx[k]) - base; }
};

}  // namespace zor::sparse
