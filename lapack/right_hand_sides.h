// SPDX-License-Identifier: MIT
// Right-hand sides of the tridiagonal solves: every column is one chain of operations, and the chains of
// several columns run side by side.
#pragma once

#include "lapack/parts.h"
#include "serv/quotient.h"

namespace zor {

// x - y z.
template <class T>
[[gnu::always_inline]] inline T minus_product(T x, T y, T z) {
  return sub(x, mul(y, z));
}

// Calls body.operator()<Columns>(b) for groups of columns, the largest ones first.
template <class T, class Body>
void for_column_groups(zor_int nrhs, T* b, zor_int ldb, const Body& body) {
  for (; nrhs >= 8; nrhs -= 8, b += 8 * ldb) body.template operator()<8>(b);
  if (nrhs & 4) body.template operator()<4>(b), b += 4 * ldb;
  if (nrhs & 2) body.template operator()<2>(b), b += 2 * ldb;
  if (nrhs & 1) body.template operator()<1>(b);
}

// The element of one row in each of Columns columns.
template <int Columns, class T>
struct row_of {
  T e[Columns];

  [[gnu::always_inline]] static row_of load(const T* b, zor_int ldb) {
    row_of r;
#pragma GCC unroll 8
    for (int k = 0; k < Columns; ++k) r.e[k] = load_element(b + k * ldb);
    return r;
  }
  [[gnu::always_inline]] void store(T* b, zor_int ldb) const {
#pragma GCC unroll 8
    for (int k = 0; k < Columns; ++k) store_element(b + k * ldb, e[k]);
  }
  // Each element by f.
  template <class F>
  [[gnu::always_inline]] row_of map(const F& f) const {
    row_of r;
#pragma GCC unroll 8
    for (int k = 0; k < Columns; ++k) r.e[k] = f(e[k]);
    return r;
  }
  // this - factor x.
  [[gnu::always_inline]] row_of minus(T factor, const row_of& x) const {
    row_of r;
#pragma GCC unroll 8
    for (int k = 0; k < Columns; ++k) r.e[k] = minus_product(e[k], factor, x.e[k]);
    return r;
  }
  [[gnu::always_inline]] row_of times(T factor) const {
    return map([=](T v) __attribute__((always_inline)) { return mul(v, factor); });
  }
};

}  // namespace zor
