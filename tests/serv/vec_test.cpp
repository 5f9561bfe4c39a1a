// SPDX-License-Identifier: MIT
// The vector header, operation by operation, against the lanes counted out. One program a build.
#include <gtest/gtest.h>

#include <array>
#include <cfenv>
#include <cmath>
#include <limits>

#include "serv/vec.h"

namespace {

using namespace zor;

template <class V>
using lane_array = std::array<lane_t<V>, size_t(lanes<V>)>;

template <class V>
lane_array<V> out(V v) {
  lane_array<V> a;
  std::memcpy(a.data(), &v, sizeof v);
  return a;
}
template <class V>
V in(const lane_array<V>& a) {
  return load<V>(a.data());
}

// Lanes of all kinds, two vectors of them without a repeat: what only moves bits must not touch any of them.
template <class V>
lane_array<V> sample(int which) {
  using R = lane_t<V>;
  using limits = std::numeric_limits<R>;
  const R special[] = {R(-0.0), limits::infinity(), limits::quiet_NaN(), limits::denorm_min(),
                       -limits::max()};
  lane_array<V> a;
  for (int i = 0; i < lanes<V>; ++i) {
    const int k = 2 * i + which;
    a[size_t(i)] = k % 3 == 0 && k / 3 < 5 ? special[k / 3] : R(k + 1) / R(3);
  }
  return a;
}

template <class V>
::testing::AssertionResult same(const char* what, V result, const lane_array<V>& wanted) {
  const auto lane = out(result);
  for (size_t i = 0; i < lane.size(); ++i)
    if (std::memcmp(&lane[i], &wanted[i], sizeof lane[i]) != 0)
      return ::testing::AssertionFailure()
             << what << " lane " << i << ": " << lane[i] << ", not " << wanted[i];
  return ::testing::AssertionSuccess();
}

template <class V>
class Lanes : public ::testing::Test {
 protected:
  const lane_array<V> a = sample<V>(0), b = sample<V>(1);
  const V va = in<V>(a), vb = in<V>(b);

  // wanted[i] = rule(i), where a lane of b is counted from n on.
  template <class Rule>
  lane_array<V> by(Rule rule) const {
    constexpr int n = lanes<V>;
    lane_array<V> wanted;
    for (int i = 0; i < n; ++i) {
      const int from = rule(i);
      wanted[size_t(i)] = from < n ? a[size_t(from)] : b[size_t(from - n)];
    }
    return wanted;
  }
};

template <class R, int Bytes>
using upto = vec<R, (Bytes < width ? Bytes : width)>;
using vectors = ::testing::Types<upto<float, 16>, upto<double, 16>, upto<float, 32>, upto<double, 32>,
                                 upto<float, 64>, upto<double, 64>>;
TYPED_TEST_SUITE(Lanes, vectors);

TYPED_TEST(Lanes, Moves) {
  using V = TypeParam;
  constexpr int n = lanes<V>;
  EXPECT_TRUE(
      same("swap_pairs", swap_pairs(this->va), this->by([](int i) { return i % 2 == 0 ? i + 1 : i - 1; })));
  EXPECT_TRUE(same("dup_even", dup_even(this->va), this->by([](int i) { return i - i % 2; })));
  EXPECT_TRUE(same("dup_odd", dup_odd(this->va), this->by([](int i) { return i - i % 2 + 1; })));
  EXPECT_TRUE(same("reverse_lanes", reverse_lanes(this->va), this->by([](int i) { return n - 1 - i; })));
  EXPECT_TRUE(
      same("pick_odd", pick_odd(this->va, this->vb), this->by([](int i) { return i % 2 == 0 ? i : n + i; })));
  // Zipped, a0 b0 a1 b1 ... fills two vectors; unzipped, they come apart again.
  const auto zipped = [](int at) { return at % 2 == 0 ? at / 2 : n + at / 2; };
  const V low = zip_low(this->va, this->vb), high = zip_high(this->va, this->vb);
  EXPECT_TRUE(same("zip_low", low, this->by(zipped)));
  EXPECT_TRUE(same("zip_high", high, this->by([=](int i) { return zipped(n + i); })));
  EXPECT_TRUE(same("unzip<0>", unzip<0>(low, high), this->a));
  EXPECT_TRUE(same("unzip<1>", unzip<1>(low, high), this->b));
  EXPECT_TRUE(same("broadcast", broadcast<V>(this->a[1]), this->by([](int) { return 1; })));
  EXPECT_TRUE(same("broadcast_pair", broadcast_pair<V>(this->a[1], this->b[0]),
                   this->by([](int i) { return i % 2 == 0 ? 1 : n; })));
}

template <int U, class V>
void check_transpose(const char* what) {
  constexpr int side = lanes<V> / U;
  V rows[side];
  for (int r = 0; r < side; ++r)
    for (int i = 0; i < lanes<V>; ++i) rows[r][i] = lane_t<V>(100 * r + i);
  transpose_units<U>(rows);
  for (int r = 0; r < side; ++r) {
    lane_array<V> wanted;
    for (int i = 0; i < lanes<V>; ++i) wanted[size_t(i)] = lane_t<V>(100 * (i / U) + r * U + i % U);
    EXPECT_TRUE(same(what, rows[r], wanted)) << "row " << r;
  }
}

TYPED_TEST(Lanes, Transposes) {
  check_transpose<1, TypeParam>("units of one lane");
  check_transpose<2, TypeParam>("units of two lanes");
}

TYPED_TEST(Lanes, SignsAndSlices) {
  using V = TypeParam;
  using R = lane_t<V>;
  constexpr int n = lanes<V>;
  std::feclearexcept(FE_ALL_EXCEPT);
  unsigned signs = 0;
  lane_array<V> magnitudes, first, second;
  for (size_t i = 0; i < size_t(n); ++i) {
    signs |= unsigned(std::signbit(this->a[i])) << i;
    magnitudes[i] = std::copysign(this->a[i], R(1));
    const R negated = std::copysign(this->a[i], std::signbit(this->a[i]) ? R(1) : R(-1));
    first[i] = i % 2 == 0 ? negated : this->a[i];
    second[i] = i % 2 == 0 ? this->a[i] : negated;
  }
  EXPECT_EQ(signs, sign_mask(this->va));
  EXPECT_TRUE(same("abs_lanes", abs_lanes(this->va), magnitudes));
  EXPECT_TRUE(same("negate_pairs<0>", negate_pairs<0>(this->va), first));
  EXPECT_TRUE(same("negate_pairs<1>", negate_pairs<1>(this->va), second));
  using half = vec<R, sizeof(V) / 2>;
  lane_array<half> low, high;
  for (size_t i = 0; i < size_t(n) / 2; ++i) {
    low[i] = this->a[i];
    high[i] = this->a[i + size_t(n) / 2];
  }
  EXPECT_TRUE(same("low half", slice<sizeof(V) / 2, 0>(this->va), low));
  EXPECT_TRUE(same("high half", slice<sizeof(V) / 2, 1>(this->va), high));
  EXPECT_EQ(0, std::fetestexcept(FE_ALL_EXCEPT)) << "moving bits raises no flag";
}

TYPED_TEST(Lanes, PartsOfAVectorInMemory) {
  using V = TypeParam;
  using R = lane_t<V>;
  constexpr int n = lanes<V>;
  for (int count = 0; count <= n; ++count) {
    lane_array<V> wanted = this->a, target = this->b;
    for (int i = count; i < n; ++i) wanted[size_t(i)] = R(7);
    EXPECT_TRUE(same("load_partial", load_partial<V>(this->a.data(), count, R(7)), wanted)) << count;
    for (int i = count; i < n; ++i) wanted[size_t(i)] = this->b[size_t(i)];
    store_partial(target.data(), count, this->va);
    EXPECT_TRUE(same("store_partial", in<V>(target), wanted)) << count;
  }
}

// Ties and NaN go to b; a sum runs from the first lane; a product rounds each of its three operations.
TYPED_TEST(Lanes, Arithmetic) {
  using V = TypeParam;
  using R = lane_t<V>;
  constexpr int n = lanes<V>;
  lane_array<V> x, y, larger, smaller, product, conjugated;
  for (int i = 0; i < n; ++i) {
    x[size_t(i)] = R(1) / R(3 + 5 * i);
    y[size_t(i)] = i % 3 == 0 ? x[size_t(i)] : R(2) / R(7 + 3 * i);
  }
  for (size_t i = 0; i < size_t(n); i += 2) {
    const R straight = x[i] * y[i], crossed = x[i + 1] * y[i + 1];
    const R outer = x[i] * y[i + 1], inner = x[i + 1] * y[i];
    product[i] = straight - crossed;
    product[i + 1] = outer + inner;
    conjugated[i] = straight + crossed;
    conjugated[i + 1] = outer - inner;
  }
  EXPECT_TRUE(same("complex_mul", complex_mul(in<V>(x), in<V>(y)), product));
  EXPECT_TRUE(same("complex_mul<true>", complex_mul<true>(in<V>(x), in<V>(y)), conjugated));
  R sum = x[0];
  for (int i = 1; i < n; ++i) sum += x[size_t(i)];
  EXPECT_EQ(sum, sum_lanes(in<V>(x)));
  x[0] = R(0.0), y[0] = R(-0.0);
  y[1] = std::numeric_limits<R>::quiet_NaN();
  for (size_t i = 0; i < size_t(n); ++i) {
    larger[i] = x[i] > y[i] ? x[i] : y[i];
    smaller[i] = x[i] < y[i] ? x[i] : y[i];
  }
  EXPECT_TRUE(same("max_lanes", max_lanes(in<V>(x), in<V>(y)), larger));
  EXPECT_TRUE(same("min_lanes", min_lanes(in<V>(x), in<V>(y)), smaller));
}

template <class R>
void check_watch() {
  using V = vec<R>;
  const R nan = std::numeric_limits<R>::quiet_NaN();
  const V ordinary = broadcast<V>(std::numeric_limits<R>::infinity());
  for (int side = 0; side < 2; ++side)
    for (int lane = 0; lane < lanes<V>; ++lane) {
      nan_watch<V> watch;
      watch.see(ordinary, ordinary);
      EXPECT_FALSE(watch.any());
      V odd = ordinary;
      odd[lane] = nan;
      side == 0 ? watch.see(odd, ordinary) : watch.see(ordinary, odd);
      watch.see(ordinary, ordinary);
      EXPECT_TRUE(watch.any()) << "lane " << lane << " of side " << side;
    }
}

TEST(Watch, SeesANaNInAnyLane) {
  check_watch<float>();
  check_watch<double>();
}

TEST(Widened, SinglesBecomeDoubles) {
  float from[lanes_of<double>];
  lane_array<vec<double>> wanted;
  for (size_t i = 0; i < wanted.size(); ++i) wanted[i] = double(from[i] = -0.1f * float(i));
  EXPECT_TRUE(same("load_widened", load_widened<vec<double>>(from), wanted));
}

}  // namespace
