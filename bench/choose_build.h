// SPDX-License-Identifier: MIT
// Which build of the kernel library a process gets.
#pragma once

#include <string>

namespace zor_bench {

// Makes the process run with that build (baseline, v3 or v4), by starting the program anew with an
// environment in which the dynamic loader passes over the wider ones. Returns once the build is the one in
// use; throws std::runtime_error when it cannot be had here. An empty name accepts whatever was loaded.
void choose_build(const std::string& build, char** argv);

}  // namespace zor_bench
