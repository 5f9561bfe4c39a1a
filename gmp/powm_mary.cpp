// SPDX-License-Identifier: MIT
// r := b^e modulo m. For an odd modulus: windows of the exponent over odd powers of the base, in Montgomery's
// form, from the documented operations of GMP alone. A number x stands as x B^n modulo m in n limbs (B =
// 2^64, n the limbs of m), not necessarily below m; `reduce` brings a product back to that form.
#include <algorithm>
#include <bit>
#include <cstring>

#include "gmp/own.h"

namespace {

constexpr zor_bitcnt limb_bits = 64;

// Sizes of the modulus, in limbs, for which this is as fast as GMP's own routine, or faster. Below, GMP's
// rows cost less because they are one piece of assembly; above, it reduces by the inverse of the whole
// modulus.
constexpr long least_modulus = 25;
constexpr long largest_modulus = 72;

// -1/m modulo B for an odd m: each step doubles the number of right bits, of which m itself has three.
zor_limb negative_inverse(zor_limb m) {
  zor_limb x = m;
  for (int bits = 3; bits < int(limb_bits); bits *= 2) x *= 2 - m * x;
  return -x;
}

bool bit_of(const zor_limb* a, zor_bitcnt place) { return a[place / limb_bits] >> place % limb_bits & 1; }

struct modulus {
  const zor_limb* limb;
  long n;
  zor_limb inverse;    // -1/m modulo B
  zor_limb* product;   // 2n limbs of scratch for a product,
  zor_limb* quotient;  // n for the multiple of m that is added to it,
  zor_limb* part;      // and n for the product of a part of both
};

// Below this size a multiple is added row by row; above, halves of it go through whole products.
constexpr long most_rows = 24;

// t[0..count) += carry; returns the carry out.
zor_limb carry_on(zor_limb* t, long count, zor_limb carry) {
  return carry != 0 ? zor_gmp___gmpn_add_1(t, t, count, carry) : 0;
}

// Adds to t that multiple q of the lowest n limbs of m that clears the lowest n limbs of t, of 2n limbs;
// returns the carry out. What stands in the cleared limbs is of no meaning afterwards.
zor_limb clear_rows(zor_limb* t, zor_limb* q, long n, const modulus& m) {
  for (long i = 0; i < n; ++i) {
    q[i] = t[i] * m.inverse;
    t[i] = zor_gmp___gmpn_addmul_1(t + i, m.limb, n, q[i]);
  }
  return zor_gmp___gmpn_add_n(t + n, t + n, t, n);
}

// The same by halves, q = q1 B^h + q0: each is found from as many limbs of m as it has itself, and its
// product with the limbs of m above those is added whole.
zor_limb clear_low(zor_limb* t, zor_limb* q, long n, const modulus& m) {
  if (n <= most_rows) return clear_rows(t, q, n, m);
  const long h = (n + 1) / 2;
  const zor_limb below = clear_low(t, q, h, m);
  zor_gmp___gmpn_mul(m.part, q, h, m.limb + h, n - h);
  zor_limb middle = zor_gmp___gmpn_add_n(t + h, t + h, m.part, n);
  middle += carry_on(t + 2 * h, n - h, below);
  const zor_limb above = clear_low(t + h, q + h, n - h, m);
  zor_gmp___gmpn_mul(m.part, m.limb + n - h, h, q + h, n - h);
  zor_limb carry = zor_gmp___gmpn_add_n(t + n, t + n, m.part, n);
  carry += carry_on(t + n + h, n - h, middle);
  return carry + carry_on(t + 2 * n - h, h, above);
}

// r := m.product / B^n modulo m, below B^n.
void reduce(zor_limb* r, const modulus& m) {
  zor_limb* t = m.product;
  if (clear_low(t, m.quotient, m.n, m) != 0)
    zor_gmp___gmpn_sub_n(r, t + m.n, m.limb, m.n);
  else
    std::copy_n(t + m.n, m.n, r);
}

void multiply(zor_limb* r, const zor_limb* a, const zor_limb* b, const modulus& m) {
  zor_gmp___gmpn_mul_n(m.product, a, b, m.n);
  reduce(r, m);
}

void square(zor_limb* r, const zor_limb* a, const modulus& m) {
  zor_own___gmpn_sqr(m.product, a, m.n);
  reduce(r, m);
}

// The width of windows that takes the fewest products for an exponent of that many bits: 2^(w-1) for the
// table and one for every w + 1 bits.
int window_for(zor_bitcnt bits) {
  int w = 1;
  while (bits / zor_bitcnt(w + 1) > bits / zor_bitcnt(w + 2) + (zor_bitcnt(1) << (w - 1))) ++w;
  return w;
}

// A window of the exponent: bits high down to low, the lowest of them a 1.
struct window {
  zor_bitcnt low;
  zor_bitcnt value;
};

window window_at(const zor_limb* e, zor_bitcnt high, int width) {
  window w = {high + 1 - std::min(high + 1, zor_bitcnt(width)), 0};
  while (!bit_of(e, w.low)) ++w.low;
  for (zor_bitcnt i = high + 1; i-- > w.low;) w.value = 2 * w.value + bit_of(e, i);
  return w;
}

// x := base^e in Montgomery's form, for e of `bits` bits, at least one. powers has room for 2^(width-1)
// numbers, of which the first is the base.
void raise(zor_limb* x, zor_limb* powers, const zor_limb* e, zor_bitcnt bits, int width, const modulus& m) {
  square(x, powers, m);
  for (long i = 1; i < 1L << (width - 1); ++i) multiply(powers + i * m.n, powers + (i - 1) * m.n, x, m);

  window w = window_at(e, bits - 1, width);
  std::memcpy(x, powers + long(w.value / 2) * m.n, size_t(m.n) * sizeof *x);
  for (zor_bitcnt left = w.low; left > 0;) {
    if (!bit_of(e, left - 1)) {
      square(x, x, m);
      --left;
      continue;
    }
    w = window_at(e, left - 1, width);
    for (; left > w.low; --left) square(x, x, m);
    multiply(x, x, powers + long(w.value / 2) * m.n, m);
  }
}

// The base in Montgomery's form, in n limbs.
void enter(zor_limb* x, zor_mpz_srcptr b, zor_mpz_srcptr m, long n) {
  zor_mpz_t t;
  zor_gmp___gmpz_init(t);
  zor_gmp___gmpz_mul_2exp(t, b, zor_bitcnt(n) * limb_bits);
  zor_gmp___gmpz_mod(t, t, m);
  std::fill_n(x, n, 0);
  zor_gmp___gmpz_export(x, nullptr, -1, sizeof *x, 0, 0, t);
  zor_gmp___gmpz_clear(t);
}

// x := x / B^n modulo m, below m.
void leave(zor_limb* x, const modulus& m) {
  std::copy_n(x, m.n, m.product);
  std::fill_n(m.product + m.n, m.n, 0);
  reduce(x, m);
  if (zor_gmp___gmpn_cmp(x, m.limb, m.n) >= 0) zor_gmp___gmpn_sub_n(x, x, m.limb, m.n);
}

}  // namespace

extern "C" void zor_gmp_mpz_powm_mary(zor_mpz_ptr r, zor_mpz_srcptr b, zor_mpz_srcptr e, zor_mpz_srcptr m) {
  const long n = m->size < 0 ? -long(m->size) : m->size;
  // An even modulus has no Montgomery form, and a division by zero is GMP's to raise.
  if (n < least_modulus || n > largest_modulus || (m->limb[0] & 1) == 0 || e->size <= 0) {
    zor_gmp___gmpz_powm(r, b, e, m);
    return;
  }
  const zor_bitcnt bits =
      zor_bitcnt(e->size) * limb_bits - zor_bitcnt(std::countl_zero(e->limb[e->size - 1]));
  const int width = window_for(bits);
  zor_gmp_mark mark;
  zor_gmp__imptmpmark(&mark);
  const auto temporary = [&](long numbers) {
    return static_cast<zor_limb*>(zor_gmp__imptmpmalloc(&mark, size_t(numbers * n) * sizeof(zor_limb)));
  };
  const modulus odd = {m->limb, n, negative_inverse(m->limb[0]), temporary(2), temporary(1), temporary(1)};
  zor_limb* powers = temporary(1L << (width - 1));
  zor_limb* x = temporary(1);
  enter(powers, b, m, n);
  raise(x, powers, e->limb, bits, width, odd);
  leave(x, odd);
  zor_gmp___gmpz_import(r, size_t(n), -1, sizeof *x, 0, 0, x);
  zor_gmp__imptmpfree(&mark);
}
