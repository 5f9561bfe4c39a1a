// SPDX-License-Identifier: MIT
// The public transforms and solvers: sums of the field, every combination of sides against elimination,
// periodic axes, convergence, refused arguments, callers at once.
#include <cfloat>
#include <thread>

#include "tests/ref/grid.h"
#include "tests/ref/trig.h"
#include "tests/support/operand.h"
#include "zor/core.h"
#include "zor/signatures/poisson.h"
#include "zor/signatures/trig.h"

namespace {

using namespace zor_test;
using zor_ref::real;

template <class T>
constexpr double unit = std::is_same_v<T, float> ? FLT_EPSILON : DBL_EPSILON;

zor_int create(zor_trig** t, zor_int kind, zor_int m, double) { return zor_trig_create_d(t, kind, m); }
zor_int create(zor_trig** t, zor_int kind, zor_int m, float) { return zor_trig_create_s(t, kind, m); }
zor_int run(const zor_trig* t, double* x, zor_int lines, zor_int stride, zor_int distance, double scale) {
  return zor_trig_run_d(t, x, lines, stride, distance, scale);
}
zor_int run(const zor_trig* t, float* x, zor_int lines, zor_int stride, zor_int distance, float scale) {
  return zor_trig_run_s(t, x, lines, stride, distance, scale);
}
zor_int create(zor_poisson** p, const zor_poisson_box* b, double) { return zor_poisson_create_d(p, b); }
zor_int create(zor_poisson** p, const zor_poisson_box* b, float) { return zor_poisson_create_s(p, b); }
zor_int solve(const zor_poisson* p, double* f, const double* const* sides) {
  return zor_poisson_solve_d(p, f, sides);
}
zor_int solve(const zor_poisson* p, float* f, const float* const* sides) {
  return zor_poisson_solve_s(p, f, sides);
}

template <class T>
class Public : public ::testing::Test {};
using precisions = ::testing::Types<double, float>;
TYPED_TEST_SUITE(Public, precisions);

real square(real x) { return x * x; }

// Of half the transform. The errors of a Fourier transform, log(m) units of the root of the sum of squares,
// are those of all kinds but DST-I and DCT-I: there running sums add up m of them.
template <class T>
double error_bound(zor_int kind, zor_int m, real squares) {
  const double sums = kind <= ZOR_DCT1 ? double(m) : 1;
  return 8 * unit<T> * std::log2(2 * double(m)) * sums * double(std::sqrt(squares));
}

// One line and lines in company, in every layout; what stands between them is left alone.
TYPED_TEST(Public, TransformsAreTheirSums) {
  using T = TypeParam;
  struct layout {
    zor_int lines, stride, distance_extra;
    bool along;  // lines one element apart
  };
  for (zor_int kind = ZOR_DST1; kind <= ZOR_DST4; ++kind)
    for (const zor_int m : {3, 8, 33, 63, 64, 65, 97, 200}) {
      zor_trig* t = nullptr;
      ASSERT_EQ(create(&t, kind, m, T()), 0);
      for (const layout& l : {layout{1, 1, 0, false}, layout{3, 1, 0, false}, layout{19, 1, 5, false},
                              layout{21, 1, 0, true}, layout{16, 3, 1, false}, layout{2, -1, 4, false}}) {
        const zor_int stride = l.along ? l.lines + 2 : l.stride;
        const zor_int distance = l.along ? 1 : m * std::abs(l.stride) + l.distance_extra;
        const zor_int first = stride < 0 ? m - 1 : 0;
        const zor_int size = l.along ? m * stride : l.lines * distance + m * std::abs(stride);
        std::vector<T> x(static_cast<size_t>(size), T(7));
        random_bits random(uint64_t(m * 16 + kind));
        std::vector<T> expected = x;
        for (zor_int i = 0; i < l.lines; ++i)
          for (zor_int j = 0; j < m; ++j) x[size_t(first + stride * j + distance * i)] = T(random.unit());
        const std::vector<T> before = x;
        ASSERT_EQ(run(t, x.data() + first, l.lines, stride, distance, T(0.5)), 0);
        for (zor_int i = 0; i < l.lines; i += 7)
          for (zor_int k = 0; k < m; k += 5) {
            real sum = 0, squares = 0;
            for (zor_int j = 0; j < m; ++j)
              squares += square(before[size_t(first + stride * j + distance * i)]);
            for (zor_int j = 0; j < m; ++j)
              sum += before[size_t(first + stride * j + distance * i)] *
                     zor_ref::public_term(int(kind), real(m), real(j), real(k));
            ASSERT_NEAR(double(sum / 2), double(x[size_t(first + stride * k + distance * i)]),
                        error_bound<T>(kind, m, squares))
                << "kind " << kind << " m " << m << " lines " << l.lines << " stride " << stride;
          }
        std::vector<bool> used(x.size());
        for (zor_int i = 0; i < l.lines; ++i)
          for (zor_int j = 0; j < m; ++j) used[size_t(first + stride * j + distance * i)] = true;
        for (size_t i = 0; i < x.size(); ++i)
          ASSERT_TRUE(used[i] || x[i] == T(7)) << kind << " " << m << " " << i;
      }
      EXPECT_EQ(zor_trig_free(&t), 0);
      EXPECT_EQ(t, nullptr);
    }
}

// Long lines, of lengths with a form for company and without: some coefficients, the first and the last among
// them.
TYPED_TEST(Public, LongTransformsAreTheirSums) {
  using T = TypeParam;
  for (zor_int kind = ZOR_DST1; kind <= ZOR_DST4; ++kind)
    for (const zor_int m : {4096, 4097, 65536, 65539}) {
      zor_trig* t = nullptr;
      ASSERT_EQ(create(&t, kind, m, T()), 0);
      std::vector<T> x(static_cast<size_t>(m));
      random_bits random(uint64_t(m + kind));
      for (T& v : x) v = T(random.unit());
      const std::vector<T> before = x;
      ASSERT_EQ(run(t, x.data(), 1, 1, m, T(0.5)), 0);
      zor_trig_free(&t);
      real squares = 0;
      for (const T v : before) squares += square(v);
      for (const zor_int k : {zor_int(0), zor_int(1), m / 3, m / 2, m - 2, m - 1}) {
        real sum = 0;
        for (zor_int j = 0; j < m; ++j)
          sum += before[size_t(j)] * zor_ref::public_term(int(kind), real(m), real(j), real(k));
        ASSERT_NEAR(double(sum / 2), double(x[size_t(k)]), error_bound<T>(kind, m, squares))
            << "kind " << kind << " m " << m << " k " << k;
      }
    }
}

// A line's bits depend neither on its neighbours nor on threads, and a neighbour that is not finite does no
// harm.
TYPED_TEST(Public, LinesKeepToThemselves) {
  using T = TypeParam;
  const zor_int m = 128, lines = 1000;
  for (const zor_int kind : {ZOR_DST1, ZOR_DCT2, ZOR_DST3, ZOR_DCT4}) {
    zor_trig* t = nullptr;
    ASSERT_EQ(create(&t, kind, m, T()), 0);
    std::vector<T> x(size_t(m * lines));
    random_bits random(3);
    for (T& v : x) v = T(random.unit());
    std::vector<T> few(x.begin() + m * 5, x.begin() + m * 7), spoilt = x;
    for (zor_int i = 0; i < lines; i += 2) spoilt[size_t(m * i)] = T(INFINITY);
    for (const int threads : {1, 2, 7}) {
      zor_core_set_num_threads(threads);
      std::vector<T> all = x;
      ASSERT_EQ(run(t, all.data(), lines, 1, m, T(1)), 0);
      std::vector<T> pair = few;
      ASSERT_EQ(run(t, pair.data(), 2, 1, m, T(1)), 0);
      EXPECT_TRUE(same_bits(pair.data(), all.data() + m * 5, size_t(2 * m))) << kind;
      std::vector<T> beside = spoilt;
      ASSERT_EQ(run(t, beside.data(), lines, 1, m, T(1)), 0);
      for (zor_int i = 1; i < lines; i += 2)
        ASSERT_TRUE(same_bits(beside.data() + m * i, all.data() + m * i, size_t(m))) << kind << " line " << i;
    }
    zor_core_set_num_threads(0);
    zor_trig_free(&t);
  }
}

// Kinds of an axis: values, derivatives, both ways, periodic.
constexpr zor_int axis_sides[5][2] = {{0, 0}, {0, 1}, {1, 0}, {1, 1}, {2, 2}};

template <class T>
void check_box(zor_int dimensions, const zor_int* n, const int* kinds, double q) {
  random_bits random(9);
  zor_poisson_box box = {};
  zor_ref::grid_problem ref;
  ref.dimensions = int(dimensions);
  ref.plain = true;
  box.dimensions = dimensions;
  box.q = q;
  ref.q = T(q);
  std::string what = "q " + std::to_string(q);
  for (zor_int a = 0; a < dimensions; ++a) {
    box.n[a] = ref.n[a] = n[a];
    box.length[a] = double(ref.length[a] = real(0.75 + 0.25 * double(a)));
    what += " " + std::to_string(n[a]) + "/" + std::to_string(kinds[a]);
    for (int e = 0; e < 2; ++e) box.side[2 * a + e] = ref.kind[2 * a + e] = int(axis_sides[kinds[a]][e]);
  }
  std::vector<T> side[6];
  const T* sides[6] = {};
  for (int s = 0; s < 2 * ref.dimensions; ++s) {
    int a, b;
    ref.axes_of(s, &a, &b);
    side[s].resize(size_t((ref.n[a] + 1) * (ref.n[b] + 1)));
    for (T& v : side[s]) v = T(random.unit());
    ref.side[s].assign(side[s].begin(), side[s].end());
    sides[s] = ref.kind[s] == 2 ? nullptr : side[s].data();
  }
  std::vector<T> f(size_t(ref.count()));
  for (T& v : f) v = T(random.unit());
  ref.f.assign(f.begin(), f.end());
  zor_poisson* p = nullptr;
  ASSERT_EQ(create(&p, &box, T()), 0) << what;
  const bool singular = ref.singular();
  ASSERT_EQ(solve(p, f.data(), sides), singular ? ZOR_POISSON_ZERO_MEAN : ZOR_POISSON_OK) << what;
  std::vector<real> expected = zor_ref::solve_dense(ref);
  if (singular) {
    real sum = 0, weights = 0, mine = 0;
    for (size_t i = 0; i < expected.size(); ++i) {
      const long at[3] = {long(i) % (ref.n[0] + 1), long(i) / (ref.n[0] + 1) % (ref.n[1] + 1),
                          long(i) / (ref.n[0] + 1) / (ref.n[1] + 1)};
      real w = 1;
      for (int a = 0; a < ref.dimensions; ++a) w *= at[a] == 0 || at[a] == ref.n[a] ? 0.5L : 1.0L;
      weights += w, sum += w * expected[i], mine += w * real(f[i]);
    }
    for (real& u : expected) u -= sum / weights;
    EXPECT_NEAR(double(mine / weights), 0, 50 * unit<T>) << what;
  }
  double size = 1;
  for (const real u : expected) size = std::max(size, std::fabs(double(u)));
  for (size_t i = 0; i < f.size(); ++i)
    ASSERT_NEAR(double(expected[i]), double(f[i]), 3000 * unit<T> * size * size) << what << " point " << i;
  EXPECT_EQ(zor_poisson_free(&p), 0);
}

TYPED_TEST(Public, BoxesAgainstElimination) {
  const zor_int shapes[][2] = {{4, 5}, {5, 2}, {36, 3}, {3, 36}}, box[] = {4, 3, 4};
  for (const double q : {0.0, 3.0, -2.5}) {
    for (int i = 0; i < 25; ++i) {
      const int kinds[] = {i / 5, i % 5};
      for (const auto& n : shapes) check_box<TypeParam>(2, n, kinds, q);
    }
    for (int i = 0; i < 125; ++i) {
      const int kinds[] = {i / 25, i / 5 % 5, i % 5};
      check_box<TypeParam>(3, box, kinds, q);
    }
  }
}

// A solution known for all places: the error falls with the square of the step, on every kind of axis.
TYPED_TEST(Public, ErrorsFallWithTheSquareOfTheStep) {
  using T = TypeParam;
  const auto u = [](real x, real y) {
    return std::sin(2 * zor_ref::pi * x + 0.4L) * std::cos(2 * zor_ref::pi * y - 0.3L) + 2;
  };
  for (int i = 0; i < 25; ++i) {
    double error[2];
    for (int level = 0; level < 2; ++level) {
      const zor_int n = 24 << level;
      const int kinds[] = {i / 5, i % 5};
      zor_poisson_box box = {2, {n, n}, {1, 1}, {}, 1.25};
      std::vector<T> f(size_t((n + 1) * (n + 1))), side[4];
      const T* sides[4];
      const auto slope = [&](real x, real y, int axis) {
        const real h = 1e-6L;
        return axis == 0 ? (u(x + h, y) - u(x - h, y)) / (2 * h) : (u(x, y + h) - u(x, y - h)) / (2 * h);
      };
      for (int s = 0; s < 4; ++s) {
        box.side[s] = axis_sides[kinds[s / 2]][s % 2];
        side[s].resize(size_t(n + 1));
        sides[s] = side[s].data();
        for (zor_int j = 0; j <= n; ++j) {
          const real at = real(j) / real(n), end = s % 2, x = s < 2 ? end : at, y = s < 2 ? at : end;
          side[s][size_t(j)] = T(box.side[s] == 1 ? (s % 2 ? 1 : -1) * slope(x, y, s / 2) : u(x, y));
        }
      }
      for (zor_int j = 0; j <= n; ++j)
        for (zor_int k = 0; k <= n; ++k)
          f[size_t(k + j * (n + 1))] =
              T(8 * zor_ref::pi * zor_ref::pi * (u(real(k) / real(n), real(j) / real(n)) - 2) +
                1.25L * u(real(k) / real(n), real(j) / real(n)));
      zor_poisson* p = nullptr;
      ASSERT_EQ(create(&p, &box, T()), 0);
      ASSERT_EQ(solve(p, f.data(), sides), 0);
      zor_poisson_free(&p);
      error[level] = 0;
      for (zor_int j = 0; j <= n; ++j)
        for (zor_int k = 0; k <= n; ++k)
          error[level] = std::max(error[level], std::fabs(double(f[size_t(k + j * (n + 1))] -
                                                                 u(real(k) / real(n), real(j) / real(n)))));
    }
    EXPECT_LT(error[1], 0.02) << i;
    EXPECT_NEAR(error[0] / error[1], 4, sizeof(T) == sizeof(float) ? 1.2 : 0.3) << i;
  }
}

// The globe's first harmonic, with one problem that five callers use at once, on any number of threads.
TYPED_TEST(Public, CallersOnOneProblem) {
  using T = TypeParam;
  const zor_int n = 64;
  zor_poisson_sphere sphere = {{2 * n, n}, {0, 2 * 3.14159265358979324}, {0, 3.14159265358979324}, 1, 0};
  zor_poisson* p = nullptr;
  if constexpr (std::is_same_v<T, float>)
    ASSERT_EQ(zor_poisson_sphere_s(&p, &sphere), 0);
  else
    ASSERT_EQ(zor_poisson_sphere_d(&p, &sphere), 0);
  std::vector<T> f(size_t((2 * n + 1) * (n + 1)));
  for (zor_int j = 0; j <= n; ++j)
    for (zor_int i = 0; i <= 2 * n; ++i)
      f[size_t(i + j * (2 * n + 1))] = T(2 * std::cos(3.14159265358979324 * double(j) / double(n)));
  std::vector<std::vector<T>> results(5, f);
  std::vector<std::thread> callers;
  for (auto& result : results)
    callers.emplace_back([&] { EXPECT_EQ(solve(p, result.data(), nullptr), ZOR_POISSON_ZERO_MEAN); });
  for (std::thread& c : callers) c.join();
  for (int threads : {1, 3}) {
    zor_core_set_num_threads(threads);
    results.push_back(f);
    EXPECT_EQ(solve(p, results.back().data(), nullptr), ZOR_POISSON_ZERO_MEAN);
  }
  zor_core_set_num_threads(0);
  for (const auto& result : results) EXPECT_TRUE(same_bits(results[0].data(), result.data(), f.size()));
  for (size_t i = 0; i < f.size(); ++i) ASSERT_NEAR(double(f[i]) / 2, double(results[0][i]), 0.002);
  zor_poisson_free(&p);
}

// Five callers on one transform and one box each, which have the bits of one caller.
TYPED_TEST(Public, CallersOnOnePlan) {
  using T = TypeParam;
  const zor_int m = 250;
  const zor_poisson_box box = {3, {20, 16, 12}, {1, 1, 1}, {0, 1, 2, 2, 1, 0}, 0.5};
  zor_poisson* p = nullptr;
  zor_trig* t = nullptr;
  ASSERT_EQ(create(&p, &box, T()), 0);
  ASSERT_EQ(create(&t, ZOR_DST2, m, T()), 0);
  std::vector<T> f(21 * 17 * 13);
  random_bits random(4);
  for (T& v : f) v = T(random.unit());
  const auto work = [&](std::vector<T>* field, std::vector<T>* lines) {
    for (int i = 0; i < 20; ++i) {
      *field = *lines = f;
      EXPECT_EQ(solve(p, field->data(), nullptr), 0);
      EXPECT_EQ(run(t, lines->data(), i % 2 != 0 ? 18 : 1, 1, m, T(1)), 0);
    }
  };
  std::vector<std::vector<T>> fields(6), lines(6);
  std::vector<std::thread> callers;
  for (size_t i = 0; i < 5; ++i) callers.emplace_back([&, i] { work(&fields[i], &lines[i]); });
  for (std::thread& c : callers) c.join();
  work(&fields[5], &lines[5]);
  for (size_t i = 0; i < 5; ++i) {
    EXPECT_TRUE(same_bits(fields[5].data(), fields[i].data(), f.size()));
    EXPECT_TRUE(same_bits(lines[5].data(), lines[i].data(), f.size()));
  }
  zor_poisson_free(&p);
  zor_trig_free(&t);
}

// A number that is not finite spoils its line or field and raises no status.
TYPED_TEST(Public, DataThatAreNotFinite) {
  using T = TypeParam;
  for (const double spoilt : {double(NAN), double(INFINITY)}) {
    for (zor_int kind = ZOR_DST1; kind <= ZOR_DST4; ++kind)
      for (const zor_int m : {64, 65}) {
        zor_trig* t = nullptr;
        ASSERT_EQ(create(&t, kind, m, T()), 0);
        std::vector<T> x(size_t(2 * m), T(1));
        x[5] = T(spoilt);
        ASSERT_EQ(run(t, x.data(), 1, 1, m, T(1)), 0);
        EXPECT_FALSE(std::isfinite(x[1])) << kind;
        EXPECT_EQ(x[size_t(m)], T(1));
        zor_trig_free(&t);
      }
    const zor_poisson_box box = {2, {8, 8}, {1, 1}, {0, 1, 2, 2}, 1};
    zor_poisson* p = nullptr;
    ASSERT_EQ(create(&p, &box, T()), 0);
    std::vector<T> f(81, T(1));
    f[40] = T(spoilt);
    EXPECT_EQ(solve(p, f.data(), nullptr), 0);
    EXPECT_FALSE(std::isfinite(f[41]));
    EXPECT_EQ(f[0], T(0));
    zor_poisson_free(&p);
  }
}

TYPED_TEST(Public, RefusedArguments) {
  using T = TypeParam;
  zor_trig* t = nullptr;
  T x[64] = {};
  EXPECT_EQ(create(nullptr, ZOR_DCT1, 8, T()), -1);
  for (const zor_int kind : {0, 9}) EXPECT_EQ(create(&t, kind, 8, T()), -2);
  EXPECT_EQ(create(&t, ZOR_DST1, 0, T()), -3);
  EXPECT_EQ(create(&t, ZOR_DCT1, 2, T()), -3);
  EXPECT_EQ(create(&t, ZOR_DCT2, zor_int(1) << 40, T()), ZOR_TRIG_TOO_LONG);
  EXPECT_EQ(t, nullptr);
  ASSERT_EQ(create(&t, ZOR_DCT2, 8, T()), 0);
  EXPECT_EQ(run(nullptr, x, 1, 1, 8, T(1)), -1);
  EXPECT_EQ(run(t, static_cast<T*>(nullptr), 1, 1, 8, T(1)), -2);
  EXPECT_EQ(run(t, x, -1, 1, 8, T(1)), -3);
  EXPECT_EQ(run(t, x, 0, 1, 8, T(1)), 0);
  EXPECT_EQ(run(t, x, 1, 0, 8, T(1)), -4);
  EXPECT_EQ(run(t, x, 2, 1, 0, T(1)), -5);
  EXPECT_EQ(run(t, x, 1, 1, 0, T(1)), 0);
  if constexpr (std::is_same_v<T, double>) {
    float y[8] = {};
    EXPECT_EQ(run(t, y, 1, 1, 8, 1.0f), -1);
  }
  EXPECT_EQ(zor_trig_free(&t), 0);
  EXPECT_EQ(zor_trig_free(&t), -1);
  EXPECT_EQ(zor_trig_free(nullptr), -1);
  for (zor_int status = -6; status < 4; ++status) EXPECT_GT(std::string(zor_trig_text(status)).size(), 3u);

  const zor_poisson_box good = {2, {8, 8}, {1, 1}, {0, 1, 2, 2}, 0};
  const auto with = [&](auto change) {
    zor_poisson_box box = good;
    change(box);
    zor_poisson* p = nullptr;
    const zor_int status = create(&p, &box, T());
    EXPECT_EQ(p, nullptr);
    return status == -2 ? std::string(zor_poisson_text(status)) : "status " + std::to_string(status);
  };
  EXPECT_EQ(with([](auto& b) { b.dimensions = 4; }).substr(0, 10), "dimensions");
  EXPECT_EQ(with([](auto& b) { b.n[1] = 1; }).substr(0, 2), "n:");
  EXPECT_EQ(with([](auto& b) { b.n[0] = b.n[1] = zor_int(1) << 30; }).substr(0, 2), "n:");
  EXPECT_EQ(with([](auto& b) { b.length[0] = 0; }).substr(0, 7), "length:");
  EXPECT_EQ(with([](auto& b) { b.length[1] = INFINITY; }).substr(0, 7), "length:");
  EXPECT_EQ(with([](auto& b) { b.side[0] = 3; }).substr(0, 5), "side:");
  EXPECT_EQ(with([](auto& b) { b.side[3] = 1; }).substr(0, 5), "side:");
  EXPECT_EQ(with([](auto& b) { b.q = NAN; }).substr(0, 2), "q ");
  EXPECT_EQ(create(nullptr, &good, T()), -1);
  zor_poisson* p = nullptr;
  EXPECT_EQ(create(&p, nullptr, T()), -2);
  ASSERT_EQ(create(&p, &good, T()), 0);
  EXPECT_EQ(solve(nullptr, x, nullptr), -1);
  EXPECT_EQ(solve(p, static_cast<T*>(nullptr), nullptr), -2);
  EXPECT_EQ(zor_poisson_free(&p), 0);
  EXPECT_EQ(zor_poisson_free(&p), -1);
  zor_poisson_sphere odd = {{7, 4}, {0, 6}, {0, 3}, 1, 0}, low = {{8, 4}, {0, 6}, {-1, 3}, 1, 0};
  EXPECT_EQ(zor_poisson_sphere_d(&p, &odd), -2);
  EXPECT_EQ(zor_poisson_sphere_d(&p, &low), -2);
}

}  // namespace
