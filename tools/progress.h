// SPDX-License-Identifier: MIT
// How far a long run has come, on a terminal.
#pragma once

#include <cstddef>
#include <string>

namespace zor_tools {

// A bar on the standard error stream, nothing when that is no terminal; with the time left where it is not 0.
void show_progress(size_t done, size_t total, const std::string& name, double seconds_left = 0);
void clear_progress();

}  // namespace zor_tools
