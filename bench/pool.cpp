// SPDX-License-Identifier: MIT
// A repeated allocation and release of 1 MiB from the scratch pool, against the C library.
#include <cstdlib>

#include "bench/bench.h"
#include "zor/serv.h"

namespace zor_bench {
namespace {

constexpr uint64_t mebibyte = uint64_t(1) << 20;

void pool_pairs(int64_t repeats) {
  for (int64_t i = 0; i < repeats; ++i) {
    void* p = zor_serv_allocate(mebibyte, 128);
    asm volatile("" : "+r"(p) : : "memory");
    zor_serv_deallocate(p);
  }
}

void malloc_pairs(int64_t repeats) {
  for (int64_t i = 0; i < repeats; ++i) {
    void* p = std::malloc(mebibyte);
    asm volatile("" : "+r"(p) : : "memory");
    std::free(p);
  }
}

}  // namespace

std::vector<bench_case> pool_cases(const environment&) {
  bench_case c;
  c.name = "allocate and deallocate 1 MiB";
  c.setup = [] {
    prepared ready;
    ready.contenders = {{"zor", pool_pairs}, {"malloc", malloc_pairs}};
    return ready;
  };
  return {c};
}

}  // namespace zor_bench
