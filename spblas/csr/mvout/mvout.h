// SPDX-License-Identifier: MIT
// Products of a CSR matrix and one vector: what they are given, and the functions behind all names of one
// type.
#pragma once

#include "spblas/csr/matrix.h"
#include "spblas/view.h"

namespace zor::sparse {

// y := y + alpha op(A) x for rows first to last - 1 of A, counted from 0.
template <class T, class I>
struct vector_product {
  csr<T, I> a;
  zor_int first, last;
  T alpha;
  const T* x;
  T* y;

  // The same product with all operands moved, so that rows, columns and positions are used as they are
  // stored.
  vector_product with_stored_numbers() const {
    return {{opaque(a.val - a.origin), opaque(a.indx - a.origin), opaque(a.pntrb - a.base),
             opaque(a.pntre - a.base), 0, 0},
            first + a.base,
            last + a.base,
            alpha,
            opaque(x - a.base),
            opaque(y - a.base)};
  }
  [[gnu::always_inline]] one<T> x_at(zor_int i) const { return load<T, 1>(x + i); }
  [[gnu::always_inline]] one<T> y_at(zor_int i) const { return load<T, 1>(y + i); }
  [[gnu::always_inline]] void set_y(zor_int i, one<T> v) const { store<T, 1>(y + i, v); }
  [[gnu::always_inline]] one<T> scale() const { return load<T, 1>(&alpha); }
  [[gnu::always_inline]] one<T> scaled(one<T> v) const { return mul_at<T>(&alpha, v); }
};

// The views whose rows may be cut into ranges.
template <class T, class I>
void multiply_rows(view v, const vector_product<T, I>& p);
// The views that take all rows: transposed and diagonal ones.
template <class T, class I>
void multiply_all(view v, const vector_product<T, I>& p);

// Each for one type, of all rows for both widths of integers, in source files that compile side by side.
#define ZOR_CSR_ROWS_PRODUCTS(T, I) \
  template void zor::sparse::multiply_rows(view, const zor::sparse::vector_product<T, I>&);
#define ZOR_CSR_ALL_PRODUCTS(T)                                                                  \
  template void zor::sparse::multiply_all(view, const zor::sparse::vector_product<T, int32_t>&); \
  template void zor::sparse::multiply_all(view, const zor::sparse::vector_product<T, int64_t>&);

}  // namespace zor::sparse
