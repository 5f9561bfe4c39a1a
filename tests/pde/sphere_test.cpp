// SPDX-License-Identifier: MIT
// The solvers of the sphere: the equations of their grids, known solutions, the stages' statuses.
#include <cfloat>
#include <cmath>

#include "tests/support/operand.h"
#include "zor/core.h"
#include "zor/signatures/poisson.h"

namespace {

using namespace zor_test;
using real = long double;
constexpr real pi = 3.14159265358979323846264338327950288L;

template <class T>
struct sphere_calls {
  zor::sphere_init_fn<T>*init_np, *init_p;
  zor::sphere_commit_np_fn<T>*commit_np, *solve_np;
  zor::sphere_commit_p_fn<T>*commit_p, *solve_p;
};
template <class T>
extern const sphere_calls<T> calls;
#define CALLS(T, t)                                                                            \
  template <>                                                                                  \
  const sphere_calls<T> calls<T> = {zor_pdepl_##t##_init_sph_np,   zor_pdepl_##t##_init_sph_p, \
                                    zor_pdepl_##t##_commit_sph_np, zor_pdepl_##t##_sph_np,     \
                                    zor_pdepl_##t##_commit_sph_p,  zor_pdepl_##t##_sph_p};
CALLS(double, d)
CALLS(float, s)
#undef CALLS

template <class T>
struct sphere_run {
  bool periodic;
  zor_int np, nt, ipar[128], stat = 77;
  T ap, bp, at, bt, q;
  std::vector<T> dpar, f;
  ZorDftDescriptor *sines = nullptr, *cosines = nullptr;

  sphere_run(bool is_periodic, zor_int longitudes, zor_int colatitudes, double north, double south,
             double factor)
      : periodic(is_periodic),
        np(longitudes),
        nt(colatitudes),
        ap(0),
        bp(is_periodic ? T(2 * pi) : T(1.5)),
        at(T(north)),
        bt(T(south)),
        q(T(factor)),
        dpar(size_t(5 * np + nt + 30)),
        f(size_t((np + 1) * (nt + 1))) {
    for (zor_int& i : ipar) i = 1000;
    (periodic ? calls<T>.init_p : calls<T>.init_np)(&ap, &bp, &at, &bt, &np, &nt, &q, ipar, dpar.data(),
                                                    &stat);
    ipar[1] = ipar[2] = 0;
  }
  ~sphere_run() {
    if (sines != nullptr) free();
  }
  zor_int commit() { return run(calls<T>.commit_np, calls<T>.commit_p); }
  zor_int solve() { return run(calls<T>.solve_np, calls<T>.solve_p); }
  zor_int run(zor::sphere_commit_np_fn<T>* part, zor::sphere_commit_p_fn<T>* globe) {
    if (periodic)
      globe(f.data(), &sines, &cosines, ipar, dpar.data(), &stat);
    else
      part(f.data(), &sines, ipar, dpar.data(), &stat);
    return stat;
  }
  zor_int free() {
    if (periodic)
      zor_pdepl_free_sph_p(&sines, &cosines, ipar, &stat);
    else
      zor_pdepl_free_sph_np(&sines, ipar, &stat);
    return stat;
  }
  T& operator()(zor_int i, zor_int j) { return f[size_t(i + j * (np + 1))]; }
  real colatitude(zor_int j) const { return (real)at + ((real)bt - (real)at) * (real)j / (real)nt; }
  void fill(uint64_t seed) {
    random_bits random(seed);
    for (T& v : f) v = T(random.unit());
    for (zor_int j = 0; periodic && j <= nt; ++j) (*this)(np, j) = (*this)(0, j);
  }
};

// The largest residual of a row of the interior, relative to the largest term, once a constant is taken off
// u.
template <class T>
real residual(sphere_run<T>& r, const std::vector<T>& f, real taken_off = 0, real excess = 0) {
  const real ht = ((real)r.bt - (real)r.at) / (real)r.nt, hp = ((real)r.bp - (real)r.ap) / (real)r.np;
  const auto u = [&](zor_int i, zor_int j) { return (real)r(i, j) + taken_off; };
  real worst = 0, largest = 0;
  for (zor_int j = 1; j < r.nt; ++j)
    for (zor_int i = r.periodic ? 0 : 1; i < r.np; ++i) {
      const real s = std::sin(r.colatitude(j)), above = (std::sin(r.colatitude(j - 1)) + s) / 2,
                 below = (std::sin(r.colatitude(j + 1)) + s) / 2;
      const zor_int before = i == 0 ? r.np - 1 : i - 1, behind = i + 1;
      const real d = (above + below) / (ht * ht * s) + 2 / (hp * hp * s * s) + (real)r.q;
      const real sum = d * u(i, j) - (above * u(i, j - 1) + below * u(i, j + 1)) / (ht * ht * s) -
                       (u(before, j) + u(behind, j)) / (hp * hp * s * s) - f[size_t(i + j * (r.np + 1))] +
                       excess;
      worst = std::max(worst, std::fabs(sum));
      largest = std::max(largest, std::fabs(d * u(i, j)));
    }
  return worst / largest;
}

template <class T>
class Sphere : public ::testing::Test {};
using precisions = ::testing::Types<double, float>;
TYPED_TEST_SUITE(Sphere, precisions);

template <class T>
constexpr double unit = std::is_same_v<T, float> ? FLT_EPSILON : DBL_EPSILON;

TYPED_TEST(Sphere, SatisfiesItsEquations) {
  using T = TypeParam;
  for (const bool periodic : {false, true})
    for (const auto& [np, nt] : {std::pair<zor_int, zor_int>{6, 5}, {64, 30}, {90, 41}, {140, 64}})
      for (const double q : {0.5, 30.0, -4.5}) {
        sphere_run<T> r(periodic, np, nt, 0.25, 2.5, q);
        r.fill(4);
        const std::vector<T> f = r.f;
        ASSERT_EQ(r.commit(), q < 0 ? 1 : 0);
        ASSERT_EQ(r.solve(), 0);
        EXPECT_LT(double(residual(r, f)), 100 * unit<T>)
            << np << " " << nt << " q " << q << " periodic " << periodic;
        for (zor_int i = 0; i <= np; ++i) EXPECT_TRUE(r(i, 0) == 0 && r(i, nt) == 0) << i;
        for (zor_int j = 0; j <= nt; ++j) {
          EXPECT_EQ(r(np, j), r(0, j));
          EXPECT_TRUE(periodic || r(0, j) == T(0));
        }
      }
}

// Spherical harmonics have the eigenvalues l (l + 1); the error falls with the square of the step.
TYPED_TEST(Sphere, HarmonicsOfTheGlobe) {
  using T = TypeParam;
  const auto harmonic = [](int l, real phi, real theta) {
    const real c = std::cos(theta), s = std::sin(theta);
    return l == 1 ? c : l == 2 ? s * c * std::cos(phi) : s * s * s * std::sin(3 * phi);
  };
  for (const double q : {0.0, 1.5})
    for (int l = 1; l <= 3; ++l) {
      real error[2] = {};
      for (int level = 0; level < 2; ++level) {
        const zor_int n = 32 << level;
        sphere_run<T> r(true, 2 * n, n, 0, double(pi), q);
        r.bt = T(pi);
        EXPECT_EQ(r.ipar[3], sizeof(T) == sizeof(double) ? 0 : 1);
        r.ipar[3] = 0;
        const real eigenvalue = real(l * (l + 1)) + (real)q;
        for (zor_int j = 0; j <= n; ++j)
          for (zor_int i = 0; i <= 2 * n; ++i)
            r(i, j) = T(eigenvalue * harmonic(l, 2 * pi * (real)i / (real)(2 * n), r.colatitude(j)));
        ASSERT_EQ(r.commit(), 0);
        ASSERT_EQ(r.solve(), 0);
        for (zor_int j = 0; j <= n; ++j)
          for (zor_int i = 0; i <= 2 * n; ++i)
            error[level] = std::max(
                error[level],
                std::fabs((real)r(i, j) - harmonic(l, 2 * pi * (real)i / (real)(2 * n), r.colatitude(j))));
      }
      EXPECT_LT(double(error[1]), 0.003) << l << " q " << q;
      EXPECT_LT(double(error[1]), (sizeof(T) == sizeof(float) ? 0.5 : 0.28) * double(error[0]))
          << l << " q " << q;
    }
}

TYPED_TEST(Sphere, SameBitsForEveryNumberOfThreads) {
  using T = TypeParam;
  zor_core_set_num_threads(7);
  for (const double south : {2.5, double(pi)}) {
    std::vector<T> expected;
    for (const zor_int threads : {1, 2, 7}) {
      sphere_run<T> r(true, 320, 200, 0, south, 1);
      r.fill(4);
      r.ipar[22] = threads;
      ASSERT_EQ(r.commit(), 0);
      ASSERT_EQ(r.solve(), 0);
      if (threads == 1) expected = r.f;
      EXPECT_TRUE(same_bits(expected.data(), r.f.data(), expected.size()));
    }
  }
  zor_core_set_num_threads(0);
}

TYPED_TEST(Sphere, Stages) {
  using T = TypeParam;
  sphere_run<T> odd(true, 7, 4, 0.1, 2, 1);
  EXPECT_EQ(odd.commit(), -100);
  for (const bool periodic : {false, true}) {
    for (const zor_int bad : {5, 90009, -9}) {
      sphere_run<T> r(periodic, 8, 6, 0.1, 2, 1);
      r.ipar[0] = bad;
      EXPECT_EQ(r.commit(), -10000);
    }
    for (const int entry : {10, 11}) {
      sphere_run<T> r(periodic, 8, 6, 0.1, 2, 1);
      r.ipar[entry] = 0;
      EXPECT_EQ(r.commit(), -100);
    }
    for (const int entry : {0, 1}) {
      sphere_run<T> r(periodic, 8, 6, 0.1, 2, 1);
      r.dpar[size_t(entry)] = 0;
      EXPECT_EQ(r.commit(), -100);
    }
    sphere_run<T> strict(periodic, 8, 6, 0.1, 2, 1);
    strict.ipar[2] = 2;
    EXPECT_EQ(strict.commit(), -100);
    // 999 changes nothing, but divides the steps in the periodic form; commit again scales again.
    sphere_run<T> r(periodic, 8, 6, 0.1, 2, 1);
    r.fill(1);
    ASSERT_EQ(r.commit(), 0);
    const T width = r.dpar[0], height = r.dpar[1], q = r.dpar[3], value = r.f[20];
    r.ipar[0] = 999;
    ASSERT_EQ(r.commit(), 0);
    EXPECT_EQ(r.dpar[0], periodic ? width / T(8) : width);
    EXPECT_EQ(r.dpar[1], periodic ? height / T(6) : height);
    EXPECT_EQ(r.f[20], value);
    r.ipar[0] = 909;
    ASSERT_EQ(r.commit(), 0);
    EXPECT_EQ(r.dpar[0], periodic ? width / T(8) / T(8) : width);
    r.ipar[0] = 0;
    ASSERT_EQ(r.commit(), 0);
    EXPECT_NE(r.dpar[3], q);
    EXPECT_NE(r.f[20], value);
    EXPECT_LT(r.dpar[0], width);
    // A changed position is a warning; the solve is done.
    r.ipar[18] += 1;
    EXPECT_EQ(r.solve(), 1);
    EXPECT_EQ(r.ipar[0], 1);
    r.ipar[0] = 3;
    EXPECT_EQ(r.solve(), -10000);
    r.ipar[0] = 0, r.ipar[11] = 0;
    EXPECT_EQ(r.solve(), -100);
    EXPECT_EQ(r.free(), 0);
    EXPECT_EQ(r.free(), -1000);
  }
  // q of 0: the periodic form returns a zero mean, the other one does not look.
  for (const bool periodic : {false, true}) {
    sphere_run<T> r(periodic, 36, 12, 0.2, 2, 0);
    r.fill(2);
    ASSERT_EQ(r.commit(), 0);
    ASSERT_EQ(r.solve(), 0);
    real sum = 0;
    for (const T v : r.f) sum += v;
    EXPECT_EQ(std::fabs(double(sum / (real)r.f.size())) < 20 * unit<T>, periodic);
  }
}

}  // namespace
