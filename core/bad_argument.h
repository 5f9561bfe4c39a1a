// SPDX-License-Identifier: MIT
// Reports of bad arguments.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zor_core {

// Hands the report to the handler in force.
[[gnu::cold]] void report_argument(const char* routine, int32_t position, const char* argument);

// The same by the name of the argument among those of the routine, in their order. Null: there is nothing to
// report, and the answer is false.
template <size_t Count>
bool refused(const char* routine, const char* const (&arguments)[Count], const char* bad) {
  if (bad == nullptr) return false;
  const auto* const found = std::find(arguments, arguments + Count, std::string_view(bad));
  report_argument(routine, int32_t(found - arguments) + 1, bad);
  return true;
}

}  // namespace zor_core
