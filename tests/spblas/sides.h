// SPDX-License-Identifier: MIT
// Dense operands of many right-hand sides for the tests of the sparse formats, and what their cases share.
#pragma once

#include <cfenv>
#include <cmath>
#include <initializer_list>
#include <string>
#include <utility>

#include "tests/spblas/matrices.h"

namespace sparse_test {

using zor_ref::column_of;
using zor_ref::shape;

#define SHAPE(base, op, form, tri, diag) \
  shape { base, #op[0], #form[0], #tri[0], #diag[0] }
// What a row of a table is checked with.
#define BY_SHAPE(check, name, T, I, base, op, form, tri, diag) \
  check<T, I>(#name, SHAPE(base, op, form, tri, diag), name);

// Right-hand sides first to last of n, from 1.
struct columns {
  int64_t n, first, last;
};

// n right-hand sides of so many rows between guard pages, with padding of NaN.
template <class T>
struct sides {
  int64_t rows, n, ld;
  bool row_major;
  guarded<T> all;

  sides(random_bits& random, int64_t m, int64_t count, bool by_rows, int64_t padding)
      : rows(m),
        n(count),
        ld((by_rows ? count : m) + padding),
        row_major(by_rows),
        all(size_t(m < 1 || count < 1 ? 0
                   : by_rows          ? (m - 1) * ld + count
                                      : (count - 1) * ld + m)) {
    for (size_t i = 0; i < all.size() * parts<T>; ++i) reals(all.data())[i] = real<T>(NAN);
    for (int64_t j = 1; j <= n; ++j)
      for (int64_t i = 1; i <= rows; ++i) column(all.data(), j)(i) = draw<T>(random);
  }
  auto arguments() { return zor_test::list_of(all.data(), ld); }
  template <class E>
  column_of<E> column(E* first, int64_t j) const {
    return {row_major ? first + j - 1 : first + (j - 1) * ld, row_major ? ld : 1};
  }
  column_of<const T> get(int64_t j) {
    const T* first = all.data();
    return column(first, j);
  }
};

// What a failure says of a case.
inline std::string named(const std::string& name,
                         std::initializer_list<std::pair<const char*, int64_t>> sizes) {
  std::string text = name;
  for (const auto& [what, size] : sizes) text += std::string(", ") + what + " " + std::to_string(size);
  return text;
}

// Runs a call that is to leave `expected` in `actual`, and looks at its flags: no more than that for a
// rounding.
template <class T, class Call>
void check_call(const std::string& what, const std::vector<T>& expected, guarded<T>& actual,
                const Call& call) {
  std::feclearexcept(FE_ALL_EXCEPT);
  call();
  const int raised = std::fetestexcept(FE_ALL_EXCEPT);
  EXPECT_TRUE(zor_test::same_bits(reals(expected.data()), reals(actual.data()), expected.size() * parts<T>))
      << what;
  EXPECT_EQ(raised & ~FE_INEXACT, 0) << what;
}

// The same of right-hand sides first to last of n: each of `c` is to become what expect(b, c) makes of it.
template <class T, class Expect, class Call>
void check_columns(const std::string& name, const columns& n, sides<T>& b, sides<T>& c, const Expect& expect,
                   const Call& call) {
  std::vector<T> expected(c.all.begin(), c.all.end());
  for (int64_t j = n.first; j <= n.last; ++j) expect(b.get(j), c.column(expected.data(), j));
  check_call(named(name, {{"rows", c.rows}, {"n", n.n}, {"from", n.first}, {"to", n.last}}), expected, c.all,
             call);
}

}  // namespace sparse_test
