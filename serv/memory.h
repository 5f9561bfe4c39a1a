// SPDX-License-Identifier: MIT
// Memory for the library's own use beside the exported pool and wrappers.
#pragma once

#include <cstdint>

namespace zor {

// Blocks of the convolution tasks: `size` bytes on a boundary of 32, null for a size below 1 or when memory
// is short. Null may be given back.
void* conv_allocate(int32_t size);
void conv_release(void* pointer);

}  // namespace zor
