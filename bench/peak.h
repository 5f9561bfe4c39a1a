// SPDX-License-Identifier: MIT
// Arithmetic in registers, at one vector width.
#pragma once

#include <cstdint>

namespace zor_bench {

// A step performs operation_bytes / sizeof(element) operations.
struct peak_kernel {
  int32_t vector_bytes;
  double operation_bytes;
  void (*run_single)(int64_t steps);
  void (*run_double)(int64_t steps);
};

extern const peak_kernel peak_separate_16, peak_separate_32, peak_separate_64, peak_fused_32, peak_fused_64;

}  // namespace zor_bench
