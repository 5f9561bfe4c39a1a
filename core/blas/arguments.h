// SPDX-License-Identifier: MIT
// Checks of arguments and parts of operands, for the public BLAS entries. A check gives the 1-based position
// of the first bad argument, 0 when there is none; positions are looked at in ascending order.
#pragma once

#include "core/bad_argument.h"
#include "serv/scalar.h"

namespace zor_core {

using zor::is_one;
using zor::is_zero;

constexpr char upper_case(char letter) { return char(letter & ~('a' - 'A')); }
template <class... Letters>
constexpr bool is_letter(const char* option, Letters... letters) {
  return option != nullptr && ((upper_case(*option) == letters) || ...);
}
constexpr bool is_trans(const char* option) { return is_letter(option, 'N', 'T', 'C'); }
constexpr bool is_plain(const char* trans) { return upper_case(*trans) == 'N'; }

constexpr bool is_size(const zor_int* n) { return n != nullptr && *n >= 0; }
constexpr bool is_leading(const zor_int* ld, zor_int rows) {
  return ld != nullptr && *ld >= (rows > 1 ? rows : 1);
}
constexpr bool is_step(const zor_int* inc) { return inc != nullptr && *inc != 0; }

// Whether one of the sizes, leading dimensions or increments is so large that an operand may be longer than
// all addresses.
template <class... Sizes>
constexpr bool any_vast(Sizes... sizes) {
  constexpr int modest_bits = 28;
  return (((uint64_t(sizes) + (uint64_t(1) << modest_bits)) | ...) >> (modest_bits + 1)) != 0;
}

// Whether a matrix of elements of `size` bytes is no longer than all addresses; a vector counts as a matrix
// of one row.
[[gnu::cold, gnu::noinline]] inline bool vast_fits_memory(zor_int rows, zor_int columns, zor_int ld,
                                                          zor_int size) {
  if (rows < 1 || columns < 1) return true;
  const __int128 last = __int128(columns - 1) * ld;
  return (last < 0 ? -last : last) + rows <= INT64_MAX / size;
}
inline bool fits_memory(zor_int rows, zor_int columns, zor_int ld, zor_int size) {
  return !any_vast(rows, columns, ld) || vast_fits_memory(rows, columns, ld, size);
}

// Elements first to first + count - 1 of a vector of n elements, as a vector of its own: with a negative
// increment a vector starts at its end.
template <class T>
T* part(T* x, zor_int n, zor_int incx, zor_int first, zor_int count) {
  return x + (incx < 0 ? first + count - n : first) * incx;
}

// a b c, or the largest integer when that is less; zero when a factor is zero, however large the others.
constexpr zor_int saturating_product(zor_int a, zor_int b, zor_int c = 1) {
  zor_int product = 0;
  if (__builtin_mul_overflow(a, b, &product) || __builtin_mul_overflow(product, c, &product))
    return c == 0 ? 0 : INT64_MAX;
  return product;
}

// Where piece `index` of `pieces` begins when 0 to n is cut at multiples of `grain`; the last piece takes the
// rest. Needs pieces <= n / grain.
constexpr zor_int cut(zor_int n, zor_int grain, zor_int pieces, zor_int index) {
  return index == pieces ? n : n / grain * index / pieces * grain;
}

}  // namespace zor_core
