// SPDX-License-Identifier: MIT
// An array on the heap whose memory may be missing.
#pragma once

#include <cstdlib>

#include "core/blas/arguments.h"

namespace zor_core {

// Memory that may be missing: data() is null then.
template <class T>
class heap_array {
 public:
  explicit heap_array(zor_int count) {
    const zor_int bytes = saturating_product(count, sizeof(T));
    if (bytes < INT64_MAX - 64) data_ = static_cast<T*>(std::aligned_alloc(64, size_t(bytes + 63) / 64 * 64));
  }
  heap_array(const heap_array&) = delete;
  heap_array& operator=(const heap_array&) = delete;
  ~heap_array() { std::free(data_); }
  T* data() const { return data_; }

 private:
  T* data_ = nullptr;
};

}  // namespace zor_core
