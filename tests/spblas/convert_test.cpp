// SPDX-License-Identifier: MIT
// Format conversions against what each format means, exactly: from a list of entries to the arrays and back,
// every base, every job, every lack of room, operands between guard pages, refused memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>

#include "tests/spblas/matrices.h"
#include "tests/support/zalloc.h"
#include "zor/serv.h"
#include "zor/signatures/spblas_matrix.h"

namespace {

using namespace sparse_test;
using rows_of = zor_ref::row_list<double>;

constexpr int untouched = -5;

template <class X>
std::vector<X> copy_of(const guarded<X>& g) {
  return {g.data(), g.data() + g.size()};
}
template <class X>
void spoil(guarded<X>& g) {
  std::fill(g.begin(), g.end(), X(untouched));
}

// Rows for conversions: places may repeat where `repeats`; values are never zero but where `zeros`.
rows_of some_rows(random_bits& random, int64_t n, int64_t longest, bool repeats, bool zeros = false) {
  rows_of rows(static_cast<size_t>(n));
  for (auto& row : rows) {
    std::map<int64_t, bool> seen;
    for (int64_t k = random.between(0, longest); k > 0; --k) {
      const int64_t column = random.between(1, n);
      const double value = zeros && random.between(0, 3) == 0 ? 0.0 : double(random.between(1, 1000000));
      if (repeats || !seen[column]) row.push_back({column, value});
      seen[column] = true;
    }
  }
  return rows;
}

template <class I>
using arrays = three_arrays<double, I>;

template <class I>
struct empty_csr {
  guarded<double> a;
  guarded<I> ja, ia;
  empty_csr(size_t room, size_t n) : a(room), ja(room), ia(n + 1) {
    spoil(a);
    spoil(ja);
    spoil(ia);
  }
  auto arguments() { return zor_test::list_of(a.data(), ja.data(), ia.data()); }
};

template <class I>
void expect_csr(const rows_of& expected, int base, const empty_csr<I>& c) {
  I k = 0;
  for (size_t r = 0; r < expected.size(); ++r) {
    ASSERT_EQ(c.ia[r], k + base) << "row " << r;
    for (const auto& e : expected[r]) {
      ASSERT_EQ(c.ja[size_t(k)], I(e.column - 1 + base)) << "row " << r;
      ASSERT_EQ(c.a[size_t(k++)], e.value) << "row " << r;
    }
  }
  ASSERT_EQ(c.ia[expected.size()], k + base);
}

size_t entries(const rows_of& rows) { return csr_arrays<double, int32_t>::count(rows); }

struct bases {
  int csr, other;
};
constexpr bases all_bases[] = {{0, 0}, {1, 0}, {0, 1}, {1, 1}};

template <class I>
void check_coo(const char* name, zor::csr_coo_fn<I>* convert) {
  SCOPED_TRACE(name);
  random_bits random(41);
  for (const bases b : all_bases) {
    const auto rows = some_rows(random, 23, 19, true);
    const size_t nnz = entries(rows);
    arrays<I> csr(rows, b.csr);
    const I n = 23;
    const struct {
      I fill, room, info;
      bool rows, columns, values;
    } cases[] = {{3, I(nnz), 0, true, true, true},    {2, I(nnz), 0, true, true, false},
                 {1, I(nnz), 0, true, false, false},  {5, I(nnz), 2, false, false, false},
                 {0, I(nnz), 2, false, false, false}, {3, I(nnz) - 1, 1, false, false, false}};
    for (const auto& c : cases) {
      guarded<double> acoo(nnz);
      guarded<I> rowind(nnz), colind(nnz);
      spoil(acoo);
      spoil(rowind);
      spoil(colind);
      const I job[6] = {0, I(b.csr), I(b.other), 0, c.room, c.fill};
      I got = -1, info = -1;
      pass(convert, job, n, csr, &got, acoo, rowind, colind, &info);
      EXPECT_EQ(info, c.info);
      EXPECT_EQ(got, I(nnz));
      size_t k = 0;
      for (size_t r = 0; r < rows.size(); ++r)
        for (const auto& e : rows[r]) {
          EXPECT_EQ(rowind[k], c.rows ? I(r) + b.other : untouched);
          EXPECT_EQ(colind[k], c.columns ? I(e.column) - 1 + b.other : untouched);
          EXPECT_EQ(acoo[k++], c.values ? e.value : double(untouched));
        }
    }
  }
}

template <class I>
void check_coo_back(const char* name, zor::csr_coo_fn<I>* convert) {
  SCOPED_TRACE(name);
  random_bits random(42);
  for (const bases b : all_bases) {
    const I n = 17;
    I nnz = 90, info = -1;
    guarded<double> acoo(90);
    guarded<I> rowind(90), colind(90);
    rows_of expected(17);
    for (size_t e = 0; e < 90; ++e) {
      const int64_t r = random.between(1, 17), c = random.between(1, 17);
      acoo[e] = double(random.between(1, 99));
      rowind[e] = I(r - 1 + b.other);
      colind[e] = I(c - 1 + b.other);
      expected[size_t(r - 1)].push_back({c, acoo[e]});
    }
    const auto call = [&](I fill, I room, empty_csr<I>& to) {
      const I job[6] = {1, I(b.csr), I(b.other), 0, room, fill};
      pass(convert, job, n, to, &nnz, acoo, rowind, colind, &info);
    };
    for (const I fill : {I(0), I(3)}) {
      empty_csr<I> to(90, 17);
      call(fill, fill == 0 ? 90 : 0, to);
      EXPECT_EQ(info, 0);
      expect_csr(expected, b.csr, to);
    }
    empty_csr<I> starts(90, 17), full(90, 17), as_it_stands(90, 17);
    call(1, 0, starts);
    EXPECT_EQ(info, 0);
    EXPECT_EQ(starts.ja[0], untouched);
    I at = I(b.csr);
    for (size_t r = 0; r <= 17; ++r) {
      EXPECT_EQ(starts.ia[r], at);
      if (r < 17) at += I(expected[r].size());
    }
    call(0, 89, full);
    EXPECT_EQ(info, 1);
    call(2, 0, as_it_stands);
    EXPECT_EQ(info, 0);
    EXPECT_EQ(as_it_stands.ia[0], untouched);
    for (size_t e = 0; e < 90; ++e) {
      EXPECT_EQ(as_it_stands.a[e], acoo[e]);
      EXPECT_EQ(as_it_stands.ja[e], colind[e] - b.other + b.csr);
    }
  }
}

template <class I>
void check_csc(const char* name, zor::csr_csc_fn<I>* convert) {
  SCOPED_TRACE(name);
  random_bits random(43);
  for (const bases b : all_bases) {
    for (const bool back : {false, true}) {
      const auto rows = some_rows(random, 31, 12, true);
      rows_of expected(31);
      for (size_t r = 0; r < 31; ++r)
        for (const auto& e : rows[r]) expected[size_t(e.column - 1)].push_back({int64_t(r + 1), e.value});
      const int from = back ? b.other : b.csr, to = back ? b.csr : b.other;
      arrays<I> given(rows, from);
      const I n = 31;
      for (const I fill : {0, 1}) {
        empty_csr<I> made(entries(rows), 31);
        const I job[6] = {I(back), I(b.csr), I(b.other), 0, 0, fill};
        if (back)
          pass(convert, job, n, made, given);
        else
          pass(convert, job, n, given, made);
        if (fill == 0) {
          for (const double v : made.a) EXPECT_EQ(v, untouched);
          size_t k = 0;
          for (const auto& column : expected)
            for (const auto& e : column) made.a[k++] = e.value;
        }
        expect_csr(expected, to, made);
      }
    }
  }
}

// More entries than the caches hold, of columns in any order, to columns and from coordinates whose rows are
// the columns; with each request for memory refused once.
template <class I>
void check_many(zor::csr_csc_fn<I>* to_columns, zor::csr_coo_fn<I>* from_coordinates) {
  constexpr I n = 3001, longest = 700;
  constexpr size_t count = size_t(n) * size_t(longest);
  random_bits random(47);
  guarded<I> row(count), column(count), start(size_t(n) + 1);
  guarded<double> value(count);
  std::vector<size_t> order(count);
  for (size_t k = 0; k < count; ++k) {
    row[k] = I(k / longest) + 1;
    column[k] = I(random.between(1, n));
    value[k] = double(k);
    order[k] = k;
  }
  for (I r = 0; r <= n; ++r) start[size_t(r)] = r * longest + 1;
  std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return column[a] < column[b]; });
  for (const bool coordinates : {false, true}) {
    for (I nth = 0; nth <= 3; ++nth) {
      empty_csr<I> made(count, size_t(n));
      I job[6] = {coordinates, 1, 1, 0, I(count), I(!coordinates && nth != 1)}, nnz = I(count), info = 0;
      zor_serv_freebuffers();
      zalloc_reset();
      zalloc_fail(uint64_t(nth), false);
      if (coordinates)
        from_coordinates(job, &n, made.a.data(), made.ja.data(), made.ia.data(), &nnz, value.data(),
                         column.data(), row.data(), &info);
      else
        to_columns(job, &n, value.data(), column.data(), start.data(), made.a.data(), made.ja.data(),
                   made.ia.data());
      zalloc_fail(0, false);
      size_t wrong = 0, k = 0;
      for (I c = 1; c <= n; ++c) {
        wrong += made.ia[size_t(c - 1)] != I(k) + 1;
        for (; k < count && column[order[k]] == c; ++k)
          wrong += made.ja[k] != row[order[k]] ||
                   made.a[k] != (job[5] == 0 && !coordinates ? untouched : value[order[k]]);
      }
      EXPECT_EQ(wrong + size_t(made.ia[size_t(n)] != I(k) + 1), 0U) << coordinates << ", request " << nth;
    }
  }
}

// The matrix as a dense square: of entries in one place the last counts.
std::vector<double> square_of(const rows_of& rows) {
  const size_t n = rows.size();
  std::vector<double> d(n * n);
  for (size_t r = 0; r < n; ++r)
    for (const auto& e : rows[r]) d[r * n + size_t(e.column - 1)] = e.value;
  return d;
}

struct dia_case {
  int64_t room;             // diagonals asked for
  int fill;                 // job[5]
  std::vector<int> list;    // given where the tens of fill are 0
  std::vector<int> chosen;  // expected
};

// Diagonals of a matrix of order 9: 8 entries on -1, 5 on 3, 5 on -4, 2 on 0, 1 on 8.
rows_of banded_rows() {
  rows_of rows(9);
  const auto put = [&](int64_t r, int64_t c) { rows[size_t(r - 1)].push_back({c, double(10 * r + c)}); };
  for (int64_t r = 2; r <= 9; ++r) put(r, r - 1);
  for (int64_t r = 1; r <= 5; ++r) put(r, r + 3);
  for (int64_t r = 5; r <= 9; ++r) put(r, r - 4);
  put(3, 3);
  put(7, 7);
  put(1, 9);
  put(3, 3);
  rows[2].back().value = -1;
  return rows;
}

template <class I>
void check_dia(const char* name, zor::csr_dia_fn<I>* convert) {
  SCOPED_TRACE(name);
  const auto rows = banded_rows();
  const auto square = square_of(rows);
  const dia_case cases[] = {{2, 10, {}, {-1, -4}},          {3, 11, {}, {-1, -4, 3}},
                            {9, 10, {}, {-1, -4, 3, 0, 8}}, {2, 1, {3, 0}, {3, 0}},
                            {3, 0, {3, 0, 3}, {3, 0, 3}},   {0, 1, {}, {}}};
  for (const bases b : all_bases) {
    for (const auto& c : cases) {
      arrays<I> csr(rows, b.csr);
      const I n = 9, lval = 11;
      I count = I(c.room);
      guarded<double> adia(size_t(c.room) * 11);
      guarded<I> distance(size_t(c.room));
      spoil(adia);
      spoil(distance);
      std::copy(c.list.begin(), c.list.end(), distance.begin());
      empty_csr<I> rest(entries(rows), 9);
      const I job[6] = {0, I(b.csr), I(b.other), 0, 0, I(c.fill)};
      pass(convert, job, n, csr, adia, lval, distance, &count, rest);
      ASSERT_EQ(count, I(c.chosen.size()));
      for (size_t d = 0; d < c.chosen.size(); ++d) {
        EXPECT_EQ(distance[d], c.chosen[d]);
        // Of equal distances the first has the elements.
        const bool first =
            std::find(c.chosen.begin(), c.chosen.end(), c.chosen[d]) - c.chosen.begin() == int64_t(d);
        for (int64_t i = 0; i < 9; ++i) {
          const int64_t j = i + c.chosen[d];
          const bool inside = j >= 0 && j < 9 && first;
          EXPECT_EQ(adia[d * 11 + size_t(i)], inside ? square[size_t(i * 9 + j)] : 0.0);
        }
        EXPECT_EQ(adia[d * 11 + 9], untouched);
      }
      rows_of left(9);
      for (size_t r = 0; r < 9; ++r)
        for (const auto& e : rows[r])
          if (std::find(c.chosen.begin(), c.chosen.end(), int(e.column) - int(r + 1)) == c.chosen.end())
            left[r].push_back(e);
      if (c.fill % 10 != 0)
        expect_csr(left, b.other, rest);
      else
        EXPECT_EQ(rest.ia[0], untouched);
    }
  }
}

template <class I>
void check_dia_back(const char* name, zor::csr_dia_fn<I>* convert) {
  SCOPED_TRACE(name);
  const I n = 6, lval = 7;
  I count = 4, distance[] = {2, -1, 0, 9};
  guarded<double> adia(28);
  for (size_t k = 0; k < 28; ++k) adia[k] = k % 3 == 0 ? 0.0 : double(k);
  adia[8] = NAN;
  for (const int base : {0, 1}) {
    for (const I fill : {0, 1}) {
      rows_of expected(6);
      for (int64_t r = 0; r < 6; ++r)
        for (size_t d = 0; d < 3; ++d) {
          const int64_t c = r + distance[d];
          const double v = adia[d * 7 + size_t(r)];
          if (c >= 0 && c < 6 && (fill != 0 || v != 0)) expected[size_t(r)].push_back({c + 1, v});
        }
      empty_csr<I> made(entries(expected), 6);
      const I job[6] = {1, I(base), 1, 0, 0, fill};
      pass(convert, job, n, made, adia, lval, distance, &count, nullptr, nullptr, nullptr);
      // The NaN is stored; then it gets a number, to be compared.
      bool found = false;
      for (auto* a : {&made.a})
        for (double& v : *a)
          if (v != v) found = true, v = 777;
      for (auto& row : expected)
        for (auto& e : row)
          if (e.value != e.value) e.value = 777;
      EXPECT_TRUE(found);
      expect_csr(expected, base, made);
    }
  }
}

template <class I>
void check_sky(const char* name, zor::csr_sky_fn<I>* convert) {
  SCOPED_TRACE(name);
  random_bits random(45);
  for (const int base : {0, 1}) {
    for (const I triangle : {0, 1}) {
      const auto rows = some_rows(random, 14, 5, true);
      const auto square = square_of(rows);
      const auto element = [&](int64_t p, int64_t q) {  // element q of profile p, q at or before p
        return triangle == 0 ? square[size_t(p * 14 + q)] : square[size_t(q * 14 + p)];
      };
      std::vector<double> profile;
      std::vector<I> pointers{1};
      rows_of triangle_rows(14);
      for (int64_t p = 0; p < 14; ++p) {
        int64_t q = 0;
        while (q < p && element(p, q) == 0) ++q;
        for (; q <= p; ++q) {
          profile.push_back(element(p, q));
          const int64_t r = triangle == 0 ? p : q, c = triangle == 0 ? q : p;
          if (element(p, q) != 0) triangle_rows[size_t(r)].push_back({c + 1, element(p, q)});
        }
        pointers.push_back(I(profile.size() + 1));
      }
      arrays<I> csr(rows, base);
      const I n = 14;
      const struct {
        I room, fill, info;
      } cases[] = {{I(profile.size()), 0, 0}, {I(profile.size()) - 1, 0, 1}, {0, 1, 0}};
      for (const auto& c : cases) {
        guarded<double> asky(profile.size());
        guarded<I> pntr(15);
        spoil(asky);
        I info = -1;
        const I job[6] = {0, I(base), 1, triangle, c.room, c.fill};
        pass(convert, job, n, csr, asky, pntr, &info);
        EXPECT_EQ(info, c.info);
        EXPECT_EQ(copy_of(pntr), pointers);
        const bool filled = c.fill == 0 && c.info == 0;
        EXPECT_EQ(copy_of(asky), filled ? profile : std::vector<double>(profile.size(), untouched));
      }
      for (const I fill : {0, 1}) {
        for (const I short_by : {0, 1}) {
          const I found = I(entries(triangle_rows));
          empty_csr<I> made(size_t(found), 14);
          I info = -1;
          const I job[6] = {1, I(base), 1, triangle, found - short_by, fill};
          pass(convert, job, n, made, profile, pointers, &info);
          EXPECT_EQ(info, fill == 0 ? short_by : 0);
          if (fill == 0 && short_by == 0) expect_csr(triangle_rows, base, made);
          if (fill == 1) {
            EXPECT_EQ(made.ia[14], found + base);
            EXPECT_EQ(made.ja[0], untouched);
          }
        }
      }
    }
  }
}

struct bsr_case {
  int64_t m, lb, stored;
};

template <class I>
void check_bsr(const char* name, zor::csr_bsr_fn<I>* convert) {
  SCOPED_TRACE(name);
  random_bits random(46);
  for (const bsr_case& c : {bsr_case{1, 1, 1}, {12, 3, 9}, {13, 4, 17}, {10, 3, 7}, {5, 8, 64}}) {
    for (const bases b : all_bases) {
      const auto rows = some_rows(random, c.m, 4, true);
      const auto square = square_of(rows);
      const int64_t block_rows = (c.m + c.lb - 1) / c.lb;
      // Blocks in the order in which the rows meet them.
      std::vector<I> iab{I(b.other)}, jab;
      std::vector<double> absr;
      rows_of back(static_cast<size_t>(c.m));
      for (int64_t R = 0; R < block_rows; ++R) {
        std::vector<int64_t> met;
        for (int64_t r = R * c.lb; r < std::min(c.m, (R + 1) * c.lb); ++r)
          for (const auto& e : rows[size_t(r)])
            if (std::find(met.begin(), met.end(), (e.column - 1) / c.lb) == met.end())
              met.push_back((e.column - 1) / c.lb);
        for (const int64_t C : met) {
          jab.push_back(I(C + b.other));
          const size_t start = absr.size();
          absr.resize(start + size_t(c.stored), untouched);
          for (int64_t at = 0; at < std::min(c.stored, c.lb * c.lb); ++at) {
            const int64_t r = R * c.lb + at % c.lb, col = C * c.lb + at / c.lb;
            absr[start + size_t(at)] = r < c.m && col < c.m ? square[size_t(r * c.m + col)] : 0;
          }
        }
        iab.push_back(I(jab.size()) + I(b.other));
        for (int64_t r = R * c.lb; r < std::min(c.m, (R + 1) * c.lb); ++r)
          for (const int64_t C : met)
            for (int64_t col = C * c.lb; col < std::min(c.m, (C + 1) * c.lb); ++col)
              if (square[size_t(r * c.m + col)] != 0 && r % c.lb + col % c.lb * c.lb < c.stored)
                back[size_t(r)].push_back({col + 1, square[size_t(r * c.m + col)]});
      }
      arrays<I> csr(rows, b.csr);
      const I m = I(c.m), lb = I(c.lb), stored = I(c.stored), blocks = I(jab.size());
      const I good = c.stored < c.lb * c.lb ? 2 : 0;
      const struct {
        I room, fill, info;
        bool rows, columns, values;
      } cases[] = {{blocks, 3, good, true, true, true},
                   {blocks, 2, good, true, true, false},
                   {blocks, 1, good, true, false, false},
                   {blocks, 4, 2, false, false, false},
                   {blocks - 1, 3, 1, false, false, false}};
      for (const auto& k : cases) {
        if (blocks == 0 && k.info == 1) continue;
        guarded<double> a(absr.size());
        guarded<I> ja(jab.size()), ia(iab.size());
        spoil(a);
        spoil(ja);
        spoil(ia);
        const I job[6] = {0, I(b.csr), I(b.other), 0, k.room, k.fill};
        I info = -1;
        pass(convert, job, m, lb, stored, csr, a, ja, ia, &info);
        EXPECT_EQ(info, k.info) << "m " << c.m << " fill " << k.fill;
        if (k.rows) {
          EXPECT_EQ(copy_of(ia), iab);
        }
        if (k.columns) {
          EXPECT_EQ(copy_of(ja), jab);
        }
        if (k.values) {
          EXPECT_EQ(copy_of(a), absr);
        }
        if (!k.values && k.info != 1) {
          EXPECT_EQ(copy_of(a), std::vector<double>(absr.size(), untouched));
        }
      }
      for (const I room : {I(entries(back)), I(entries(back)) - 1}) {
        if (room < 0) continue;
        empty_csr<I> made(entries(back), size_t(c.m));
        const I job[6] = {1, I(b.csr), I(b.other), 0, room, 0};
        I info = -1;
        pass(convert, job, m, lb, stored, made, absr, jab, iab, &info);
        if (room < I(entries(back))) {
          EXPECT_EQ(info, 1);
          continue;
        }
        EXPECT_EQ(info, good);
        expect_csr(back, b.csr, made);
      }
    }
  }
  const I job[6] = {0, 1, 1, 0, 9, 3}, zero = 0, one = 1;
  I info = -1;
  pass(convert, job, one, zero, one, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &info);
  EXPECT_EQ(info, 1);
}

struct dense_case {
  int64_t m, n;
  int triangle;
  bool by_columns;
};

template <class I>
void check_dense(const char* name, zor::dense_csr_fn<I>* convert) {
  SCOPED_TRACE(name);
  random_bits random(47);
  for (const int64_t m : {1, 6, 9}) {
    for (const int64_t n : {1, 6, 8}) {
      for (const int triangle : {0, 1, 2}) {
        for (const bool by_columns : {false, true}) {
          const I ld = I((by_columns ? m : n) + 2), rows = I(m), cols = I(n), base = I(random.between(0, 1));
          guarded<double> dense(size_t((by_columns ? n - 1 : m - 1) * ld + (by_columns ? m : n)));
          for (double& v : dense) v = random.between(0, 2) == 0 ? 0.0 : double(random.between(1, 99));
          const auto element = [&](int64_t r, int64_t c) -> double& {
            return dense[size_t(by_columns ? r + c * ld : r * ld + c)];
          };
          const auto in_part = [&](int64_t r, int64_t c) {
            return triangle == 2 || (triangle == 0 ? c <= r : c >= r);
          };
          rows_of expected(static_cast<size_t>(m));
          for (int64_t r = 0; r < m; ++r)
            for (int64_t c = 0; c < n; ++c)
              if (in_part(r, c) && element(r, c) != 0) expected[size_t(r)].push_back({c + 1, element(r, c)});
          const I all = I(entries(expected));
          const auto job_of = [&](I direction, I room, I fill) {
            return std::vector<I>{direction, I(by_columns), base, I(triangle), room, fill};
          };
          I info = -1;
          empty_csr<I> made{size_t(all), size_t(m)}, counted{0, size_t(m)};
          pass(convert, job_of(0, all, 1).data(), rows, cols, dense, ld, made, &info);
          EXPECT_EQ(info, 0);
          expect_csr(expected, int(base), made);
          // Counting goes on, storing ends, and both name a row that has no room.
          for (I room = 0; room < all; ++room) {
            I first = 0, last = 0, k = 0;
            for (size_t r = 0; r < expected.size(); ++r)
              for (size_t e = 0; e < expected[r].size(); ++e)
                if (k++ >= room) {
                  last = I(r + 1);
                  first = first == 0 ? last : first;
                }
            empty_csr<I> part{size_t(room), size_t(m)};
            pass(convert, job_of(0, room, 1).data(), rows, cols, dense, ld, part, &info);
            EXPECT_EQ(info, first);
            pass(convert, job_of(0, room, 0).data(), rows, cols, dense, ld, counted, &info);
            EXPECT_EQ(info, last);
            EXPECT_EQ(counted.ia[size_t(m)], all + base);
          }
          const auto before = copy_of(dense);
          spoil(dense);
          pass(convert, job_of(1, 0, 1).data(), rows, cols, dense, ld, made, &info);
          EXPECT_EQ(info, 0);
          for (int64_t r = 0; r < m; ++r)
            for (int64_t c = 0; c < n; ++c)
              EXPECT_EQ(element(r, c),
                        in_part(r, c) ? before[size_t(&element(r, c) - dense.data())] : double(untouched));
        }
      }
    }
  }
  const I job[6] = {0, 0, 0, 2, 9, 1}, one = 1;
  double a = NAN, stored = 0;
  I ja = -1, ia[2], info = -1;
  pass(convert, job, one, one, &a, one, &stored, &ja, ia, &info);
  EXPECT_TRUE(stored != stored && ia[1] == 1) << "a NaN is an entry";
}

// The marks of a block row, or the counters of diagonals: refused, the call says so and writes no matrix.
TEST(SparseConversion, RefusedMemory) {
  const auto rows = banded_rows();
  arrays<int32_t> csr(rows);
  const int32_t n = 9, lval = 9, lb = 3, dia_job[6] = {0, 1, 1, 0, 0, 10}, bsr_job[6] = {0, 1, 1, 0, 9, 3};
  int32_t count = 3, distance[3] = {7, 7, 7}, jab[9], iab[4], info = -1;
  double values[81] = {};
  zalloc_reset();
  zalloc_fail(1, true);
  pass(zor_spblas_lp64_zor_dcsrdia, dia_job, n, csr, values, lval, distance, &count, nullptr, nullptr,
       nullptr);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(distance[0], 7);
  pass(zor_spblas_lp64_zor_dcsrbsr, bsr_job, n, lb, lval, csr, values, jab, iab, &info);
  zalloc_fail(0, false);
  EXPECT_EQ(info, 1);
}

#define CHECK(kind, check, test) \
  TEST(SparseConversion, test) { check(zor_spblas_, int64_t) check(zor_spblas_lp64_, int32_t) }
#define COO(prefix, I) check_coo<I>(#prefix "zor_dcsrcoo", prefix##zor_dcsrcoo);
#define COO_BACK(prefix, I) check_coo_back<I>(#prefix "zor_dcsrcoo", prefix##zor_dcsrcoo);
#define CSC(prefix, I) check_csc<I>(#prefix "zor_dcsrcsc", prefix##zor_dcsrcsc);
#define MANY(prefix, I) check_many<I>(prefix##zor_dcsrcsc, prefix##zor_dcsrcoo);
#define DIA(prefix, I) check_dia<I>(#prefix "zor_dcsrdia", prefix##zor_dcsrdia);
#define DIA_BACK(prefix, I) check_dia_back<I>(#prefix "zor_dcsrdia", prefix##zor_dcsrdia);
#define SKY(prefix, I) check_sky<I>(#prefix "zor_dcsrsky", prefix##zor_dcsrsky);
#define BSR(prefix, I) check_bsr<I>(#prefix "zor_dcsrbsr", prefix##zor_dcsrbsr);
#define DENSE(prefix, I) check_dense<I>(#prefix "zor_ddnscsr", prefix##zor_ddnscsr);
CHECK(coo, COO, ToCoordinates)
CHECK(coo, COO_BACK, FromCoordinates)
CHECK(csc, CSC, CompressedColumns)
CHECK(many, MANY, SortsMoreThanTheCachesHold)
CHECK(dia, DIA, ToDiagonals)
CHECK(dia, DIA_BACK, FromDiagonals)
CHECK(sky, SKY, Skyline)
CHECK(bsr, BSR, Blocks)
CHECK(dense, DENSE, Dense)

}  // namespace
