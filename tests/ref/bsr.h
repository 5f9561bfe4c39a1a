// SPDX-License-Identifier: MIT
// Products of a matrix in blocks in their stated orders, on a list of block rows. Block rows and columns and
// the elements of a block count from 1.
#pragma once

#include "tests/ref/csr.h"

namespace zor_ref {

template <class T>
struct block {
  int64_t column;
  std::vector<T> element;  // by rows
};
template <class T>
struct block_rows {
  int64_t lb;
  std::vector<std::vector<block<T>>> row;

  T at(const block<T>& b, int64_t i, int64_t j) const { return b.element[size_t((i - 1) * lb + j - 1)]; }
  // Its entries one by one.
  row_list<T> rows() const {
    row_list<T> list(row.size() * size_t(lb));
    for (size_t r = 0; r < row.size(); ++r)
      for (const auto& b : row[r])
        for (int64_t i = 1; i <= lb; ++i)
          for (int64_t j = 1; j <= lb; ++j)
            list[r * size_t(lb) + size_t(i - 1)].push_back({(b.column - 1) * lb + j, at(b, i, j)});
    return list;
  }
};

// The sum of a dot form: a chain below nine terms; else two accumulators, even and odd, over groups of eight.
template <class T>
T pair_sum(const std::vector<T>& terms) {
  T s{}, odd{};
  size_t k = 0;
  if (terms.size() >= 9) {
    for (; k < terms.size() / 8 * 8; ++k) (k % 2 ? odd : s) = plus(k % 2 ? odd : s, terms[k]);
    s = plus(s, odd);
  }
  for (; k < terms.size(); ++k) s = plus(s, terms[k]);
  return s;
}

// General and triangular views of one vector. Where runs of stored elements point along the result, it grows
// run after run, else by one sum a run.
template <class T>
void bsr_product(const shape& s, bool by_rows, const block_rows<T>& a, T alpha, const column_of<const T>& x,
                 const column_of<T>& y) {
  const bool flip = s.op == 't';
  const int64_t lb = a.lb;
  for (int64_t r = 1; r <= int64_t(a.row.size()); ++r) {
    for (const auto& b : a.row[size_t(r - 1)]) {
      const bool on_diagonal = s.structure == 't' && b.column == r;
      if (s.structure == 't' && beyond(s, r, b.column)) continue;
      const auto counts = [&](int64_t i, int64_t j) {
        return !on_diagonal || inside(s, i, j) || (i == j && s.diagonal == 'n');
      };
      const int64_t in = ((flip ? r : b.column) - 1) * lb, out = ((flip ? b.column : r) - 1) * lb;
      // Element (to, from) of op of the block.
      const auto value = [&](int64_t to, int64_t from) {
        return flip ? a.at(b, from, to) : a.at(b, to, from);
      };
      const auto used = [&](int64_t to, int64_t from) { return flip ? counts(from, to) : counts(to, from); };
      if (by_rows == flip) {
        for (int64_t from = 1; from <= lb; ++from) {
          const T t = times(x(in + from), alpha);
          for (int64_t to = 1; to <= lb; ++to)
            if (used(to, from)) y(out + to) = plus(y(out + to), times(value(to, from), t));
        }
      } else {
        for (int64_t to = 1; to <= lb; ++to) {
          std::vector<T> terms;
          for (int64_t from = 1; from <= lb; ++from)
            if (used(to, from)) terms.push_back(times(times(value(to, from), alpha), x(in + from)));
          y(out + to) = plus(y(out + to), pair_sum(terms));
        }
      }
      for (int64_t i = 1; i <= lb && on_diagonal && s.diagonal == 'u'; ++i)
        y((r - 1) * lb + i) = plus(y((r - 1) * lb + i), times(alpha, x((r - 1) * lb + i)));
    }
  }
}

// Symmetric and antisymmetric views over the block rows first to last; of many right-hand sides with `many`.
template <class T>
void bsr_mirrored(const shape& s, bool diagonal_blocks, bool many, const block_rows<T>& a, int64_t first,
                  int64_t last, T alpha, const column_of<const T>& x, const column_of<T>& y) {
  const int64_t lb = a.lb;
  const bool skew = s.structure == 'a';
  for (int64_t r = first; r <= last; ++r) {
    for (const auto& b : a.row[size_t(r - 1)]) {
      const int64_t c = b.column;
      if (beyond(s, r, c) || (c == r && !diagonal_blocks)) continue;
      // Row i of op, which is the block, its image, or both triangles of a diagonal block.
      const auto add_rows = [&](int64_t out, int64_t in, bool image) {
        for (int64_t i = 1; i <= lb; ++i) {
          T sum{};
          T& to = y((out - 1) * lb + i);
          for (int64_t j = 1; j <= lb; ++j) {
            const bool mirror = c == r ? beyond(s, i, j) : image;
            if (c == r && i == j && skew) continue;
            const T value = mirror ? a.at(b, j, i) : a.at(b, i, j), from = x((in - 1) * lb + j);
            if (many)
              to = plus(to, times(times(value, alpha), from));
            else
              sum = mirror && skew && c == r ? minus(sum, times(value, from)) : plus(sum, times(value, from));
          }
          if (many) continue;
          const T product = times(sum, alpha);
          to = image && skew ? minus(to, product) : plus(to, product);
        }
      };
      add_rows(r, c, false);
      if (c != r) add_rows(c, r, true);
    }
  }
}

}  // namespace zor_ref
