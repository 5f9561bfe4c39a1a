// SPDX-License-Identifier: MIT
// Calls of one BLAS routine in libraries with other widths of integers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <tuple>
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

// Calls r with `Letters` option letters, then the arguments: numbers by address, integers in the library's
// width, pointers as they are.
template <int Letters, class... Args>
void call(const routine& r, const char* letters, const Args&... args) {
  const auto pass = []<class I>(I, const auto& a) {
    if constexpr (std::is_same_v<std::decay_t<decltype(a)>, zor_int>)
      return I(a);
    else
      return a;
  };
  const auto address_of = [](const auto& a) -> const void* {
    if constexpr (std::is_pointer_v<std::decay_t<decltype(a)>>)
      return a;
    else
      return &a;
  };
  const auto go = [&]<class I>(I width) {
    const auto values = std::make_tuple(pass(width, args)...);
    [&]<int... L>(std::integer_sequence<int, L...>) {
      std::apply(
          [&](const auto&... a) {
            reinterpret_cast<void (*)(repeated<L, const char*>..., decltype(address_of(a))...,
                                      repeated<L, size_t>...)>(r.address)((letters + L)..., address_of(a)...,
                                                                          (void(L), size_t(1))...);
          },
          values);
    }
    (std::make_integer_sequence<int, Letters>{});
  };
  r.ours ? go(zor_int()) : go(int32_t());
}

}  // namespace zor_bench
