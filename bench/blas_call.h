// SPDX-License-Identifier: MIT
// Calls of one BLAS routine in libraries with other widths of integers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "zor/types.h"

namespace zor_bench {

// One routine of a library: its address, and how it is called (integers of 32 bits and the lengths of letters
// for peers).
struct routine {
  void* address;
  bool ours;
};

template <int, class T>
using repeated = T;

template <class A>
const void* address_of(const A& a) {
  if constexpr (std::is_pointer_v<A>)
    return a;
  else
    return &a;
}
// A number as I where it is an integer of ours.
template <class I, class A>
auto in_width(const A& a) {
  if constexpr (std::is_same_v<A, zor_int>)
    return I(a);
  else
    return a;
}

template <int... L, class... Values>
void call_by_address(void* routine, std::integer_sequence<int, L...>, const char* letters,
                     const Values&... values) {
  using function =
      void(repeated<L, const char*>..., repeated<sizeof(Values), const void*>..., repeated<L, size_t>...);
  reinterpret_cast<function*>(routine)((letters + L)..., address_of(values)..., (void(L), size_t(1))...);
}

// Calls r with `Letters` option letters, then the arguments: numbers by address, integers in the library's
// width, pointers as they are.
template <int Letters, class... Args>
void call(const routine& r, const char* letters, const Args&... args) {
  constexpr auto each = std::make_integer_sequence<int, Letters>();
  if (r.ours)
    call_by_address(r.address, each, letters, in_width<zor_int>(args)...);
  else
    call_by_address(r.address, each, letters, in_width<int32_t>(args)...);
}

}  // namespace zor_bench
