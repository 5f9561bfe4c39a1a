// SPDX-License-Identifier: MIT
// Elements, single and in vectors, as each build compiles them: products in each stated form and conjugates
// in the four rounding modes, which the calls of the library meet only now and then.
#include <gtest/gtest.h>

#include <array>
#include <cfenv>
#include <cmath>
#include <limits>
#include <vector>

#include "serv/element.h"

namespace {

using namespace zor;

constexpr int rounding_modes[] = {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO};

// One operation, rounded now and as it stands.
template <class R>
[[gnu::noinline]] R rounded(R x) {
  volatile R v = x;
  return v;
}
template <class R>
R times(R x, R y) {
  return rounded(rounded(x) * rounded(y));
}
template <class R>
R plus(R x, R y) {
  return rounded(rounded(x) + rounded(y));
}
template <class R>
R minus(R x, R y) {
  return rounded(rounded(x) - rounded(y));
}

// Values whose products and sums are inexact, and the special ones.
template <class R>
std::vector<R> values() {
  using limits = std::numeric_limits<R>;
  return {R(1) / R(3),  R(-2) / R(7),  R(0),          R(-0.0),
          R(5) / R(11), limits::max(), limits::min(), -limits::infinity()};
}

template <class R>
::testing::AssertionResult same(R result, R wanted) {
  if (std::isnan(result) && std::isnan(wanted)) return ::testing::AssertionSuccess();
  if (std::memcmp(&result, &wanted, sizeof result) == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << result << ", not " << wanted;
}
template <class C>
::testing::AssertionResult same_parts(C result, C wanted) {
  const auto re = same(result.re, wanted.re);
  return re ? same(result.im, wanted.im) : re;
}

// Every form of the product x y, or conj(x) y, with its operations one by one.
template <class C, class R = real_t<C>>
C subtracting(C x, C y) {
  return {minus(times(x.re, y.re), times(x.im, y.im)), plus(times(x.re, y.im), times(x.im, y.re))};
}
template <class C, class R = real_t<C>>
C subtracting_conj(C x, C y) {
  return {plus(times(x.re, y.re), times(x.im, y.im)), minus(times(x.re, y.im), times(x.im, y.re))};
}
template <class C>
C adding(C s, C v) {
  return {plus(times(v.re, s.re), times(v.im, -s.im)), plus(times(v.im, s.re), times(v.re, s.im))};
}
template <class C>
C adding_conj(C s, C v) {
  return {plus(times(v.re, s.re), times(v.im, s.im)), plus(times(v.im, -s.re), times(v.re, s.im))};
}

template <class C, int Bytes>
void check_vector_products(const std::vector<C>& x, const std::vector<C>& y) {
  using V = vec<real_t<C>, Bytes>;
  constexpr size_t n = units<C, Bytes>;
  for (size_t i = 0; i + n <= x.size(); i += n) {
    const V vx = load_units<V>(&x[i]), vy = load_units<V>(&y[i]);
    C plain[n], conjugate[n], scaled_by[n], scaled_conj[n], flipped[n], subtracted[n];
    store_units(plain, mul_units<C>(vx, vy));
    store_units(conjugate, mul_units<C, true>(vx, vy));
    store_units(scaled_by, make_factor<V>(x[i]) * vy);
    store_units(scaled_conj, make_factor<V, true>(x[i]) * vy);
    store_units(flipped, conj_units_by_sign_if<C>(true, conj_units_by_sign_if<C>(false, vx)));
    store_units(subtracted, conj_units_by_subtraction<C>(vx));
    for (size_t k = 0; k < n; ++k) {
      EXPECT_TRUE(same_parts(plain[k], subtracting(x[i + k], y[i + k])));
      EXPECT_TRUE(same_parts(conjugate[k], subtracting_conj(x[i + k], y[i + k])));
      EXPECT_TRUE(same_parts(scaled_by[k], adding(x[i], y[i + k])));
      EXPECT_TRUE(same_parts(scaled_conj[k], adding_conj(x[i], y[i + k])));
      EXPECT_TRUE(same_parts(flipped[k], C{x[i + k].re, -x[i + k].im}));
      EXPECT_TRUE(same_parts(subtracted[k], C{x[i + k].re, minus(real_t<C>(0), x[i + k].im)}));
    }
  }
}

template <class C>
void check_products() {
  using R = real_t<C>;
  std::vector<C> x, y;
  for (const R a : values<R>())
    for (const R b : values<R>())
      for (const R c : values<R>())
        for (const R d : values<R>()) {
          x.push_back({a, b});
          y.push_back({c, d});
        }
  for (const int mode : rounding_modes) {
    SCOPED_TRACE(testing::Message() << "rounding mode " << mode);
    std::fesetround(mode);
    for (size_t i = 0; i < x.size(); ++i) {
      EXPECT_TRUE(same_parts(mul(x[i], y[i]), subtracting(x[i], y[i])));
      EXPECT_TRUE(same_parts(mul<true>(x[i], y[i]), subtracting_conj(x[i], y[i])));
      EXPECT_TRUE(same_parts(mul_adding(x[i], y[i]), adding(x[i], y[i])));
      const complex_lanes<R> apart = mul(complex_lanes<R>{x[i].re, x[i].im}, y[i].re, y[i].im);
      EXPECT_TRUE(same_parts(C{apart.re, apart.im}, subtracting(x[i], y[i])));
      EXPECT_TRUE(same_parts(conj_by_sign_if(true, x[i]), C{x[i].re, -x[i].im}));
      EXPECT_TRUE(same_parts(conj_by_subtraction(x[i]), C{x[i].re, minus(R(0), x[i].im)}));
      EXPECT_TRUE(same_parts(zero_minus(x[i]), C{minus(R(0), x[i].re), minus(R(0), x[i].im)}));
    }
    check_vector_products<C, int(sizeof(C))>(x, y);
    check_vector_products<C, 16>(x, y);
    check_vector_products<C, width>(x, y);
    if (testing::Test::HasFailure()) break;
  }
  std::fesetround(FE_TONEAREST);
}

TEST(Products, EachFormInEveryRounding) {
  check_products<c32>();
  check_products<c64>();
}

}  // namespace
