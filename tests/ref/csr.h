// SPDX-License-Identifier: MIT
// CSR products in their stated orders, on a list of rows. Rows and columns count from 1.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "tests/ref/matvec.h"

namespace zor_ref {

template <class T>
struct entry {
  int64_t column;
  T value;
};
template <class T>
using row_list = std::vector<std::vector<entry<T>>>;

// What a name says: op n t c s, structure g t s h a d, triangle l u _, diagonal n u _.
struct shape {
  int base;
  char op, structure, triangle, diagonal;
};

// One column of a dense operand: element i (from 1) by reference.
template <class T>
struct column_of {
  T* data;
  int64_t step;
  T& operator()(int64_t i) const { return data[(i - 1) * step]; }
};

template <class T>
T row_dot(const std::vector<entry<T>>& row, bool conjugate, const column_of<const T>& x) {
  T s[4] = {};
  T sum{};
  const size_t whole = row.size() / 4 * 4;
  for (size_t k = 0; k < whole; ++k)
    s[k % 4] = plus(s[k % 4], times(conj_if(conjugate, row[k].value), x(row[k].column)));
  if (whole > 0) sum = plus(plus(plus(s[0], s[1]), s[2]), s[3]);
  for (size_t k = whole; k < row.size(); ++k)
    sum = plus(sum, times(conj_if(conjugate, row[k].value), x(row[k].column)));
  return sum;
}

// c stands beyond the diagonal as seen from the view's triangle, inside it, or on the diagonal.
inline bool beyond(const shape& s, int64_t r, int64_t c) { return s.triangle == 'l' ? c > r : c < r; }
inline bool inside(const shape& s, int64_t r, int64_t c) { return s.triangle == 'l' ? c < r : c > r; }

// Transposed products and the diagonal view, of one right-hand side.
template <class T>
void scatter(const shape& s, const row_list<T>& rows, T alpha, const column_of<const T>& x,
             const column_of<T>& y) {
  const bool cj = s.op == 'c';
  for (int64_t r = 1; r <= int64_t(rows.size()); ++r) {
    const auto& row = rows[size_t(r - 1)];
    if (s.structure == 'd' && s.diagonal == 'u') {
      y(r) = plus(y(r), times(alpha, x(r)));
    } else if (s.structure == 'd') {
      for (const auto& e : row)
        if (e.column == r) y(r) = plus(y(r), times(times(conj_if(cj, e.value), alpha), x(r)));
    } else if (s.structure == 'g') {
      const T t = times(x(r), alpha);
      for (const auto& e : row) y(e.column) = plus(y(e.column), times(conj_if(cj, e.value), t));
    } else {
      for (const auto& e : row)
        y(e.column) = plus(y(e.column), times(times(conj_if(cj, e.value), alpha), x(r)));
      if (s.diagonal == 'u') y(r) = plus(y(r), times(x(r), alpha));
      for (const auto& e : row) {
        if (!(beyond(s, r, e.column) || (s.diagonal == 'u' && e.column == r))) continue;
        y(e.column) = minus(y(e.column), times(x(r), times(conj_if(cj, e.value), alpha)));
      }
    }
  }
}

// y := y + alpha op(A) x over the rows first to last, one right-hand side, as mvout does it.
template <class T>
void csr_mv(const shape& s, const row_list<T>& rows, int64_t first, int64_t last, T alpha,
            const column_of<const T>& x, const column_of<T>& y) {
  const bool hermitian = s.structure == 'h';
  const bool conjugated = s.op == 's' || s.op == 'c';
  const bool g = hermitian ? s.op == 't' : conjugated;
  const bool mirror = hermitian ? s.op == 'n' : conjugated;
  for (int64_t r = first; r <= last; ++r) {
    const auto& row = rows[size_t(r - 1)];
    if (s.structure == 'g') {
      y(r) = plus(y(r), times(row_dot(row, g, x), alpha));
    } else if (s.structure == 't' && s.diagonal == 'n') {
      T sum = row_dot(row, g, x);
      for (const auto& e : row)
        if (beyond(s, r, e.column)) sum = minus(sum, times(conj_if(g, e.value), x(e.column)));
      y(r) = plus(times(alpha, sum), y(r));
    } else if (s.structure == 't') {
      const T sum = row_dot(row, g, x);
      T u{};
      for (const auto& e : row)
        if (!inside(s, r, e.column)) u = plus(u, times(conj_if(g, e.value), x(e.column)));
      u = minus(u, x(r));
      y(r) = plus(y(r), times(minus(sum, u), alpha));
    } else if (s.structure == 'a' || s.diagonal == 'u') {
      const bool skew = s.structure == 'a';
      y(r) = plus(times(row_dot(row, g, x), alpha), y(r));
      T u{};
      for (const auto& e : row) {
        if (inside(s, r, e.column)) {
          const T image = times(times(x(r), alpha), conj_if(mirror, e.value));
          y(e.column) = skew ? minus(y(e.column), image) : plus(y(e.column), image);
        } else {
          u = plus(u, times(times(conj_if(g, e.value), alpha), x(e.column)));
        }
      }
      if (!skew) y(r) = plus(y(r), times(x(r), alpha));
      y(r) = minus(y(r), u);
    } else if (s.base == 0 && (hermitian || conjugated)) {
      y(r) = plus(y(r), times(alpha, row_dot(row, g, x)));
      T u{};
      for (const auto& e : row) {
        if (inside(s, r, e.column))
          y(e.column) = plus(y(e.column), times(conj_if(mirror, e.value), times(alpha, x(r))));
        else if (e.column != r)
          u = plus(u, times(conj_if(g, e.value), x(e.column)));
      }
      y(r) = minus(y(r), times(alpha, u));
    } else {
      const T t = times(x(r), alpha);
      T sum{};
      for (const auto& e : row) {
        if (inside(s, r, e.column)) y(e.column) = plus(y(e.column), times(t, conj_if(mirror, e.value)));
        if (!beyond(s, r, e.column)) sum = plus(sum, times(conj_if(g, e.value), x(e.column)));
      }
      y(r) = plus(y(r), times(sum, alpha));
    }
  }
}

// C := C + alpha op(A) B, one right-hand side, as mmout does it.
template <class T>
void csr_mm(const shape& s, const row_list<T>& rows, T alpha, const column_of<const T>& b,
            const column_of<T>& c) {
  const int64_t m = int64_t(rows.size());
  if (s.structure == 'g' && (s.op == 'n' || s.op == 's')) return csr_mv(s, rows, 1, m, alpha, b, c);
  if (s.structure == 'd' || ((s.structure == 'g' || s.structure == 't') && (s.op == 't' || s.op == 'c')))
    return scatter(s, rows, alpha, b, c);
  const bool hermitian = s.structure == 'h';
  const bool conjugated = s.op == 's' || s.op == 'c';
  const bool g = hermitian ? s.op == 't' : conjugated;
  const bool mirror = hermitian ? s.op == 'n' : conjugated;
  const auto a = [&](const entry<T>& e) { return conj_if(g, e.value); };
  for (int64_t r = 1; r <= m; ++r) {
    const auto& row = rows[size_t(r - 1)];
    const size_t whole = row.size() / 4 * 4;
    for (size_t k = 0; k < whole; k += 4) {
      T group = times(a(row[k + 3]), b(row[k + 3].column));
      for (size_t i = 3; i-- > 0;) group = plus(group, times(a(row[k + i]), b(row[k + i].column)));
      c(r) = plus(c(r), times(group, alpha));
    }
    for (size_t k = whole; k < row.size(); ++k)
      c(r) = plus(c(r), times(times(a(row[k]), alpha), b(row[k].column)));
    if (s.structure != 't') continue;
    T u{};
    for (const auto& e : row)
      if (beyond(s, r, e.column) || (s.diagonal == 'u' && e.column == r))
        u = plus(u, times(times(a(e), alpha), b(e.column)));
    c(r) = s.diagonal == 'u' ? minus(plus(times(b(r), alpha), c(r)), u) : minus(c(r), u);
  }
  if (s.structure == 't') return;
  const bool skew = s.structure == 'a';
  for (int64_t r = 1; r <= m; ++r) {
    T u{};
    for (const auto& e : rows[size_t(r - 1)]) {
      if (inside(s, r, e.column)) {
        const T image = times(times(b(r), alpha), conj_if(mirror, e.value));
        c(e.column) = skew ? minus(c(e.column), image) : plus(c(e.column), image);
      } else if (e.column != r || s.diagonal != 'n') {
        u = plus(u, times(times(a(e), alpha), b(e.column)));
      }
    }
    c(r) = minus(c(r), u);
    if (s.diagonal == 'u') c(r) = plus(c(r), times(b(r), alpha));
  }
}

// Stored entries one after the other; row r (from 1) stands at positions start[r-1] to end[r-1] - 1.
template <class T>
struct flat_rows {
  std::vector<entry<T>> all;
  std::vector<int64_t> start, end;
};

// How a solve ends a row: a division always, or a product with the reciprocal in the row-dot forms.
enum class ending { division, reciprocal };

// Solves op(T) x = b for one right-hand side, in place. alpha is read by the diagonal view alone.
template <class T>
void csr_solve(const shape& s, const flat_rows<T>& a, ending how, T alpha, const column_of<T>& x) {
  const int64_t m = int64_t(a.start.size());
  const bool cj = s.op == 's' || s.op == 'c', unit = s.diagonal == 'u', lower = s.triangle == 'l';
  const bool push = s.op == 't' || s.op == 'c';
  const auto value = [&](int64_t k) { return conj_if(cj, a.all[size_t(k)].value); };
  const auto column = [&](int64_t k) { return a.all[size_t(k)].column; };
  const bool up = s.structure == 'd' || lower != push;
  for (int64_t step = 1; step <= m; ++step) {
    const int64_t r = up ? step : m + 1 - step;
    const int64_t start = a.start[size_t(r - 1)], end = a.end[size_t(r - 1)];
    int64_t stop = start;
    if (lower && push) {
      for (stop = end - 1; stop >= start && column(stop) > r;) --stop;
    } else {
      while (stop < end && column(stop) < r) ++stop;
    }
    if (s.structure == 'd') {
      x(r) = times(x(r), over(alpha, value(stop)));
      continue;
    }
    const bool on_diagonal = stop >= start && stop < end && column(stop) == r;
    const int64_t skip = !unit || on_diagonal ? 1 : 0;
    if (push) {
      if (!unit) x(r) = over(x(r), value(stop));
      const T t = minus(T{}, x(r));
      if (lower)
        for (int64_t k = stop - skip; k >= start; --k) x(column(k)) = plus(x(column(k)), times(value(k), t));
      else
        for (int64_t k = stop + skip; k < end; ++k) x(column(k)) = plus(x(column(k)), times(value(k), t));
      continue;
    }
    T sum{};
    if (lower) {
      for (int64_t k = start; k < stop; ++k) sum = plus(sum, times(value(k), x(column(k))));
    } else {
      const std::vector<entry<T>> rest(a.all.begin() + stop + skip,
                                       a.all.begin() + std::max(end, stop + skip));
      sum = row_dot(rest, cj, column_of<const T>{x.data, x.step});
    }
    const T left = minus(x(r), sum);
    if (unit)
      x(r) = left;
    else
      x(r) = how == ending::division ? over(left, value(stop)) : times(left, over(unity<T>(), value(stop)));
  }
}

}  // namespace zor_ref
