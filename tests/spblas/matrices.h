// SPDX-License-Identifier: MIT
// Random sparse operands for the kernel tests: arrays between guard pages beside a plain list of rows.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "tests/ref/csr.h"
#include "tests/support/elements.h"
#include "tests/support/operand.h"
#include "tests/support/pass.h"

namespace sparse_test {

using zor_test::guarded;
using zor_test::parts;
using zor_test::pass;
using zor_test::random_bits;
using zor_test::real;
using zor_test::reals;

template <class T>
T draw(random_bits& random) {
  return zor_test::scalar<T>(random.unit(), random.unit());
}

template <class T>
void fill(random_bits& random, T* x, size_t count) {
  for (size_t i = 0; i < count * parts<T>; ++i) reals(x)[i] = real<T>(random.unit());
}

// Row r holds between 0 and `longest` entries of columns 1 to k in any order, repeats included. Each `run`
// rows share a length; runs of more than one row are like that, of a lower triangle with the diagonal behind
// it, and of an upper one behind the diagonal, one after the other.
template <class T>
zor_ref::row_list<T> random_rows(random_bits& random, int64_t m, int64_t k, int64_t longest,
                                 int64_t run = 1) {
  zor_ref::row_list<T> rows(static_cast<size_t>(m));
  for (int64_t r = 1; r <= m; ++r) {
    auto& row = rows[size_t(r - 1)];
    row.resize((r - 1) % run == 0 ? size_t(random.between(0, longest)) : rows[size_t(r - 2)].size());
    enum : int64_t { whole, lower, upper };
    const int64_t kind = (r - 1) / run % (run == 1 ? 1 : 3), middle = std::min(r, k);
    for (auto& e : row)
      e = {random.between(kind == upper ? middle : 1, kind == lower ? middle : k), draw<T>(random)};
    if (kind != whole && !row.empty()) (kind == lower ? row.back() : row.front()).column = middle;
  }
  return rows;
}

// The arrays of a list of rows: columns in the given base, row pointers that start at `origin`. With gaps a
// NaN that belongs to no row follows every tenth one.
template <class T, class I>
struct csr_arrays {
  guarded<T> val;
  guarded<I> indx, pntrb, pntre;

  csr_arrays(const zor_ref::row_list<T>& rows, int base, I origin, bool gaps = false)
      : val(count(rows) + (gaps ? rows.size() / 10 : 0)),
        indx(val.size()),
        pntrb(rows.size() + 1),
        pntre(rows.size()) {
    size_t k = 0;
    for (size_t r = 0; r < rows.size(); ++r) {
      pntrb[r] = I(k) + origin;
      for (const auto& e : rows[r]) {
        val[k] = e.value;
        indx[k++] = I(e.column - 1 + base);
      }
      pntre[r] = I(k) + origin;
      if (gaps && r % 10 == 9) {
        reals(val.data() + k)[0] = real<T>(NAN);
        indx[k++] = I(base);
      }
    }
    pntrb[rows.size()] = I(k) + origin;
  }
  auto arguments() const { return zor_test::list_of(val.data(), indx.data(), pntrb.data(), pntre.data()); }
  static size_t count(const zor_ref::row_list<T>& rows) {
    size_t n = 0;
    for (const auto& row : rows) n += row.size();
    return n;
  }
};

// The three arrays of rows that follow one another.
template <class T, class I>
struct three_arrays : csr_arrays<T, I> {
  explicit three_arrays(const zor_ref::row_list<T>& rows, int base = 1) : three_arrays(rows, base, I(base)) {}
  three_arrays(const zor_ref::row_list<T>& rows, int base, I origin) : csr_arrays<T, I>(rows, base, origin) {}
  auto arguments() { return zor_test::list_of(this->val.data(), this->indx.data(), this->pntrb.data()); }
  auto arguments() const {
    return zor_test::list_of(this->val.data(), this->indx.data(), this->pntrb.data());
  }
};

}  // namespace sparse_test
