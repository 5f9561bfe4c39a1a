// SPDX-License-Identifier: MIT
// How a trial calls a routine: an argument by value or by pointer, as the parameter asks for; a bad argument
// in some trials; and the same call by Fortran's and CBLAS's conventions.
#pragma once

#include <string_view>
#include <type_traits>

namespace zor_fuzz {

using zor_test::at, zor_test::handed_over, zor_test::is_address;

template <class A>
inline constexpr bool is_step = std::is_same_v<A, leading_dimension> || std::is_same_v<A, increment_of>;
template <class A>
inline constexpr bool is_integer = std::is_integral_v<A> || is_step<A> || std::is_same_v<A, any>;

// The conventions of other libraries with integers I.
template <class I, class P, class A>
using fortran_value =
    std::conditional_t<is_integer<A>, I, std::conditional_t<std::is_same_v<A, option>, char, A>>;
template <class I, class P, class A>
using fortran_parameter = std::conditional_t<is_address<A>, P, const fortran_value<I, P, A>*>;
template <class P, class A>
using cblas_parameter = std::conditional_t<
    is_address<A>, P,
    std::conditional_t<std::is_same_v<A, option>, int,
                       std::conditional_t<is_integer<A>, int32_t,
                                          std::conditional_t<std::is_floating_point_v<A>, A, const A*>>>>;
inline constexpr int by_rows = 101;

template <class P, class A>
P by_cblas(const A& a) {
  if constexpr (std::is_same_v<A, option>)
    return a.first + int(std::string_view(a.all).find(char(a.letter & ~('a' - 'A'))));
  else if constexpr (std::is_pointer_v<P> && !is_address<A>)
    return &a;
  else
    return P(a);
}

template <class A>
void trial::spoil(int position, A* argument) {
  if constexpr (std::is_same_v<A, option>) {
    if (spoils(position)) argument->letter = '?';
  } else if constexpr (std::is_same_v<A, zor_int>) {
    if (spoils(position)) *argument = -1;
  } else if constexpr (is_step<A>) {
    if (spoils(position)) argument->value = 0;
  }
}

template <class A>
bool goes_up(const A& a) {
  if constexpr (std::is_same_v<A, increment_of>)
    return a.value > 0;
  else
    return true;
}
template <class A>
inline constexpr bool is_option = std::is_same_v<A, option>;
template <class A, class... Others>
bool begins_with_order(const argument_list<A, Others...>& list) {
  if constexpr (is_option<A>)
    return at<0, A>(list).first == by_rows;
  else
    return false;
}

template <class I, class R, class... P, class... A, size_t... i>
R call_by_fortran(void* name, R (*)(P...), const argument_list<A...>& list, std::index_sequence<i...>) {
  argument_list<fortran_value<I, P, A>...> rooms{};
  return reinterpret_cast<R (*)(fortran_parameter<I, P, A>...)>(name)(
      handed_over<fortran_parameter<I, P, A>>(at<i, A>(list), at<i, fortran_value<I, P, A>>(rooms))...);
}
// Names with options or a matrix take the order of storage first, or have it among their options.
template <class R, class... P, class... A, size_t... i>
R call_by_cblas(void* name, R (*)(P...), const argument_list<A...>& list, std::index_sequence<i...>) {
  constexpr bool takes_order = ((std::is_same_v<A, leading_dimension> || is_option<A>) || ...);
  if (takes_order && !begins_with_order(list))
    return reinterpret_cast<R (*)(int, cblas_parameter<P, A>...)>(name)(
        by_rows + 1, by_cblas<cblas_parameter<P, A>>(at<i, A>(list))...);
  return reinterpret_cast<R (*)(cblas_parameter<P, A>...)>(name)(
      by_cblas<cblas_parameter<P, A>>(at<i, A>(list))...);
}

template <class R, class... P, class... A>
R trial::invoke(R (*routine)(P...), const A&... arguments) {
  return invoke_listed(routine, (list_of() + ... + zor_test::arguments_of(arguments)),
                       std::index_sequence_for<P...>());
}

template <class R, class... P, class... A, size_t... i>
R trial::invoke_listed(R (*routine)(P...), argument_list<A...> list, std::index_sequence<i...> all) {
  static_assert(sizeof...(A) == sizeof...(P), "as many arguments as parameters");
  [[maybe_unused]] const bool upwards = (goes_up(at<i, A>(list)) && ...);
  (spoil(int(i) + 1, &at<i, A>(list)), ...);
  constexpr bool has_others = ((std::is_same_v<A, increment_of> || is_option<A>) || ...);
  zor_int kind = 0;
  void* other = nullptr;
  if (has_others && case_.what->kind != serial) {
    kind = draw("adapter", 0, 3, 0);
    // Other libraries have their own meaning of some other increments.
    if (upwards) other = adapter(kind);
  }
  const auto run = [&]() -> R {
    if constexpr (has_others) {
      if (other && kind == 1) return call_by_fortran<int32_t>(other, routine, list, all);
      if (other && kind == 2) return call_by_fortran<int64_t>(other, routine, list, all);
      if (other && kind == 3) return call_by_cblas(other, routine, list, all);
    }
    return zor_test::pass_listed(routine, list, all);
  };
  if constexpr (std::is_void_v<R>) {
    call(run);
  } else {
    R value{};
    call([&] { value = run(); });
    return value;
  }
}

}  // namespace zor_fuzz
