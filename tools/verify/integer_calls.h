// SPDX-License-Identifier: MIT
// Calls of routines on integers, made from their signatures: arguments that the routine's domain allows, each
// integer one of a few variables, so that results and operands are now and then the same. A call runs on the
// numbers of any library for which `assign` and `contents` are defined.
#pragma once

#include <array>
#include <cstring>
#include <type_traits>
#include <utility>

#include "tools/verify/battery.h"
#include "zor/gmp.h"

namespace zor_tools {

struct integer {
  bool negative = false;
  std::vector<zor_limb> limbs;  // the lowest first, the highest not 0
  bool operator==(const integer&) const = default;
};

inline integer trimmed(integer a) {
  while (!a.limbs.empty() && a.limbs.back() == 0) a.limbs.pop_back();
  if (a.limbs.empty()) a.negative = false;
  return a;
}

// Up to `bits` bits: evenly spread ones, long runs of one bit, or one word.
integer random_integer(numbers& source, size_t bits);
integer product(const integer& a, const integer& b);

enum class domain { any, bits, base, divisor, exact, modular, secret, small, root, prime, factor };

enum class parameter { result, operand, word, real };
template <class A>
constexpr parameter parameter_kind() {
  if constexpr (std::is_pointer_v<A>)
    return std::is_const_v<std::remove_pointer_t<A>> ? parameter::operand : parameter::result;
  else
    return std::is_floating_point_v<A> ? parameter::real : parameter::word;
}

constexpr size_t most_parameters = 5;
struct planned_call {
  std::array<integer, 4> values;                 // of the variables
  std::array<size_t, most_parameters> variable;  // behind each parameter that is an integer
  std::array<uint64_t, most_parameters> word;    // for each that is none
  double real;
};
planned_call plan_call(const std::vector<parameter>& parameters, domain allowed, numbers& source);

template <class R, class... A>
planned_call plan_call(R (*)(A...), domain allowed, numbers& source) {
  return plan_call(std::vector<parameter>{parameter_kind<A>()...}, allowed, source);
}

// What a call leaves: the variables and the bits of what it returns.
struct outcome {
  std::array<integer, 4> values;
  uint64_t returned = 0;
  bool operator==(const outcome&) const = default;
};

// How a library makes, fills, reads and ends an integer of that type.
template <class Number>
struct library;
template <>
struct library<zor_mpz> {
  static void begin(zor_mpz* r) { zor_gmp___gmpz_init(r); }
  static void end(zor_mpz* r) { zor_gmp___gmpz_clear(r); }
  static void assign(zor_mpz* r, const integer& a) {
    zor_gmp___gmpz_import(r, a.limbs.size(), -1, sizeof(zor_limb), 0, 0, a.limbs.data());
    if (a.negative) zor_gmp___gmpz_neg(r, r);
  }
  static integer contents(const zor_mpz& a) {
    return {a.size < 0, {a.limb, a.limb + (a.size < 0 ? -a.size : a.size)}};
  }
};

// An integer of a library for the length of a block.
template <class Number>
class held {
 public:
  held() { library<Number>::begin(&value_); }
  explicit held(const integer& a) : held() { library<Number>::assign(&value_, a); }
  ~held() { library<Number>::end(&value_); }
  held(const held&) = delete;
  held& operator=(const held&) = delete;
  Number* get() { return &value_; }
  operator Number*() { return &value_; }
  integer value() const { return library<Number>::contents(value_); }

 private:
  Number value_;
};

template <class A, class Number>
A argument(const planned_call& call, size_t position, std::array<held<Number>, 4>& variables) {
  if constexpr (std::is_pointer_v<A>)
    return variables[call.variable[position]];
  else if constexpr (std::is_floating_point_v<A>)
    return call.real;
  else
    return A(call.word[position]);
}

template <class R>
uint64_t bits_of(R value) {
  uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof value);
  return bits;
}

template <class R, class... A, class Number, size_t... I>
uint64_t call_routine(R (*routine)(A...), const planned_call& call, std::array<held<Number>, 4>& variables,
                      std::index_sequence<I...>) {
  if constexpr (std::is_void_v<R>) {
    routine(argument<A>(call, I, variables)...);
    return 0;
  } else {
    return bits_of(routine(argument<A>(call, I, variables)...));
  }
}

template <class Number, class R, class... A>
outcome run_call(R (*routine)(A...), const planned_call& call) {
  const auto& values = call.values;
  std::array<held<Number>, 4> variables = {held<Number>(values[0]), held<Number>(values[1]),
                                           held<Number>(values[2]), held<Number>(values[3])};
  outcome left;
  left.returned = call_routine(routine, call, variables, std::index_sequence_for<A...>());
  for (size_t i = 0; i < variables.size(); ++i) left.values[i] = variables[i].value();
  return left;
}

}  // namespace zor_tools
