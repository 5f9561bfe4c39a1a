// SPDX-License-Identifier: MIT
// What the matrix-vector kernels share: the scaling of y, single terms of a sum, sums of columns.
#pragma once

#include "serv/element.h"

namespace zor {

// y := beta y. A beta of 0 stores zeros and reads nothing, one of 1 does nothing.
template <class T>
void scale(zor_int n, T beta, T* y, zor_int incy) {
  using E = element<T>;
  if (is_one(beta)) return;
  if (is_zero(beta)) {
    for (zor_int i = 0; i < n; ++i) store_units(y + i * incy, E{});
  } else if (incy == 1) {
    for_ranges<T>(0, n, [&]<int Bytes>(zor_int i, zor_int last) {
      using V = vec<real_t<T>, Bytes>;
      const factor<T, V> f = make_factor<V>(beta);
      for (; i < last; i += units<T, Bytes>) store_units(y + i, f * load_units<V>(y + i));
    });
  } else {
    for (zor_int i = 0; i < n; ++i)
      store_units(y + i * incy, make_factor<E>(beta) * load_units<E>(y + i * incy));
  }
}

// sum + s a, with Conj sum + s conj(a), of one element a in memory.
template <bool Conj = false, class T>
[[gnu::always_inline]] inline element<T> plus_term(element<T> sum, T s, const T* a) {
  return sum + make_factor<element<T>, Conj>(s) * load_units<element<T>>(a);
}
// y := y + s a of one element each.
template <bool Conj = false, class T>
[[gnu::always_inline]] inline void add_term(T s, const T* a, T* y) {
  store_units(y, plus_term<Conj>(load_units<element<T>>(y), s, a));
}

// y := y + s[0] a_0 + ... + s[Columns-1] a_(Columns-1), one addition after the other; column(j) is where a_j
// stands. Unit strides.
template <int Columns, class T, class Column>
void add_columns(zor_int m, const T* s, const Column& column, T* y) {
  for_ranges<T>(0, m, [&]<int Bytes>(zor_int i, zor_int last) {
    using V = vec<real_t<T>, Bytes>;
    factor<T, V> f[Columns];
    for (int j = 0; j < Columns; ++j) f[j] = make_factor<V>(s[j]);
    for (; i < last; i += units<T, Bytes>) {
      V sum = load_units<V>(y + i);
      for (int j = 0; j < Columns; ++j) sum = sum + f[j] * load_units<V>(column(j) + i);
      store_units(y + i, sum);
    }
  });
}
// The same with columns lda apart.
template <int Columns, class T>
void add_columns(zor_int m, const T* s, const T* a, zor_int lda, T* y) {
  add_columns<Columns>(
      m, s, [=](int j) __attribute__((always_inline)) { return a + j * lda; }, y);
}
// One column.
template <class T>
void add_column(zor_int m, T s, const T* a, T* y) {
  add_columns<1>(m, &s, a, 0, y);
}

}  // namespace zor
