// SPDX-License-Identifier: MIT
// Sorts, sums and products of CSR matrices against plain loops in the stated orders, bit for bit: every
// request, every room from none to more than enough, every rounding mode, operands between guard pages,
// refused memory.
#include <gtest/gtest.h>

#include <cfenv>
#include <string>

#include "tests/ref/spmatrix.h"
#include "tests/spblas/matrices.h"
#include "tests/support/zalloc.h"
#include "zor/signatures/spblas_matrix.h"

namespace {

using namespace sparse_test;
using zor_ref::row_list;
using zor_test::same_bits;

template <class T, class I>
using matrix = three_arrays<T, I>;

template <class T, class I>
::testing::AssertionResult same_entries(const row_list<T>& expected, size_t rows, const guarded<T>& a,
                                        const guarded<I>& ja) {
  size_t k = 0;
  for (size_t r = 0; r < rows; ++r) {
    for (const auto& e : expected[r]) {
      if (ja[k] != I(e.column))
        return ::testing::AssertionFailure()
               << "entry " << k << " in row " << r + 1 << ": column " << ja[k] << ", expected " << e.column;
      auto same = same_bits(reals(&e.value), reals(&a[k]), parts<T>);
      if (!same) {
        same << " in row " << r + 1 << ", entry " << k;
        return same;
      }
      ++k;
    }
  }
  return ::testing::AssertionSuccess();
}

// Room for C, filled with what no call writes.
template <class T, class I>
struct result {
  guarded<T> c;
  guarded<I> jc, ic;
  I info = 77;

  result(size_t room, size_t rows) : c(room), jc(room), ic(rows + 1) {
    zor_test::fill_nan(c);
    std::fill(jc.begin(), jc.end(), I(-5));
    std::fill(ic.begin(), ic.end(), I(-5));
  }
  auto arguments() { return zor_test::list_of(c.data(), jc.data(), ic.data()); }
};

template <class T, class I>
std::vector<I> starts_of(const row_list<T>& rows) {
  std::vector<I> s{1};
  for (const auto& row : rows) s.push_back(I(s.back() + I(row.size())));
  return s;
}

// call(request, nzmax, result) against the whole result, with every room around the ends of rows.
template <class T, class I, class Call>
void check_requests(const row_list<T>& expected, bool counts_alone, const Call& call) {
  const std::vector<I> starts = starts_of<T, I>(expected);
  const size_t rows = expected.size(), all = csr_arrays<T, I>::count(expected);
  std::vector<size_t> rooms{all, all + 3, 0};
  for (const I s : starts)
    for (const size_t room : {size_t(s - 1), size_t(s)})
      if (room < all && (rows < 20 || rooms.size() < 12)) rooms.push_back(room);
  for (const size_t room : rooms) {
    SCOPED_TRACE("room " + std::to_string(room));
    result<T, I> r(std::min(room, all), rows);
    call(I(0), I(room), r);
    size_t complete = 0;
    while (complete < rows && size_t(starts[complete + 1] - 1) <= room) ++complete;
    EXPECT_EQ(r.info, complete == rows ? I(0) : I(complete + 1));
    if (rows > 0) {
      EXPECT_TRUE(std::equal(starts.begin(), starts.begin() + int64_t(complete) + 1, r.ic.begin()));
    }
    EXPECT_TRUE(same_entries(expected, complete, r.c, r.jc));
  }
  result<T, I> counted(0, rows);
  call(I(1), I(0), counted);
  EXPECT_EQ(counted.info, 0);
  for (size_t r = 1; r <= rows; ++r)
    EXPECT_EQ(counted.ic[r], counts_alone ? I(expected[r - 1].size()) : starts[r]) << "row " << r;
  result<T, I> filled(all, rows);
  std::copy(starts.begin(), starts.end(), filled.ic.begin());
  call(I(2), I(0), filled);
  EXPECT_EQ(filled.info, 0);
  EXPECT_TRUE(same_entries(expected, rows, filled.c, filled.jc));
}

template <class T, class I>
void check_sort(const char* name, zor::sort_rows_fn<T, I>* sort) {
  SCOPED_TRACE(name);
  random_bits random(31);
  for (const int64_t longest : {0, 1, 2, 40, 300}) {
    auto rows = random_rows<T>(random, 12, longest / 2 + 1, longest);
    matrix<T, I> m(rows);
    const I first = 2, last = 11;
    pass(sort, first, last, m.pntrb, m.indx, m.val);
    auto expected = rows;
    zor_ref::sort_rows(expected);
    expected.front() = rows.front();
    expected.back() = rows.back();
    EXPECT_TRUE(same_entries(expected, rows.size(), m.val, m.indx)) << "rows of up to " << longest;
  }
}

struct size_of_sum {
  int64_t m, n, longest;
};
constexpr size_of_sum sums[] = {{0, 3, 0}, {1, 1, 1}, {7, 5, 4}, {12, 40, 30}, {60, 20, 3}};

// Some rows of B have the columns of A.
template <class T>
void share_columns(const row_list<T>& a, row_list<T>& b) {
  for (size_t r = 0; r < b.size(); r += 3) {
    b[r].resize(a[r].size());
    for (size_t k = 0; k < b[r].size(); ++k) b[r][k].column = a[r][k].column;
  }
}

template <class T, class I>
void check_sum(const char* name, zor::csr_sum_fn<T, I>* sum, bool with_transpose) {
  SCOPED_TRACE(name);
  random_bits random(32);
  for (const auto& s : sums) {
    for (const I sort : {0, 1, 2, 3}) {
      SCOPED_TRACE("m " + std::to_string(s.m) + " sort " + std::to_string(sort));
      auto a = random_rows<T>(random, s.m, s.n, s.longest);
      auto b = random_rows<T>(random, s.m, s.n, s.longest);
      if (!(sort & 1)) zor_ref::sort_rows(a);
      if (!(sort & 1) && !(sort & 2)) share_columns(a, b);
      if (!(sort & 2)) zor_ref::sort_rows(b);
      auto sorted_a = a, sorted_b = b;
      zor_ref::sort_rows(sorted_a);
      zor_ref::sort_rows(sorted_b);
      const row_list<T> stored_b = with_transpose ? zor_ref::transposed(b, s.n) : b;
      const T beta = draw<T>(random);
      const auto expected = zor_ref::sum(sorted_a, beta, sorted_b);
      const I first = with_transpose ? I(s.m) : I(1), last = with_transpose ? I(s.n) : I(s.m);
      check_requests<T, I>(expected, false, [&](I request, I nzmax, result<T, I>& r) {
        matrix<T, I> ma(a), mb(stored_b);
        pass(sum, first, last, request, sort, ma, beta, mb, r, nzmax, &r.info);
        if (request == 0 && r.info == 0 && s.m > 0) {
          EXPECT_TRUE(same_entries(sort & 1 ? sorted_a : a, a.size(), ma.val, ma.indx))
              << "A sorted in place";
        }
      });
    }
  }
}

// A range begins where the row pointer of its first row says.
TEST(SparseSum, RangesContinue) {
  random_bits random(33);
  auto a = random_rows<double>(random, 9, 6, 5);
  auto b = random_rows<double>(random, 9, 6, 5);
  zor_ref::sort_rows(a);
  zor_ref::sort_rows(b);
  const double beta = 0.3;
  const auto expected = zor_ref::sum(a, beta, b);
  matrix<double, int32_t> ma(a), mb(b);
  result<double, int32_t> r(csr_arrays<double, int32_t>::count(expected), 9);
  const int32_t request = 0, sort = 0, nzmax = int32_t(r.c.size());
  for (const auto& [first, last] : {std::pair{1, 4}, std::pair{5, 5}, std::pair{6, 9}})
    pass(zor_spblas_lp64_dmcsradd_notr, first, last, request, sort, ma, beta, mb, r, nzmax, &r.info);
  EXPECT_EQ(r.info, 0);
  EXPECT_TRUE(same_entries(expected, 9, r.c, r.jc));
}

// Copies are copies: signalling NaN stay, and no flag is raised by entries of one operand.
TEST(SparseSum, RaisesNoFlagOfItsOwn) {
  const double huge = std::numeric_limits<double>::max();
  const row_list<double> a = {{{1, huge}, {3, huge}, {9, 1}}}, b = {{{2, huge}, {4, huge}, {9, 2}}};
  matrix<double, int64_t> ma(a), mb(b);
  result<double, int64_t> r(5, 1);
  const int64_t one = 1, request = 0, sort = 0, nzmax = 5;
  const double beta = 1;
  EXPECT_EQ(zor_test::flags_of([&] {
              pass(zor_spblas_dmcsradd_notr, one, one, request, sort, ma, beta, mb, r, nzmax, &r.info);
            }),
            0);
  EXPECT_TRUE(same_entries(zor_ref::sum(a, beta, b), 1, r.c, r.jc));
}

struct size_of_product {
  int64_t m, k, n, longest;
};
constexpr size_of_product products[] = {{0, 1, 1, 0},        {1, 1, 1, 1},   {6, 4, 5, 3},
                                        {20, 30, 70, 6},     {9, 40, 3, 30}, {15, 20, 5000, 40},
                                        {8, 300, 300000, 12}};
constexpr int roundings[] = {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO};

template <class T, class I>
void check_product(const char* name, zor::csr_product_fn<T, I>* multiply) {
  SCOPED_TRACE(name);
  random_bits random(34);
  for (const auto& s : products) {
    SCOPED_TRACE("m " + std::to_string(s.m) + " n " + std::to_string(s.n));
    auto a = random_rows<T>(random, s.m, s.k, s.longest);
    auto b = random_rows<T>(random, s.k, s.n, s.longest);
    // Products that are zeros of either sign.
    for (auto& row : b)
      if (!row.empty() && random.between(0, 2) == 0) row.front().value = zor_test::scalar<T>(-0.0, 0);
    const matrix<T, I> ma(a), mb(b);
    const I m = I(s.m), n = I(s.n), first = 1;
    for (const int rounding : roundings) {
      std::fesetround(rounding);
      const auto expected = zor_ref::product(a, b);
      check_requests<T, I>(expected, true, [&](I request, I nzmax, result<T, I>& r) {
        pass(multiply, first, m, m, n, request, ma, mb, r, nzmax, &r.info);
      });
      std::fesetround(FE_TONEAREST);
    }
  }
}

// A^T B: elements that are zero are left out, but counted.
template <class T, class I>
void check_product_transposed(const char* name, zor::csr_product_tr_fn<T, I>* multiply) {
  SCOPED_TRACE(name);
  random_bits random(35);
  constexpr size_of_product sizes[] = {{1, 1, 1, 1}, {5, 7, 4, 3}, {13, 20, 70, 6}, {30, 9, 17, 12}};
  for (const auto& s : sizes) {
    auto a = random_rows<T>(random, s.k, s.m, s.longest);
    auto b = random_rows<T>(random, s.k, s.n, s.longest);
    for (auto& row : b)
      if (!row.empty() && random.between(0, 1) == 0) row.back().value = T{};
    zor_ref::sort_rows(a);
    const zor_ref::dense_product<T> dense(a, s.m, b, s.n);
    row_list<T> expected(static_cast<size_t>(s.m));
    std::vector<I> counted{1};
    for (int64_t r = 0; r < s.m; ++r) {
      counted.push_back(counted.back());
      for (int64_t j = 0; j < s.n; ++j) {
        const size_t at = size_t(r * s.n + j);
        counted.back() += I(dense.met[at]);
        if (zor_test::part(dense.value[at], 0) != 0 || zor_test::part(dense.value[at], 1) != 0)
          expected[size_t(r)].push_back({j + 1, dense.value[at]});
      }
    }
    const matrix<T, I> ma(a), mb(b);
    for (const I strip : {I(1), I(4), I(s.m), I(s.m + 5)}) {
      SCOPED_TRACE("m " + std::to_string(s.m) + " strip " + std::to_string(strip));
      const I k = I(s.k), m = I(s.m), n = I(s.n);
      const auto call = [&](I request, I nzmax, result<T, I>& r) {
        pass(multiply, nullptr, k, m, n, request, strip, ma, mb, r, nzmax, &r.info);
      };
      for (const size_t room : {size_t(1000), csr_arrays<T, I>::count(expected)}) {
        result<T, I> r(csr_arrays<T, I>::count(expected), size_t(s.m));
        call(0, I(room), r);
        EXPECT_EQ(r.info, 0);
        EXPECT_TRUE(std::equal(r.ic.begin(), r.ic.end(), starts_of<T, I>(expected).begin()));
        EXPECT_TRUE(same_entries(expected, size_t(s.m), r.c, r.jc));
      }
      result<T, I> counts(0, size_t(s.m));
      call(1, 0, counts);
      EXPECT_TRUE(std::equal(counted.begin(), counted.end(), counts.ic.begin()));
      // Rows begin where they were counted to; what a row does not need stays as it is.
      result<T, I> r(size_t(counted.back() - 1), size_t(s.m));
      std::copy(counted.begin(), counted.end(), r.ic.begin());
      call(2, 0, r);
      for (size_t row = 0; row < expected.size(); ++row) {
        I at = counted[row] - 1;
        for (const auto& e : expected[row]) {
          EXPECT_EQ(r.jc[size_t(at)], I(e.column));
          EXPECT_TRUE(same_bits(reals(&e.value), reals(&r.c[size_t(at++)]), parts<T>));
        }
        for (; at < counted[row + 1] - 1; ++at) EXPECT_EQ(r.jc[size_t(at)], -5);
      }
    }
  }
}

TEST(SparseProduct, TransposedStopsWhereRoomEnds) {
  const row_list<float> a = {{{1, 1}, {2, 1}, {3, 1}}}, b = {{{1, 2}, {5, 3}}};
  const matrix<float, int32_t> ma(a), mb(b);
  const int32_t k = 1, m = 3, n = 5, request = 0, strip = 2;
  for (const auto& [nzmax, info] : {std::pair{0, 1}, std::pair{1, 1}, {2, 2}, {3, 2}, {5, 3}, {6, 0}}) {
    result<float, int32_t> r(size_t(nzmax), 3);
    pass(zor_spblas_lp64_smultcsr_tr, nullptr, k, m, n, request, strip, ma, mb, r, nzmax, &r.info);
    EXPECT_EQ(r.info, info) << nzmax;
  }
}

TEST(SparseProduct, RangeOfRows) {
  random_bits random(36);
  const auto a = random_rows<double>(random, 10, 12, 5);
  const auto b = random_rows<double>(random, 12, 30, 5);
  const auto expected = zor_ref::product(a, b);
  const matrix<double, int64_t> ma(a), mb(b);
  const int64_t first = 4, last = 7, m = 10, n = 30, request = 1, nzmax = 0;
  result<double, int64_t> r(0, 10);
  pass(zor_spblas_dmcsr_notr, first, last, m, n, request, ma, mb, r, nzmax, &r.info);
  for (size_t i = 0; i <= 10; ++i)
    EXPECT_EQ(r.ic[i], i >= 4 && i <= 7 ? int64_t(expected[i - 1].size()) : -5);
}

// Every request of memory refused in turn: info is -1, nothing is written, nothing is lost. A sort does
// without.
TEST(SparseMatrix, RefusedMemory) {
  random_bits random(37);
  auto a = random_rows<double>(random, 6, 200, 150);
  matrix<double, int32_t> b(random_rows<double>(random, 200, 6, 5));
  auto sorted = a;
  zor_ref::sort_rows(sorted);
  const int32_t m = 6, k = 200, request = 0, sort = 0, nzmax = 6000, first = 1;
  const double beta = 2;
  for (uint64_t nth = 1; nth <= 4; ++nth) {
    matrix<double, int32_t> unsorted(a), ma(sorted);
    zalloc_reset();
    zalloc_fail(nth, true);
    pass(zor_spblas_lp64_dsortrow, first, m, unsorted.pntrb, unsorted.indx, unsorted.val);
    zalloc_fail(0, false);
    EXPECT_TRUE(same_entries(sorted, 6, unsorted.val, unsorted.indx));
    EXPECT_EQ(zalloc_live_blocks(), 0);
    using outcome = result<double, int32_t>;
    const auto refuse = [&](const char* name, uint64_t requests, const auto& call) {
      if (nth > requests) return;
      outcome r(6000, 200);
      zalloc_reset();
      zalloc_fail(nth, true);
      call(r);
      zalloc_fail(0, false);
      EXPECT_EQ(r.info, -1) << name << ", request " << nth;
      EXPECT_EQ(r.jc[0], -5) << name;
      EXPECT_EQ(zalloc_live_blocks(), 0) << name;
    };
    refuse("mcsradd_tr", 3, [&](outcome& r) {
      pass(zor_spblas_lp64_dmcsradd_tr, m, k, request, sort, ma, beta, b, r, nzmax, &r.info);
    });
    refuse("mcsr_notr", 4, [&](outcome& r) {
      pass(zor_spblas_lp64_dmcsr_notr, first, m, m, m, request, ma, b, r, nzmax, &r.info);
    });
    refuse("multcsr_tr", 2, [&](outcome& r) {
      pass(zor_spblas_lp64_dmultcsr_tr, nullptr, k, m, m, request, m, b, b, r, nzmax, &r.info);
    });
  }
}

TEST(SparseMatrix, SortOfRows) {
#define ROW_SORT_ROWS(name, T, I) check_sort<T, I>(#name, name);
#include "zor/tables/spblas_gemm.inc"
}
TEST(SparseSum, EveryName) {
#define ROW_CSR_SUM(name, T, I) check_sum<T, I>(#name, name, false);
#define ROW_CSR_SUM_TR(name, T, I) check_sum<T, I>(#name, name, true);
#include "zor/tables/spblas_gemm.inc"
}
TEST(SparseProduct, EveryName) {
#define ROW_CSR_PRODUCT(name, T, I) check_product<T, I>(#name, name);
#define ROW_CSR_PRODUCT_TR(name, T, I) check_product_transposed<T, I>(#name, name);
#include "zor/tables/spblas_gemm.inc"
}

}  // namespace
