// SPDX-License-Identifier: MIT
// Calls of routines that take most arguments by address: a value is handed over as the parameter asks for it,
// an operand as its address, and one object may stand for several arguments.
#pragma once

#include <tuple>
#include <type_traits>

namespace zor_test {

// Several arguments in one.
template <class... A>
struct several {
  std::tuple<A...> list;
  auto arguments() const { return list; }
};

template <class A>
auto arguments_of(A&& a) {
  if constexpr (requires { a.arguments(); })
    return a.arguments();
  else if constexpr (requires { a.data(); })
    return std::tuple(a.data());
  else
    return std::tuple(a);
}
// An argument that only some signatures of a group have.
template <bool Present, class A>
auto when(const A& a) {
  if constexpr (Present)
    return arguments_of(a);
  else
    return std::tuple<>();
}

template <class A>
inline constexpr bool is_address = std::is_pointer_v<A> || std::is_null_pointer_v<A>;

// What is handed over for an argument A to a parameter P: a pointer to a Value, or the value itself.
template <class P, class A, class Value>
P handed_over(const A& a, Value& room) {
  if constexpr (is_address<A>) {
    return a;
  } else if constexpr (std::is_pointer_v<P>) {
    room = Value(a);
    return &room;
  } else {
    return P(a);
  }
}
template <class P, class A>
using pointed_at = std::conditional_t<std::is_pointer_v<P> && !is_address<A>,
                                      std::remove_const_t<std::remove_pointer_t<P>>, char>;

template <class R, class... P, class L, size_t... i>
R pass_listed(R (*routine)(P...), const L& list, std::index_sequence<i...>) {
  std::tuple<pointed_at<P, std::tuple_element_t<i, L>>...> rooms;
  return routine(handed_over<P>(std::get<i>(list), std::get<i>(rooms))...);
}
template <class R, class... P, class... A>
R pass(R (*routine)(P...), A&&... arguments) {
  const auto list = std::tuple_cat(arguments_of(arguments)...);
  static_assert(std::tuple_size_v<decltype(list)> == sizeof...(P), "as many arguments as parameters");
  return pass_listed(routine, list, std::index_sequence_for<P...>());
}

}  // namespace zor_test
