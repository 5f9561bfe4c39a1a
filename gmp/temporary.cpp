// SPDX-License-Identifier: MIT
// Temporary blocks, chained to a mark from the last one to the first.
#include "gmp/own.h"

namespace {

// Stands before each block; its size keeps the block on the boundary that the memory functions give.
struct alignas(16) block_header {
  void* before;
  size_t size;
};

}  // namespace

extern "C" void zor_gmp__imptmpmark(zor_gmp_mark* mark) { mark->last = nullptr; }

extern "C" void* zor_gmp__imptmpmalloc(zor_gmp_mark* mark, size_t size) {
  // A sum beyond 64 bits stays a size that no memory function can serve.
  size_t whole;
  if (__builtin_add_overflow(size, sizeof(block_header), &whole)) whole = SIZE_MAX;
  auto* header = static_cast<block_header*>(zor_own___gmp_allocate_func(whole));
  *header = {mark->last, whole};
  mark->last = header;
  return header + 1;
}

extern "C" void zor_gmp__imptmpfree(zor_gmp_mark* mark) {
  while (mark->last != nullptr) {
    auto* header = static_cast<block_header*>(mark->last);
    mark->last = header->before;
    zor_own___gmp_free_func(header, header->size);
  }
}
