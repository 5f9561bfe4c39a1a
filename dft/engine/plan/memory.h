// SPDX-License-Identifier: MIT
// Memory of plans, and of runs that were given no work.
#pragma once

#include <cstdint>
#include <cstring>

#include "serv/allocator.h"

namespace zor::dft {

// 64-byte aligned, the block's own address in the word below; null when memory is short.
inline void* engine_allocate_unfilled(uint64_t bytes) {
  choose_allocator();
  void* base = alloc_malloc(bytes + 128);
  if (base == nullptr) return nullptr;
  const uintptr_t address = (reinterpret_cast<uintptr_t>(base) + 127) / 64 * 64;
  void** block = reinterpret_cast<void**>(address);
  block[-1] = base;
  return block;
}
// The same, filled with zero.
inline void* engine_allocate(uint64_t bytes) {
  void* const block = engine_allocate_unfilled(bytes);
  return block == nullptr ? nullptr : std::memset(block, 0, bytes);
}
inline void engine_free(void* p) {
  if (p != nullptr) alloc_free(static_cast<void**>(p)[-1]);
}

}  // namespace zor::dft
