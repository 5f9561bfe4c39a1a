// SPDX-License-Identifier: MIT
// The status of a failed sparse call, with the text that explains it.
#pragma once

#include <cstdint>

namespace zor_core {

// Keeps a text for the calling thread and returns the status.
[[gnu::cold, gnu::format(printf, 2, 3)]] int32_t sparse_failure(int32_t status, const char* format, ...);

}  // namespace zor_core
