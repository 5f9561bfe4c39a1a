// SPDX-License-Identifier: MIT
// Drivers: a batch of transforms over strides and distances. Without Out they run in place: in and out are
// equal.
#pragma once

#include "dft/descriptor/fields.h"

namespace zor::dft {

template <class R, direction Dir, bool Out>
int32_t complex_driver(descriptor* d, const void* in, void* out, zor_int count, void* work);
template <class R, direction Dir, bool Out>
int32_t packed_driver(descriptor* d, const void* in, void* out, zor_int count, void* work);
template <class R, direction Dir>
int32_t mixed_driver(descriptor* d, const void* in, void* out, zor_int count, void* work);
// In place; the output's place follows from that of the input and the two offsets.
template <class R, direction Dir>
int32_t mixed_driver_in_place(descriptor* d, void* data, zor_int count, void* work);

}  // namespace zor::dft
