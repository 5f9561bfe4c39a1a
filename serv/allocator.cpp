// SPDX-License-Identifier: MIT
// Looks for the allocator library once and keeps the four functions.
#include "serv/allocator.h"

#include <dlfcn.h>

#include <cstdlib>

#include "serv/shared_word.h"

namespace zor {
namespace {

constexpr const char* allocator_file = "libzalloc.so";

using malloc_fn = void*(size_t size);
using calloc_fn = void*(size_t count, size_t size);
using realloc_fn = void*(void* block, size_t size);
using free_fn = void(void* block);

constinit shared_word<malloc_fn*> malloc_slot;
constinit shared_word<calloc_fn*> calloc_slot;
constinit shared_word<realloc_fn*> realloc_slot;
constinit shared_word<free_fn*> free_slot;

// The symbol is a variable that holds the function's address; null when either is missing.
template <class F>
F* look_up(void* library, const char* symbol) {
  auto* variable = static_cast<F**>(dlsym(library, symbol));
  return variable != nullptr ? *variable : nullptr;
}

// The slot of malloc is stored last, so whoever finds it set finds all four.
void fill_slots(malloc_fn* z_malloc, calloc_fn* z_calloc, realloc_fn* z_realloc, free_fn* z_free) {
  free_slot = z_free;
  realloc_slot = z_realloc;
  calloc_slot = z_calloc;
  malloc_slot = z_malloc;
}

bool take_from(void* library) {
  auto* z_malloc = look_up<malloc_fn>(library, "z_malloc_dll");
  auto* z_calloc = look_up<calloc_fn>(library, "z_calloc_dll");
  auto* z_realloc = look_up<realloc_fn>(library, "z_realloc_dll");
  auto* z_free = look_up<free_fn>(library, "z_free_dll");
  if (z_malloc == nullptr || z_calloc == nullptr || z_realloc == nullptr || z_free == nullptr) return false;
  fill_slots(z_malloc, z_calloc, z_realloc, z_free);
  return true;
}

}  // namespace

// All four functions come from one side. The handle is given back in any case: an allocator library stays
// loaded by whoever installed it.
void choose_allocator() {
  if (malloc_slot != nullptr) return;
  void* library = dlopen(allocator_file, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr || !take_from(library)) {
    fill_slots(std::malloc, std::calloc, std::realloc, std::free);
  }
  if (library != nullptr) dlclose(library);
}

void* alloc_malloc(size_t size) {
  choose_allocator();
  return malloc_slot(size);
}

void* alloc_realloc(void* block, size_t size) {
  choose_allocator();
  return realloc_slot(block, size);
}

void alloc_free(void* block) {
  choose_allocator();
  free_slot(block);
}

}  // namespace zor
