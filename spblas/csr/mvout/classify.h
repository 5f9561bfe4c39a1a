// SPDX-License-Identifier: MIT
// Symmetric and Hermitian products of one vector by classification, one pass over each row. With t = x(r)
// alpha, an entry inside the triangle is scattered to its mirror row, y(c) = y(c) + t a, and gathered, s = s
// + a x(c); a diagonal entry is gathered; one beyond the diagonal is not touched. At the end of the row y(r)
// = y(r) + s alpha.
#pragma once

#include "spblas/csr/mvout/row_entries.h"

namespace zor::sparse {

// A row on its way. Invariant: of the entries passed so far, s holds the sum of the gathered products and y
// the scattered ones. Gather and Mirror conjugate a in the one use or the other.
template <class T, int Side, bool Gather, bool Mirror, class I>
struct classified_row {
  const vector_product<T, I>& p;
  zor_int r;
  one<T> x;
  factor<T> t;
  one<T> s{};

  [[gnu::always_inline]] classified_row(const vector_product<T, I>& product, zor_int row)
      : p(product), r(row), x(p.x_at(row)), t(p.scaled(x)) {}

  [[gnu::always_inline]] bool is_inside(I c) const { return Side > 0 ? c < I(r) : c > I(r); }
  [[gnu::always_inline]] void gather(zor_int i, one<T> xc) { s = s + mul_at<T, Gather>(p.a.val + i, xc); }
  // An entry inside the triangle, column c.
  [[gnu::always_inline]] void scatter_and_gather(zor_int i, zor_int c) {
    const one<T> image = t.template times<Mirror>(p.a.val + i);
    gather(i, p.x_at(c));
    p.set_y(c, p.y_at(c) + image);
  }
  // Positions i to end - 1, one by one, wherever they stand.
  [[gnu::always_inline]] void take(zor_int i, zor_int end) {
    for (end = opaque(end); i < end; ++i) {
      const I c = p.a.indx[i];
      if (is_inside(c))
        scatter_and_gather(i, c);
      else if (c == I(r))
        gather(i, x);
    }
  }
  // N positions from i on, without a branch for each where all are inside but the one at Diagonal, which is
  // on it; -1 expects none there.
  template <int N, int Diagonal>
  [[gnu::always_inline]] void take_group(zor_int i) {
    I c[N];
    bool as_expected = true;
#pragma GCC unroll 8
    for (int j = 0; j < N; ++j) {
      c[j] = p.a.indx[i + j];
      as_expected = as_expected && (j == Diagonal ? c[j] == I(r) : is_inside(c[j]));
    }
    if (as_expected) [[likely]] {
#pragma GCC unroll 8
      for (int j = 0; j < N; ++j) j == Diagonal ? gather(i + j, x) : scatter_and_gather(i + j, c[j]);
    } else {
      take(i, i + N);
    }
  }
  [[gnu::always_inline]] void end() const { p.set_y(r, p.y_at(r) + p.scaled(s)); }
};

// Rows of many entries, by groups.
template <class T, int Side, bool Gather, bool Mirror, class I>
[[gnu::noinline]] void classify_long_rows(const vector_product<T, I>& given) {
  constexpr int group = thresholds::classified_at_once;
  const vector_product<T, I> p = given.with_stored_numbers();
  for (zor_int r = p.first; r < p.last; ++r) {
    classified_row<T, Side, Gather, Mirror, I> row(p, r);
    zor_int k = p.a.begin(r);
    const zor_int end = opaque(p.a.end(r));
    for (; k + group <= end; k += group) row.template take_group<group, -1>(k);
    row.take(k, end);
    row.end();
  }
}

// Other rows. Inside a run a row is expected to hold one triangle in order: the diagonal comes last in a
// lower one and first in an upper one.
template <class T, int Side, bool Gather, bool Mirror, class I>
[[gnu::noinline]] void classify_short_rows(const vector_product<T, I>& given) {
  const vector_product<T, I> p = given.with_stored_numbers();
  for_near_or_far_rows<thresholds::classified_runs>(
      p.a, p.first, p.last, [&]<int Count>(zor_int r, zor_int k) __attribute__((always_inline)) {
        classified_row<T, Side, Gather, Mirror, I> row(p, r);
        constexpr int diagonal = Side > 0 ? Count - 1 : 0;
        if constexpr (Count > 0)
          row.template take_group<Count, diagonal>(k);
        else
          row.take(k, p.a.end(r));
        row.end();
      });
}

template <class T, int Side, bool Gather, bool Mirror, class I>
void classify(const vector_product<T, I>& p) {
  const zor_int rows = p.last - p.first;
  if (p.a.end(p.last - 1) - p.a.begin(p.first) >= thresholds::long_classified_row * rows)
    classify_long_rows<T, Side, Gather, Mirror>(p);
  else
    classify_short_rows<T, Side, Gather, Mirror>(p);
}

}  // namespace zor::sparse
