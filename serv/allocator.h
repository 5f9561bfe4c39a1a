// SPDX-License-Identifier: MIT
// Where all memory of the library comes from: four functions, chosen on first use from the optional allocator
// library libzalloc.so, else from the C runtime.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zor {

// Fills the allocator's slots unless that has been done. Without a lock: threads that race choose alike.
void choose_allocator();

void* alloc_malloc(size_t size);
void* alloc_realloc(void* block, size_t size);
void alloc_free(void* block);

// The boundary that an alignment asks for: itself when it is a power of two or 0, else 64.
constexpr uint64_t boundary_of(uint64_t alignment) {
  return (alignment & (alignment - 1)) == 0 ? alignment : 64;
}

}  // namespace zor
