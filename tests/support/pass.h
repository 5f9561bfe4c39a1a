// SPDX-License-Identifier: MIT
// Calls of routines that take most arguments by address: a value is handed over as the parameter asks for it,
// an operand as its address, and one object may stand for several arguments.
#pragma once

#include <type_traits>
#include <utility>

namespace zor_test {

// A list of arguments. An aggregate compiles several times as fast as std::tuple.
template <size_t i, class A>
struct list_item {
  A value;
};
template <class Indices, class... A>
struct list_items;
template <size_t... i, class... A>
struct list_items<std::index_sequence<i...>, A...> : list_item<i, A>... {};
template <class... A>
struct argument_list : list_items<std::index_sequence_for<A...>, A...> {
  argument_list arguments() const { return *this; }
};

template <size_t i, class A>
A& at(list_item<i, A>& item) {
  return item.value;
}
template <size_t i, class A>
const A& at(const list_item<i, A>& item) {
  return item.value;
}
template <class... A>
argument_list<A...> list_of(A... a) {
  return {{{a}...}};
}
template <class... A, size_t... i, class... B, size_t... j>
argument_list<A..., B...> joined(const argument_list<A...>& a, std::index_sequence<i...>,
                                 const argument_list<B...>& b, std::index_sequence<j...>) {
  return {{{at<i, A>(a)}..., {at<j, B>(b)}...}};
}
template <class... A, class... B>
argument_list<A..., B...> operator+(const argument_list<A...>& a, const argument_list<B...>& b) {
  return joined(a, std::index_sequence_for<A...>(), b, std::index_sequence_for<B...>());
}

template <class A>
auto arguments_of(A&& a) {
  if constexpr (requires { a.arguments(); })
    return a.arguments();
  else if constexpr (requires { a.data(); })
    return list_of(a.data());
  else
    return list_of(a);
}
// An argument that only some signatures of a group have.
template <bool Present, class A>
auto when(const A& a) {
  if constexpr (Present)
    return arguments_of(a);
  else
    return argument_list<>();
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

template <class R, class... P, class... A, size_t... i>
R pass_listed(R (*routine)(P...), const argument_list<A...>& list, std::index_sequence<i...>) {
  static_assert(sizeof...(A) == sizeof...(P), "as many arguments as parameters");
  argument_list<pointed_at<P, A>...> rooms{};
  return routine(handed_over<P>(at<i, A>(list), at<i, pointed_at<P, A>>(rooms))...);
}
template <class R, class... P, class... A>
R pass(R (*routine)(P...), A&&... arguments) {
  const auto list = (argument_list<>() + ... + arguments_of(arguments));
  return pass_listed(routine, list, std::index_sequence_for<P...>());
}

}  // namespace zor_test
