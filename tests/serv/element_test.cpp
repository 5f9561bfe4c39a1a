// SPDX-License-Identifier: MIT
// Elements, single and in vectors, as each build compiles them: products in each stated form in the four
// rounding modes, conjugates, tests, and which vectors a loop over a run takes.
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

// (3 + 4i) / (1 + 2i) = 11/5 - 2/5 i: exact but for the rounding of the reciprocal and of the parts.
TEST(Quotients, RoundOnceFromTheWiderFormat) {
  const c32 q = quotient_by_reciprocal<double>(c32{3, 4}, c32{1, 2});
  EXPECT_EQ(q.re, 2.2f);
  EXPECT_EQ(q.im, -0.4f);
  const c32 far = quotient_by_reciprocal<double>(c32{1e30f, 0}, c32{1e30f, 0});
  EXPECT_EQ(far.re, 1.0f) << "the square of the divisor overflows in the narrow format";
  EXPECT_EQ(quotient_by_reciprocal<double>(1.0, 3.0), 1.0 / 3.0);
}

TEST(Tests, ZeroAndOne) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    c64 value;
    bool zero, one;
  } cases[] = {{{0, 0}, true, false},    {{-0.0, -0.0}, true, false}, {{0, 1}, false, false},
               {{1, 0}, false, true},    {{1, -0.0}, false, true},    {{1, 1}, false, false},
               {{nan, 0}, false, false}, {{0, nan}, false, false},    {{1, nan}, false, false}};
  for (const auto& c : cases) {
    EXPECT_EQ(is_zero(c.value), c.zero) << c.value.re << ' ' << c.value.im;
    EXPECT_EQ(is_one(c.value), c.one) << c.value.re << ' ' << c.value.im;
    if (c.value.im == 0) {
      EXPECT_EQ(is_zero(c.value.re), c.zero);
      EXPECT_EQ(is_one(c.value.re), c.one);
    }
  }
}

// Elements of a strided walk, at addresses that are no multiple of anything.
TEST(Walks, NegativeIncrementsStartAtTheFarEnd) {
  alignas(16) char memory[8 * sizeof(c64) + 1] = {};
  c64* const x = reinterpret_cast<c64*>(memory + 1);
  for (int i = 0; i < 8; ++i) store_element(x + i, c64{double(i), -double(i)});
  for (const zor_int inc : {1, 2, -1, -2, 0}) {
    c64 run[4];
    gather(zor_int(4), walk_start(x, 4, inc), inc, run);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(run[i].re, double(inc < 0 ? (i - 3) * inc : i * inc)) << inc;
    scatter(zor_int(4), run, walk_start(x, 4, inc), inc);
  }
  for (int i = 0; i < 8; ++i) EXPECT_EQ(load_element(x + i).im, -double(i)) << "scattered where it was";
}

// The vectors of a loop over a run: every element once and in order, as wide as can be, each half at most
// once.
struct taken {
  int bytes;
  zor_int first, end;
};
template <class T>
void check_cover(const std::vector<taken>& t, zor_int first, zor_int stop) {
  zor_int at = first;
  for (size_t i = 0; i < t.size(); ++i) {
    EXPECT_EQ(t[i].first, at);
    at = t[i].end;
    if (i == 0) continue;
    EXPECT_LE(t[i].bytes, t[i - 1].bytes);
    if (t[i].bytes > int(sizeof(T)) && t[i].bytes < width) {
      EXPECT_LT(t[i].bytes, t[i - 1].bytes) << "a narrower vector twice";
    }
  }
  EXPECT_EQ(at, stop);
}

template <class T, int Floor, int Least>
void check_run(zor_int first, zor_int last) {
  constexpr narrowing how{.floor = Floor, .least = Least};
  std::vector<taken> ranges, vectors, unrolled;
  const zor_int stop = for_ranges<T, how>(first, last, [&]<int Bytes>(zor_int i, zor_int end) {
    for (; i < end; i += units<T, Bytes>) ranges.push_back({Bytes, i, i + units<T, Bytes>});
  });
  const auto note = [](auto& list) {
    return [&list]<int Bytes>(zor_int i) { list.push_back({Bytes, i, i + units<T, Bytes>}); };
  };
  EXPECT_EQ((for_vectors<T, how>(first, last, note(vectors))), stop);
  EXPECT_EQ((for_vectors<T, how, 3>(first, last, note(unrolled))), stop);
  const zor_int left = last - stop;
  EXPECT_TRUE(last < first || (left >= 0 && left * zor_int(sizeof(T)) < (Least > 0 ? Least : 1))) << left;
  for (const auto* list : {&ranges, &vectors, &unrolled}) check_cover<T>(*list, first, stop);
}

template <class T>
void check_runs() {
  for (const zor_int first : {0, 3})
    for (zor_int n = -2; n <= 7 * units<T>; ++n) {
      SCOPED_TRACE(testing::Message() << n << " elements of " << sizeof(T) << " bytes from " << first);
      check_run<T, 16, 0>(first, first + n);
      check_run<T, 8, 0>(first, first + n);
      check_run<T, 16, 16>(first, first + n);
      check_run<T, width, 0>(first, first + n);
    }
}

TEST(Runs, AreCoveredByNarrowingVectors) {
  check_runs<float>();
  check_runs<double>();
  check_runs<c32>();
  check_runs<c64>();
}

}  // namespace
