// SPDX-License-Identifier: MIT
// The radices of the engine in one table: a butterfly exists for each of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <type_traits>
#include <utility>

namespace zor::dft {

struct radix_row {
  int32_t radix;
  double additions;  // of its butterfly, per value: what the choice of passes weighs
  bool unordered;    // has rows of unordered transforms
  bool odd_real;     // has first passes of real transforms of odd length
};
// In falling order, in which a length is tried for them. The choice of radices shows in the bits, and so do
// the order and the additions.
inline constexpr radix_row radices[] = {
    {16, 9.5, false, false}, {13, 14.8, true, true}, {12, 8.0, false, false}, {11, 12.7, true, true},
    {10, 8.4, false, false}, {9, 8.9, false, true},  {8, 6.5, true, false},   {7, 8.6, true, true},
    {6, 6.0, false, false},  {5, 6.4, true, true},   {4, 4.0, true, false},   {3, 4.0, true, true},
    {2, 2.0, true, false}};
inline constexpr int radix_count = int(std::size(radices));

inline constexpr int32_t largest_radix = radices[0].radix;
// Odd factors without a row run through one generic butterfly. The selection never leaves one above 150.
inline constexpr int32_t largest_generic = 151;

constexpr const radix_row& row_of_radix(int32_t radix) {
  int i = 0;
  while (radices[i].radix != radix) ++i;
  return radices[i];
}

// call(radix as a compile-time constant) when the table has the radix.
template <class Call, size_t... I>
inline void with_radix(int32_t radix, const Call& call, std::index_sequence<I...>) {
  ((radix == radices[I].radix ? call(std::integral_constant<int, radices[I].radix>()) : void()), ...);
}
template <class Call>
inline void with_radix(int32_t radix, const Call& call) {
  with_radix(radix, call, std::make_index_sequence<size_t(radix_count)>());
}

}  // namespace zor::dft
