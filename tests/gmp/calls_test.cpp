// SPDX-License-Identifier: MIT
// Every name of the table that is GMP's, against the routine of libgmp itself.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "tests/gmp/gmp_numbers.h"

namespace {

using namespace zor_test;
using zor_tools::domain;
using zor_tools::library;
using zor_tools::outcome;
using zor_tools::plan_call;
using zor_tools::planned_call;
using zor_tools::run_call;

static_assert(sizeof(zor_mpz) == sizeof(__mpz_struct) &&
              offsetof(zor_mpz, limb) == offsetof(__mpz_struct, _mp_d) &&
              offsetof(zor_mpz, size) == offsetof(__mpz_struct, _mp_size) &&
              offsetof(zor_mpz, room) == offsetof(__mpz_struct, _mp_alloc));
static_assert(sizeof(zor_mpq) == sizeof(__mpq_struct) &&
              offsetof(zor_mpq, denominator) == offsetof(__mpq_struct, _mp_den));
static_assert(sizeof(zor_rand) == sizeof(__gmp_randstate_struct) &&
              offsetof(zor_rand, functions) == offsetof(__gmp_randstate_struct, _mp_algdata));
static_assert(sizeof(zor_limb) == sizeof(mp_limb_t) && sizeof(zor_bitcnt) == sizeof(mp_bitcnt_t));

constexpr int calls_per_name = 400;

std::string difference(const planned_call& call, const outcome& got, const outcome& expected) {
  std::string text =
      "returned " + std::to_string(got.returned) + ", libgmp " + std::to_string(expected.returned);
  for (size_t i = 0; i < call.values.size(); ++i) {
    text += "\nvariable " + std::to_string(i) + ": " + hex(call.values[i]);
    if (got.values[i] != expected.values[i])
      text += "\n  became " + hex(got.values[i]) + "\n  libgmp " + hex(expected.values[i]);
  }
  return text;
}

template <class F, class G>
void expect_same_calls(const char* name, F* routine, G* reference, domain allowed) {
  numbers source(2024);
  for (int i = 0; i < calls_per_name; ++i) {
    const planned_call call = plan_call(routine, allowed, source);
    const outcome got = run_call<zor_mpz>(routine, call), expected = run_call<__mpz_struct>(reference, call);
    ASSERT_TRUE(got == expected) << name << ", call " << i << ": " << difference(call, got, expected);
  }
}

TEST(Calls, OnIntegersAndWords) {
#define ROW_CALL(name, gmp, result, params, allowed) expect_same_calls(#name, name, gmp, domain::allowed);
#include "zor/tables/gmp.inc"
}

// The table pairs a name with GMP's of the same meaning.
TEST(Calls, NamesAreThoseOfGmpBehindAPrefix) {
#define ROW_CALL(name, gmp, ...) EXPECT_EQ(std::string("zor_gmp_") + #gmp, #name);
#define ROW_GMP(name, gmp, ...) EXPECT_EQ(std::string("zor_gmp_") + #gmp, #name);
#define ROW_HOOK(name, gmp, ...) EXPECT_EQ(std::string("zor_gmp_") + #gmp, #name);
#include "zor/tables/gmp.inc"
#define ROW_FILE(name, gmp, ...) EXPECT_EQ(std::string("zor_gmp_") + #gmp, #name);
#include "zor/tables/core_gmp.inc"
}

// Where results are rare among random arguments: squares and powers, primes, symbols of numbers with a common
// factor.
TEST(Calls, OnNumbersWithAProperty) {
  numbers source(5);
  for (int i = 0; i < 200; ++i) {
    const integer a = zor_tools::random_integer(source, 300), b = zor_tools::random_integer(source, 300);
    ours x(a), y(b), r;
    theirs u(a), v(b), s;
    const unsigned long degree = 1 + source.below(6);
    zor_gmp___gmpz_pow_ui(r, x, degree);
    mpz_pow_ui(s, u, degree);
    EXPECT_EQ(degree == 2 || mpz_perfect_square_p(s) != 0, zor_gmp___gmpz_perfect_square_p(r) != 0) << hex(a);
    EXPECT_EQ(mpz_perfect_power_p(s), zor_gmp___gmpz_perfect_power_p(r)) << hex(a) << ' ' << degree;
    EXPECT_EQ(mpz_kronecker(u, v), zor_gmp___gmpz_jacobi(x, y)) << hex(a) << ' ' << hex(b);
    zor_gmp___gmpz_nextprime(r, x);
    const bool prime = zor_gmp___gmpz_probab_prime_p(r, 25) > 0;
    EXPECT_TRUE(prime) << hex(a);
  }
  for (const int exponent : {61, 89, 107, 127, 521, 607, 1279, 2203}) {
    ours mersenne;
    zor_gmp___gmpz_setbit(mersenne, zor_bitcnt(exponent));
    zor_gmp___gmpz_sub_ui(mersenne, mersenne, 1);
    EXPECT_LT(0, zor_gmp___gmpz_probab_prime_p(mersenne, 15)) << exponent;
    zor_gmp___gmpz_sub_ui(mersenne, mersenne, 2);
    EXPECT_EQ(0, zor_gmp___gmpz_probab_prime_p(mersenne, 15)) << exponent;
  }
}

integer power_of_two(zor_bitcnt n, long more) {
  theirs x;
  mpz_setbit(x, n);
  if (more < 0)
    mpz_sub_ui(x, x, (unsigned long)-more);
  else
    mpz_add_ui(x, x, (unsigned long)more);
  return x.value();
}

TEST(Lives, BeginWithTheValueThatGmpGives) {
  numbers source(6);
  for (int i = 0; i < 100; ++i) {
    const integer a = zor_tools::random_integer(source, 5000);
    ours x(a);
    theirs u(a);
    const std::string text = hex(a);
    const long word = mpz_get_si(u);
    const double real = std::ldexp(source.real(), int(source.below(900)));
    zor_mpz r[7];
    mpz_t s[7];
    zor_gmp___gmpz_init(&r[0]);
    mpz_init(s[0]);
    zor_gmp___gmpz_init2(&r[1], 64 * zor_bitcnt(i));
    mpz_init2(s[1], 64 * mp_bitcnt_t(i));
    zor_gmp___gmpz_init_set(&r[2], x);
    mpz_init_set(s[2], u);
    zor_gmp___gmpz_init_set_si(&r[3], word);
    mpz_init_set_si(s[3], word);
    zor_gmp___gmpz_init_set_ui(&r[4], (unsigned long)word);
    mpz_init_set_ui(s[4], (unsigned long)word);
    zor_gmp___gmpz_init_set_d(&r[5], real);
    mpz_init_set_d(s[5], real);
    EXPECT_EQ(0, zor_gmp___gmpz_init_set_str(&r[6], text.c_str(), 16));
    EXPECT_EQ(0, mpz_init_set_str(s[6], text.c_str(), 16));
    for (int k = 0; k < 7; ++k) {
      EXPECT_EQ(library<__mpz_struct>::contents(*s[k]), library<zor_mpz>::contents(r[k])) << k;
      EXPECT_EQ(s[k]->_mp_alloc, r[k].room) << k;
    }
    // A smaller room keeps a value that fits and makes any other 0.
    for (const zor_bitcnt bits : {zor_bitcnt(64) * zor_bitcnt(i), zor_bitcnt(6000), zor_bitcnt(1)}) {
      zor_gmp___gmpz_realloc2(&r[2], bits);
      mpz_realloc2(s[2], bits);
      EXPECT_EQ(library<__mpz_struct>::contents(*s[2]), library<zor_mpz>::contents(r[2]));
      EXPECT_EQ(s[2]->_mp_alloc, r[2].room);
    }
    for (int k = 0; k < 7; ++k) {
      zor_gmp___gmpz_clear(&r[k]);
      mpz_clear(s[k]);
    }
  }
}

TEST(Text, InAllBasesBothWays) {
  numbers source(7);
  for (int base = -36; base <= 62; ++base) {
    if (base > -2 && base < 2) continue;
    for (int i = 0; i < 20; ++i) {
      const integer a = zor_tools::random_integer(source, i < 18 ? 5000 : 60000);
      ours x(a), back;
      theirs u(a);
      char* text = zor_gmp___gmpz_get_str(nullptr, base, x);
      char* expected = mpz_get_str(nullptr, base, u);
      ASSERT_STREQ(expected, text) << base;
      std::string placed(std::strlen(expected) + 1, '?');
      EXPECT_EQ(placed.data(), zor_gmp___gmpz_get_str(placed.data(), base, x));
      EXPECT_STREQ(expected, placed.c_str());
      EXPECT_EQ(0, zor_gmp___gmpz_set_str(back, text, std::abs(base)));
      EXPECT_EQ(a, back.value()) << base;
      zor_gmp___gmp_default_free(text, std::strlen(text) + 1);
      std::free(expected);
    }
  }
}

TEST(Text, AcceptedAsByGmp) {
  for (const char* text : {"",      " ",
                           "-",     "+1",
                           "0",     "-0",
                           "12 34", " 12",
                           "12 ",   "-  7",
                           "0x1F",  "0X1f",
                           "-0x1F", "0b101",
                           "0B2",   "017",
                           "08",    "1e5",
                           "zZ",    "Zz",
                           "1.5",   "99999999999999999999999999999999999999",
                           "\t\n5", "5\0007"}) {
    for (int base = 0; base <= 62; ++base) {
      if (base == 1) continue;
      ours x(integer{false, {77}});
      theirs u(integer{false, {77}});
      EXPECT_EQ(mpz_set_str(u, text, base), zor_gmp___gmpz_set_str(x, text, base))
          << text << " in base " << base;
      EXPECT_EQ(u.value(), x.value()) << text << " in base " << base;
    }
  }
}

TEST(Words, ImportedAndExported) {
  numbers source(8);
  for (size_t size = 1; size <= 17; ++size)
    for (const int order : {1, -1})
      for (const int endian : {1, 0, -1})
        for (const size_t nails : {size_t(0), size_t(1), size_t(7), size * 8 - 1}) {
          const integer a = zor_tools::random_integer(source, 2000);
          ours x(a), back;
          theirs u(a), back_expected;
          // One byte of a word may lie anywhere: an odd address.
          std::vector<char> words(40000, 'w'), expected = words;
          size_t count = 99, expected_count = 99;
          zor_gmp___gmpz_export(words.data() + 1, &count, order, size, endian, nails, x);
          mpz_export(expected.data() + 1, &expected_count, order, size, endian, nails, u);
          ASSERT_EQ(expected_count, count) << size << ' ' << nails;
          ASSERT_EQ(expected, words) << size << ' ' << order << ' ' << endian << ' ' << nails;
          zor_gmp___gmpz_import(back, count, order, size, endian, nails, words.data() + 1);
          mpz_import(back_expected, count, order, size, endian, nails, words.data() + 1);
          EXPECT_EQ(back_expected.value(), back.value());
          size_t own_count = 0;
          void* own = zor_gmp___gmpz_export(nullptr, &own_count, order, size, endian, nails, x);
          ASSERT_EQ(expected_count, own_count);
          if (own_count > 0) {
            EXPECT_EQ(0, std::memcmp(expected.data() + 1, own, own_count * size));
            zor_gmp___gmp_default_free(own, own_count * size);
          }
        }
}

// Draws from both states must be the same.
void expect_same_draws(zor_rand_ptr state, gmp_randstate_t expected, const char* what) {
  ours r, n(power_of_two(300, 12345));
  theirs s, m(power_of_two(300, 12345));
  for (zor_bitcnt bits = 0; bits < 5000; bits += 97) {
    zor_gmp___gmpz_urandomb(r, state, bits);
    mpz_urandomb(s, expected, bits);
    ASSERT_EQ(s.value(), r.value()) << what << ", " << bits;
    zor_gmp___gmpz_urandomm(r, state, n);
    mpz_urandomm(s, expected, m);
    ASSERT_EQ(s.value(), r.value()) << what;
  }
}

TEST(Random, StatesGiveTheNumbersOfGmp) {
  zor_rand_t state, copy;
  gmp_randstate_t expected, expected_copy;
  zor_gmp___gmp_randinit_default(state);
  gmp_randinit_default(expected);
  expect_same_draws(state, expected, "as begun");
  for (const unsigned long seed : {0ul, 1ul, ~0ul}) {
    zor_gmp___gmp_randseed_ui(state, seed);
    gmp_randseed_ui(expected, seed);
    expect_same_draws(state, expected, "a seed of one word");
  }
  ours seed(power_of_two(4000, -17));
  theirs expected_seed(power_of_two(4000, -17));
  zor_gmp___gmp_randseed(state, seed);
  gmp_randseed(expected, expected_seed);
  zor_gmp___gmp_randinit_set(copy, state);
  gmp_randinit_set(expected_copy, expected);
  expect_same_draws(state, expected, "a long seed");
  expect_same_draws(copy, expected_copy, "a copy");
  zor_gmp___gmp_randclear(copy);
  gmp_randclear(expected_copy);
  expect_same_draws(state, expected, "beside a copy cleared");
  zor_gmp___gmp_randclear(state);
  gmp_randclear(expected);
}

using limbs = std::vector<zor_limb>;

limbs natural(numbers& source, size_t n) {
  limbs a = zor_tools::random_integer(source, 64 * n).limbs;
  a.resize(n, source.below(2) == 0 ? 0 : ~zor_limb(0));
  return a;
}

// The result has a place of its own, or that of a.
template <class F, class G>
void expect_same_limbs(const char* name, numbers& source, size_t n, const F& routine, const G& reference) {
  const limbs a = natural(source, n), start = natural(source, n);
  for (const bool in_place : {false, true}) {
    limbs r = in_place ? a : start, expected = r;
    const zor_limb carry = routine(r.data(), in_place ? r.data() : a.data());
    EXPECT_EQ(reference(expected.data(), in_place ? expected.data() : a.data()), carry) << name << ' ' << n;
    EXPECT_EQ(expected, r) << name << ' ' << n;
  }
}

TEST(Limbs, AsInGmp) {
  numbers source(9);
  for (const size_t n : {1, 2, 3, 4, 5, 8, 15, 16, 33, 64, 100, 300}) {
    const limbs a = natural(source, n), b = natural(source, n), c = natural(source, n / 2 + (n == 1));
    const long size = long(n);
#define SAME(op, ...)                                                                           \
  expect_same_limbs(                                                                            \
      #op, source, n, [&](auto* r, auto* x) { return zor_gmp___gmpn_##op(r, x, __VA_ARGS__); }, \
      [&](auto* r, auto* x) { return __gmpn_##op(r, x, __VA_ARGS__); })
    SAME(add_n, b.data(), size);
    SAME(sub_n, b.data(), size);
    for (const zor_limb word : {zor_limb(0), zor_limb(1), ~zor_limb(0), b[0]}) {
      SAME(add_1, size, word);
      SAME(sub_1, size, word);
      SAME(addmul_1, size, word);
      SAME(submul_1, size, word);
    }
#undef SAME
    limbs r(2 * n + 1, 5), expected = r;
    zor_gmp___gmpn_mul_n(r.data(), a.data(), b.data(), size);
    __gmpn_mul_n(expected.data(), a.data(), b.data(), size);
    EXPECT_EQ(expected, r) << n;
    EXPECT_EQ(__gmpn_mul(expected.data(), a.data(), size, c.data(), long(c.size())),
              zor_gmp___gmpn_mul(r.data(), a.data(), size, c.data(), long(c.size())));
    EXPECT_EQ(expected, r) << n;
    EXPECT_EQ(__gmpn_cmp(a.data(), b.data(), size), zor_gmp___gmpn_cmp(a.data(), b.data(), size));
    EXPECT_EQ(0, zor_gmp___gmpn_cmp(a.data(), a.data(), size));
  }
}

}  // namespace
