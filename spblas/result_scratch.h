// SPDX-License-Identifier: MIT
// Scratch of the kernels whose result is a matrix: from the memory service, on a boundary of 128 bytes, for
// the length of a scope.
#pragma once

#include "serv/scalar.h"
#include "zor/serv.h"

namespace zor::sparse {

// `count` elements, at least one; data is null when memory is short.
template <class T>
struct result_scratch {
  explicit result_scratch(zor_int count) {
    zor_int bytes;
    if (!__builtin_mul_overflow(count < 1 ? 1 : count, zor_int(sizeof(T)), &bytes))
      data = static_cast<T*>(zor_serv_zor_malloc(uint64_t(bytes), 128));
  }
  result_scratch(const result_scratch&) = delete;
  result_scratch& operator=(const result_scratch&) = delete;
  ~result_scratch() {
    if (data != nullptr) zor_serv_zor_free(data);
  }

  T* data = nullptr;
};

}  // namespace zor::sparse
