// SPDX-License-Identifier: MIT
// How a trial calls a routine: an argument by value or by pointer, as the parameter asks for; a bad argument
// in some trials; and the same call by Fortran's and CBLAS's conventions.
#pragma once

#include <string_view>
#include <type_traits>

namespace zor_fuzz {

using zor_test::handed_over, zor_test::is_address;

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

template <class R, class... P, class... A>
R trial::invoke(R (*routine)(P...), const A&... arguments) {
  auto list = std::tuple_cat(arguments_of(arguments)...);
  static_assert(std::tuple_size_v<decltype(list)> == sizeof...(P), "as many arguments as parameters");
  return invoke_listed(routine, list, std::index_sequence_for<P...>());
}

template <class R, class... P, class L, size_t... i>
R trial::invoke_listed(R (*routine)(P...), const L& given, std::index_sequence<i...>) {
  L list = given;
  (spoil(int(i) + 1, &std::get<i>(list)), ...);
  const auto result_of = [&](const auto& f) {
    if constexpr (std::is_void_v<R>) {
      call(f);
    } else {
      R value{};
      call([&] { value = R(f()); });
      return value;
    }
  };
  const auto plainly = [&] { return zor_test::pass_listed(routine, list, std::index_sequence_for<P...>()); };
  if constexpr ((std::is_same_v<std::tuple_element_t<i, L>, increment_of> || ...) ||
                (std::is_same_v<std::tuple_element_t<i, L>, option> || ...)) {
    const zor_int kind = case_.what->kind == serial ? 0 : draw("adapter", 0, 3, 0);
    const auto goes_up = [](const auto& a) {
      if constexpr (std::is_same_v<std::decay_t<decltype(a)>, increment_of>) return a.value > 0;
      return true;
    };
    // Other libraries have their own meaning of some other increments.
    void* const there = (goes_up(std::get<i>(given)) && ...) ? adapter(kind) : nullptr;
    const auto fortran = [&]<class I>(I) {
      std::tuple<fortran_value<I, P, std::tuple_element_t<i, L>>...> rooms;
      using name = R(fortran_parameter<I, P, std::tuple_element_t<i, L>>...);
      return reinterpret_cast<name*>(there)(handed_over<fortran_parameter<I, P, std::tuple_element_t<i, L>>>(
          std::get<i>(list), std::get<i>(rooms))...);
    };
    // Names with options or a matrix take the order of storage first, or have it among their options.
    constexpr bool has_matrix = (std::is_same_v<std::tuple_element_t<i, L>, leading_dimension> || ...);
    const auto is_option = [](const auto& a) { return std::is_same_v<std::decay_t<decltype(a)>, option>; };
    const auto is_order = [](const auto& a) {
      if constexpr (std::is_same_v<std::decay_t<decltype(a)>, option>) return a.first == by_rows;
      return false;
    };
    const bool ordered =
        (has_matrix || (is_option(std::get<i>(list)) || ...)) && !is_order(std::get<0>(list));
    const auto cblas = [&] {
      if (ordered)
        return reinterpret_cast<R (*)(int, cblas_parameter<P, std::tuple_element_t<i, L>>...)>(there)(
            by_rows + 1, by_cblas<cblas_parameter<P, std::tuple_element_t<i, L>>>(std::get<i>(list))...);
      return reinterpret_cast<R (*)(cblas_parameter<P, std::tuple_element_t<i, L>>...)>(there)(
          by_cblas<cblas_parameter<P, std::tuple_element_t<i, L>>>(std::get<i>(list))...);
    };
    if (there && kind == 1) return result_of([&] { return fortran(int32_t()); });
    if (there && kind == 2) return result_of([&] { return fortran(int64_t()); });
    if (there && kind == 3) return result_of(cblas);
  }
  return result_of(plainly);
}

}  // namespace zor_fuzz
