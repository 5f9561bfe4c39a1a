// SPDX-License-Identifier: MIT
// Records requests and releases, places blocks against unmapped pages, and refuses what a test says.
#include "tests/support/zalloc.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace {

constexpr size_t boundary = 65536;

struct block_info {
  void* memory;  // from the C runtime
  size_t size;
};

struct state {
  std::mutex mutex;
  std::map<void*, block_info> blocks;
  std::string log;
  uint64_t calls = 0;
  uint64_t requests = 0;
  uint64_t failing = 0;
  bool onwards = false;
  bool in_place = false;
  bool reuse = false;
  void* spare = nullptr;  // memory of the block freed last, two boundaries long
  int64_t offset = -1;
  int64_t live_bytes = 0;
  void* last = nullptr;
};

// Never destroyed: libraries release memory after this one's destructors.
state& the() {
  static state* s = new state;
  return *s;
}

void note(char function, size_t size, bool failed) {
  state& s = the();
  ++s.calls;
  if (!s.log.empty()) s.log += ' ';
  s.log += function + std::to_string(size) + (failed ? "!" : "");
}

bool request_fails() {
  state& s = the();
  ++s.requests;
  return s.failing != 0 && (s.requests == s.failing || (s.onwards && s.requests > s.failing));
}

constexpr size_t spare_bytes = 2 * boundary;

// Memory for a placed block.
void* aligned_memory(size_t size) {
  state& s = the();
  const size_t bytes = (size / boundary + 2) * boundary;
  if (bytes == spare_bytes && s.spare != nullptr) return std::exchange(s.spare, nullptr);
  return std::aligned_alloc(boundary, bytes);
}

void* obtain(size_t size) {
  state& s = the();
  void* memory = s.offset < 0 ? std::malloc(size) : aligned_memory(size);
  if (memory == nullptr) return nullptr;
  void* block = static_cast<char*>(memory) + std::max<int64_t>(s.offset, 0);
  if (s.offset >= 0) std::memset(block, 0xA5, size);
  s.blocks[block] = {memory, size};
  s.live_bytes += int64_t(size);
  s.last = block;
  return block;
}

void drop(void* block) {
  state& s = the();
  const auto known = s.blocks.find(block);
  if (known == s.blocks.end()) {
    std::fprintf(stderr, "libzalloc: %p is no live block of this allocator\n", block);
    std::abort();
  }
  s.live_bytes -= int64_t(known->second.size);
  void* memory = known->second.memory;
  if (s.reuse && known->second.size < boundary) std::swap(memory, s.spare);
  std::free(memory);
  s.blocks.erase(known);
}

void* z_malloc(size_t size) {
  std::lock_guard guard(the().mutex);
  const bool fails = request_fails();
  note('m', size, fails);
  return fails ? nullptr : obtain(size);
}

[[maybe_unused]] void* z_calloc(size_t count, size_t size) {
  std::lock_guard guard(the().mutex);
  const bool fails = request_fails();
  note('c', count * size, fails);
  void* block = fails ? nullptr : obtain(count * size);
  return block != nullptr ? std::memset(block, 0, count * size) : nullptr;
}

void* z_realloc(void* old, size_t size) {
  std::lock_guard guard(the().mutex);
  state& s = the();
  const bool fails = request_fails();
  note('r', size, fails);
  if (fails) return nullptr;
  block_info& info = s.blocks.at(old);
  if (s.in_place && size <= boundary) {
    s.live_bytes += int64_t(size) - int64_t(info.size);
    info.size = size;
    return old;
  }
  const size_t kept = std::min(size, info.size);
  void* block = obtain(size);
  if (block == nullptr) return nullptr;
  std::memcpy(block, old, kept);
  drop(old);
  return block;
}

[[maybe_unused]] void z_free(void* block) {
  std::lock_guard guard(the().mutex);
  const auto known = the().blocks.find(block);
  note('f', known != the().blocks.end() ? known->second.size : 0, false);
  drop(block);
}

}  // namespace

extern "C" {

// What an allocator library exports: variables that hold its functions. The faulty variants of this library
// lack one of them, or leave one null.
void* (*z_malloc_dll)(size_t) = z_malloc;
#ifndef ZALLOC_LACKS_CALLOC
void* (*z_calloc_dll)(size_t, size_t) = z_calloc;
#endif
void* (*z_realloc_dll)(void*, size_t) = z_realloc;
#ifdef ZALLOC_NULL_FREE
void (*z_free_dll)(void*) = nullptr;
#else
void (*z_free_dll)(void*) = z_free;
#endif

void zalloc_reset() {
  std::lock_guard guard(the().mutex);
  state& s = the();
  s.log.clear();
  s.calls = s.requests = s.failing = 0;
  s.onwards = s.in_place = s.reuse = false;
  std::free(std::exchange(s.spare, nullptr));
  s.offset = -1;
}
const char* zalloc_log() { return the().log.c_str(); }
void zalloc_clear_log() {
  std::lock_guard guard(the().mutex);
  the().log.clear();
}
uint64_t zalloc_calls() {
  std::lock_guard guard(the().mutex);
  return the().calls;
}
int64_t zalloc_live_blocks() {
  std::lock_guard guard(the().mutex);
  return int64_t(the().blocks.size());
}
int64_t zalloc_live_bytes() {
  std::lock_guard guard(the().mutex);
  return the().live_bytes;
}
void* zalloc_last() {
  std::lock_guard guard(the().mutex);
  return the().last;
}
void zalloc_fail(uint64_t nth, bool onwards) {
  std::lock_guard guard(the().mutex);
  the().failing = nth != 0 ? the().requests + nth : 0;
  the().onwards = onwards;
}
void zalloc_place(int64_t offset) {
  std::lock_guard guard(the().mutex);
  the().offset = offset;
}
void zalloc_resize_in_place(bool in_place) {
  std::lock_guard guard(the().mutex);
  the().in_place = in_place;
}
void zalloc_reuse_freed(bool reuse) {
  std::lock_guard guard(the().mutex);
  the().reuse = reuse;
}
}
