// SPDX-License-Identifier: MIT
// The lines that close the report of a command: how long it took, which kernels ran, the digest of the
// result.
#pragma once

#include <fmt/format.h>

#include <string_view>

#include "tools/digest.h"
#include "zor/core.h"

namespace zor_tools {

inline void print_time(double seconds, double flops) {
  fmt::print("time        {:.6f} s, {:.2f} GFLOP/s, threads at most {}\n", seconds, flops / seconds * 1e-9,
             zor_core_num_threads());
}

inline void print_digest(digest& sum) {
  const bool fused = zor_arithmetic() == std::string_view("fused");
  fmt::print("kernel      {}, {}{}\n", zor_core_kern_build(), zor_core_kern_path(),
             fused ? ", fused arithmetic" : "");
  fmt::print("sha256      {}\n", sum.take());
}

}  // namespace zor_tools
