// SPDX-License-Identifier: MIT
// Which method serves a length, its factors, and the work it asks for.
#pragma once

#include <cstdint>

namespace zor::dft {

enum class method : int32_t { straight, power_of_two, mixed, direct, chirp };

struct selection {
  method how;
  int32_t conv_length;  // chirp: padded length
  int32_t widest;       // mixed: largest odd factor above 13, else 0
  int64_t work;         // bytes
};

// The method of a complex transform of n, its elements (complex values) being `slot` bytes: 0, or the engine
// code of a refused length.
int32_t select_complex(int32_t n, int32_t slot, bool unordered, selection* s);
// The same for a real transform; for even n with a method other than straight, the selection is that of the
// complex transform of n/2 it runs.
int32_t select_real(int32_t n, int32_t slot, selection* s);

// Takes n apart into factors of 4, 2 and odd primes and says whether a mixed-radix plan serves it.
bool factors_usable(int32_t n, int32_t* widest);
// Length at or above 2 n - 1 that the chirp transform of n pads to.
int32_t padded_length(int32_t n);
// Bytes of work of the power-of-two transform of 2^order.
int64_t power_of_two_work(int32_t order, int32_t slot);

}  // namespace zor::dft
