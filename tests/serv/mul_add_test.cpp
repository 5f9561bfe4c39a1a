// SPDX-License-Identifier: MIT
// The products and sums of one build in one arithmetic, against single operations of the C library. The
// operands make most fused results differ from separate ones.
#include "serv/mul_add.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

using namespace zor;

template <class R>
R plus_product(R sum, R x, R y) {
  return ZOR_FUSED ? std::fma(x, y, sum) : sum + x * y;
}
template <class R>
R sample() {
  static std::mt19937_64 bits(3);
  return R(1) + R(bits() % 1000003) / R(999983);
}

template <class V>
class MulAdd : public ::testing::Test {};
template <class R, int Bytes>
using upto = vec<R, (Bytes < width ? Bytes : width)>;
using vectors =
    ::testing::Types<vec<float, 4>, vec<float, 8>, vec<double, 8>, upto<float, 16>, upto<double, 16>,
                     upto<float, 32>, upto<double, 32>, upto<float, 64>, upto<double, 64>>;
TYPED_TEST_SUITE(MulAdd, vectors);

TYPED_TEST(MulAdd, LanesAndSingles) {
  using V = TypeParam;
  using R = lane_t<V>;
  for (int round = 0; round < 50; ++round) {
    V a, b, c;
    for (int i = 0; i < lanes<V>; ++i) a[i] = sample<R>(), b[i] = sample<R>(), c[i] = -a[i] * b[i];
    const V sum = mul_add(a, b, c), difference = mul_sub(a, b, -c);
    for (int i = 0; i < lanes<V>; ++i) {
      ASSERT_EQ(plus_product(c[i], a[i], b[i]), sum[i]) << i;
      ASSERT_EQ(plus_product(-c[i], -a[i], b[i]), difference[i]) << i;
      ASSERT_EQ(sum[i], mul_add<R>(a[i], b[i], c[i]));
      ASSERT_EQ(difference[i], mul_sub<R>(a[i], b[i], -c[i]));
    }
  }
}

// Complex terms: elements, pairs of lanes and factors give the same.
template <class T, int Bytes>
void check_terms() {
  using V = vec<real_t<T>, Bytes>;
  using R = real_t<T>;
  for (int round = 0; round < 50; ++round) {
    const T x = {sample<R>(), sample<R>()};
    T y[units<T, Bytes>], sum[units<T, Bytes>], of_pairs[units<T, Bytes>], of_factor[units<T, Bytes>];
    for (T& e : y) e = {sample<R>(), -sample<R>()};
    for (T& e : sum) e = {-sample<R>(), sample<R>()};
    const V vy = load_units<V>(y), vsum = load_units<V>(sum);
    for (const bool conj : {false, true}) {
      const V vx = broadcast_pair<V>(x.re, x.im);
      store_units(of_pairs, conj ? term_pairs<true>(vx, vy) : term_pairs(vx, vy));
      // A factor conjugates what it is multiplied by.
      store_units(of_factor,
                  conj ? mul_add(make_factor<V, true>(x), vy, vsum) : mul_add(make_factor<V>(x), vy, vsum));
      for (int i = 0; i < units<T, Bytes>; ++i) {
        const T xi = conj ? conj_by_sign(x) : x, yi = conj ? conj_by_sign(y[i]) : y[i];
        const T of_x = {plus_product(-(xi.im * y[i].im), xi.re, y[i].re),
                        plus_product(xi.im * y[i].re, xi.re, y[i].im)};
        const T of_y = {plus_product(-(x.im * yi.im), x.re, yi.re), plus_product(x.im * yi.re, x.re, yi.im)};
        const T single = conj ? term<true>(x, y[i]) : term(x, y[i]);
        ASSERT_EQ(of_x.re, single.re);
        ASSERT_EQ(of_x.im, single.im);
        ASSERT_EQ(of_x.re, of_pairs[i].re);
        ASSERT_EQ(of_x.im, of_pairs[i].im);
        ASSERT_EQ(sum[i].re + of_y.re, of_factor[i].re);
        ASSERT_EQ(sum[i].im + of_y.im, of_factor[i].im);
      }
    }
  }
}

TEST(MulAddTerms, Complex) {
  check_terms<c32, 8>();
  check_terms<c32, 16>();
  check_terms<c32, width>();
  check_terms<c64, 16>();
  check_terms<c64, width>();
}

}  // namespace
