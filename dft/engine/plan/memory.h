// SPDX-License-Identifier: MIT
// Memory of plans, and of runs that were given no work.
#pragma once

#include <cstdint>
#include <cstring>

#include "serv/allocator.h"

namespace zor::dft {

// Bytes at multiples of which memory of plans, and each array in it, begins.
inline constexpr int64_t plan_boundary = 64;
constexpr uintptr_t round_to_boundary(uintptr_t bytes) {
  return (bytes + plan_boundary - 1) / plan_boundary * plan_boundary;
}
// The next array of `count` in the memory of a plan.
template <class T>
T* take(char** memory, int64_t count) {
  T* p = reinterpret_cast<T*>(*memory);
  *memory += round_to_boundary(uintptr_t(count) * sizeof(T));
  return p;
}

// On that boundary, the block's own address in the word below it; null when memory is short.
inline void* engine_allocate_unfilled(uint64_t bytes) {
  choose_allocator();
  void* base = alloc_malloc(bytes + 2 * plan_boundary);
  if (base == nullptr) return nullptr;
  const uintptr_t address = round_to_boundary(reinterpret_cast<uintptr_t>(base) + plan_boundary);
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
