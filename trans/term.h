// SPDX-License-Identifier: MIT
// The summands of a result: factor x, or factor conj(x), for the elements x of a matrix by rows. A complex
// product is (fr xr - fi xi, fr xi + fi xr), the sign of xi changed before it where x is conjugated.
#pragma once

#include "serv/element.h"

namespace zor {

template <bool Conj, class V, class T>
[[gnu::always_inline]] inline V scaled_units(T factor, V x) {
  if constexpr (!is_complex<T>)
    return broadcast<V>(factor) * x;
  else
    return complex_mul(broadcast<V>(factor.re), broadcast<V>(factor.im), Conj ? negate_pairs<1>(x) : x);
}

// One element at any address, with the operations of a vector.
template <bool Conj, class T>
[[gnu::always_inline]] inline T scaled_element(T factor, T x) {
  return mul(factor, Conj ? conj_by_sign(x) : x);
}

template <class T, bool Conj>
struct term {
  T factor;
  const T* p;
  zor_int ld;

  // The elements (i, j), (i, j + 1), ... of a vector, scaled.
  template <class V>
  [[gnu::always_inline]] V at(zor_int i, zor_int j) const {
    return scaled_units<Conj>(factor, load_units<V>(p + i * ld + j));
  }
  [[gnu::always_inline]] term from(zor_int i, zor_int j) const { return {factor, p + i * ld + j, ld}; }
  [[gnu::always_inline]] void touch_at(zor_int i, zor_int j) const { touch(p + i * ld + j); }
};

// No summand.
struct no_term {
  [[gnu::always_inline]] no_term from(zor_int, zor_int) const { return {}; }
};

template <class V, class First>
[[gnu::always_inline]] inline V sum_at(zor_int i, zor_int j, const First& first) {
  return first.template at<V>(i, j);
}
template <class V, class First, class Second>
[[gnu::always_inline]] inline V sum_at(zor_int i, zor_int j, const First& first, const Second& second) {
  return first.template at<V>(i, j) + second.template at<V>(i, j);
}

// One row of a sum. The terms are copies: those of a caller would be read anew behind every store.
template <class T, class... Terms>
[[gnu::always_inline]] inline void sum_row(zor_int cols, T* c, Terms... terms) {
  for_vectors<T, narrowing{}, 4>(
      0, cols, [=]<int Bytes>(zor_int j) __attribute__((always_inline)) {
        store_units(c + j, sum_at<vec<real_t<T>, Bytes>>(0, j, terms...));
      });
}

// C := the sum of the terms, row by row. C may be the matrix of a term.
template <class T, class... Terms>
void sum_rows(zor_int rows, zor_int cols, T* c, zor_int ldc, const Terms&... terms) {
  const bool one_run = ldc == cols && ((terms.ld == cols) && ...);
  if (one_run && rows > 0) cols *= rows, rows = 1;
  for (zor_int i = 0; i < rows; ++i) sum_row(cols, c + i * ldc, terms.from(i, 0)...);
}

}  // namespace zor
