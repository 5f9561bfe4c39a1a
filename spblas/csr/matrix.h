// SPDX-License-Identifier: MIT
// A CSR operand as the kernels see it: rows, columns and positions count from 0, whatever the index base of
// the column indices and the start value of the row pointers.
#pragma once

#include "serv/vec.h"

namespace zor::sparse {

// The fields of a kernel's name that choose its algorithm.
struct view {
  char op, structure, triangle, diagonal;

  constexpr bool transposed() const { return op == 't' || op == 'c'; }
  constexpr bool conjugated() const { return op == 's' || op == 'c'; }
  constexpr bool unit() const { return diagonal == 'u'; }
  // side (column - row) is negative in the triangle of the view, 0 on the diagonal, positive beyond it.
  constexpr int side() const { return triangle == 'u' ? -1 : 1; }
  // An entry is outside the view when side (column - row) exceeds this.
  constexpr int bound() const { return unit() ? -1 : 0; }
};

// A view from the bare letters of a row of the grammar.
#define ZOR_VIEW(op, structure, triangle, diagonal) \
  zor::sparse::view { #op[0], #structure[0], #triangle[0], #diagonal[0] }

template <class T, class I>
struct csr {
  const T* val;
  const I* indx;
  const I* pntrb;
  const I* pntre;
  zor_int base;
  zor_int origin = zor_int(*pntrb);

  [[gnu::always_inline]] zor_int begin(zor_int row) const { return zor_int(pntrb[row]) - origin; }
  [[gnu::always_inline]] zor_int end(zor_int row) const { return zor_int(pntre[row]) - origin; }
  [[gnu::always_inline]] zor_int column(zor_int k) const { return zor_int(indx[k]) - base; }
};

}  // namespace zor::sparse
