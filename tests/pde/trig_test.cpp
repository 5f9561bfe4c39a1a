// SPDX-License-Identifier: MIT
// The transforms with parameter arrays: sums, inverses, tables, statuses.
#include <cfloat>

#include "tests/pde/trig_calls.h"
#include "tests/ref/trig.h"
#include "tests/support/operand.h"
#include "zor/dft_kern.h"

namespace {

using namespace zor_test;

template <class T>
class Trig : public ::testing::Test {};
using precisions = ::testing::Types<double, float>;
TYPED_TEST_SUITE(Trig, precisions);

template <class T>
constexpr T unit = std::is_same_v<T, float> ? T(FLT_EPSILON) : T(DBL_EPSILON);

// Ends that the transform takes for zero are zero.
template <class T>
std::vector<T> field(zor_int n, int type, uint64_t seed) {
  random_bits random(seed);
  std::vector<T> f(size_t(n + 1));
  for (T& v : f) v = T(random.unit());
  if (type == 0 || type == 3) f[0] = 0;
  if (type == 0 || type == 2) f[size_t(n)] = 0;
  return f;
}

template <class T>
void expect_near(const std::vector<long double>& expected, const std::vector<T>& f, zor_int first,
                 zor_int last, long double bound, const std::string& what) {
  for (zor_int j = first; j <= last; ++j)
    ASSERT_NEAR(double(expected[size_t(j)]), double(f[size_t(j)]), double(bound)) << what << " element " << j;
}

TYPED_TEST(Trig, AreTheirSums) {
  using T = TypeParam;
  for (int type = 0; type < 6; ++type)
    for (zor_int n = 2; n <= 200; ++n) {
      const std::string what = "type " + std::to_string(type) + " n " + std::to_string(n);
      const zor_ref::trig_sum& t = zor_ref::trig_sums[type];
      trig_problem<T> p(n, type, int(n % 2));
      const std::vector<T> before = field<T>(n, type, uint64_t(n));
      std::vector<T> f = before;
      ASSERT_EQ(p.commit(f.data()), 0) << what;
      // Far below what tables of summed angles may cost (docs/numerics.md), which random data do not meet.
      const long double wide = (long double)n,
                        bound = unit<T> * (4 * (wide + 8) + (type >= 4 ? wide * wide / 2 : 0));
      ASSERT_EQ(p.forward(f.data()), 0);
      expect_near(zor_ref::trig_forward(type, n, before), f, t.first_k, n - t.last_k, bound,
                  what + " forward");
      if (type == 0) {
        ASSERT_EQ(f[0], T(0)) << what;
      }
      const std::vector<T> middle = f;
      ASSERT_EQ(p.backward(f.data()), 0);
      expect_near(zor_ref::trig_backward(type, n, middle), f, t.first, n - t.last, bound * (long double)n,
                  what + " backward");
      expect_near(std::vector<long double>(before.begin(), before.end()), f, t.first, n - t.last,
                  bound * (long double)n, what + " there and back");
    }
}

// In raw mode nothing is scaled, type 3 has its values from f(0) on, and ends are not looked at.
TYPED_TEST(Trig, RawModeScalesByTwoN) {
  using T = TypeParam;
  for (int type = 0; type < 6; ++type)
    for (const zor_int n : {2, 9, 16, 250}) {
      trig_problem<T> p(n, type);
      p.ipar[10] = 1;
      std::vector<T> f = field<T>(n, type == 3 ? 2 : type, 3);
      if (type == 3) f[size_t(n)] = T(55);
      const std::vector<T> before = f;
      ASSERT_EQ(p.commit(f.data()), 0);
      ASSERT_EQ(p.forward(f.data()), 0);
      ASSERT_EQ(p.backward(f.data()), 0);
      for (zor_int j = 0; j < n; ++j)
        ASSERT_NEAR(f[size_t(j)], T(2 * n) * before[size_t(j)], T(n * n) * 64 * unit<T>) << type << " " << n;
      if (type == 3) {
        EXPECT_EQ(f[size_t(n)], T(55));
      }
    }
}

// Factors at the ends: forward scales what the transform does not know, backward of type 0 does not.
TYPED_TEST(Trig, EndsThatTheTransformDoesNotKnow) {
  using T = TypeParam;
  struct end {
    int type;
    bool last;
    double forward, backward;
  };
  for (const end e : {end{0, true, 0.125, 1}, end{2, true, 0.125, 0.5}, end{3, false, 0.125, 0.5},
                      end{4, true, 1, 1}, end{5, true, 1, 1}}) {
    trig_problem<T> p(8, e.type);
    std::vector<T> f = field<T>(8, e.type, 1);
    ASSERT_EQ(p.commit(f.data()), 0);
    T& at = f[e.last ? 8 : 0];
    at = T(3);
    ASSERT_EQ(p.forward(f.data()), 0);
    EXPECT_EQ(at, T(3 * e.forward)) << e.type;
    at = T(3);
    ASSERT_EQ(p.backward(f.data()), 0);
    EXPECT_EQ(at, T(3 * e.backward)) << e.type;
  }
}

// The tables, angle by angle, and nothing behind them.
TYPED_TEST(Trig, Tables) {
  using T = TypeParam;
  const auto near = [](T got, long double exact, const std::string& what) {
    EXPECT_NEAR(double(got), double(exact),
                double(unit<T>) * 0.51 + double(exact < 0 ? -exact : exact) * double(unit<T>) / 2)
        << what;
  };
  for (int type = 0; type < 6; ++type)
    for (const zor_int n : {2, 5, 12, 333}) {
      trig_problem<T> p(n, type);
      const zor_int h = n / 2;
      p.dpar.push_back(T(-9));
      std::vector<T> f(size_t(n + 1));
      ASSERT_EQ(p.commit(f.data()), 0);
      EXPECT_EQ(p.dpar.back(), T(-9));
      const bool single = std::is_same_v<T, float>;
      EXPECT_EQ(p.dpar[0], single ? T(float(n) * 1e-5f) : T(double(n) * 1e-12));
      const std::string what = "type " + std::to_string(type) + " n " + std::to_string(n);
      const T step = T(zor_ref::pi) / T(n);
      T sum = 0, half = T(-0.5) * step, quarter = T(-0.25) * step;
      for (zor_int k = 1; k <= h; ++k) {
        sum += step;
        const T angle = type < 2 ? T(k) * step : sum;
        if (type == 0) {
          near(p.dpar[size_t(k + 1)], std::sin((long double)angle), what);
        } else {
          near(p.dpar[size_t(2 * k)], std::cos((long double)angle), what);
          near(p.dpar[size_t(2 * k + 1)], std::sin((long double)angle), what);
        }
        half += step;
        if (type >= 2)
          near(p.dpar[size_t((type >= 4 ? 2 * n : n) + 1 + k)], std::sin((long double)half), what);
      }
      for (zor_int j = 0; type >= 4 && j < n; ++j) {
        quarter += T(0.5) * step;
        near(p.dpar[size_t(n + 2 + j)], std::sin((long double)quarter), what);
      }
    }
}

TYPED_TEST(Trig, InitFillsTheArrays) {
  using T = TypeParam;
  for (const int spelling : {0, 1}) {
    trig_problem<T> p(10, 4, spelling);
    const zor_int expected[] = {10, 0, 0, 1000, 1000, 4, 0, 1, 1, 1, 0, 1000};
    for (int i = 0; i < 12; ++i) EXPECT_EQ(p.ipar[i], expected[i]) << i;
    EXPECT_EQ(p.stat, 0);
  }
}

// What commit says and leaves: the arguments made bad one at a time, in the order in which they are looked
// at.
TYPED_TEST(Trig, CommitChecks) {
  using T = TypeParam;
  struct bad {
    zor_int n, type, status, threads;
    double tolerance, first, last;
    zor_int expected;
  };
  const bad cases[] = {
      {8, 0, -3, 1, 0, 0, 0, -10000},  {1, 9, 0, 1, 0, 0, 0, -100},    {0, 0, 0, 1, 0, 0, 0, -100},
      {-5, 0, 0, 1, 0, 0, 0, -100},    {8, 6, 0, 1, 0, 0, 0, -100},    {8, -1, 0, 1, 0, 0, 0, -100},
      {8, 0, 0, 1, 0.5, 0.5, -0.5, 0}, {8, 0, 0, 1, 0.5, 0.75, 0, 1},  {8, 0, 0, 1, 0.5, 0, -0.75, 1},
      {8, 2, 0, 1, 0.5, 9, 0.75, 1},   {8, 3, 0, 1, 0.5, -0.75, 9, 1}, {8, 3, 0, 1, 0.5, 0.5, 9, 0},
      {8, 0, 0, 1, -1, 0, 0, 10},      {8, 2, 0, -4, 0.5, 0, 0, 10},   {8, 0, 0, -4, -1, 1, 0, 11},
      {8, 1, 0, 1, -1, 9, 9, 0},       {8, 4, 0, 1, -1, 9, 9, 0},      {8, 5, 0, -1, -1, 9, 9, 10},
      {8, 0, 0, 3, 0.5, 0, 0, 0}};
  for (const bad& c : cases) {
    trig_problem<T> p(c.n, c.type);
    p.ipar[6] = c.status;
    p.ipar[9] = c.threads;
    p.dpar[0] = T(c.tolerance);
    std::vector<T> f(12);
    f[0] = T(c.first);
    f[8] = T(c.last);
    const std::string what =
        std::to_string(c.n) + " type " + std::to_string(c.type) + " expected " + std::to_string(c.expected);
    EXPECT_EQ(p.commit(f.data()), c.expected) << what;
    EXPECT_EQ(p.ipar[6], c.expected) << what;
    EXPECT_EQ(p.handle != nullptr, c.expected >= 0) << what;
    if (c.expected == 10 || c.expected == 11) {
      EXPECT_EQ(p.ipar[9], c.threads < 0 ? 1 : c.threads) << what;
      if (c.tolerance < 0 && c.type < 4) {
        EXPECT_GT(p.dpar[0], T(0)) << what;
      }
    }
    // A warning blocks all that follows until the caller takes it away.
    if (c.expected <= 0 && c.expected != -10000) continue;
    const zor_int blocked = c.expected;
    const std::vector<T> before = f;
    EXPECT_EQ(p.forward(f.data()), -10000) << what;
    EXPECT_EQ(f, before) << what;
    if (blocked == -10000) continue;
    p.ipar[6] = 0;
    EXPECT_EQ(p.backward(f.data()), 0) << what;
  }
}

TYPED_TEST(Trig, CommitThatMakesNothing) {
  using T = TypeParam;
  trig_problem<T> p(8, 2);
  p.ipar[7] = 0;
  p.ipar[9] = -2;
  std::vector<T> f(9);
  const std::vector<T> tables = p.dpar;
  EXPECT_EQ(p.commit(f.data()), 10);
  EXPECT_EQ(p.handle, nullptr);
  EXPECT_EQ(p.dpar, tables);
}

TYPED_TEST(Trig, RunsRefuseWhatWasSpoilt) {
  using T = TypeParam;
  for (int type = 2; type < 6; ++type)
    for (const zor_int n : {8, 15}) {
      trig_problem<T> p(n, type);
      std::vector<T> f = field<T>(n, type, 1);
      ASSERT_EQ(p.commit(f.data()), 0);
      p.dpar[size_t((type >= 4 ? 2 * n : n) + 2 + n / 2 - 1)] = 0;
      EXPECT_EQ(p.forward(f.data()), -200) << type;
      EXPECT_EQ(p.ipar[6], -200);
      EXPECT_EQ(p.forward(f.data()), -10000);
      p.ipar[6] = 0;
      EXPECT_EQ(p.backward(f.data()), 0) << type;
    }
  trig_problem<T> p(8, 1);
  std::vector<T> f(9);
  ASSERT_EQ(p.commit(f.data()), 0);
  p.ipar[5] = 6;
  EXPECT_EQ(p.forward(f.data()), -100);
  p.ipar[5] = 1, p.ipar[6] = 0;
  ASSERT_EQ(zor_dft_set_value(p.handle, ZOR_DFT_PLACEMENT, ZOR_DFT_INPLACE), 0);  // uncommits
  EXPECT_EQ(p.forward(f.data()), -1000);
  zor_int stat = 5;
  p.ipar[6] = 44;
  p.call.free(&p.handle, p.ipar, &stat);
  EXPECT_EQ(stat, 0);
  EXPECT_EQ(p.ipar[6], 0);
  EXPECT_EQ(p.handle, nullptr);
  p.call.free(&p.handle, p.ipar, &stat);
  EXPECT_EQ(stat, -1000);
  EXPECT_EQ(p.ipar[6], -1000);
}

// The operand ends at an unmapped page; data that are not finite come back as such.
TYPED_TEST(Trig, StaysInsideItsOperands) {
  using T = TypeParam;
  for (int type = 0; type < 6; ++type)
    for (const zor_int n : {2, 3, 64, 65}) {
      for (const bool at_end : {true, false}) {
        guarded<T> f(size_t(n + (type >= 4 ? 0 : 1)), at_end), dpar(size_t(trig_table(n, type)), at_end);
        trig_problem<T> p(n, type);
        for (T& v : f) v = 0;
        std::copy_n(p.dpar.begin(), dpar.size(), dpar.data());
        p.call.commit(f.data(), &p.handle, p.ipar, dpar.data(), &p.stat);
        ASSERT_EQ(p.stat, 0);
        f[1] = T(NAN);
        p.call.forward(f.data(), &p.handle, p.ipar, dpar.data(), &p.stat);
        EXPECT_EQ(p.stat, 0);
        EXPECT_TRUE(std::isnan(f[1])) << type << " " << n;
        p.call.backward(f.data(), &p.handle, p.ipar, dpar.data(), &p.stat);
        EXPECT_EQ(p.stat, 0);
        p.ipar[0] = 0;  // n, lost since commit
        p.call.backward(f.data(), &p.handle, p.ipar, dpar.data(), &p.stat);
        EXPECT_EQ(p.stat, 0);
        p.call.forward(f.data(), &p.handle, p.ipar, dpar.data(), &p.stat);
        EXPECT_EQ(p.stat, -10000);
      }
    }
}

}  // namespace
