// SPDX-License-Identifier: MIT
// An array on the heap whose memory may be missing.
#pragma once

#include <cstdlib>

#include "core/blas/arguments.h"
#include "core/large_pages.h"

namespace zor_core {

// Memory that may be missing: data() is null then.
template <class T>
class heap_array {
 public:
  explicit heap_array(zor_int count) {
    const zor_int bytes = saturating_product(count, sizeof(T));
    if (bytes >= INT64_MAX - 64) return;
    data_ = static_cast<T*>(std::aligned_alloc(64, size_t(bytes + 63) / 64 * 64));
    if (data_ != nullptr && bytes >= least_for_large_pages) ask_for_large_pages(data_, bytes);
  }
  heap_array(const heap_array&) = delete;
  heap_array& operator=(const heap_array&) = delete;
  ~heap_array() { std::free(data_); }
  T* data() const { return data_; }

 private:
  T* data_ = nullptr;
};

}  // namespace zor_core
