// SPDX-License-Identifier: MIT
// The public side of the sparse matrices: the bits of the kernels; the same bits for any number of threads;
// descriptions and arguments made bad.
#include "zor/sparse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <limits>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "tests/core/sparse_calls.h"
#include "tests/support/elements.h"
#include "tests/support/operand.h"
#include "zor/core.h"
#include "zor/spblas.h"

namespace {

using namespace sparse_test;
using namespace zor_test;

template <class T>
T draw(random_bits& random) {
  return scalar<T>(random.unit(), random.unit());
}
// How a matrix is filled: columns within `reach` of the diagonal, `most` a row at most. Sorted ones have each
// column once and a dominant diagonal; others come in any order, with repeats.
struct filling {
  zor_int rows, cols, reach, most;
  bool sorted;
};

// Rows with a real diagonal in the Hermitian view, a gap of one unused entry behind every third, row pointers
// from `origin`.
template <class T, class I>
struct matrix {
  matrix(const filling& f, const view& v, int32_t base, I origin, uint64_t seed = 1)
      : what(v), rows(f.rows), cols(f.cols) {
    random_bits random(seed);
    for (zor_int r = 0; r < f.rows; ++r) {
      std::vector<std::pair<zor_int, T>> row;
      const zor_int low = std::max<zor_int>(0, std::min(r, f.cols - 1) - f.reach),
                    high = std::min(f.cols - 1, r + f.reach);
      for (zor_int i = random.between(0, f.most); i > 0; --i)
        row.push_back({random.between(low, high), draw<T>(random)});
      if (f.sorted) {
        std::map<zor_int, T> once(row.begin(), row.end());
        T pivot = draw<T>(random);
        reals(&pivot)[0] += real<T>(f.most);
        once[r] = pivot;
        row.assign(once.begin(), once.end());
      }
      pntrb.push_back(I(I(val.size()) + origin));
      for (const auto& [column, value] : row) {
        val.push_back(v.structure == 'h' && column == r ? scalar<T>(part(value, 0), 0) : value);
        indx.push_back(I(column + base));
      }
      pntre.push_back(I(I(val.size()) + origin));
      if (r % 3 == 2) {
        val.push_back(scalar<T>(NAN, NAN));
        indx.push_back(I(-7));
      }
    }
    described = csr(v, base, f.rows, f.cols, val, indx, pntrb, pntre.data());
    EXPECT_EQ(legal() ? ZOR_SPARSE_OK : ZOR_SPARSE_BAD_MATRIX, create(&handle, described))
        << zor_sparse_error_text();
  }
  matrix(const matrix&) = delete;
  matrix& operator=(const matrix&) = delete;
  ~matrix() { zor_sparse_free(&handle); }

  bool legal() const { return what.structure != 'h' || parts<T> == 2; }

  view what;
  zor_int rows, cols;
  std::vector<T> val;
  std::vector<I> indx, pntrb, pntre;
  description<I> described;
  zor_sparse handle = nullptr;
};

// A unit triangle without a stored entry is the identity, whether or not there are arrays.
template <class T, class I>
void check_identity() {
  const auto b = random_elements<T>(8, 1);
  const T value{}, one = scalar<T>(1, 0);
  const std::vector<I> pointers(5);
  for (const I column : {0, 1})
    for (const bool arrays : {false, true}) {
      description<I> d = csr<T, I>({'t', 'l', 'u'}, int32_t(column), 4, 4, {}, {}, pointers);
      if (arrays) d.nnz = 1, d.val = &value, d.indx = &column;
      const owner a(d);
      for (char op : {'n', 't'})
        for (int32_t layout : {ZOR_SPARSE_COLUMN_MAJOR, ZOR_SPARSE_ROW_MAJOR}) {
          std::vector<T> x(8);
          const zor_int ld = layout == ZOR_SPARSE_ROW_MAJOR ? 2 : 4;
          EXPECT_EQ(ZOR_SPARSE_OK, calls<T>::sm(a.a, op, layout, 2, one, b.data(), ld, x.data(), ld))
              << zor_sparse_error_text();
          EXPECT_TRUE(same_elements(b, x)) << op << char(layout) << column << arrays;
        }
    }
}

TEST(Calls, SolveWithAUnitTriangleWithoutEntries) { EVERY_TYPE(check_identity) }

template <class T, class I>
struct operands {
  const matrix<T, I>& a;
  T alpha;
  const T* in;
  T* out;
  I n, ld, m = I(a.rows), first = 1;
};
// A kernel against the public call that stands for it. Kernels of a solve work in place, and of them only
// those of the diagonal view take alpha.
template <class T, class I>
void expect_bits(const std::string& name, int32_t base, char op, const view& v,
                 void (*kernel)(const operands<T, I>& o)) {
  const matrix<T, I> a({41, 41, 41, 11, true}, v, base, I(3));
  const bool solve = name.find("__s") != name.npos,
             many = name.find("__mm") != name.npos || name.find("__sm") != name.npos;
  const int32_t layout = base == 0 ? ZOR_SPARSE_ROW_MAJOR : ZOR_SPARSE_COLUMN_MAJOR;
  const char o = v.structure == 'a' && op == 'c' ? 's' : op;
  const zor_int n = many ? 13 : 1, ld = base == 0 ? n : a.rows;
  const T one = scalar<T>(1, 0), alpha = solve && v.structure == 't' ? one : scalar<T>(0.75, 0.5);
  const auto in = random_elements<T>(zor_int(a.rows * n), 50);
  auto got = random_elements<T>(zor_int(in.size()), 60), expected = solve ? in : got;
  kernel({a, alpha, in.data(), expected.data(), I(n), I(ld)});
  using c = calls<T>;
  EXPECT_EQ(ZOR_SPARSE_OK,
            solve ? (many ? c::sm(a.handle, o, layout, n, alpha, in.data(), ld, got.data(), ld)
                          : c::sv(a.handle, o, alpha, in.data(), got.data()))
                  : (many ? c::mm(a.handle, o, layout, n, alpha, in.data(), ld, one, got.data(), ld)
                          : c::mv(a.handle, o, alpha, in.data(), one, got.data())));
  EXPECT_TRUE(same_elements(expected, got)) << name;
}

TEST(Calls, HaveTheBitsOfTheKernels) {
#define CHECK(arguments, name, T, I, base, op, form, tri, diag)                                   \
  expect_bits<T, I>(#name, base, #op[0],                                                          \
                    {#form[0], #tri[0] == '_' ? 'l' : #tri[0], #diag[0] == '_' ? 'n' : #diag[0]}, \
                    [](const operands<T, I>& o) { name arguments; });
#define ALL &o.alpha, o.a.val.data(), o.a.indx.data(), o.a.pntrb.data(), o.a.pntre.data()
#define MANY &o.first, &o.n, &o.m, &o.n, ALL
#define ROW_csr_mvout_par(...) CHECK((&o.first, &o.m, &o.m, ALL, o.in, o.out), __VA_ARGS__)
#define ROW_csr_mvout_seq(...) CHECK((&o.m, ALL, o.in, o.out), __VA_ARGS__)
#define ROW_csr_mmout_par(...) CHECK((MANY, o.in, &o.ld, o.out, &o.ld), __VA_ARGS__)
#define ROW_csr_mmout_seq(...) CHECK((&o.m, &o.n, ALL, o.in, &o.ld, o.out, &o.ld), __VA_ARGS__)
#define ROW_csr_svout_seq(...) CHECK((&o.m, ALL, o.out), __VA_ARGS__)
#define ROW_csr_smout_par(...) CHECK((MANY, o.out, &o.ld), __VA_ARGS__)
#define ROW_csr_gemvout_par(...)
#include "zor/tables/spblas_csr.inc"
}

// Far-flung triangles: outputs of parts of as many rows, the longest added first.
TEST(Calls, AddThePartsOfATriangleInOrder) {
  constexpr zor_int n = 800;
  for (const char triangle : {'l', 'u'}) {
    const matrix<double, zor_int> a({n, n, n, 160, true}, {'a', triangle, 'n'}, 0, 0);
    const auto kernel = triangle == 'l' ? zor_spblas_dcsr0nal_c__mvout_par : zor_spblas_dcsr0nau_c__mvout_par;
    const auto x = random_elements<double>(n, 1);
    auto got = random_elements<double>(n, 2), expected = got;
    const zor_int parts = std::min<zor_int>(8, a.pntre.back() / 8192), rows = (n + parts - 1) / parts;
    ASSERT_LT(2, parts);
    const double alpha = 0.75, beta = 0.3;
    for (double& e : expected) e *= beta;
    for (zor_int i = 0; i < parts; ++i) {
      const zor_int part = triangle == 'u' ? i : parts - 1 - i, first = part * rows + 1,
                    last = std::min(first + rows - 1, n);
      std::vector<double> own(n);
      kernel(&first, &last, &n, &alpha, a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data(), x.data(),
             own.data());
      for (size_t k = 0; k < own.size(); ++k) expected[k] += own[k];
    }
    ASSERT_EQ(ZOR_SPARSE_OK, zor_sparse_dmv(a.handle, 'n', alpha, x.data(), beta, got.data()));
    EXPECT_TRUE(same_elements(expected, got)) << triangle;
  }
}

// All calls on a matrix, one result behind the other; on a large one the product with a vector.
constexpr zor_int most_columns = 19;
template <class T, class I>
std::vector<T> all_results(const matrix<T, I>& a, char op) {
  constexpr zor_int n = most_columns;
  const bool flip = op == 't' || op == 'c';
  const zor_int inputs = flip ? a.rows : a.cols, outputs = flip ? a.cols : a.rows;
  const auto x = random_elements<T>(zor_int(inputs * n), 70),
             y = random_elements<T>(zor_int(outputs * n), 71);
  const T alpha = scalar<T>(0.75, 0.5), beta = scalar<T>(0.5, -0.25);
  std::vector<T> all, z = y;
  const auto keep = [&](int32_t status) {
    EXPECT_EQ(ZOR_SPARSE_OK, status) << zor_sparse_error_text();
    all.insert(all.end(), z.begin(), z.end());
    z = y;
  };
  keep(calls<T>::mv(a.handle, op, alpha, x.data(), beta, z.data()));
  if (a.val.size() > 20000) return all;
  for (int32_t layout : {ZOR_SPARSE_COLUMN_MAJOR, ZOR_SPARSE_ROW_MAJOR}) {
    const zor_int ldb = layout == ZOR_SPARSE_ROW_MAJOR ? n : inputs,
                  ldc = layout == ZOR_SPARSE_ROW_MAJOR ? n : outputs;
    keep(calls<T>::mm(a.handle, op, layout, n, alpha, x.data(), ldb, beta, z.data(), ldc));
    if (solvable(a.what)) keep(calls<T>::sm(a.handle, op, layout, n, alpha, x.data(), ldb, z.data(), ldc));
  }
  return all;
}

template <class M>
auto with_threads(int32_t count, const M& a, char op) {
  zor_core_set_num_threads(count);
  const auto results = all_results(a, op);
  zor_core_set_num_threads(0);
  return results;
}

// Matrices of one part, of parts that meet their neighbours, and of parts that meet all others.
template <class T>
void check_threads(const filling& f) {
  for (const view& v : views) {
    if (v.structure != 'g' && f.rows != f.cols) continue;
    const matrix<T, int64_t> a(f, v, 1, 1);
    const matrix<T, int32_t> twin(f, v, 1, 0);
    if (!a.legal()) continue;
    // Teams of many threads are slow to meet on few processors: each operation takes two numbers of them.
    const std::tuple<char, int32_t, int32_t> teams[] = {{'n', 2, 3}, {'t', 2, 7}, {'c', 3, 2}, {'s', 7, 3}};
    for (const auto& [op, count, twins_count] : teams) {
      SCOPED_TRACE(::testing::Message() << char(calls<T>::letter) << " " << v << " " << op);
      const auto expected = with_threads(1, a, op);
      EXPECT_TRUE(same_elements(expected, with_threads(count, a, op))) << count << " threads";
      EXPECT_TRUE(same_elements(expected, with_threads(twins_count, twin, op)))
          << twins_count << " threads, 32-bit indices";
    }
  }
}

TEST(AnyThreads, GiveTheSameBits) {
  const filling fillings[] = {{500, 500, 40, 30, true},
                              {1501, 1501, 40, 90, true},
                              {800, 800, 800, 160, true},
                              {900, 1500, 300, 120, false},
                              {40, 40, 40, 4000, false}};
  for (const filling& f : fillings) {
    SCOPED_TRACE(f.rows);
    check_threads<double>(f);
    check_threads<zor_c32>(f);
  }
}

// Complex quotients in double precision are worked in another unit of the processor than the rest, with modes
// and flags of its own.
TEST(AnyThreads, FollowTheCallersRoundingInQuotients) {
  const matrix<zor_c64, int64_t> a({500, 500, 40, 30, true}, {'t', 'l', 'n'}, 0, 0);
  const auto nearest = with_threads(3, a, 'n');
  for (int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    SCOPED_TRACE(mode);
    std::fesetround(mode);
    std::feclearexcept(FE_ALL_EXCEPT);
    const auto one = with_threads(1, a, 'n');
    const int flags = std::fetestexcept(FE_ALL_EXCEPT);
    std::feclearexcept(FE_ALL_EXCEPT);
    const auto three = with_threads(3, a, 'n');
    EXPECT_EQ(flags, std::fetestexcept(FE_ALL_EXCEPT));
    EXPECT_EQ(mode, std::fegetround());
    std::fesetround(FE_TONEAREST);
    EXPECT_TRUE(same_elements(one, three));
    EXPECT_FALSE(same_elements(nearest, three));
    EXPECT_TRUE(same_elements(nearest, with_threads(3, a, 'n'))) << "the team keeps no mode";
  }
}

TEST(AnyThreads, ACallersRegionKeepsCallsSerial) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the thread sanitizer does not see the fork and join of this test's own region";
#endif
  const matrix<double, int64_t> a({1501, 1501, 40, 90, true}, {'s', 'l', 'n'}, 0, 0);
  const auto expected = all_results(a, 'n');
  int wrong = 0;
#pragma omp parallel num_threads(3) reduction(+ : wrong)
  wrong += !same_elements(expected, all_results(a, 'n'));
  EXPECT_EQ(0, wrong);
}

// Bad arguments of the calls: status and text, and nothing written.
TEST(Refusals, NameTheArgument) {
  const matrix<double, int32_t> a({4, 4, 4, 3, true}, {'t', 'l', 'n'}, 1, 1),
      g({3, 4, 4, 3, true}, {'g', 'l', 'n'}, 0, 0);
  zor_sparse none = nullptr;
  constexpr int32_t plain = ZOR_SPARSE_PLAIN, f = ZOR_SPARSE_COLUMN_MAJOR, c = ZOR_SPARSE_ROW_MAJOR;
  const std::vector<double> ones(40, 1), before(40, 7);
  std::vector<double> result = before;
  const double* const x = ones.data();
  double* const y = result.data();
  float single = 0;
  const auto mm = [&](int32_t layout, zor_int n, const double* b, zor_int ldb, double* to, zor_int ldc) {
    return zor_sparse_dmm(g.handle, plain, layout, n, 1, b, ldb, 0, to, ldc);
  };
  const auto mv = [&](int32_t op, const double* from, double* to) {
    return zor_sparse_dmv(a.handle, op, 1, from, 0, to);
  };
  const auto sv = [&](const double* b, double* to) { return zor_sparse_dsv(a.handle, plain, 1, b, to); };
  const auto expect = [&](int32_t status, const std::string& text, int32_t got) {
    EXPECT_EQ(status, got) << text;
    EXPECT_EQ(text, zor_sparse_error_text());
    EXPECT_EQ(before, result);
  };
  const auto handle = [&](const char* text, int32_t got) { expect(ZOR_SPARSE_BAD_HANDLE, text, got); };
  const auto argument = [&](const char* text, int32_t got) { expect(ZOR_SPARSE_BAD_ARGUMENT, text, got); };
  handle("a: no matrix, or one already freed", zor_sparse_dmv(none, plain, 1, x, 0, y));
  handle("a: no matrix, or one already freed", zor_sparse_check(none));
  handle("a: no matrix, or one already freed", zor_sparse_free(&none));
  handle("a: no matrix, or one already freed", zor_sparse_free(nullptr));
  handle("a: elements of type d, the call takes type s",
         zor_sparse_smv(a.handle, plain, 1, &single, 0, &single));
  argument("op: 'N' is none of n, t, c and s", mv('N', x, y));
  argument("op: 7 is no letter of n, t, c and s", mv(7, x, y));
  for (const zor_int shift : {-3, 0, 3}) argument("y: overlaps x", mv(plain, y + 10 + shift, y + 10));
  argument("x: overlaps b", sv(y + 1, y));
  argument("c: overlaps b", mm(f, 2, y + 3, 4, y, 4));
  argument("c: overlaps b", mm(c, 2, y + 1, 4, y, 4));
  argument("x is null", mv(plain, nullptr, y));
  argument("y is null", mv(plain, x, nullptr));
  argument("layout: 0 is no value of it", mm(0, 2, x, 4, y, 4));
  argument("n: -1 is not in 0 to 2147483647", mm(f, -1, x, 4, y, 4));
  argument("n: 2147483648 is not in 0 to 2147483647", mm(f, 1ll << 31, x, 4, y, 4));
  argument("b is null", mm(f, 2, nullptr, 4, y, 4));
  argument("ldb: 3 does not fit runs of 4 elements", mm(f, 2, x, 3, y, 4));
  argument("ldb: 1 does not fit runs of 2 elements", mm(c, 2, x, 1, y, 4));
  argument("ldb: 2147483648 does not fit runs of 4 elements", mm(f, 2, x, 1ll << 31, y, 4));
  argument("c is null", mm(f, 2, x, 4, nullptr, 4));
  argument("ldc: 2 does not fit runs of 3 elements", mm(f, 2, x, 4, y, 2));
  argument("b is null", sv(nullptr, y));
  argument("x is null", sv(x, nullptr));
  argument("ldx: in place it is that of b, 4, not 5", zor_sparse_dsm(a.handle, plain, f, 2, 1, y, 4, y, 5));
  expect(ZOR_SPARSE_NOT_SOLVABLE, "a: only triangular and diagonal views can be solved with",
         zor_sparse_dsv(g.handle, plain, 1, x, y));
  EXPECT_EQ(ZOR_SPARSE_OK, mm(f, 0, nullptr, 4, nullptr, 4)) << "no right-hand side";
  std::vector<double> columns(16);
  EXPECT_EQ(ZOR_SPARSE_OK, mm(c, 2, columns.data() + 2, 4, columns.data(), 4)) << "columns of one array";
  EXPECT_EQ(ZOR_SPARSE_OK, mv(plain, columns.data() + 4, columns.data())) << "side by side";
  EXPECT_EQ(ZOR_SPARSE_OK, zor_sparse_dmv(a.handle, plain, 0, nullptr, 1, y)) << "alpha 0 reads no x";
  EXPECT_EQ(before, result);
  zor_sparse freed = nullptr;
  ASSERT_EQ(ZOR_SPARSE_OK, create(&freed, a.described));
  EXPECT_EQ(ZOR_SPARSE_OK, zor_sparse_free(&freed));
  EXPECT_EQ(nullptr, freed);
}

// A lower triangle of 4 rows, 1-based, whose fields a case makes bad.
struct small {
  std::vector<double> val = {2, 1, 2, 1, 2, 1, 2};
  std::vector<zor_int> indx = {1, 1, 2, 2, 3, 1, 4}, pntrb = {1, 2, 4, 6, 8};
  zor_sparse_desc d = csr({'t', 'l', 'n'}, 1, 4, 4, val, indx, pntrb);
};

TEST(Refusals, NameTheFirstFaultOfADescription) {
  expect_faults<small>(
      {{[](small& s) { s.d.format = ZOR_SPARSE_BSR; }, "lb: 0 is not in 1 to 1024"},
       {[](small& s) { s.d.format = 9; }, "format: 9 is no value of it"},
       {[](small& s) { s.d.type = 0; }, "type: 0 is no value of it"},
       {[](small& s) { s.d.base = 2; }, "base: 2 is no value of it"},
       {[](small& s) { s.d.structure = 'x'; }, "structure: 120 is no value of it"},
       {[](small& s) { s.d.structure = 'h'; }, "structure: a Hermitian matrix has complex elements"},
       {[](small& s) { s.d.triangle = 'L'; }, "triangle: 76 is no value of it"},
       {[](small& s) { s.d.diagonal = 'x'; }, "diagonal: 120 is no value of it"},
       {[](small& s) { s.d.rows = -1; }, "rows: -1 is not in 0 to 576460752303423487"},
       {[](small& s) { s.d.nnz = INT64_MAX; }, "nnz: 9223372036854775807 is not in 0 to 576460752303423487"},
       {[](small& s) { s.d.cols = 5; }, "cols: this view is square, not 4 by 5"},
       {[](small& s) { s.d.val = nullptr; }, "val is null"},
       {[](small& s) { s.d.indx = nullptr; }, "indx is null"},
       {[](small& s) { s.d.pntrb = nullptr; }, "pntrb is null"},
       {[](small& s) { s.pntrb[0] = -1; }, "pntrb: row 1 begins at -1, below 0"},
       {[](small& s) { s.pntrb[2] = 1; }, "pntre: row 2 ends at 1, before its begin 2"},
       {[](small& s) { s.pntrb[4] = 9; }, "pntre: row 4 ends at 9, behind the last of 7 entries"},
       {[](small& s) { s.pntrb[1] = INT64_MIN; },
        "pntre: row 1 ends at -9223372036854775808, before its begin 1"},
       {[](small& s) { s.indx[3] = 5, s.indx[5] = 0; }, "indx: entry 1 of row 3 has column 5, not 1 to 4"},
       {[](small& s) { s.indx[5] = 0; }, "indx: entry 1 of row 4 has column 0, not 1 to 4"},
       {[](small& s) { std::swap(s.indx[1], s.indx[2]); }, "a: the columns of row 2 do not ascend"},
       {[](small& s) { s.indx[6] = 1; }, "a: the columns of row 4 do not ascend"},
       {[](small& s) { s.indx[6] = 3; }, "a: row 4 has no entry on the diagonal"},
       {[](small& s) { s.val[2] = -0.0; }, "a: the entry of row 2 on the diagonal is 0"},
       {[](small& s) { s.d.pntre = s.pntrb.data(); }, "a: row 1 has no entry on the diagonal"},
       {[](small& s) { s.val[2] = 0, s.d.diagonal = s.d.triangle = 'u'; }, nullptr},
       {[](small& s) { s.d.structure = 'd', s.d.diagonal = 'u', s.d.pntrb = nullptr; }, nullptr},
       {[](small& s) { s.d.rows = s.d.cols = s.d.nnz = 0, s.d.pntrb = nullptr; }, nullptr}});
  zor_sparse a;
  EXPECT_EQ(ZOR_SPARSE_BAD_ARGUMENT, zor_sparse_create(&a, nullptr));
  EXPECT_EQ(ZOR_SPARSE_BAD_ARGUMENT, zor_sparse_create(nullptr, nullptr));
}

// Arrays that change: the next check tells, and a matrix that failed is refused until it is good again.
TEST(Refusals, FollowTheArraysAtACheck) {
  small s;
  zor_sparse a;
  ASSERT_EQ(ZOR_SPARSE_OK, zor_sparse_create(&a, &s.d));
  const double b[4] = {2, 5, 8, 11};
  double x[4] = {};
  EXPECT_EQ(ZOR_SPARSE_OK, zor_sparse_dsv(a, ZOR_SPARSE_PLAIN, 1, b, x));
  EXPECT_EQ((std::vector<double>{1, 2, 3, 5}), std::vector<double>(x, x + 4));
  s.indx[0] = 77;
  EXPECT_EQ(ZOR_SPARSE_BAD_MATRIX, zor_sparse_check(a));
  EXPECT_EQ(ZOR_SPARSE_BAD_MATRIX, zor_sparse_dsv(a, ZOR_SPARSE_PLAIN, 1, b, x));
  s.indx[0] = 1;
  for (zor_int& p : s.pntrb) p += 10;
  EXPECT_EQ(ZOR_SPARSE_OK, zor_sparse_check(a));
  EXPECT_EQ(ZOR_SPARSE_OK, zor_sparse_dsv(a, ZOR_SPARSE_PLAIN, 2, b, x));
  EXPECT_EQ((std::vector<double>{2, 4, 6, 10}), std::vector<double>(x, x + 4));
  zor_sparse_free(&a);
}

// The tridiagonal matrix of order 9 in another format, its arrays at the ends of those given: three
// diagonals, three blocks of order 3, profiles of 1 to 4 elements.
template <class I>
void take_format(description<I>& d, int32_t format, guarded<I>& indx, guarded<I>& pntr) {
  d.format = format;
  if (format == ZOR_SPARSE_DIA || format == ZOR_SPARSE_BSR) {
    const I first = format == ZOR_SPARSE_DIA ? -1 : I(d.base);
    for (I k = 0; k < 3; ++k) indx[24 + size_t(k)] = first + k;
    d.nnz = 3, d.indx = indx.data() + 24, d.lval = 9, d.lb = 3;
  }
  if (format == ZOR_SPARSE_BSR) {
    for (I k = 0; k < 4; ++k) pntr[6 + size_t(k)] = k + 1;
    d.pntrb = pntr.data() + 6, d.pntre = nullptr;
  }
  if (format == ZOR_SPARSE_SKY) {
    for (I p = 0, at = 1; p <= 9; at += "1233344433"[p++] - '0') pntr[size_t(p)] = at;
    d.pntrb = pntr.data(), d.pntre = nullptr;
  }
}

// Descriptions spoiled at random, between guard pages: refused, or every call on what was accepted stays
// inside the arrays. Sizes beyond the arrays' own cannot be noticed, so sizes only shrink or leave their
// range.
template <class I>
void spoil_descriptions(int32_t format, uint64_t seed) {
  random_bits random(seed);
  const auto below = [&](zor_int n) { return size_t(random.between(0, n - 1)); };
  constexpr zor_int m = 9, nnz = 3 * m;
  int refused = 0, accepted = 0;
  guarded<double> val(nnz), in(2 * m), out(2 * m);
  guarded<I> indx(nnz), pntrb(m + 1), pntre(m), rowind(nnz);
  for (int round = 0; round < 6000; ++round) {
    const int32_t base = int32_t(below(2));
    for (size_t k = 0; k < nnz; ++k) {
      val[k] = double(k + 1);
      indx[k] = I(std::min<size_t>(k / 3, m - 3) + k % 3) + I(base);
      pntrb[k / 3 + 1] = I(k / 3 * 3 + 1);
      rowind[k] = I(k / 3) + I(base);
      pntre[k / 3] = I(k / 3 * 3 + 4);
    }
    const view v{"gttsad"[below(6)], "lu"[below(2)], "nu"[below(2)]};
    description<I> d = csr(v, base, m, m, nnz, val.data(), indx.data(), pntrb.data() + 1, pntre.data());
    d.rowind = rowind.data();
    take_format(d, format, indx, pntrb);
    const I room = d.nnz;
    for (size_t spoils = 1 + below(3); spoils > 0; --spoils) {
      const I extremes[] = {I(random.next()),
                            I(random.next()),
                            I(random.between(-3, nnz + 3)),
                            I(random.between(-3, nnz + 3)),
                            0,
                            -1,
                            m,
                            nnz + 2,
                            std::numeric_limits<I>::max(),
                            std::numeric_limits<I>::min()};
      const I bad = extremes[below(10)];
      const size_t what = below(10);
      if (what < 2) indx[below(nnz)] = bad;
      if (what == 2 || what == 3) pntrb[below(m + 1)] = bad;
      if (what == 3) rowind[below(nnz)] = bad;
      if (what == 4 || what == 5) pntre[below(m)] = bad;
      if (what == 6) (below(2) ? d.rows : d.cols) = std::min(bad, I(m));
      if (what == 7) d.nnz = std::min(bad, room);
      if (what == 8) (&d.format)[below(6)] = int32_t(bad);
      if (d.format >= ZOR_SPARSE_CSR && d.format <= ZOR_SPARSE_SKY) d.format = format;
      if (what == 9) std::memset(reinterpret_cast<char*>(&d.val) + 8 * below(3), 0, 8);
    }
    zor_sparse a;
    if (create(&a, d) != ZOR_SPARSE_OK) {
      ++refused;
      EXPECT_EQ(nullptr, a);
      continue;
    }
    ++accepted;
    for (char op : {'n', 't'}) {
      const zor_int inputs = op == 't' ? d.rows : d.cols, outputs = op == 't' ? d.cols : d.rows;
      zor_sparse_dmv(a, op, 1, in.end() - inputs, 0, out.end() - outputs);
      zor_sparse_dsv(a, op, 1, in.end() - inputs, out.end() - outputs);
      double *b = in.end() - 2 * inputs, *c = out.end() - 2 * outputs;
      for (int32_t layout : {ZOR_SPARSE_COLUMN_MAJOR, ZOR_SPARSE_ROW_MAJOR}) {
        const zor_int ldb = layout == 'f' ? std::max<zor_int>(1, inputs) : 2,
                      ldc = layout == 'f' ? std::max<zor_int>(1, outputs) : 2;
        zor_sparse_dmm(a, op, layout, 2, 1, b, ldb, 0, c, ldc);
        zor_sparse_dsm(a, op, layout, 2, 1, b, ldb, c, ldc);
      }
    }
    zor_sparse_free(&a);
  }
  EXPECT_LT(1500, refused) << format;
  EXPECT_LT(500, accepted) << format;
}

TEST(Refusals, KeepSpoiledDescriptionsFromTheKernels) {
  for (int32_t format = ZOR_SPARSE_CSR; format <= ZOR_SPARSE_SKY; ++format) {
    spoil_descriptions<int32_t>(format, 1);
    spoil_descriptions<int64_t>(format, 2);
  }
}

}  // namespace
