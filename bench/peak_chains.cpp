// SPDX-License-Identifier: MIT
// Twelve independent chains of a multiplication and an addition, in registers: what a core can do at best.
// Compiled for several vector widths, with the two operations separate and fused; the build sets
// ZOR_PEAK_BYTES and ZOR_PEAK_NAME.
#include <cstdint>

#include "bench/peak.h"

namespace zor_bench {
namespace {

constexpr int chains = 12;

template <class T>
void run_chains(int64_t steps) {
  typedef T vec __attribute__((vector_size(ZOR_PEAK_BYTES)));
  vec x = {}, y = {};
  asm volatile("" : "+x"(x), "+x"(y));
  vec sum[chains];
#pragma GCC unroll 12
  for (int i = 0; i < chains; ++i)
    asm volatile("" : "=x"(sum[i]) : "0"(x));  // no two are known to be the same
  for (int64_t step = 0; step < steps; ++step) {
#pragma GCC unroll 12
    for (int i = 0; i < chains; ++i) sum[i] = sum[i] * x + y;
  }
#pragma GCC unroll 12
  for (int i = 0; i < chains; ++i) asm volatile("" : : "x"(sum[i]));
}

}  // namespace

extern const peak_kernel ZOR_PEAK_NAME;
const peak_kernel ZOR_PEAK_NAME = {ZOR_PEAK_BYTES, 2.0 * chains* ZOR_PEAK_BYTES, run_chains<float>,
                                   run_chains<double>};

}  // namespace zor_bench
