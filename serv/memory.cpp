// SPDX-License-Identifier: MIT
// Aligned memory for long-lived objects, unpooled. The word below a block holds its base, the address that
// came from the allocator; there is no other header. A sum of sizes beyond 64 bits is memory that does not
// exist.
#include "serv/memory.h"

#include <cstring>

#include "serv/allocator.h"
#include "zor/serv.h"

namespace zor {
namespace {

constexpr uint64_t header_bytes = 8;
constexpr uint64_t least_alignment = 8;

char* base_of(void* pointer) {
  char* base;
  std::memcpy(&base, static_cast<char*>(pointer) - header_bytes, sizeof base);
  return base;
}

void* with_base(char* pointer, char* base) {
  std::memcpy(pointer - header_bytes, &base, sizeof base);
  return pointer;
}

// Allocates size + extra bytes; the result is base + offset with the bits of `mask` cleared.
void* allocate_below(uint64_t size, uint64_t extra, uint64_t offset, uint64_t mask) {
  uint64_t total;
  if (__builtin_add_overflow(size, extra, &total)) return nullptr;
  auto* base = static_cast<char*>(alloc_malloc(total));
  if (base == nullptr) return nullptr;
  char* upper = base + offset;
  return with_base(upper - (reinterpret_cast<uintptr_t>(upper) & mask), base);
}

}  // namespace

void* conv_allocate(int32_t size) { return size >= 1 ? allocate_below(uint64_t(size), 40, 39, 31) : nullptr; }

void conv_release(void* pointer) {
  if (pointer != nullptr) alloc_free(base_of(pointer));
}

}  // namespace zor

using namespace zor;

extern "C" void* zor_serv_zor_malloc(uint64_t size, int32_t alignment) {
  choose_allocator();
  if (size == 0) return nullptr;
  // A power of two below 8 asks for nothing. Whatever is no power of two gives 64: 7 does, and so does a
  // negative alignment, which reads as a large unsigned one.
  const uint64_t boundary = boundary_of(uint64_t(int64_t(alignment)));
  const uint64_t reserve = boundary >= least_alignment ? boundary : 0;
  const uint64_t extra = reserve + header_bytes;
  return allocate_below(size, extra, extra, reserve != 0 ? reserve - 1 : 0);
}

extern "C" void* zor_serv_zor_calloc(uint64_t count, uint64_t element_size, int32_t alignment) {
  const uint64_t size = count * element_size;
  void* pointer = zor_serv_zor_malloc(size, alignment);
  return pointer != nullptr ? std::memset(pointer, 0, size) : nullptr;
}

extern "C" void zor_serv_zor_free(void* pointer) {
  if (pointer == nullptr) return;
  char* base = base_of(pointer);
  if (base != nullptr) alloc_free(base);
}

// The contents keep their distance from the base, so a block that moves may lose its alignment. A size of 0
// shrinks a block to its header; it does not release it.
extern "C" void* zor_serv_zor_realloc(void* pointer, uint64_t size) {
  if (pointer == nullptr) {
    choose_allocator();
    return size != 0 ? allocate_below(size, 72, 72, 63) : nullptr;
  }
  char* base = base_of(pointer);
  if (base == nullptr) return nullptr;
  const auto offset = uint64_t(static_cast<char*>(pointer) - base);
  uint64_t total;
  if (__builtin_add_overflow(size, offset, &total)) return nullptr;
  const auto old_address = reinterpret_cast<uintptr_t>(base);
  auto* moved = static_cast<char*>(alloc_realloc(base, total));
  if (moved == nullptr) return nullptr;
  if (reinterpret_cast<uintptr_t>(moved) == old_address) return pointer;
  return with_base(moved + offset, moved);
}
