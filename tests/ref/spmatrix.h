// SPDX-License-Identifier: MIT
// Sums and products of sparse matrices in their stated orders, on lists of rows. Rows and columns count
// from 1.
#pragma once

#include <algorithm>
#include <map>
#include <vector>

#include "tests/ref/csr.h"

namespace zor_ref {

template <class T>
void sort_rows(row_list<T>& rows) {
  for (auto& row : rows)
    std::stable_sort(row.begin(), row.end(),
                     [](const entry<T>& e, const entry<T>& f) { return e.column < f.column; });
}

template <class T>
row_list<T> transposed(const row_list<T>& rows, int64_t cols) {
  row_list<T> t(static_cast<size_t>(cols));
  for (size_t r = 0; r < rows.size(); ++r)
    for (const auto& e : rows[r]) t[size_t(e.column - 1)].push_back({int64_t(r + 1), e.value});
  return t;
}

// A + beta B by two cursors over each pair of sorted rows.
template <class T>
row_list<T> sum(const row_list<T>& a, T beta, const row_list<T>& b) {
  row_list<T> c(a.size());
  for (size_t r = 0; r < a.size(); ++r) {
    auto i = a[r].begin(), j = b[r].begin();
    while (i != a[r].end() || j != b[r].end()) {
      const bool a_left = i != a[r].end(), b_left = j != b[r].end();
      if (a_left && (!b_left || i->column < j->column)) {
        c[r].push_back(*i++);
      } else if (a_left && i->column == j->column) {
        c[r].push_back({i->column, plus(i->value, times(beta, j->value))});
        ++i, ++j;
      } else {
        c[r].push_back({j->column, times(beta, j->value)});
        ++j;
      }
    }
  }
  return c;
}

// A B: products in the order of the entries of A, then of B; the first of an element is stored as it is.
template <class T>
row_list<T> product(const row_list<T>& a, const row_list<T>& b) {
  row_list<T> c;
  for (const auto& row : a) {
    std::map<int64_t, T> sums;
    for (const auto& e : row) {
      for (const auto& f : b[size_t(e.column - 1)]) {
        const T term = times(f.value, e.value);
        const auto [place, is_new] = sums.insert({f.column, term});
        if (!is_new) place->second = plus(place->second, term);
      }
    }
    c.emplace_back();
    for (const auto& [column, value] : sums) c.back().push_back({column, value});
  }
  return c;
}

// A^T B in a dense square that begins with zeros, by the rows of both; `met` tells the elements that have a
// product.
template <class T>
struct dense_product {
  int64_t m, n;
  std::vector<T> value;
  std::vector<bool> met;

  dense_product(const row_list<T>& a, int64_t columns_a, const row_list<T>& b, int64_t columns_b)
      : m(columns_a), n(columns_b), value(size_t(m * n), T{}), met(size_t(m * n)) {
    for (size_t i = 0; i < a.size(); ++i)
      for (const auto& e : a[i])
        for (const auto& f : b[i]) {
          const size_t at = size_t((e.column - 1) * n + f.column - 1);
          value[at] = plus(value[at], times(e.value, f.value));
          met[at] = true;
        }
  }
};

}  // namespace zor_ref
