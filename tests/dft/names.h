// SPDX-License-Identifier: MIT
// Settings and statuses of the transforms as the tables of the tests name them. Their numbers are part of the
// interface.
#pragma once

#include <cstdint>

#include "zor/dft.h"

namespace dft_test {

inline constexpr int32_t single = ZOR_DFT_SINGLE, double_precision = ZOR_DFT_DOUBLE;
inline constexpr int32_t complex_data = ZOR_DFT_COMPLEX, real_data = ZOR_DFT_REAL;
inline constexpr int32_t interleaved = ZOR_DFT_COMPLEX_COMPLEX, packed = ZOR_DFT_COMPLEX_REAL;
inline constexpr int32_t split = ZOR_DFT_REAL_REAL;
inline constexpr int32_t in_place = ZOR_DFT_INPLACE, out_of_place = ZOR_DFT_NOT_INPLACE;
inline constexpr int32_t ordered = ZOR_DFT_ORDERED, scrambled = ZOR_DFT_BACKWARD_SCRAMBLED;

inline constexpr int32_t done = ZOR_DFT_OK, short_of_memory = ZOR_DFT_MEMORY_ERROR;
inline constexpr int32_t bad_argument = ZOR_DFT_BAD_ARGUMENT, bad_value = ZOR_DFT_BAD_VALUE;
inline constexpr int32_t not_a_descriptor = ZOR_DFT_BAD_DESCRIPTOR;
inline constexpr int32_t not_implemented = ZOR_DFT_NOT_IMPLEMENTED, engine_failed = ZOR_DFT_ENGINE_ERROR;
inline constexpr int32_t no_free_slot = ZOR_DFT_NO_USER_THREAD_SLOT, too_long = ZOR_DFT_LENGTH_TOO_LARGE;
inline constexpr int32_t no_breakdown = ZOR_DFT_NO_BREAKDOWN, not_splittable = ZOR_DFT_NOT_SPLITTABLE;

static_assert(ZOR_DFT_COMMITTED == 30 && ZOR_DFT_UNCOMMITTED == 31 && complex_data == 32 && real_data == 33);
static_assert(single == 35 && double_precision == 36 && interleaved == 39 && packed == 40 && split == 42);
static_assert(in_place == 43 && out_of_place == 44 && ordered == 48 && scrambled == 49 && ZOR_DFT_NONE == 53);
static_assert(ZOR_DFT_FORMAT_PADDED == 54 && ZOR_DFT_FORMAT_TAIL == 55 && ZOR_DFT_FORMAT_SECOND == 56);
static_assert(ZOR_DFT_FORMAT_HALF_COMPLEX == 57);
static_assert(ZOR_DFT_FORWARD_SCALE == 4 && ZOR_DFT_BACKWARD_SCALE == 5 && ZOR_DFT_NUMBER_OF_TRANSFORMS == 7);
static_assert(ZOR_DFT_COMPLEX_STORAGE == 8 && ZOR_DFT_REAL_STORAGE == 9 &&
              ZOR_DFT_CONJUGATE_EVEN_STORAGE == 10);
static_assert(ZOR_DFT_PLACEMENT == 11 && ZOR_DFT_INPUT_STRIDES == 12 && ZOR_DFT_OUTPUT_STRIDES == 13);
static_assert(ZOR_DFT_INPUT_DISTANCE == 14 && ZOR_DFT_OUTPUT_DISTANCE == 15 && ZOR_DFT_ORDERING == 18);
static_assert(ZOR_DFT_DESCRIPTOR_NAME == 20 && ZOR_DFT_PACKED_FORMAT == 21);
static_assert(ZOR_DFT_NUMBER_OF_USER_THREADS == 26);
static_assert(short_of_memory == 1 && bad_argument == 2 && bad_value == 3 && not_a_descriptor == 5);
static_assert(not_implemented == 6 && engine_failed == 7 && no_free_slot == 8 && too_long == 9);
static_assert(no_breakdown == 100 && not_splittable == 102);

}  // namespace dft_test
