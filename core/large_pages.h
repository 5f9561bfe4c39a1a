// SPDX-License-Identifier: MIT
// Large pages for large memory.
#pragma once

#include <sys/mman.h>

#include <cerrno>

#include "zor/types.h"

namespace zor_core {

// Measured: bytes from which an array asks for large pages.
inline constexpr zor_int least_for_large_pages = zor_int(1) << 22;

// New memory that is written once from end to end: most of the time would go into the first touch of each of
// its pages. The request is a hint, which the system may not know.
inline void ask_for_large_pages(void* memory, zor_int bytes) {
  constexpr uintptr_t page = 4096;
  const uintptr_t first = (reinterpret_cast<uintptr_t>(memory) + page - 1) / page * page;
  const uintptr_t end = (reinterpret_cast<uintptr_t>(memory) + uintptr_t(bytes)) / page * page;
  const int before = errno;
  madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
  errno = before;
}

}  // namespace zor_core
