// SPDX-License-Identifier: MIT
// Which kernel library a process gets.
#pragma once

#include <string>

namespace zor_bench {

// Makes the process run in that arithmetic (separate or fused) with that build (baseline, v3 or v4), by
// starting the program anew with an environment in which the dynamic loader finds it. Returns once the
// library is the one in use; throws std::runtime_error when it cannot be had here. An empty name accepts
// whatever was loaded.
void choose_kernel(const std::string& arithmetic, const std::string& build, char** argv);

}  // namespace zor_bench
