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

// The routines are GMP's own: what is looked at is that each name is bound to its routine.
TEST(Text, BothWays) {
  numbers source(7);
  for (const int base : {-36, -2, 2, 10, 16, 62}) {
    const integer a = zor_tools::random_integer(source, 5000);
    ours x(a), back;
    theirs u(a);
    char* text = zor_gmp___gmpz_get_str(nullptr, base, x);
    std::string expected(mpz_sizeinbase(u, std::abs(base)) + 2, '?');
    mpz_get_str(expected.data(), base, u);
    EXPECT_STREQ(expected.c_str(), text) << base;
    EXPECT_EQ(0, zor_gmp___gmpz_set_str(back, text, std::abs(base)));
    EXPECT_EQ(a, back.value()) << base;
    EXPECT_EQ(-1, zor_gmp___gmpz_set_str(back, "1?", std::abs(base))) << base;
    zor_gmp___gmp_default_free(text, std::strlen(text) + 1);
  }
}

TEST(Words, ImportedAndExported) {
  numbers source(8);
  for (const size_t size : {1, 3, 8, 17})
    for (const int order : {1, -1})
      for (const int endian : {1, 0, -1})
        for (const size_t nails : {size_t(0), size_t(7)}) {
          const integer a = zor_tools::random_integer(source, 2000);
          ours x(a), back;
          theirs u(a);
          std::vector<char> words(4000, 'w'), expected = words;
          size_t count = 99, expected_count = 99;
          zor_gmp___gmpz_export(words.data(), &count, order, size, endian, nails, x);
          mpz_export(expected.data(), &expected_count, order, size, endian, nails, u);
          EXPECT_EQ(expected_count, count) << size << ' ' << nails;
          EXPECT_EQ(expected, words) << size << ' ' << order << ' ' << endian << ' ' << nails;
          zor_gmp___gmpz_import(back, count, order, size, endian, nails, words.data());
          EXPECT_EQ(zor_tools::trimmed({false, a.limbs}), back.value());
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
  zor_gmp___gmp_randseed_ui(state, 1);
  gmp_randseed_ui(expected, 1);
  expect_same_draws(state, expected, "a seed of one word");
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
