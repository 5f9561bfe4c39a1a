// SPDX-License-Identifier: MIT
// The set-up of rotations: the steps as promised, bit for bit, the properties that define a rotation, and its
// exceptional cases.
#include <cmath>
#include <limits>

#include "tests/support/operand.h"
#include "zor/blas.h"

namespace {

using zor_test::bits;
using zor_test::random_bits;

template <class R>
const R nan_of = std::numeric_limits<R>::quiet_NaN();

// A magnitude between 2^-range and 2^range, now and then 0.
template <class R>
R sample(random_bits& random, int range) {
  if (random.between(0, 19) == 0) return 0;
  return std::ldexp(R(random.unit()), int(random.between(-range, range)));
}

template <class R, class F>
void check_rotg(F kernel) {
  random_bits random(11);
  for (int k = 0; k < 2000; ++k) {
    const R a = sample<R>(random, 40), b = sample<R>(random, 40);
    R r = a, z = b, c, s;
    kernel(&r, &z, &c, &s);
    const long double eps = 8 * std::numeric_limits<R>::epsilon(),
                      norm = std::hypot((long double)a, (long double)b);
    ASSERT_LE(std::fabs(std::fabs(r) - norm), eps * norm);
    ASSERT_LE(std::fabs((long double)c * a + (long double)s * b - r), eps * norm);
    ASSERT_LE(std::fabs((long double)c * b - (long double)s * a), eps * norm);
    if (r != 0) {
      ASSERT_EQ(std::signbit(r), std::signbit(std::fabs(a) > std::fabs(b) ? a : b));
      // c and s come back from z.
      if (std::fabs(z) < 1) {
        ASSERT_EQ(bits(z), bits(s));
      }
      if (std::fabs(z) > 1) {
        ASSERT_EQ(bits(z), bits(R(1) / c));
      }
    }
    const R scale = std::fabs(a) + std::fabs(b), u = a / scale, v = b / scale;
    if (scale != 0) {
      ASSERT_EQ(bits(std::fabs(r)), bits(scale * std::sqrt(u * u + v * v)));
    }
  }
  R a = 0, b = 0, c = 7, s = 7;
  kernel(&a, &b, &c, &s);
  EXPECT_TRUE(a == 0 && b == 0 && c == 1 && s == 0);
  a = 0, b = -2;
  kernel(&a, &b, &c, &s);
  EXPECT_TRUE(a == -2 && b == 1 && c == 0 && s == 1);
}

template <class T, class R, class F>
void check_complex_rotg(F kernel) {
  using wide = long double;
  random_bits random(12);
  for (int k = 0; k < 2000; ++k) {
    const T a = {sample<R>(random, 20), sample<R>(random, 20)},
            b = {sample<R>(random, 20), sample<R>(random, 20)};
    T r = a, other = b, s;
    R c;
    kernel(&r, &other, &c, &s);
    ASSERT_EQ(bits(other.re), bits(b.re));
    if (a.re == 0 && a.im == 0) {
      ASSERT_TRUE(c == 0 && s.re == 1 && s.im == 0 && r.re == b.re && r.im == b.im);
      continue;
    }
    const wide eps = 16 * std::numeric_limits<R>::epsilon();
    const wide norm =
        std::sqrt((wide)a.re * a.re + (wide)a.im * a.im + (wide)b.re * b.re + (wide)b.im * b.im);
    // c a + s b = r and c b = conj(s) a.
    ASSERT_LE(std::fabs((wide)c * a.re + (wide)s.re * b.re - (wide)s.im * b.im - r.re), eps * norm);
    ASSERT_LE(std::fabs((wide)c * a.im + (wide)s.re * b.im + (wide)s.im * b.re - r.im), eps * norm);
    ASSERT_LE(std::fabs((wide)c * b.re - ((wide)s.re * a.re + (wide)s.im * a.im)), eps * norm);
    ASSERT_LE(std::fabs((wide)c * b.im - ((wide)s.re * a.im - (wide)s.im * a.re)), eps * norm);
    // The stated steps.
    const auto root = [](R re, R im) { return std::sqrt(re * re + im * im); };
    const R abs_a = root(a.re, a.im), scale = abs_a + root(b.re, b.im);
    R sum = 0;
    for (const R part : {a.re, a.im, b.re, b.im}) sum = sum + (part / scale) * (part / scale);
    const R whole = scale * std::sqrt(sum), pr = a.re / abs_a, pi = a.im / abs_a;
    ASSERT_EQ(bits(c), bits(abs_a / whole));
    ASSERT_EQ(bits(r.re), bits(pr * whole));
    ASSERT_EQ(bits(r.im), bits(pi * whole));
    ASSERT_EQ(bits(s.re), bits((pr * b.re + pi * b.im) / whole));
    ASSERT_EQ(bits(s.im), bits((pi * b.re - pr * b.im) / whole));
  }
}

template <class R, class F>
void check_rotmg(F kernel) {
  using wide = long double;
  random_bits random(13);
  int forms[4] = {};
  for (int k = 0; k < 5000; ++k) {
    const R old_d1 = std::fabs(sample<R>(random, 30)), old_d2 = sample<R>(random, 30);
    const R old_x1 = sample<R>(random, 8), y1 = sample<R>(random, 8);
    R d1 = old_d1, d2 = old_d2, x1 = old_x1;
    R h[5] = {9, nan_of<R>, nan_of<R>, nan_of<R>, nan_of<R>};
    kernel(&d1, &d2, &x1, &y1, h);
    ++forms[int(h[0]) + 2];
    if (old_d2 * y1 == 0) {
      ASSERT_TRUE(h[0] == -2 && d1 == old_d1 && d2 == old_d2 && x1 == old_x1 && h[1] != h[1]);
      continue;
    }
    // Entries that the flag implies are not written.
    if (h[0] == 0) {
      ASSERT_TRUE(h[1] != h[1] && h[4] != h[4]);
    }
    if (h[0] == 1) {
      ASSERT_TRUE(h[2] != h[2] && h[3] != h[3]);
    }
    const wide h11 = h[0] == 0 ? 1 : h[1], h21 = h[0] == 1 ? -1 : h[2];
    const wide h12 = h[0] == 1 ? 1 : h[3], h22 = h[0] == 0 ? 1 : h[4];
    const wide first = (wide)old_x1 * old_d1 * old_x1, second = (wide)y1 * old_d2 * y1;
    if (first <= std::fabs(second) && second < 0) {
      ASSERT_TRUE(h[0] == -1 && d1 == 0 && d2 == 0 && x1 == 0 && h11 == 0 && h21 == 0 && h12 == 0 &&
                  h22 == 0);
      continue;
    }
    if (second < 0 && -second > first / 2) continue;  // The difference cancels: no bound to hold it to.
    const wide eps = 64 * std::numeric_limits<R>::epsilon();
    const wide size = std::fabs(h21 * old_x1) + std::fabs(h22 * y1);
    ASSERT_LE(std::fabs(h21 * old_x1 + h22 * y1), eps * size);
    ASSERT_LE(std::fabs(h11 * old_x1 + h12 * y1 - x1), eps * (std::fabs(h11 * old_x1) + std::fabs(h12 * y1)));
    ASSERT_LE(std::fabs((wide)d1 * x1 * x1 - (first + second)), eps * (first + second));
    for (const R d : {d1, d2}) {
      if (d == 0) continue;
      ASSERT_GT(std::fabs(d), R(0x1p-24));
      ASSERT_LT(std::fabs(d), R(0x1p24));
    }
  }
  for (const int count : forms) EXPECT_GT(count, 10);

  R d1 = -1, d2 = 1, x1 = 1, y1 = 1, h[5];
  kernel(&d1, &d2, &x1, &y1, h);
  EXPECT_TRUE(h[0] == -1 && d1 == 0 && d2 == 0 && x1 == 0 && h[1] == 0 && h[2] == 0 && h[3] == 0 &&
              h[4] == 0);

  // Powers of two: exact. The form of flag 0, t = y1/(d1 x1), u = 1 - h21 h12.
  d1 = 4, d2 = 4, x1 = 2, y1 = 0.5;
  kernel(&d1, &d2, &x1, &y1, h);
  const R u = R(1) + R(0.0625);
  EXPECT_TRUE(h[0] == 0 && h[2] == R(-0.25) && h[3] == R(0.25) && x1 == 2 * u);
  EXPECT_EQ(bits(d1), bits(4 * (1 / u)));
  // The form of flag 1 exchanges d1 and d2.
  d1 = 1, d2 = 4, x1 = 1, y1 = 1;
  kernel(&d1, &d2, &x1, &y1, h);
  EXPECT_TRUE(h[0] == 1 && h[1] == R(0.25) && h[4] == 1 && x1 == R(1.25));
  EXPECT_EQ(bits(d1), bits(4 * (1 / R(1.25))));
  EXPECT_EQ(bits(d2), bits(1 / R(1.25)));
  // d1 on the upper bound is scaled once, and the implicit entries appear.
  d1 = R(0x1p25), d2 = R(0x1p25), x1 = 1, y1 = R(0x1p-30);
  kernel(&d1, &d2, &x1, &y1, h);
  EXPECT_TRUE(h[0] == -1 && h[1] == 4096 && h[4] == 4096);
  EXPECT_TRUE(x1 == 4096 && d1 == 2 && d2 == 2) << x1 << " " << d1 << " " << d2;
  // An overflow of d1 ends with an infinity rather than never.
  d1 = std::numeric_limits<R>::infinity(), d2 = 1, x1 = 1, y1 = 1;
  kernel(&d1, &d2, &x1, &y1, h);
}

#define ROW_ROTG(name, T, R)              \
  TEST(rotation, name) {                  \
    if constexpr (sizeof(T) == sizeof(R)) \
      check_rotg<R>(name);                \
    else                                  \
      check_complex_rotg<T, R>(name);     \
  }
#define ROW_ROTMG(name, T) \
  TEST(rotation, name) { check_rotmg<T>(name); }
#define ROW_CABS1(name, T, R)                          \
  TEST(rotation, name) {                               \
    const T z = {R(-3), R(4)}, inf = {R(1) / R(0), 1}; \
    EXPECT_EQ(name(&z), R(7));                         \
    EXPECT_TRUE(std::isinf(name(&inf)));               \
  }
#include "zor/tables/blas_vector.inc"

}  // namespace
