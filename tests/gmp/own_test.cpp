// SPDX-License-Identifier: MIT
// The names that GMP does not have.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <thread>

#include "tests/gmp/gmp_numbers.h"

namespace {

using namespace zor_test;
using zor_tools::product;
using zor_tools::random_integer;
using zor_tools::trimmed;

integer negated(integer a) {
  a.negative = !a.negative;
  return trimmed(a);
}

integer of_bits(numbers& source, zor_bitcnt bits) {
  integer a = random_integer(source, bits);
  a.limbs.resize(bits / 64 + 1);
  a.limbs.back() = 1;
  return a;
}

void expect_power(const integer& b, const integer& e, const integer& m) {
  theirs expected, u(b), v(e), w(m);
  mpz_powm(expected, u, v, w);
  // The result in a place of its own, and in that of each operand; the others stay as they are.
  for (size_t place = 0; place < 4; ++place) {
    ours r, x(b), y(e), z(m);
    zor_mpz* const places[] = {r, x, y, z};
    zor_gmp_mpz_powm_mary(places[place], x, y, z);
    integer left[] = {r.value(), b, e, m};
    left[place] = expected.value();
    for (size_t i = 1; i < 4; ++i) EXPECT_EQ(left[i], zor_tools::library<zor_mpz>::contents(*places[i])) << i;
    ASSERT_EQ(hex(expected.value()), hex(zor_tools::library<zor_mpz>::contents(*places[place])))
        << "place " << place << "\nbase " << hex(b) << "\nexponent " << hex(e) << "\nmodulus " << hex(m);
  }
}

// Sizes around those at which the method changes, and at which halves are odd.
constexpr zor_bitcnt modulus_limbs[] = {1,  2,  3,  23, 24, 25, 31, 32, 33, 47,
                                        48, 49, 50, 51, 64, 65, 71, 72, 73, 90};

TEST(PowmMary, ModuliOfEverySize) {
  numbers source(1);
  for (const zor_bitcnt n : modulus_limbs) {
    // All bits set: every row carries. One bit at each end: rows are sparse. Even ones have no Montgomery
    // form.
    const integer moduli[] = {power_of_two(64 * n, -1),     power_of_two(64 * n - 1, 1),
                              power_of_two(64 * n - 64, 3), power_of_two(64 * n - 1, 0),
                              of_bits(source, 64 * n - 40), of_bits(source, 64 * n - 1)};
    for (const integer& m : moduli) {
      const integer exponent = random_integer(source, 200);
      for (const integer& b :
           {integer{}, integer{false, {1}}, integer{true, {1}}, integer{false, {2}}, m, negated(m),
            random_integer(source, 64 * n), random_integer(source, 200 * n), power_of_two(64 * n, -2)}) {
        expect_power(b, {false, exponent.limbs}, m);
        expect_power(b, {false, {3}}, negated(m));
      }
    }
  }
}

TEST(PowmMary, ExponentsOfEveryForm) {
  numbers source(2);
  for (const zor_bitcnt n : {5, 24, 40, 72}) {
    integer m = of_bits(source, 64 * n - 1);
    m.limbs[0] |= 1;
    const integer b = random_integer(source, 64 * n + 30);
    for (zor_bitcnt bits = 0; bits <= 300; bits += bits < 80 ? 1 : 37)
      for (const long more : {-1l, 0l, 1l}) expect_power(b, power_of_two(bits, more), m);
    for (const zor_bitcnt bits : {500, 1900}) {
      expect_power(b, of_bits(source, bits), m);
      expect_power(b, power_of_two(bits, 1), m);
      expect_power(b, power_of_two(bits, -1), m);
    }
    if (n == 24) expect_power(b, power_of_two(20000, -12345), m);
  }
}

// A power that the modulus divides is 0, not the modulus.
TEST(PowmMary, PowersThatVanish) {
  numbers source(6);
  for (const zor_bitcnt n : {13, 20, 35}) {
    integer root = of_bits(source, 64 * n - 5);
    root.limbs[0] |= 1;
    for (const zor_limb e : {2, 3, 17}) expect_power(root, {false, {e}}, product(root, root));
  }
}

// 3 is no square modulo a Mersenne prime p above 3: 3^((p - 1) / 2) is -1.
TEST(PowmMary, EulersCriterionForMersennePrimes) {
  for (const zor_bitcnt exponent : {521, 1279, 2203, 3217, 4253, 4423}) {
    const integer p = power_of_two(exponent, -1);
    ours r, three(integer{false, {3}}), half(power_of_two(exponent - 1, -1)), modulus(p);
    zor_gmp_mpz_powm_mary(r, three, half, modulus);
    EXPECT_EQ(power_of_two(exponent, -2), r.value()) << exponent;
  }
}

TEST(PowmMary, NegativeExponentsInvertTheBase) {
  numbers source(3);
  for (const zor_bitcnt n : {1, 30, 60, 80}) {
    const integer m = power_of_two(64 * n - 3, 1);
    for (int i = 0; i < 10; ++i) {
      theirs base(random_integer(source, 64 * n)), modulus(m), common;
      mpz_gcd(common, base, modulus);
      if (mpz_cmp_ui(common.get(), 1) == 0) expect_power(base.value(), {true, {1 + source.below(1000)}}, m);
    }
  }
}

// The signal ends the process also where a sanitizer would catch it.
void let_division_end_the_process() { std::signal(SIGFPE, SIG_DFL); }

void raise_to(const integer& b, const integer& e, const integer& m) {
  let_division_end_the_process();
  ours r, x(b), y(e), z(m);
  zor_gmp_mpz_powm_mary(r, x, y, z);
}

void raise_by_gmp(const integer& b, const integer& e, const integer& m) {
  let_division_end_the_process();
  theirs r, u(b), v(e), w(m);
  mpz_powm(r, u, v, w);
}

TEST(PowmMaryDeathTest, RaisesWhatGmpRaises) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const integer three{false, {3}}, zero, negative{true, {1}};
  const integer multiple = product(three, power_of_two(40 * 64, -1));
  for (auto* routine : {raise_to, raise_by_gmp}) {
    EXPECT_EXIT(routine(three, three, zero), testing::KilledBySignal(SIGFPE), "");
    EXPECT_EXIT(routine(zero, zero, zero), testing::KilledBySignal(SIGFPE), "");
    EXPECT_EXIT(routine(three, negative, multiple), testing::KilledBySignal(SIGFPE), "");
  }
}

void divide(const integer& n, const integer& d) {
  let_division_end_the_process();
  ours q, x(n), y(d);
  zor_gmp___gmpz_tdiv_q(q, x, y);
}

TEST(DivisionDeathTest, ByZeroRaisesTheSignal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(divide({false, {3}}, {}), testing::KilledBySignal(SIGFPE), "");
}

TEST(Limbs, SumAndProductOfTwo) {
  const zor_limb all = ~zor_limb(0), top = zor_limb(1) << 63;
  const zor_limb values[] = {0, 1, 2, top - 1, top, top + 1, all - 1, all, 0x123456789ABCDEF0};
  for (const zor_limb a : values)
    for (const zor_limb b : values) {
      zor_limb high = 7, low = 7;
      zor_gmp_mpl_umul_ppmm(&high, &low, a, b);
      EXPECT_EQ(product(trimmed({false, {a}}), trimmed({false, {b}})), trimmed({false, {low, high}}));
      for (const zor_limb c : values)
        for (const zor_limb d : values) {
          zor_gmp_mpl_add_ssaaaa(&high, &low, a, b, c, d);
          EXPECT_EQ(b + d, low);
          EXPECT_EQ(a + c + (b + d < b), high);
        }
    }
}

TEST(Limbs, FirstBitFromAPlaceOn) {
  numbers source(4);
  for (long n = 0; n <= 6; ++n)
    for (int i = 0; i < 20; ++i) {
      std::vector<zor_limb> a = random_integer(source, 64 * size_t(n)).limbs;
      a.resize(size_t(n), source.below(2) == 0 ? 0 : ~zor_limb(0));
      const auto bit = [&](zor_bitcnt place) {
        return place < 64 * zor_bitcnt(n) ? a[place / 64] >> place % 64 & 1 : 0;
      };
      for (zor_bitcnt start = 0; start < 64 * zor_bitcnt(n) + 130; ++start) {
        zor_bitcnt zero = start, one = start;
        while (bit(zero) == 1) ++zero;
        while (one < 64 * zor_bitcnt(n) && bit(one) == 0) ++one;
        if (one >= 64 * zor_bitcnt(n)) one = ~zor_bitcnt(0);
        ASSERT_EQ(zero, zor_gmp_zor_gmp_scan0(a.data(), n, start)) << n << ' ' << start;
        ASSERT_EQ(one, zor_gmp_zor_gmp_scan1(a.data(), n, start)) << n << ' ' << start;
      }
    }
}

// Blocks of two marks in turn; those of the inner mark go first, those of the outer stay whole.
void use_marks(uint64_t seed) {
  numbers source(seed);
  zor_gmp_mark outer, inner;
  zor_gmp__imptmpmark(&outer);
  std::vector<std::pair<unsigned char*, size_t>> kept;
  const auto take = [&](zor_gmp_mark& mark) {
    const size_t size = source.below(3000);
    auto* block = static_cast<unsigned char*>(zor_gmp__imptmpmalloc(&mark, size));
    ASSERT_EQ(0u, reinterpret_cast<uintptr_t>(block) % 16);
    std::memset(block, &mark == &outer ? int(kept.size()) : 255, size);
    if (&mark == &outer) kept.emplace_back(block, size);
  };
  for (int round = 0; round < 20; ++round) {
    zor_gmp__imptmpmark(&inner);
    for (int i = 0; i < 10; ++i) {
      take(outer);
      take(inner);
    }
    zor_gmp__imptmpfree(&inner);
    EXPECT_EQ(nullptr, inner.last);
    zor_gmp__imptmpfree(&inner);
  }
  for (size_t i = 0; i < kept.size(); ++i)
    for (size_t k = 0; k < kept[i].second; ++k) ASSERT_EQ(i % 256, kept[i].first[k]);
  zor_gmp__imptmpfree(&outer);
}

TEST(TemporaryBlocks, BelongToTheirMark) { use_marks(1); }

TEST(TemporaryBlocks, OnManyThreads) {
  std::vector<std::thread> threads;
  for (uint64_t t = 0; t < 8; ++t) threads.emplace_back(use_marks, t);
  for (std::thread& t : threads) t.join();
}

std::vector<void*> taken, released;
void* noting_allocate(size_t size) { return taken.emplace_back(zor_gmp___gmp_default_allocate(size)); }
void noting_free(void* block, size_t size) {
  released.push_back(block);
  zor_gmp___gmp_default_free(block, size);
}

TEST(TemporaryBlocks, GoBackTheLastFirstAndOnlyAsked) {
  zor_gmp___gmp_set_memory_functions(noting_allocate, nullptr, noting_free);
  zor_gmp_mark mark;
  zor_gmp__imptmpmark(&mark);
  for (size_t size : {1, 100, 0, 5000}) zor_gmp__imptmpmalloc(&mark, size);
  EXPECT_TRUE(released.empty());
  zor_gmp__imptmpfree(&mark);
  zor_gmp___gmp_set_memory_functions(nullptr, nullptr, nullptr);
  EXPECT_EQ(4u, taken.size());
  EXPECT_EQ(taken, std::vector<void*>(released.rbegin(), released.rend()));
}

}  // namespace
