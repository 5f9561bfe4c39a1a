// SPDX-License-Identifier: MIT
// Every product and solve of a matrix in diagonals against plain loops in the stated order, bit for bit.
#include <gtest/gtest.h>

#include "tests/ref/dia.h"
#include "tests/spblas/sides.h"
#include "zor/signatures/spblas.h"

namespace {

using namespace sparse_test;
using zor_ref::diagonal_list;

// Elements of the diagonals outside the matrix are NaN, and so is the padding between them.
template <class T>
diagonal_list<T> random_diagonals(random_bits& random, int64_t m, int64_t k,
                                  const std::vector<int64_t>& distance) {
  diagonal_list<T> a{m, k, distance, {}};
  T nan{};
  reals(&nan)[0] = real<T>(NAN);
  for (const int64_t q : distance) {
    a.element.emplace_back(size_t(m), nan);
    for (int64_t i = std::max<int64_t>(1, 1 - q); i <= std::min(m, k - q); ++i)
      a.element.back()[size_t(i - 1)] = draw<T>(random);
  }
  return a;
}

template <class T, class I>
struct dia_arrays {
  I lval, ndiag;
  guarded<T> val;
  guarded<I> idiag;
  explicit dia_arrays(const diagonal_list<T>& a)
      : lval(I(a.m + 3)),
        ndiag(I(a.count())),
        val(a.count() == 0 ? 0 : size_t((a.count() - 1) * lval + a.m)),
        idiag(a.distance.size()) {
    for (size_t i = 0; i < val.size(); ++i) reals(val.data() + i)[0] = real<T>(NAN);
    for (size_t d = 0; d < a.distance.size(); ++d) {
      idiag[d] = I(a.distance[d]);
      std::copy(a.element[d].begin(), a.element[d].end(), val.data() + d * size_t(lval));
    }
  }
  auto arguments() { return zor_test::list_of(val.data(), lval, idiag.data()); }
};

// A k that is not m is that of the general view; the others are square.
struct sizes {
  int64_t m, k;
  std::vector<int64_t> distance;
};
const std::vector<sizes> all_sizes = {
    {1, 1, {0}},
    {2, 5, {-1, 0, 1, 4}},
    {9, 9, {}},
    {23, 17, {-22, -9, -2, -1, 0, 0, 1, 3, 3, 16, 40}},
    {61, 61, {5, -1, 0, 1, -20, 60, -60, 2, 0}},
    {1100, 1100, {-33, -1, 0, 1, 33}},
    {300, 300, {-299, -19, -18, -17, -16, -15, -14, -13, -12, -11, -10, -9,
                -8,   -7,  -6,  -5,  -4,  -3,  -2,  -1,  0,   1,   2,   250}}};
// Several tiles of rows and columns, the last ones longer than the others, in and out of order.
const std::vector<sizes> tiled_sizes = {{40011, 40011, {-20300, -4999, -1, 0, 3, 5001, 39000}},
                                        {20003, 20003, {7, 0, -1, 12000, -12000}}};

const columns all_columns[] = {
    {.n = 1, .first = 1, .last = 1}, {.n = 9, .first = 2, .last = 8}, {.n = 4, .first = 3, .last = 2}};

bool transposed(const shape& s) { return (s.op == 't' || s.op == 'c') && s.structure != 'h'; }

// A transposed general product is given the m and k of op(A): m rows of C, k of B.
template <class T, class I, class Call>
void check_product(const char* name, const shape& s, const sizes& z, const columns& n, bool many,
                   const Call& call) {
  random_bits random(uint64_t(z.m * 10 + n.n));
  const int64_t m = z.m, k = s.structure == 'g' ? z.k : z.m;
  const bool flip = transposed(s) && s.structure == 'g';
  const auto a = random_diagonals<T>(random, flip ? k : m, flip ? m : k, z.distance);
  dia_arrays<T, I> arrays(a);
  sides<T> b(random, k, n.n, false, 2), c(random, m, n.n, false, 3);
  const T alpha = draw<T>(random);
  diagonal_list<T> of_op = a;
  of_op.m = m, of_op.k = k;
  check_columns(
      name, n, b, c, [&](const auto& x, const auto& y) { zor_ref::dia_product(s, of_op, many, alpha, x, y); },
      [&] {
        call(
            zor_test::list_of(m, k, alpha, arrays.val.data(), arrays.lval, arrays.idiag.data(), arrays.ndiag),
            b, c);
      });
}

template <class T, class I>
void check_mvout(const char* name, const shape& s, zor::dia_mvout_par_fn<T, I>* f) {
  for (const auto* list : {&all_sizes, &tiled_sizes})
    for (const sizes& z : *list)
      check_product<T, I>(name, s, z, {1, 1, 1}, false, [&](const auto& a, auto& x, auto& y) {
        pass(f, nullptr, nullptr, a, x.all, y.all);
      });
}

template <class T, class I>
void check_mmout(const char* name, const shape& s, zor::dia_mmout_par_fn<T, I>* f) {
  const auto check = [&](const sizes& z, const columns& n) {
    check_product<T, I>(name, s, z, n, true,
                        [&](const auto& a, auto& b, auto& c) { pass(f, n.first, n.last, a, b, c); });
  };
  for (const sizes& z : all_sizes)
    for (const columns& n : all_columns) check(z, n);
  check(tiled_sizes[1], {2, 1, 2});
}

TEST(DiaProduct, OneVectorAndRangeOfRightHandSides) {
#define ROW_dia_mvout_par(...) BY_SHAPE(check_mvout, __VA_ARGS__)
#define ROW_dia_mmout_par(...) BY_SHAPE(check_mmout, __VA_ARGS__)
#include "zor/tables/spblas_dia.inc"
}

// Triangular systems: sorted diagonals around a main one.
const std::vector<sizes> all_systems = {{1, 1, {0}},
                                        {9, 9, {0}},
                                        {9, 9, {-1, 0, 1}},
                                        {60, 60, {-59, -20, -7, 0, 7, 20, 59}},
                                        {60, 60, {-40, -9, -8, -3, 0, 3, 8, 9, 40}},
                                        {100, 100, {-10, -2, -1, 0, 1, 2, 10}},
                                        {250, 250, {-95, -90, -71, -70, 0, 70, 71, 90, 95}}};

template <class T>
diagonal_list<T> random_system(random_bits& random, const sizes& z) {
  auto a = random_diagonals<T>(random, z.m, z.m, z.distance);
  for (int64_t d = 1; d <= a.count(); ++d)
    for (T& e : a.element[size_t(d - 1)]) {
      for (size_t h = 0; h < parts<T>; ++h) reals(&e)[h] /= 8;
      if (z.distance[size_t(d - 1)] == 0) reals(&e)[0] += 3;
    }
  return a;
}

// The strict triangle's places and that of the main diagonal, from 1.
struct places {
  int64_t first, last, main;
};
places places_of(const shape& s, const std::vector<int64_t>& distance) {
  const int64_t main = std::find(distance.begin(), distance.end(), 0) - distance.begin() + 1;
  return s.triangle == 'u' ? places{main + 1, int64_t(distance.size()), main} : places{1, main - 1, main};
}

template <class T, class I, class Call>
void check_solve(const char* name, const shape& s, const columns& n, const Call& call) {
  for (const sizes& z : all_systems) {
    random_bits random(uint64_t(z.m * 100 + n.n));
    const auto a = random_system<T>(random, z);
    dia_arrays<T, I> arrays(a);
    const places p = places_of(s, z.distance);
    sides<T> x(random, z.m, n.n, false, 2);
    check_columns(
        name, n, x, x,
        [&](const auto&, const auto& y) { zor_ref::dia_solve(s, a, p.first, p.last, p.main, y); },
        [&] { call(z.m, arrays, p, x); });
  }
}

TEST(DiaSolve, OneRightHandSide) {
#define CHECK(name, T, I, base, op, form, tri, diag, ...)               \
  check_solve<T, I>(#name, SHAPE(base, op, form, tri, diag), {1, 1, 1}, \
                    [](int64_t m, auto& a, const places& p, auto& y) {  \
                      (void)p;                                          \
                      pass(name, m, a, __VA_ARGS__);                    \
                    });
#define ROW_dia_svout_seq(...) CHECK(__VA_ARGS__, y.all, p.first, p.last, nullptr, p.main)
#define ROW_dia_svout_unit_seq(...) CHECK(__VA_ARGS__, y.all, p.first, p.last)
#define ROW_dia_svout_diag_seq(...) CHECK(__VA_ARGS__, a.ndiag, y.all)
#include "zor/tables/spblas_dia.inc"
#undef CHECK
}

TEST(DiaSolve, ManyRightHandSides) {
#define CHECK(name, T, I, base, op, form, tri, diag, ...)                                            \
  for (const columns& n : all_columns)                                                               \
    check_solve<T, I>(#name, SHAPE(base, op, form, tri, diag), n,                                    \
                      [&](int64_t m, auto& a, const places& p, auto& c) {                            \
                        pass(name, n.first, n.last, m, a, nullptr, c, p.first, p.last, __VA_ARGS__); \
                      });
#define ROW_dia_smout_par(...) CHECK(__VA_ARGS__, nullptr, p.main)
#define ROW_dia_smout_unit_par(name, T, I, base, op, form, tri, diag)                   \
  for (const columns& n : all_columns)                                                  \
    check_solve<T, I>(#name, SHAPE(base, op, form, tri, diag), n,                       \
                      [&](int64_t m, auto& a, const places& p, auto& c) {               \
                        pass(name, n.first, n.last, m, a, nullptr, c, p.first, p.last); \
                      });
#define ROW_dia_smout_diag_seq(name, T, I, base, op, form, tri, diag)   \
  check_solve<T, I>(#name, SHAPE(base, op, form, tri, diag), {9, 1, 9}, \
                    [](int64_t m, auto& a, const places&, auto& c) { pass(name, m, 9, a, a.ndiag, c); });
#include "zor/tables/spblas_dia.inc"
#undef CHECK
}

// A list without a main diagonal: the lower unit form takes the nearest diagonal above it for its last one,
// so that blocks have a negative size and nothing is changed.
TEST(DiaSolve, LowerUnitListThatEndsAboveTheDiagonal) {
  for (const int64_t above : {2, 9}) {
    random_bits random(5);
    const int64_t m = 8;
    const auto a = random_diagonals<double>(random, m, m, {-3, above});
    dia_arrays<double, int64_t> arrays(a);
    std::vector<double> y(size_t(m), 1), before = y;
    pass(zor_spblas_ddia1ntluf__svout_seq, m, arrays, y, 1, 2);
    EXPECT_EQ(before, y);
  }
}

// The entry behind the list counts as the next distance.
struct found {
  std::vector<int64_t> distance;  // and the one behind
  int64_t first, last, lo, hi, info;
};
template <class I, class F>
void expect_found(const char* name, F* f, const std::vector<found>& cases) {
  for (const found& c : cases) {
    const std::vector<I> list(c.distance.begin(), c.distance.end());
    const I ndiag = I(list.size() - 1);
    I first, last, lo, hi, info;
    f(list.data(), &ndiag, &first, &last, &lo, &hi, &info);
    const std::vector<int64_t> got = {first, last, lo, hi, info};
    EXPECT_EQ((std::vector<int64_t>{c.first, c.last, c.lo, c.hi, c.info}), got) << name << ", " << ndiag;
  }
}
TEST(DiaFindDiagonals, PartsOfAList) {
  const std::vector<found> ln = {{{-5, -1, 0, 2, 9}, 1, 2, 1, 3, 0},
                                 {{-5, 2, 9}, 1, 1, 1, 2, -1},
                                 {{0, 7}, 1, 0, 1, 1, 0},
                                 {{-5, -1, 0}, 1, 2, 1, 3, 0},
                                 {{-5, -1, 4}, 1, 2, 1, 3, -1}};
  const std::vector<found> lu = {{{-5, -1, 0, 2, 9}, 1, 2, 1, 3, 0},
                                 {{-5, 2, 9}, 1, 2, 1, 2, 0},
                                 {{0, 7}, 1, 0, 1, 1, 0},
                                 {{-5, -1, 0}, 1, 2, 1, 3, 0},
                                 {{-5, -1, 4}, 1, 3, 1, 3, 0}};
  const std::vector<found> un = {{{-5, -1, 0, 2, 9}, 4, 4, 3, 4, 0},
                                 {{-5, 2, 9}, 2, 2, 2, 2, -1},
                                 {{0, 7}, 1, 1, 1, 1, 0},
                                 {{1, 3, 6, 7}, 2, 3, 1, 3, -1}};
  const std::vector<found> uu = {{{-5, -1, 0, 2, 9}, 4, 4, 3, 4, 0},
                                 {{-5, 2, 9}, 3, 2, 2, 2, 0},
                                 {{0, 7}, 2, 1, 1, 1, 0},
                                 {{1, 3, 6, 7}, 2, 3, 1, 3, 0}};
#define ROW_FIND_DIAGONALS(name, I, tri, diag) expect_found<I>(#name, name, tri##diag);
#include "zor/tables/spblas_stems.inc"
}

}  // namespace
