// SPDX-License-Identifier: MIT
// What the matrix-vector kernels share: sums of columns.
#pragma once

#include "serv/element.h"

namespace zor {

// y := y + s[0] a(:,0) + ... + s[Columns-1] a(:,Columns-1), one addition after the other; unit strides.
template <int Columns, class T>
void add_columns(zor_int m, const T* s, const T* a, zor_int lda, T* y) {
  for_ranges<T>(0, m, [&]<int Bytes>(zor_int i, zor_int last) {
    using V = vec<real_t<T>, Bytes>;
    factor<T, V> f[Columns];
    for (int j = 0; j < Columns; ++j) f[j] = make_factor<V>(s[j]);
    for (; i < last; i += units<T, Bytes>) {
      V sum = load_units<V>(y + i);
      for (int j = 0; j < Columns; ++j) sum = sum + f[j] * load_units<V>(a + i + j * lda);
      store_units(y + i, sum);
    }
  });
}

}  // namespace zor
