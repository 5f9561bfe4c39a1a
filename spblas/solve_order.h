// SPDX-License-Identifier: MIT
// The order of a solve, apart from any format: which way the rows go, and how a row ends.
//
// Plain solves take a sum over the solved elements that a row meets and end the row with it; transposed ones
// end the row first and push its element into the rows that depend on it. view::solves_upwards says which way
// the rows go.
#pragma once

#include "spblas/quotient.h"
#include "spblas/view.h"

namespace zor::sparse {

// Calls body(row) for rows 0 to m - 1, from the first or from the last on.
template <class Body>
[[gnu::always_inline]] inline void in_order(bool upwards, zor_int m, const Body& body) {
  const zor_int step = upwards ? 1 : -1;
  for (zor_int n = 0, row = upwards ? 0 : m - 1; n < m; ++n, row += step) body(row);
}

// A solved element in the form in which other rows multiply by it: most rows need the one before at once, and
// it never goes through memory as a vector that two narrower stores would hold up.
template <class T>
struct solved_element {
  one<T> value{};

  solved_element() = default;
  [[gnu::always_inline]] explicit solved_element(const T* x) : value(load<T, 1>(x)) {}
  [[gnu::always_inline]] one<T> times(one<T> entry) const { return mul<T>(entry, value); }
};
template <>
struct solved_element<c64> {
  one<c64> re{}, im{};

  solved_element() = default;
  [[gnu::always_inline]] explicit solved_element(const c64* x)
      : re(broadcast<one<c64>>(x->re)), im(broadcast<one<c64>>(x->im)) {}
  [[gnu::always_inline]] one<c64> times(one<c64> entry) const { return complex_mul(re, im, entry); }
};

// The end of a row of one right-hand side: rest / pivot, or rest itself for a unit diagonal; stored to x and
// kept in `solved`. With a unit diagonal the pivot is not read.
template <class T>
[[gnu::always_inline]] inline void end_row(one<T> rest, bool unit, const T* pivot, bool conj, T* x,
                                           solved_element<T>& solved) {
  T v;
  std::memcpy(&v, &rest, sizeof v);
  if (!unit) v = quotient(v, conj_by_sign_if(conj, *pivot));
  *x = v;
  solved = solved_element<T>(&v);
}

}  // namespace zor::sparse
