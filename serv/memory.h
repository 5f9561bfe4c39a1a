// SPDX-License-Identifier: MIT
// Memory for the library's own use beside the exported pool and wrappers.
#pragma once

#include <cstdint>

#include "serv/shared_word.h"
#include "zor/serv.h"

namespace zor {

// The boundary of scratch that several operands share: two cache lines, which processors fetch together.
inline constexpr int32_t scratch_boundary = 128;

// A block as zor_serv_allocate gives it on that boundary, for the length of a call. Returned with its
// slot at hand, it is not searched for.
struct borrowed_block {
  void* data;
  shared_word<uint64_t>* in_use;  // null for a block from outside the pool
};
borrowed_block borrow_block(uint64_t size);
inline void return_block(const borrowed_block& block) {
  if (block.in_use != nullptr)
    *block.in_use = 0;
  else
    zor_serv_deallocate(block.data);
}

// Blocks of the convolution tasks: `size` bytes on a boundary of 32, null for a size below 1 or when memory
// is short. Null may be given back.
void* conv_allocate(int32_t size);
void conv_release(void* pointer);

}  // namespace zor
