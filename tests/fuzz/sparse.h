// SPDX-License-Identifier: MIT
// Sparse matrices in every format, and what their products and solves are compared with.
#pragma once

#include <algorithm>
#include <map>

#include "tests/fuzz/trial.h"
#include "zor/sparse.h"

namespace zor_fuzz {

// What a matrix stands for: structure g t s h a d, triangle l u, diagonal n u, or z where it does not count.
struct view {
  char structure, triangle, diagonal;
};

// A name's part of the grammar: op n t c s.
struct shape {
  int base;
  char op;
  view what;
  // Symmetric and Hermitian views are never transposed but for the Hermitian t; skew ones are where a format
  // says so.
  bool flip(bool skew = false) const {
    return op == 't' ||
           (op == 'c' && (what.structure == 'g' || what.structure == 't' || (skew && what.structure == 'a')));
  }
  bool conjugate() const { return op == 'c' || op == 's'; }
};

// Element (row, column) stands at a place of the array of values.
struct entry {
  zor_int row, column, place;
};

// How a matrix is stored: the format of zor/sparse.h; rows of entries or blocks sorted, with a dominant
// diagonal, as solves ask for; elements of a block by rows; gaps that belong to no row; columns in place of
// rows. The second matrix of a trial has names of its own, and sizes that go with the first. Positions count
// from a drawn origin, or from a given one.
struct form {
  int32_t format = ZOR_SPARSE_CSR;
  bool sorted = false, by_rows = false, gaps = false, columns = false;
  std::string prefix = "";
  zor_int m = -1, k = -1, origin = -1;
  bool one_triangle = false;
};

template <class T, class I>
class sparse {
 public:
  sparse(trial& t, const view& v, int32_t index_base, const form& as)
      : what(v),
        base(index_base),
        format(as.format),
        prefix_(as.prefix),
        lb(format == ZOR_SPARSE_BSR ? draw(t, "lb", 1, 5, 1) : 1),
        mb(as.m >= 0
               ? as.m
               : t.size((prefix_ + "rows").c_str(), as.sorted || format != ZOR_SPARSE_CSR ? 500 / lb : 3000)),
        m(mb * lb),
        k(as.k >= 0 ? as.k
          : v.structure == 'g' && !as.sorted && format <= ZOR_SPARSE_COO
              ? t.size((prefix_ + "columns").c_str(), 3000)
              : m),
        most_(draw(t, "most", 0, 20, 1)),
        pattern_(draw(t, "pattern", 0, 2, 0)) {
    random_bits r = t.random((prefix_ + "pattern's").c_str());
    if (format == ZOR_SPARSE_DIA)
      place_diagonals(t, as.sorted, r);
    else if (format == ZOR_SPARSE_SKY)
      place_profiles(t, r);
    else
      place_rows(t, as, r);
    std::vector<bool> live(static_cast<size_t>(elements_));
    for (const entry& e : entries) live[size_t(e.place)] = true;
    val_ = std::make_unique<operand<T>>(t.scattered<T>((prefix_ + "val").c_str(), use::in, elements_,
                                                       [&](zor_int e) { return bool(live[size_t(e)]); }));
    for (const entry& e : entries) {
      if (e.row != e.column) continue;
      T value = val()[e.place];
      if (as.sorted) value = zor_test::scalar<T>(double(most_ * lb) + 2, 0.5);
      if (v.structure == 'h' && parts<T> == 2) reals(&value)[1] = 0;
      val_->set(e.place, 0, value);
    }
  }
  sparse(const sparse&) = delete;

  T* val() const { return val_->data(); }
  auto compressed() const { return list_of(val(), indx, pntrb, pntre); }
  auto coordinates() const { return list_of(val(), rowind, indx, count); }
  auto diagonals() const { return list_of(val(), any{lval}, indx); }

  // body(i, j, v, counts) for every term of op(A) that rows first to last - 1 give rise to; entries outside
  // the view come with counts false.
  template <class Body>
  void terms(bool flip, bool conjugate, zor_int first, zor_int last, const Body& body) const {
    const auto term = [&](zor_int i, zor_int j, wide v, bool counts) {
      body(flip ? j : i, flip ? i : j, conj_when(conjugate, v), counts);
    };
    const char s = what.structure;
    for (zor_int row = first; row < last && what.diagonal == 'u'; ++row) term(row, row, 1, true);
    for (const auto& [row, c, place] : entries) {
      if (row < first || row >= last || (no_diagonal_blocks && row / lb == c / lb)) continue;
      const wide v = (*val_)(place);
      const bool inside = what.triangle == 'l' ? c < row : c > row;
      const bool diagonal = c == row && s != 'a' && what.diagonal == 'n';
      const bool both = s == 's' || s == 'h' || s == 'a';
      term(row, c, v, s == 'g' || diagonal || (inside && s != 'd'));
      if (both) term(c, row, s == 'h' ? std::conj(v) : s == 'a' ? -v : v, inside);
    }
  }

  view what;
  int32_t base, format;
  std::string prefix_;
  zor_int lb, mb, m, k, lval = 0;
  I count = 0;
  const I *indx = nullptr, *pntrb = nullptr, *pntre = nullptr, *rowind = nullptr;
  std::vector<entry> entries;
  bool no_diagonal_blocks = false;

 private:
  zor_int draw(trial& t, const char* name, zor_int low, zor_int high, zor_int simplest) const {
    return t.draw((prefix_ + name).c_str(), low, high, simplest);
  }

  // Rows are random, alike (the same distances from the diagonal), or those of a grid.
  std::vector<zor_int> row_columns(zor_int row, zor_int columns, bool sorted, random_bits& r) {
    std::vector<zor_int> c;
    if (columns < 1) return c;
    if (pattern_ == 2) {
      for (const zor_int d : {-most_ - 4, zor_int(-1), zor_int(0), zor_int(1), most_ + 4})
        c.push_back(row + d);
    } else if (pattern_ == 1 && row % 8 != 0) {
      for (const zor_int d : alike_) c.push_back(row + d);
    } else {
      alike_.clear();
      for (zor_int i = r.between(0, most_); i > 0; --i)
        alike_.push_back((c.emplace_back(r.between(0, columns - 1))) - row);
    }
    std::erase_if(c, [&](zor_int j) { return j < 0 || j >= columns; });
    if (!sorted) return c;
    if (row < columns) c.push_back(row);
    std::sort(c.begin(), c.end());
    c.erase(std::unique(c.begin(), c.end()), c.end());
    return c;
  }

  // Entries or blocks in rows, and the rows of entries one by one.
  void place_rows(trial& t, const form& as, random_bits& r) {
    const I origin = I(as.origin >= 0 ? as.origin : draw(t, "origin", 0, 5, 0));
    const zor_int gap_after = as.gaps ? draw(t, "gaps", 1, 9, 9) : 1, area = lb * lb;
    std::vector<I> columns, begins, ends, rows;
    for (zor_int row = 0; row < mb; ++row) {
      begins.push_back(I(zor_int(columns.size()) + origin));
      for (const zor_int c : row_columns(row, k / lb, as.sorted || lb > 1, r)) {
        if (as.one_triangle && (what.triangle == 'u' ? c < row : c > row)) continue;
        const zor_int above = as.columns ? c : row, left = as.columns ? row : c;
        for (zor_int e = 0; e < area; ++e)
          entries.push_back({above * lb + (as.by_rows ? e / lb : e % lb),
                             left * lb + (as.by_rows ? e % lb : e / lb), zor_int(columns.size()) * area + e});
        columns.push_back(I(c + base));
        rows.push_back(I(row + base));
      }
      ends.push_back(I(zor_int(columns.size()) + origin));
      for (zor_int gap = row % gap_after == 1 ? 2 : 0; gap > 0; --gap) columns.push_back(I(-7));
    }
    begins.push_back(I(zor_int(columns.size()) + origin));
    count = I(columns.size());
    elements_ = count * area;
    indx = t.integers((prefix_ + "indx").c_str(), columns);
    if (format == ZOR_SPARSE_COO) {
      rowind = t.integers((prefix_ + "rowind").c_str(), rows);
    } else {
      pntrb = t.integers((prefix_ + "pntrb").c_str(), begins);
      pntre = t.integers((prefix_ + "pntre").c_str(), ends);
    }
  }

  void place_diagonals(trial& t, bool sorted, random_bits& r) {
    std::vector<I> distances;
    for (zor_int i = r.between(0, most_); i > 0 && m > 0; --i)
      distances.push_back(I(r.between(1 - m, m - 1)));
    if (sorted && m > 0) distances.push_back(0);
    std::sort(distances.begin(), distances.end());
    distances.erase(std::unique(distances.begin(), distances.end()), distances.end());
    count = I(distances.size());
    lval = t.leading((prefix_ + "lval").c_str(), m);
    elements_ = count > 0 ? (count - 1) * lval + m : 0;
    for (zor_int d = 0; d < count; ++d)
      for (zor_int i = 0; i < m; ++i)
        if (const zor_int j = i + distances[size_t(d)]; j >= 0 && j < k)
          entries.push_back({i, j, i + d * lval});
    indx = t.integers((prefix_ + "idiag").c_str(), distances);
  }

  // Profiles are rows, or columns of an upper triangle.
  void place_profiles(trial& t, random_bits& r) {
    const I origin = I(draw(t, "origin", 0, 5, 0));
    std::vector<I> begins;
    for (zor_int p = 0; p < m; ++p) {
      begins.push_back(I(elements_ + origin));
      for (zor_int i = std::max<zor_int>(0, p - r.between(0, most_)); i <= p; ++i)
        entries.push_back({what.triangle == 'u' ? i : p, what.triangle == 'u' ? p : i, elements_++});
    }
    begins.push_back(I(elements_ + origin));
    count = I(elements_);
    pntrb = t.integers((prefix_ + "pntrb").c_str(), begins);
  }

  zor_int most_, pattern_, elements_ = 0;
  std::vector<zor_int> alike_;
  std::unique_ptr<operand<T>> val_;
};

// A dense operand of n right-hand sides, element (i, j) in either layout.
template <class T>
struct sides {
  sides(trial& t, const char* name, use how, zor_int m, zor_int n, bool row_major)
      : by_rows(row_major), stored(by_rows ? t.matrix<T>(name, how, n, m) : t.matrix<T>(name, how, m, n)) {}
  auto arguments() const { return stored.arguments(); }
  T* data() const { return stored.data(); }
  wide operator()(zor_int i, zor_int j) const { return by_rows ? stored(j, i) : stored(i, j); }
  T now(zor_int i, zor_int j) const { return by_rows ? stored.now(j, i) : stored.now(i, j); }
  bool by_rows;
  dense<T> stored;
};

// Many vectors with their leading dimension, or one.
template <bool Many, class T>
auto vectors(const sides<T>& of) {
  return list_of(of.data()) + when<Many>(of.stored.ld);
}

// c is start + alpha op(A) b for right-hand sides first to last - 1 of n. The magnitudes of products count
// the result, because an entry outside the view is added and subtracted.
template <class T, class M, class B, class C, class Start>
void check_product(trial& t, const M& a, bool flip, bool conjugate, zor_int row_first, zor_int row_last,
                   T alpha, const B& b, const C& c, zor_int n_first, zor_int n_last, const Start& start) {
  if (!t.checking()) return;
  const zor_int rows = flip ? a.k : a.m;
  std::vector<sum_of_terms> s(size_t(rows * n_last));
  a.terms(flip, conjugate, row_first, row_last, [&](zor_int i, zor_int j, wide v, bool counts) {
    for (zor_int h = n_first; h < n_last; ++h)
      s[size_t(i + h * rows)].add(times(widened(alpha), times(v, b(j, h))), counts);
  });
  for (zor_int h = n_first; h < n_last; ++h)
    for (zor_int i = 0; i < rows; ++i) {
      sum_of_terms& one = s[size_t(i + h * rows)];
      one.add(start(i, h) + times(widened(alpha), wide(0)));  // an empty sum is multiplied too
      one.compare(t, c.now(i, h), "y", i, h);
    }
}

// op(A) x leaves alpha b.
template <class T, class M, class X, class B>
void check_solve(trial& t, const M& a, bool flip, bool conjugate, T alpha, const X& x, const B& b,
                 zor_int n_first, zor_int n_last) {
  if (!t.checking()) return;
  std::vector<sum_of_terms> s(size_t(a.m * n_last));
  a.terms(flip, conjugate, 0, a.m, [&](zor_int i, zor_int j, wide v, bool counts) {
    for (zor_int h = n_first; h < n_last; ++h)
      s[size_t(i + h * a.m)].add(times(v, widened(x.now(j, h))), counts);
  });
  for (zor_int h = n_first; h < n_last; ++h)
    for (zor_int i = 0; i < a.m; ++i) {
      sum_of_terms& one = s[size_t(i + h * a.m)];
      one.add(-times(widened(alpha), b(i, h)));
      one.compare(t, T{}, "residual", i, h);
    }
}

}  // namespace zor_fuzz
