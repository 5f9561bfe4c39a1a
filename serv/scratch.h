// SPDX-License-Identifier: MIT
// Scratch memory from the pool for the length of a scope.
#pragma once

#include "zor/serv.h"

namespace zor {

// `count` elements on a boundary of so many bytes. data is null for a count below 1, when the bytes cannot be
// counted in zor_int and when memory is short.
template <class T>
struct scratch {
  explicit scratch(zor_int count, int32_t boundary = 64) {
    zor_int bytes;
    if (count > 0 && !__builtin_mul_overflow(count, zor_int(sizeof(T)), &bytes))
      data = static_cast<T*>(zor_serv_allocate(uint64_t(bytes), boundary));
  }
  scratch(const scratch&) = delete;
  scratch& operator=(const scratch&) = delete;
  ~scratch() {
    if (data != nullptr) zor_serv_deallocate(data);
  }

  T* data = nullptr;
};

// The first address from p on that is a multiple of `bytes`, for callers who want a boundary that the pool
// does not give.
template <class T>
inline T* align_up(void* p, uintptr_t bytes) {
  return reinterpret_cast<T*>((reinterpret_cast<uintptr_t>(p) + bytes - 1) / bytes * bytes);
}

}  // namespace zor
