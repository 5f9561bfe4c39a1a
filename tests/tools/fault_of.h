// SPDX-License-Identifier: MIT
// The message of a refused input.
#pragma once

#include <string>

#include "tools/mmio.h"

namespace zor_test {

// What a call says that does not accept its input.
template <class Call>
std::string fault_of(const Call& call) {
  try {
    call();
  } catch (const zor_tools::input_error& e) {
    return e.what();
  }
  return "accepted";
}

}  // namespace zor_test
