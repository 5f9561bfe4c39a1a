// SPDX-License-Identifier: MIT
#include "tools/verify/integer_calls.h"

#include <cmath>

namespace zor_tools {
namespace {

constexpr size_t limb_bits = 64;
constexpr size_t longest = 5000;
constexpr size_t longest_prime = 200;
constexpr size_t longest_exponent = 150;

uint64_t any_word(numbers& source) {
  const uint64_t word = source.below(uint64_t(1) << 32) << 32 | source.below(uint64_t(1) << 32);
  switch (source.below(4)) {
    case 0:
      return word >> source.below(64);
    case 1:
      return ~(word >> source.below(64));
    case 2:
      return word % 5;
    default:
      return word;
  }
}

void keep_bits(integer& a, size_t bits) {
  const size_t whole = bits / limb_bits;
  if (a.limbs.size() > whole) {
    a.limbs.resize(whole + 1);
    a.limbs.back() &= ~(~zor_limb(0) << bits % limb_bits);
  }
  a = trimmed(a);
}

void not_below(integer& a, zor_limb least) {
  if (a.limbs.size() <= 1 && (a.limbs.empty() || a.limbs[0] < least)) a.limbs = {least};
}

// A finite number of any magnitude that integers of `longest` bits have.
double any_real(numbers& source) {
  const double value = std::ldexp(source.real(), int(source.below(1000)) - 40);
  return source.below(8) == 0 ? 0 : value;
}

struct adjustment {
  const std::vector<parameter>& parameters;
  planned_call& call;
  numbers& source;

  size_t last() const { return parameters.size() - 1; }
  bool last_is_word() const { return parameters.back() == parameter::word; }
  integer& value(size_t position) { return call.values[call.variable[position]]; }
  uint64_t& word(size_t position) { return call.word[position]; }

  void divisor() {
    if (last_is_word())
      word(last()) |= 1;
    else
      not_below(value(last()), 1);
  }

  void exact() {
    divisor();
    const integer d = last_is_word() ? integer{false, {zor_limb(word(last()))}} : value(last());
    integer& n = value(last() - 1);
    if (&n != &value(last())) n = product(n, d);
  }

  // Of r, base, exponent, modulus. An exponent may be negative where the base is its own inverse.
  void modular(bool positive_and_odd) {
    integer& m = value(3);
    not_below(m, 1);
    if (positive_and_odd) m.limbs[0] |= 1;
    if (parameters[2] == parameter::word) return;
    integer& e = value(2);
    keep_bits(e, &e == &m ? 30 : longest_exponent);
    not_below(e, 1);
    if (positive_and_odd) value(3).limbs[0] |= 1;
    integer& base = value(1);
    if (&e == &base || &e == &m || &base == &m || positive_and_odd) e.negative = false;
    if (e.negative) base = {source.below(2) == 1, {1}};
  }

  void root() {
    const size_t operand = last_is_word() ? last() - 1 : last();
    uint64_t degree = 2;
    if (last_is_word()) degree = word(last()) = 1 + word(last()) % 12;
    if (degree % 2 == 0) value(operand).negative = false;
  }

  // The factor is contained a few times.
  void factor() {
    integer& f = value(last());
    keep_bits(f, 80);
    not_below(f, 2);
    f.negative = false;
    integer& n = value(last() - 1);
    if (&n == &f) return;
    for (uint64_t times = source.below(9); times > 0; --times) n = product(n, f);
  }
};

}  // namespace

integer random_integer(numbers& source, size_t bits) {
  const size_t length = source.below(bits + 1);
  const uint64_t kind = source.below(6);
  integer a{source.below(2) == 1, {}};
  zor_limb run = 0;
  for (size_t i = 0; i * limb_bits < length; ++i) {
    if (source.below(3) == 0) run = ~run;
    a.limbs.push_back(kind == 0 && source.below(8) != 0 ? run : any_word(source));
  }
  keep_bits(a, kind == 1 ? limb_bits : length);
  return a;
}

integer product(const integer& a, const integer& b) {
  integer r{a.negative != b.negative, std::vector<zor_limb>(a.limbs.size() + b.limbs.size())};
  for (size_t i = 0; i < a.limbs.size(); ++i) {
    unsigned __int128 sum = 0;
    for (size_t j = 0; j < b.limbs.size(); ++j) {
      sum += static_cast<unsigned __int128>(a.limbs[i]) * b.limbs[j] + r.limbs[i + j];
      r.limbs[i + j] = zor_limb(sum);
      sum >>= limb_bits;
    }
    r.limbs[i + b.limbs.size()] = zor_limb(sum);
  }
  return trimmed(r);
}

planned_call plan_call(const std::vector<parameter>& parameters, domain allowed, numbers& source) {
  planned_call call{};
  for (integer& value : call.values)
    value = random_integer(source, allowed == domain::prime ? longest_prime : longest);
  // Results are variables of their own; an operand is any variable.
  size_t results = source.below(call.values.size());
  for (size_t i = 0; i < parameters.size(); ++i) {
    call.variable[i] =
        (parameters[i] == parameter::result ? results++ : source.below(16)) % call.values.size();
    call.word[i] = any_word(source);
  }
  call.real = any_real(source);

  adjustment adjust{parameters, call, source};
  const size_t last = parameters.size() - 1;
  switch (allowed) {
    case domain::any:
      break;
    case domain::bits:
      call.word[last] %= longest + 500;
      break;
    case domain::base:
      call.word[last] = 2 + call.word[last] % 61;
      break;
    case domain::divisor:
      adjust.divisor();
      break;
    case domain::exact:
      adjust.exact();
      break;
    case domain::modular:
    case domain::secret:
      adjust.modular(allowed == domain::secret);
      break;
    case domain::small:
      call.word[last] %= 60;
      break;
    case domain::root:
      adjust.root();
      break;
    case domain::prime:
      call.word[last] = 15 + call.word[last] % 20;
      break;
    case domain::factor:
      adjust.factor();
      break;
  }
  return call;
}

}  // namespace zor_tools
