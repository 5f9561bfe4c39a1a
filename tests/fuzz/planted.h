// SPDX-License-Identifier: MIT
// Faults planted into calls, by which the driver shows that it finds them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace zor_fuzz {

// What the driver must say of a planted fault, and draws of its smallest case. `builds` are needed to show
// it.
struct planted {
  const char* row;
  std::string fault;
  std::vector<std::pair<std::string, int64_t>> smallest;
  size_t builds;
};
const std::vector<planted>& planted_faults();

}  // namespace zor_fuzz
