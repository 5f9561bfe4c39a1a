// SPDX-License-Identifier: MIT
// Reports of bad arguments.
#pragma once

#include <cstdint>

namespace zor_core {

// Hands the report to the handler in force.
[[gnu::cold]] void report_argument(const char* routine, int32_t position, const char* argument);

}  // namespace zor_core
