// SPDX-License-Identifier: MIT
// Why the calling thread's last call with a handle failed, in words. One text for all families: thread-local
// memory of a library that programs load while they run is scarce.
#pragma once

#include <cstddef>

namespace zor_core {

inline constexpr size_t longest_failure = 256;
// longest_failure characters of the calling thread.
char* failure_text();

}  // namespace zor_core
