// SPDX-License-Identifier: MIT
// The solvers of rectangle and box against elimination of the equations of their grids.
#include <cfloat>

#include "tests/pde/box_calls.h"
#include "zor/core.h"

namespace {

using namespace zor_test;

template <class T>
class Box : public ::testing::Test {};
using precisions = ::testing::Types<double, float>;
TYPED_TEST_SUITE(Box, precisions);

template <class T>
constexpr double unit = std::is_same_v<T, float> ? FLT_EPSILON : DBL_EPSILON;

struct shape {
  int dimensions;
  zor_int n[3];
};
// Even, odd and shortest lengths; lengths whose lines go side by side, and one more line than a group has.
constexpr shape small[] = {{2, {2, 2}},  {2, {2, 1}},    {2, {6, 5}},   {2, {5, 8}},
                           {2, {36, 4}}, {3, {2, 3, 2}}, {3, {4, 3, 4}}};
constexpr shape large[] = {
    {2, {64, 70}}, {2, {97, 33}}, {2, {140, 131}}, {3, {40, 36, 17}}, {3, {17, 64, 12}}};

TYPED_TEST(Box, AllSidesAgainstElimination) {
  using T = TypeParam;
  for (const shape& s : small)
    for (int sides = 0; sides < 1 << (2 * s.dimensions); ++sides)
      for (const double q : {0.0, 2.5, -3.25}) {
        // With one interval the row inside of a given value is a row of derivatives, and commit halves both.
        if (s.n[1] == 1 && (sides & 3) % 3 != 0) continue;
        box_run<T> run(s.dimensions, s.n, sides, q);
        const std::vector<zor_ref::real> expected = zor_ref::solve_dense(run.p);
        ASSERT_EQ(run.commit(), q < 0 ? 1 : 0) << run.name();
        ASSERT_EQ(run.solve(), 0) << run.name();
        double size = 1;
        for (const zor_ref::real u : expected) size = std::max(size, std::fabs(double(u)));
        for (size_t i = 0; i < expected.size(); ++i)
          ASSERT_NEAR(double(expected[i]), double(run.f[i]), 2000 * unit<T> * size * size)
              << run.name() << " point " << i;
      }
}

TYPED_TEST(Box, LargerGridsSatisfyTheirEquations) {
  using T = TypeParam;
  for (const shape& s : large)
    for (int sides = 0; sides < 1 << (2 * s.dimensions); sides += s.dimensions == 2 ? 1 : 5)
      for (const double q : {0.0, 40.0, -90.0}) {
        box_run<T> run(s.dimensions, s.n, sides, q);
        if (run.p.singular()) continue;
        ASSERT_EQ(run.commit(), q < 0 ? 1 : 0) << run.name();
        ASSERT_EQ(run.solve(), 0) << run.name();
        ASSERT_LT(double(zor_ref::residual(run.p, run.f.data())), 60 * unit<T>) << run.name();
      }
}

// Derivatives on all sides and q of 0: a zero mean, and one constant that the right-hand side is out of
// balance by.
TYPED_TEST(Box, SingularProblems) {
  using T = TypeParam;
  for (const shape& s : large) {
    const int all = (1 << (2 * s.dimensions)) - 1;
    box_run<T> run(s.dimensions, s.n, all, 0);
    zor_ref::real weights = 0, excess = 0, mean = 0;
    zor_ref::for_points(run.p, [&](long i, const zor_ref::equation& e) {
      const long at[3] = {i % (run.p.n[0] + 1), i / (run.p.n[0] + 1) % (run.p.n[1] + 1),
                          i / (run.p.n[0] + 1) / (run.p.n[1] + 1)};
      zor_ref::real w = 1;
      for (int a = 0; a < s.dimensions; ++a) w *= at[a] == 0 || at[a] == run.p.n[a] ? 0.5L : 1.0L;
      weights += w;
      excess += w * e.right;
    });
    ASSERT_EQ(run.commit(), 0);
    ASSERT_EQ(run.solve(), 0);
    for (const T u : run.f) mean += u;
    EXPECT_LT(std::fabs(double(mean / (zor_ref::real)run.f.size())), 100 * unit<T>) << run.name();
    EXPECT_LT(double(zor_ref::residual(run.p, run.f.data(), excess / weights)), 60 * unit<T>) << run.name();
    // With warnings, a rectangle's status tells; a box's does not.
    box_run<T> warned(s.dimensions, s.n, all, 0);
    ASSERT_EQ(warned.commit(), 0);
    warned.ipar[2] = 1;
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(warned.solve(), s.dimensions == 2 ? 1 : 0);
    EXPECT_FALSE(::testing::internal::GetCapturedStdout().empty());
    EXPECT_EQ(warned.ipar[0], 0);
    EXPECT_EQ(warned.f, run.f);
  }
}

TYPED_TEST(Box, SameBitsForEveryNumberOfThreads) {
  using T = TypeParam;
  zor_core_set_num_threads(7);
  for (const shape& s : {shape{2, {300, 257}}, shape{3, {48, 40, 41}}})
    for (const int sides : {0, 6, 15, 63}) {
      if (sides >= 1 << (2 * s.dimensions)) continue;
      std::vector<T> expected;
      for (const zor_int threads : {1, 2, 7}) {
        box_run<T> run(s.dimensions, s.n, sides, 1);
        run.ipar[22] = threads;
        ASSERT_EQ(run.commit(), 0);
        ASSERT_EQ(run.solve(), 0);
        if (threads == 1) expected = run.f;
        EXPECT_TRUE(same_bits(expected.data(), run.f.data(), expected.size()))
            << run.name() << " threads " << threads;
      }
    }
  zor_core_set_num_threads(0);
}

// Commit's selector: with 9 the set-up of before serves another right-hand side.
TYPED_TEST(Box, SelectorsOfCommit) {
  using T = TypeParam;
  for (const shape& s : {shape{2, {12, 9}}, shape{3, {6, 8, 5}}}) {
    box_run<T> all(s.dimensions, s.n, 9, 1, 3), parts(s.dimensions, s.n, 9, 1, 3);
    const std::vector<T> before = all.f;
    ASSERT_EQ(all.commit(), 0);
    for (const zor_int selector : {999, 990, 99, 909}) {
      parts.ipar[0] = selector;
      const std::vector<T> f = parts.f, reals = parts.dpar;
      ASSERT_EQ(parts.commit(), 0) << selector;
      EXPECT_EQ(parts.f == f, selector >= 990) << selector;
      EXPECT_EQ(parts.dpar == reals, selector != 990) << selector;
    }
    EXPECT_EQ(parts.f, all.f);
    for (const zor_int selector : {9, 90, 900}) {
      box_run<T> one(s.dimensions, s.n, 9, 1, 3);
      if (selector == 9) {
        one.ipar[0] = 990;
        ASSERT_EQ(one.commit(), 0);
        one.ipar[0] = 9;
      } else {
        one.ipar[0] = selector;
      }
      ASSERT_EQ(one.commit(), 0);
      if (selector != 9) one.ipar[0] = selector == 90 ? 909 : 99, one.commit();
      // Scaled after the boundary values: not the same, but a commit of its own.
      EXPECT_EQ(one.f == all.f, selector != 900) << selector;
    }
    for (const zor_int bad : {-1, 1, 8, 19, 91, 100, 901, 1000, 9999}) {
      box_run<T> one(s.dimensions, s.n, 9, 1, 3);
      one.ipar[0] = bad;
      EXPECT_EQ(one.commit(), -10000) << bad;
      EXPECT_EQ(one.ipar[0], -10000) << bad;
      EXPECT_EQ(one.f, before) << bad;
    }
    box_run<T> none(s.dimensions, s.n, 9, 1, 3);
    none.ipar[0] = 9;
    none.dpar[size_t(s.dimensions - 1)] = 0;
    EXPECT_EQ(none.commit(), -100);
  }
}

// One argument made bad at a time; -1 for what init alone refuses.
TYPED_TEST(Box, Checks) {
  using T = TypeParam;
  const zor_int n2[] = {8, 6}, n3[] = {8, 6, 4};
  for (const int d : {2, 3}) {
    const auto commit_with = [&](auto change) {
      box_run<T> run(d, d == 2 ? n2 : n3, 5, 1);
      change(run);
      const std::vector<T> before = run.f;
      const zor_int status = run.commit();
      EXPECT_EQ(run.ipar[0], status);
      if (status < 0) {
        EXPECT_EQ(run.f, before);
      }
      return status;
    };
    for (int a = 0; a < d; ++a) {
      EXPECT_EQ(commit_with([&](auto& r) { r.ipar[10 + a] = 0; }), -100);
      EXPECT_EQ(commit_with([&](auto& r) { r.dpar[size_t(a)] = 0; }), -100);
    }
    for (int s = 0; s < 2 * d; ++s) {
      EXPECT_EQ(commit_with([&](auto& r) { r.ipar[4 + s] = 2; }), -100);
      EXPECT_EQ(commit_with([&](auto& r) { r.ipar[4 + s] = 1 - r.ipar[4 + s]; }), -100);
      const bool ends_init = s == 3 || s == 5;
      EXPECT_EQ(commit_with([&](auto& r) {
                  r.letters[size_t(s)] = 'p';
                  r.init();
                  r.ipar[1] = r.ipar[2] = 0;
                  EXPECT_EQ(r.ipar[0], ends_init ? -99999 : 0);
                  EXPECT_EQ(r.ipar[4 + s], -1);
                  EXPECT_LT(r.ipar[3], 0);
                }),
                ends_init ? -10000 : -100);
    }
    EXPECT_EQ(commit_with([&](auto& r) { r.ipar[3] = d == 2 ? 16 : 64; }), -100);
    EXPECT_EQ(commit_with([&](auto& r) { r.ipar[10] = 1; }), -1000);  // too short for a transform
  }
  box_run<T> flat(3, n3, 5, 1);
  flat.dpar[1] = std::numeric_limits<T>::denorm_min();  // no step of it is above 0
  EXPECT_EQ(flat.commit(), -2);
  EXPECT_EQ(flat.dpar[5], T(0));  // nor has another axis its eigenvalues
  box_run<T> run(2, n2, 5, 1);
  const zor_int expected[] = {0, 0, 0, 5, 0, 1, 0, 1, 1000, 1000, 8, 6, 1000, 1000};
  for (int i = 0; i < 14; ++i) EXPECT_EQ(run.ipar[i], expected[i]) << i;
  EXPECT_EQ(run.ipar[21], 1);
  EXPECT_EQ(run.ipar[22], 1);
  const bool single = sizeof(T) == sizeof(float);
  EXPECT_EQ(run.dpar[4], single ? T(1e-4) : T(1e-10));
  ASSERT_EQ(run.commit(), 0);
  const zor_int tables[] = {6, 14, 1000, 1000, 15, 27};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(run.ipar[13 + i], tables[i]) << i;
  const std::vector<T> committed = run.f;
  run.ipar[18] = 28;
  EXPECT_EQ(run.solve(), 1);
  EXPECT_EQ(run.ipar[0], 1);
  EXPECT_EQ(run.solve(), 1);  // 1 is no obstacle
  for (const zor_int status : {2, -100}) {
    run.ipar[0] = status;
    EXPECT_EQ(run.solve(), -10000);
  }
  run.ipar[0] = 0, run.ipar[3] = 16;
  EXPECT_EQ(run.solve(), -100);
  run.ipar[0] = 0, run.ipar[3] = 5, run.ipar[11] = 0;
  EXPECT_EQ(run.solve(), -100);
  EXPECT_EQ(run.free(), 0);
  EXPECT_EQ(run.free(), -1000);
  EXPECT_EQ(run.ipar[0], -1000);
}

// A number that is not finite spoils the solution and nothing else: given values stand on their sides.
TYPED_TEST(Box, DataThatAreNotFinite) {
  using T = TypeParam;
  const zor_int n[] = {36, 12, 5};
  for (const int d : {2, 3})
    for (const double spoilt : {double(NAN), double(INFINITY)}) {
      box_run<T> run(d, n, d == 2 ? 10 : 34, 0);
      run.f[40] = T(spoilt);
      ASSERT_EQ(run.commit(), 0);
      EXPECT_EQ(run.solve(), 0);
      EXPECT_FALSE(std::isfinite(run.f[100]));
      const size_t place = d == 2 ? 1 : 14;  // on the last side of x, away from edges
      EXPECT_EQ(run.f[36 + 37 * place], run.side[1][place]);
    }
}

// A divisor of the tables that is zero at the solve, though it was not at the commit.
TYPED_TEST(Box, SpoiltTables) {
  using T = TypeParam;
  const zor_int n[] = {12, 10, 8};
  for (const int d : {2, 3}) {
    box_run<T> run(d, n, d == 2 ? 4 : 16, 1);  // x: a value, then a derivative
    ASSERT_EQ(run.commit(), 0);
    const size_t table = size_t(run.ipar[17] - 1);
    for (size_t i = 0; i < 6; ++i) run.dpar[table + 14 + i] = T(0);  // of 12 intervals
    EXPECT_EQ(run.solve(), -200);
    EXPECT_EQ(run.ipar[0], -200);
  }
}

}  // namespace
