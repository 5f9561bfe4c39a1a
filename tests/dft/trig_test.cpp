// SPDX-License-Identifier: MIT
// Roots of unity against 200-bit arithmetic.
#include <gtest/gtest.h>
#include <mpfr.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "dft/engine/roots/double_double.h"
#include "dft/engine/roots/trig.h"
#include "tests/support/operand.h"

namespace {

// Error of `got` in units in the last place of the exact value; an exact zero allows zero only.
double ulps(mpfr_t exact, double got) {
  const double nearest = mpfr_get_d(exact, MPFR_RNDN);
  if (std::fabs(nearest) < 0x1p-150) return got == 0 ? 0 : HUGE_VAL;
  mpfr_sub_d(exact, exact, got, MPFR_RNDN);
  return std::fabs(mpfr_get_d(exact, MPFR_RNDN)) / std::ldexp(1.0, std::ilogb(nearest) - 52);
}

struct exact_root {
  mpfr_t re, im;
  exact_root() { mpfr_inits2(200, re, im, static_cast<mpfr_ptr>(nullptr)); }
  ~exact_root() { mpfr_clears(re, im, static_cast<mpfr_ptr>(nullptr)); }
  void set(int64_t k, int64_t n) {
    mpfr_const_pi(re, MPFR_RNDN);
    mpfr_mul_si(re, re, -2 * k, MPFR_RNDN);
    mpfr_div_si(re, re, n, MPFR_RNDN);
    mpfr_sin_cos(im, re, re, MPFR_RNDN);
  }
};

long arguments() {
  const char* count = std::getenv("ZOR_TRIG_ARGUMENTS");
  return count != nullptr ? std::atol(count) : 100000;
}

TEST(RootOfUnity, WithinHalfAnUlp) {
  zor_test::random_bits random(4);
  exact_root exact;
  double worst = 0;
  for (long i = 0; i < arguments(); ++i) {
    const int64_t n = random.between(1, int64_t{1} << random.between(1, 31));
    // Every fourth argument is close to the axes, where the sine is small.
    const int64_t k = i % 4 == 0 ? random.between(0, 3) % n : random.between(0, n - 1);
    const zor_c64 w = zor::root_of_unity(k, n);
    exact.set(k, n);
    worst = std::max({worst, ulps(exact.re, w.re), ulps(exact.im, w.im)});
    ASSERT_LE(worst, 0.501) << k << " / " << n;
  }
  RecordProperty("worst_ulps", std::to_string(worst));
}

TEST(RootOfUnity, TailCompletesTheRoot) {
  zor_test::random_bits random(5);
  exact_root exact;
  for (int i = 0; i < 20000; ++i) {
    const int64_t n = random.between(1, int64_t{1} << random.between(1, 31));
    const int64_t k = random.between(0, n - 1);
    const zor::wide_root w = zor::wide_root_of_unity(k, n);
    exact.set(k, n);
    mpfr_sub_d(exact.re, exact.re, w.head.re, MPFR_RNDN);
    mpfr_sub_d(exact.im, exact.im, w.head.im, MPFR_RNDN);
    ASSERT_NEAR(mpfr_get_d(exact.re, MPFR_RNDN), w.tail.re, 0x1p-62) << k << " / " << n;
    ASSERT_NEAR(mpfr_get_d(exact.im, MPFR_RNDN), w.tail.im, 0x1p-62) << k << " / " << n;
  }
}

// Lengths around multiples of the nodes, so that runs of one node have one place, one vector, a vector and a
// rest.
TEST(RootOfUnity, ManyAtOnceAreTheSame) {
  for (const int64_t n : {1, 2, 3, 8, 97, 1000, 1023, 1024, 1026, 3000, 8193, 100000, 100003}) {
    std::vector<zor::wide_root> many(size_t(n / 2 + 1));
    zor::wide_roots_of_unity(n, n / 2 + 1, many.data());
    for (int64_t k = 0; k <= n / 2; ++k) {
      const zor::wide_root one = zor::wide_root_of_unity(k, n);
      ASSERT_EQ(std::memcmp(&one, &many[size_t(k)], sizeof one), 0) << k << " / " << n;
    }
  }
}

TEST(RootOfUnity, SymmetriesAreExact) {
  for (int64_t n : {8, 24, 1000, 4096, 99960}) {
    for (int64_t k = 0; k < n; ++k) {
      const zor_c64 w = zor::root_of_unity(k, n), mirrored = zor::root_of_unity(n - k, n);
      const zor_c64 quarter = zor::root_of_unity(k + n / 4, n);
      ASSERT_TRUE(w.re == mirrored.re && w.im == -mirrored.im) << k << " / " << n;
      ASSERT_TRUE(quarter.re == w.im && quarter.im == -w.re) << k << " / " << n;
    }
  }
}

TEST(RootOfUnity, CompileTimeRootsAreTheSame) {
  for (int64_t n = 1; n <= 128; ++n) {
    for (int64_t k = 0; k < n; ++k) {
      const zor_c64 w = zor::root_of_unity(k, n), constant = zor::dd::constant_root(k, n);
      ASSERT_TRUE(w.re == constant.re && w.im == constant.im) << k << " / " << n;
    }
  }
}

// Angles of all quarters, multiples of an eighth of the circle and their neighbours, small ones.
TEST(CosineAndSine, WithinHalfAnUlp) {
  zor_test::random_bits random(6);
  exact_root exact;
  double worst = 0;
  for (long i = 0; i < arguments(); ++i) {
    double angle = random.unit() * std::ldexp(1.0, int(random.between(-30, 19)));
    if (i % 3 == 0) angle = double(random.between(-40, 40)) * (3.14159265358979311600 / 4) + angle * 0x1p-40;
    const zor::cosine_and_sine w = zor::cosine_and_sine_of(angle);
    mpfr_set_d(exact.re, angle, MPFR_RNDN);
    mpfr_sin_cos(exact.im, exact.re, exact.re, MPFR_RNDN);
    ASSERT_NEAR(mpfr_get_d(exact.re, MPFR_RNDN), w.cosine, 0x1p-53) << angle;
    ASSERT_NEAR(mpfr_get_d(exact.im, MPFR_RNDN), w.sine, 0x1p-53) << angle;
    if (std::fabs(w.cosine) > 0x1p-9) worst = std::max(worst, ulps(exact.re, w.cosine));
    if (std::fabs(w.sine) > 0x1p-9) worst = std::max(worst, ulps(exact.im, w.sine));
    ASSERT_LE(worst, 0.501) << angle;
  }
  const zor::cosine_and_sine zero = zor::cosine_and_sine_of(0), far = zor::cosine_and_sine_of(0x1p20);
  EXPECT_TRUE(zero.cosine == 1 && zero.sine == 0);
  EXPECT_TRUE(std::isnan(far.cosine) && std::isnan(far.sine));
}

}  // namespace
