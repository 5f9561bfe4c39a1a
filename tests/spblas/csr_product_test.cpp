// SPDX-License-Identifier: MIT
// Every CSR product against plain loops in the stated order, bit for bit.
#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <string>

#include "tests/spblas/sides.h"
#include "zor/serv.h"
#include "zor/signatures/spblas.h"

namespace {

using namespace sparse_test;

struct sizes {
  int64_t m, k;          // k is that of the general view; the others are square
  int64_t longest;       // row
  int64_t origin;        // first row pointer
  bool orderly = false;  // rows ascend and are often as long as the row before
  int64_t run = 1;       // rows of one length
};
const sizes all_sizes[] = {{.m = 1, .k = 1, .longest = 3, .origin = 1},
                           {.m = 2, .k = 5, .longest = 4, .origin = 0},
                           {.m = 7, .k = 3, .longest = 9, .origin = 1},
                           {.m = 23, .k = 23, .longest = 14, .origin = 0},
                           {.m = 40, .k = 61, .longest = 6, .origin = 7},
                           {.m = 5, .k = 4, .longest = 0, .origin = 1},
                           {.m = 30, .k = 40, .longest = 50, .origin = 1},
                           {.m = 90, .k = 80, .longest = 9, .origin = 0, .orderly = true},
                           {.m = 99, .k = 99, .longest = 45, .origin = 1, .orderly = true},
                           {.m = 60, .k = 60, .longest = 7, .origin = 0, .run = 12}};

// Orderly rows are sorted, some with repeats, and often as long as the row before.
template <class T>
zor_ref::row_list<T> rows_of(random_bits& random, const sizes& z, int64_t k) {
  auto rows = random_rows<T>(random, z.m, k, z.longest, z.run);
  if (!z.orderly) return rows;
  for (size_t r = 0; r < rows.size(); ++r) {
    if (r % 5 > 0 && rows[r].size() > rows[r - 1].size()) rows[r].resize(rows[r - 1].size());
    std::sort(rows[r].begin(), rows[r].end(), [](auto& a, auto& b) { return a.column < b.column; });
  }
  return rows;
}

bool transposed(const shape& s) {
  return (s.op == 't' || s.op == 'c') && (s.structure == 'g' || s.structure == 't');
}

template <class T, class I, class Call>
void check_vector_product(const char* name, const shape& s, const sizes& z, bool relative, int64_t first,
                          int64_t last, const Call& call) {
  random_bits random(uint64_t(z.m * 1000 + first));
  const int64_t k = s.structure == 'g' ? z.k : z.m;
  const auto rows = rows_of<T>(random, z, k);
  const csr_arrays<T, I> a(rows, s.base, I(z.origin), z.run > 1);
  sides<T> x(random, transposed(s) ? z.m : k, 1, false, 0), y(random, transposed(s) ? k : z.m, 1, false, 0);
  const T alpha = draw<T>(random);
  const int64_t shift = relative ? first - 1 : 0;
  check_columns(
      named(name, {{"rows from", first}, {"to", last}}), {1, 1, 1}, x, y,
      [&](const auto& xs, const auto& ys) {
        if (transposed(s) || s.structure == 'd')
          zor_ref::scatter(s, rows, alpha, xs, ys);
        else
          zor_ref::csr_mv(s, rows, first, last, alpha, xs, ys);
      },
      [&] { call(alpha, a, x.all.data() + shift, y.all.data() + shift); });
}

template <class T, class I>
void check_mvout_par(const char* name, const shape& s, zor::csr_mvout_par_fn<T, I>* f) {
  const bool relative = s.structure == 's' && s.diagonal == 'n' && s.op == 'n';
  for (const sizes& z : all_sizes) {
    const int64_t ranges[][2] = {{1, z.m}, {(z.m + 2) / 3, z.m}, {(z.m + 1) / 2, (z.m + 1) / 2}, {1, 0}};
    for (const auto& r : ranges)
      check_vector_product<T, I>(name, s, z, relative, r[0], r[1], [&](T alpha, auto& a, const T* x, T* y) {
        pass(f, r[0], r[1], nullptr, alpha, a, x, y);
      });
  }
}

template <class T, class I>
void check_mvout_seq(const char* name, const shape& s, zor::csr_mvout_seq_fn<T, I>* f) {
  for (const sizes& z : all_sizes)
    check_vector_product<T, I>(name, s, z, false, 1, z.m,
                               [&](T alpha, auto& a, const T* x, T* y) { pass(f, z.m, alpha, a, x, y); });
}

const columns all_columns[] = {{.n = 1, .first = 1, .last = 1},
                               {.n = 5, .first = 2, .last = 4},
                               {.n = 37, .first = 1, .last = 37},
                               {.n = 137, .first = 3, .last = 133},
                               {.n = 4, .first = 3, .last = 2}};

template <class T, class I, class Call>
void check_matrix_product(const char* name, const shape& s, const sizes& z, const columns& n,
                          const Call& call) {
  random_bits random(uint64_t(z.m * 100 + n.n));
  const int64_t k = s.structure == 'g' ? z.k : z.m;
  const auto rows = rows_of<T>(random, z, k);
  const csr_arrays<T, I> a(rows, s.base, I(z.origin), z.run > 1);
  sides<T> b(random, transposed(s) ? z.m : k, n.n, s.base == 0, 2),
      c(random, transposed(s) ? k : z.m, n.n, s.base == 0, 3);
  const T alpha = draw<T>(random);
  check_columns(
      name, s.structure == 'd' ? columns{n.n, 1, n.n} : n, b, c,
      [&](const auto& x, const auto& y) { zor_ref::csr_mm(s, rows, alpha, x, y); },
      [&] { call(alpha, a, b, c); });
}

template <class T, class I>
void check_mmout_par(const char* name, const shape& s, zor::csr_mmout_par_fn<T, I>* f) {
  for (const sizes& z : all_sizes)
    for (const columns& n : all_columns)
      check_matrix_product<T, I>(name, s, z, n, [&](T alpha, auto& a, auto& b, auto& c) {
        pass(f, n.first, n.last, z.m, n.n, alpha, a, b, c);
      });
}

template <class T, class I>
void check_mmout_seq(const char* name, const shape& s, zor::csr_mmout_seq_fn<T, I>* f) {
  for (const sizes& z : all_sizes)
    for (const columns& n : all_columns)
      check_matrix_product<T, I>(
          name, s, z, n, [&](T alpha, auto& a, auto& b, auto& c) { pass(f, z.m, n.n, alpha, a, b, c); });
}

// A B beyond the caches whose rows are used all over: its columns are copied a few at a time, which asks the
// pool of every build for 128 bytes a row, and 64 for the alignment.
TEST(CsrProduct, RowsOfAWideMatrixUsedAllOver) {
  const auto check = [](const char* name, const shape& s, auto f, auto val, auto index) {
    using T = decltype(val);
    using I = decltype(index);
    constexpr int64_t rows = 150;
    const columns n = {(5 << 20) / int64_t(rows * sizeof(T)), 2, (5 << 20) / int64_t(rows * sizeof(T)) - 1};
    int32_t blocks;
    zor_serv_freebuffers();
    check_matrix_product<T, I>(name, s, {rows, rows, 48, 7}, n, [&](T alpha, auto& a, auto& b, auto& c) {
      pass(f, n.first, n.last, rows, n.n, alpha, a, b, c);
    });
    EXPECT_EQ(uint64_t(128 * rows + 64), zor_serv_zor_memstat(&blocks)) << name;
  };
  check("d", SHAPE(0, n, g, _, _), zor_spblas_dcsr0ng__c__mmout_par, double(), int64_t());
  check("c", SHAPE(0, s, g, _, _), zor_spblas_lp64_ccsr0sg__c__mmout_par, zor_c32(), int32_t());
}

TEST(CsrProduct, Views){
#define ROW_csr_mvout_par(...) BY_SHAPE(check_mvout_par, __VA_ARGS__)
#define ROW_csr_mvout_seq(...) BY_SHAPE(check_mvout_seq, __VA_ARGS__)
#define ROW_csr_mmout_par(...) BY_SHAPE(check_mmout_par, __VA_ARGS__)
#define ROW_csr_mmout_seq(...) BY_SHAPE(check_mmout_seq, __VA_ARGS__)
#include "zor/tables/spblas_csr.inc"
}

// What a product asks of the pool does not follow the width of the build: 64 bytes for each of the 20 rows of
// B, and 64 for the alignment.
TEST(CsrProduct, AsksThePoolAlikeInEveryBuild) {
  zor_ref::row_list<float> rows(20);
  for (int64_t r = 1; r <= 20; ++r)
    for (int64_t c = 1; c <= 20; ++c) rows[size_t(r - 1)].push_back({c, 1});
  const csr_arrays<float, int64_t> a(rows, 1, 1);
  const std::vector<float> b(60, 1);
  std::vector<float> c(60);
  int32_t blocks;
  zor_serv_freebuffers();
  pass(zor_spblas_scsr1ng__f__mmout_par, 1, 3, 20, 3, 1, a, b, 20, c, 20);
  EXPECT_EQ(std::vector<float>(60, 20), c);
  EXPECT_EQ(uint64_t(64 * 20 + 64), zor_serv_zor_memstat(&blocks));
  EXPECT_EQ(1, blocks);
}

// The general column-major products go over rows in blocks, whose size depends on the type, on the average
// length of rows and on the number of right-hand sides that the call is told, whichever of them it works on.
// The pool shows the size: a block asks for 64 bytes for each row of B that it uses, here as many as it has
// rows, and 64 for the alignment. The sizes are worked out by hand: with P, Q, R, S of a type, blocks are
// taken from (R average + S n) m = 17,000,000 on and have 17,000,000 / (P average + Q n) / 4 rows, but all
// rows are one block where that gives no two.
struct block_case {
  int64_t m, n;
  // Rows of a block in single, in double and single complex, in double complex and conjugated.
  int64_t s, d, z;
};
const block_case block_cases[] = {
    // 8 avg + 12 n = 136 bytes a row in single, just enough; 20 avg + 12 n = 196; 36 avg + 20 n = 340.
    {.m = 125000, .n = 8, .s = 34274, .d = 19318, .z = 10953},
    {.m = 124999, .n = 8, .s = 124999, .d = 19318, .z = 10953},
    // So many right-hand sides that a block has a few rows, one, or none, which leaves all rows in one.
    {.m = 100, .n = 260000, .s = 2, .d = 100, .z = 100},
    {.m = 100, .n = 150000, .s = 3, .d = 1, .z = 100},
};
// A total beyond the range of 32-bit integers is small to the names that have them: rows of a block with
// either.
const struct {
  int64_t m, n, wide, narrow;
} overflow_of_single = {.m = 400, .n = 500000, .wide = 1, .narrow = 400},
  overflow_of_double_complex = {.m = 1100, .n = 100000, .wide = 1, .narrow = 1100};

// What the pool holds after blocks of so many rows of m, the last of which has the rest as well: it is one
// request more where it is larger than the others.
uint64_t pool_bytes(int64_t m, int64_t rows) {
  const auto request = [](int64_t r) { return uint64_t(64 * r + 64); };
  const int64_t last = m - (m / rows - 1) * rows;
  return last > rows ? request(rows) + request(last) : request(last);
}

template <class T, class I>
void check_blocks(const char* name, zor::csr_mmout_par_fn<T, I>* f, int64_t m, int64_t told, int64_t rows) {
  constexpr int64_t average = 5;
  zor_ref::row_list<T> list(size_t(m), {size_t(average), {0, T{}}});
  for (int64_t r = 1; r <= m; ++r)
    for (auto& e : list[size_t(r - 1)]) e = {r, zor_ref::unity<T>()};
  const csr_arrays<T, I> a(list, 1, I(1));
  const T alpha = zor_ref::unity<T>();
  const std::vector<T> b(size_t(3 * m), alpha);
  std::vector<T> c(size_t(3 * m));
  int32_t blocks;
  zor_serv_freebuffers();
  pass(f, 2, 3, m, told, alpha, a, b, m, c, m);
  EXPECT_EQ(pool_bytes(m, rows), zor_serv_zor_memstat(&blocks)) << name << ", m " << m << ", n " << told;
  for (int64_t i = 0; i < 3 * m; ++i)
    ASSERT_EQ(zor_ref::real_part(c[size_t(i)]), i < m ? 0 : average) << name << ", element " << i;
}

TEST(CsrProduct, BlocksOfRowsAskThePoolForTheirShareOfB) {
  for (const block_case& b : block_cases) {
    check_blocks("s", zor_spblas_scsr1ng__f__mmout_par, b.m, b.n, b.s);
    check_blocks("d", zor_spblas_dcsr1ng__f__mmout_par, b.m, b.n, b.d);
    check_blocks("c", zor_spblas_ccsr1ng__f__mmout_par, b.m, b.n, b.d);
    check_blocks("c conjugated", zor_spblas_ccsr1sg__f__mmout_par, b.m, b.n, b.z);
    check_blocks("z", zor_spblas_zcsr1ng__f__mmout_par, b.m, b.n, b.z);
    check_blocks("z conjugated", zor_spblas_zcsr1sg__f__mmout_par, b.m, b.n, b.z);
    check_blocks("d lp64", zor_spblas_lp64_dcsr1ng__f__mmout_par, b.m, b.n, b.d);
  }
  const auto& s = overflow_of_single;
  check_blocks("s", zor_spblas_scsr1ng__f__mmout_par, s.m, s.n, s.wide);
  check_blocks("s lp64", zor_spblas_lp64_scsr1ng__f__mmout_par, s.m, s.n, s.narrow);
  const auto& z = overflow_of_double_complex;
  check_blocks("z", zor_spblas_zcsr1ng__f__mmout_par, z.m, z.n, z.wide);
  check_blocks("z lp64", zor_spblas_lp64_zcsr1ng__f__mmout_par, z.m, z.n, z.narrow);
}

// One chain a row, y overwritten even in an empty row.
template <class T, class I>
void check_gemvout(const char* name, zor::csr_gemvout_par_fn<T, I>* f) {
  random_bits random(5);
  for (const sizes& z : all_sizes) {
    const auto rows = random_rows<T>(random, z.m, z.k, z.longest);
    const three_arrays<T, I> a(rows, 1, I(z.origin));
    sides<T> x(random, z.k, 1, false, 0), y(random, z.m, 1, false, 0);
    const int64_t first = z.m / 3 + 1;
    check_columns(
        name, {1, 1, 1}, x, y,
        [&](const auto& xs, const auto& ys) {
          for (int64_t r = first; r <= z.m; ++r) {
            T& s = ys(r) = 0;
            for (const auto& e : rows[size_t(r - 1)]) s = s + e.value * xs(e.column);
          }
        },
        [&] {
          for (const int64_t last : {z.m, int64_t(0)})
            pass(f, first, last, nullptr, nullptr, a, nullptr, x.all, y.all);
        });
  }
}

TEST(CsrProduct, PlainRowProduct) {
#define ROW_csr_gemvout_par(name, T, I, ...) check_gemvout<T, I>(#name, name);
#include "zor/tables/spblas_csr.inc"
}

}  // namespace
