// SPDX-License-Identifier: MIT
// Conversions of any element type through the conversion kernels, which move doubles: they move the numbers
// of the elements, counted from 1, and 0 where there is none; then the elements are fetched by number.
#pragma once

#include <cstring>

#include "core/spblas/owned_arrays.h"
#include "zor/types.h"

namespace zor_core {

constexpr size_t element_size(char type) {
  return type == 's'   ? sizeof(float)
         : type == 'd' ? sizeof(double)
         : type == 'c' ? sizeof(zor_c32)
                       : sizeof(zor_c64);
}

// numbers[k] := k + 1.
inline void number_all(zor_int count, double* numbers) {
  for (zor_int k = 0; k < count; ++k) numbers[k] = double(k + 1);
}
// The same where the element is not equal to zero, 0 elsewhere. Returns how many there are.
zor_int number_nonzeros(char type, const void* val, zor_int count, double* numbers);

// to[k] := from[numbers[k] - 1], zero bytes where the number is 0.
template <size_t Size>
void fetch(const void* from, const double* numbers, zor_int count, void* to) {
  const char* const elements = static_cast<const char*>(from);
  char* const out = static_cast<char*>(to);
  for (zor_int k = 0; k < count; ++k) {
    const zor_int number = zor_int(numbers[k]);
    if (number == 0)
      std::memset(out + size_t(k) * Size, 0, Size);
    else
      std::memcpy(out + size_t(k) * Size, elements + size_t(number - 1) * Size, Size);
  }
}
inline void fetch_elements(char type, const void* from, const double* numbers, zor_int count, void* to) {
  (type == 's' ? fetch<4> : type == 'z' ? fetch<16> : fetch<8>)(from, numbers, count, to);
}

}  // namespace zor_core
