// SPDX-License-Identifier: MIT
// Where the private copy of GMP gets its memory: these definitions stand in the place of GMP's own.
#include <cstdio>
#include <cstdlib>

#include "gmp/streams.h"
#include "zor/gmp.h"
#include "zor/serv.h"

namespace {

constexpr int32_t alignment = 16;

[[noreturn]] void out_of_memory(const char* what, size_t size) {
  std::fprintf(stderr, "libzor_kern: GMP: cannot %s memory (size=%zu)\n", what, size);
  std::abort();
}

// GMP asks for no empty block; a program that does gets one that it can give back.
size_t at_least_one(size_t size) { return size != 0 ? size : 1; }

}  // namespace

extern "C" {

void* zor_gmp___gmp_default_allocate(size_t size) {
  void* block = zor_serv_zor_malloc(at_least_one(size), alignment);
  if (block == nullptr) out_of_memory("allocate", size);
  return block;
}

void* zor_gmp___gmp_default_reallocate(void* block, size_t, size_t size) {
  void* moved = zor_serv_zor_realloc(block, at_least_one(size));
  if (moved == nullptr) out_of_memory("reallocate", size);
  return moved;
}

void zor_gmp___gmp_default_free(void* block, size_t) { zor_serv_zor_free(block); }

// The functions in force, read by every routine of GMP.
zor_gmp_allocate_fn* zor_own___gmp_allocate_func = zor_gmp___gmp_default_allocate;
zor_gmp_reallocate_fn* zor_own___gmp_reallocate_func = zor_gmp___gmp_default_reallocate;
zor_gmp_free_fn* zor_own___gmp_free_func = zor_gmp___gmp_default_free;

}  // extern "C"
