// SPDX-License-Identifier: MIT
// Products and solves of a matrix in diagonals in their stated orders, loop by loop. Rows, columns and
// diagonals count from 1.
#pragma once

#include "tests/ref/csr.h"

namespace zor_ref {

// Diagonals of an m by k matrix: element (i, i + distance[d-1]) is at(i, d).
template <class T>
struct diagonal_list {
  int64_t m, k;
  std::vector<int64_t> distance;
  std::vector<std::vector<T>> element;

  T at(int64_t i, int64_t d) const { return element[size_t(d - 1)][size_t(i - 1)]; }
  int64_t count() const { return int64_t(distance.size()); }
  row_list<T> rows() const {
    row_list<T> list(static_cast<size_t>(m));
    for (int64_t i = 1; i <= m; ++i)
      for (int64_t d = 1; d <= count(); ++d)
        if (const int64_t c = i + distance[size_t(d - 1)]; c >= 1 && c <= k)
          list[size_t(i - 1)].push_back({c, at(i, d)});
    return list;
  }
};

// y := y + alpha op(A) x, of a matrix product (b (a alpha)) or of a vector ((x alpha) a).
template <class T>
void dia_product(const shape& s, const diagonal_list<T>& a, bool many, T alpha, const column_of<const T>& x,
                 const column_of<T>& y) {
  const bool flip = s.structure != 'h' && (s.op == 't' || s.op == 'c'), all = s.op == 'c';
  const bool direct_conj = all || (s.structure == 'h' && s.op == 't');
  const bool image_conj = all || (s.structure == 'h' && s.op == 'n');
  const bool images = s.structure == 's' || s.structure == 'h' || s.structure == 'a';
  const auto product = [&](T element, T value) {
    return many ? times(element, times(value, alpha)) : times(times(element, alpha), value);
  };
  const int64_t m = a.m, k = s.structure == 'd' ? a.m : a.k;
  if (s.diagonal == 'u')
    for (int64_t i = 1; i <= m; ++i) y(i) = plus(y(i), times(alpha, x(i)));
  const int64_t rb = std::min<int64_t>(m, 20000), nrb = m / rb, cb = std::min<int64_t>(k, 5000), ncb = k / cb;
  for (int64_t rt = 1; rt <= nrb; ++rt) {
    const int64_t r0 = (rt - 1) * rb + 1, r1 = rt < nrb ? rt * rb : m;
    for (int64_t ct = 1; ct <= ncb; ++ct) {
      const int64_t c0 = (ct - 1) * cb + 1, c1 = ct < ncb ? ct * cb : k;
      for (int64_t d = 1; d <= a.count(); ++d) {
        const int64_t stored = a.distance[size_t(d - 1)], q = flip ? -stored : stored;
        const bool main = stored == 0 && s.structure != 'a' && s.diagonal != 'u';
        if (s.structure == 'd' && stored != 0) continue;
        if (s.structure != 'g' && !main && !(s.triangle == 'l' ? stored < 0 : stored > 0)) continue;
        if (s.structure != 'd' && (q < c0 - r1 || q > c1 - r0)) continue;
        for (int64_t i = std::max(r0, c0 - q); i <= std::min(r1, c1 - q); ++i) {
          const T value = a.at(flip ? i + q : i, d);
          y(i) = plus(y(i), product(x(i + q), conj_if(direct_conj, value)));
          if (!images || stored == 0) continue;
          const T image = product(x(i), conj_if(image_conj, value));
          y(i + q) = s.structure == 'a' ? minus(y(i + q), image) : plus(y(i + q), image);
        }
      }
    }
  }
}

// op(T)^-1 x in place: blocks of rows that do not meet, pushed along the diagonals first to last.
template <class T>
void dia_solve(const shape& s, const diagonal_list<T>& a, int64_t first, int64_t last, int64_t main,
               const column_of<T>& x) {
  const int64_t m = a.m;
  const bool flip = s.op == 't' || s.op == 'c', lower = s.triangle == 'l', up = lower != flip;
  const auto value = [&](int64_t i, int64_t d) { return conj_if(s.op == 'c', a.at(i, d)); };
  if (s.structure == 'd') {
    for (int64_t d = 1; d <= a.count(); ++d)
      for (int64_t i = 1; i <= m && a.distance[size_t(d - 1)] == 0; ++i) x(i) = over(x(i), value(i, d));
    return;
  }
  int64_t size = m;
  if (lower && last > 0) size = -a.distance[size_t(last - 1)];
  if (!lower && first <= last) size = a.distance[size_t(first - 1)];
  if (size == 0) size = m;
  const int64_t count = m / size + (m % size != 0);
  for (int64_t n = 1; n <= count; ++n) {
    const int64_t block = up ? n : count + 1 - n, lo = (block - 1) * size + 1;
    const int64_t hi = block < count ? block * size : m;
    for (int64_t i = lo; i <= hi && s.diagonal == 'n'; ++i) x(i) = over(x(i), value(i, main));
    if (n == count) break;
    for (int64_t d = first; d <= last; ++d) {
      const int64_t q = a.distance[size_t(d - 1)];
      for (int64_t i = lo; i <= hi; ++i) {
        const int64_t to = flip ? i + q : i - q;
        if (to >= 1 && to <= m) x(to) = minus(x(to), times(value(flip ? i : to, d), x(i)));
      }
    }
  }
}

}  // namespace zor_ref
