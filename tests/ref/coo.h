// SPDX-License-Identifier: MIT
// Products and solves of a matrix in coordinates in their stated orders, on a list of entries. Rows and
// columns count from 1.
#pragma once

#include "tests/ref/csr.h"

namespace zor_ref {

template <class T>
struct triple {
  int64_t row, column;
  T value;
};
template <class T>
using triple_list = std::vector<triple<T>>;

// y := y + alpha op(A) x over some entries in their order, m rows.
template <class T>
void coo_product(const shape& s, const triple_list<T>& entries, int64_t m, T alpha,
                 const column_of<const T>& x, const column_of<T>& y) {
  for (const auto& e : entries) {
    const int64_t r = e.row, c = e.column;
    const T a = conj_if(s.op == 's', e.value), t = times(a, alpha);
    const bool inside_view = s.structure == 'g' || (s.structure != 'd' && inside(s, r, c));
    const bool on_diagonal = r == c && s.structure != 'a' && s.diagonal != 'u';
    if (inside_view || on_diagonal) y(r) = plus(y(r), times(t, x(c)));
    if (!inside_view || s.structure == 'g' || s.structure == 't') continue;
    const T image = times(s.structure == 'h' ? conj(a) : a, alpha);
    y(c) = s.structure == 'a' ? minus(y(c), times(image, x(r))) : plus(y(c), times(image, x(r)));
  }
  if (s.diagonal == 'u')
    for (int64_t r = 1; r <= m; ++r) y(r) = plus(y(r), times(alpha, x(r)));
}

// op(T)^-1 x in place.
template <class T>
void coo_solve(const shape& s, const triple_list<T>& entries, int64_t m, const column_of<T>& x) {
  const bool conjugate = s.op == 's';
  if (s.structure == 'd') {
    for (const auto& e : entries)
      if (e.row == e.column) x(e.row) = over(x(e.row), conj_if(conjugate, e.value));
    return;
  }
  for (int64_t step = 1; step <= m; ++step) {
    const int64_t r = s.triangle == 'l' ? step : m + 1 - step;
    std::vector<entry<T>> row;
    T pivot{};
    for (const auto& e : entries) {
      if (e.row != r) continue;
      if (e.column == r) pivot = conj_if(conjugate, e.value);
      if (inside(s, r, e.column)) row.push_back({e.column, e.value});
    }
    if (s.triangle == 'u') std::reverse(row.begin(), row.end());
    x(r) = minus(x(r), row_dot(row, conjugate, column_of<const T>{x.data, x.step}));
    if (s.diagonal == 'n') x(r) = over(x(r), pivot);
  }
}

// What stands in place of a triangular solve when memory is short.
template <class T>
void coo_scans(const shape& s, const triple_list<T>& entries, int64_t m, const column_of<T>& x) {
  for (int64_t step = 1; step <= m; ++step) {
    const int64_t r = s.triangle == 'l' ? step : m + 1 - step;
    T sum{}, pivot{};
    for (const auto& e : entries) {
      const T a = conj_if(s.op == 's', e.value);
      const bool counts =
          s.triangle == 'l' && s.diagonal == 'u' ? e.row == r && e.column < r : inside(s, e.row, e.column);
      if (counts) sum = plus(sum, times(a, x(e.column)));
      if (e.row == e.column) pivot = a;
    }
    x(r) = minus(x(r), sum);
    if (s.diagonal == 'n') x(r) = over(x(r), pivot);
  }
}

}  // namespace zor_ref
