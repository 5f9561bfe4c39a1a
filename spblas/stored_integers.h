// SPDX-License-Identifier: MIT
// A list of integers in either width. What is read once for many elements has its width as a value here and
// not as a type, so that a kernel is compiled once for both.
#pragma once

#include "zor/types.h"

namespace zor::sparse {

class stored_integers {
 public:
  template <class I>
  explicit stored_integers(const I* list) : list_(list), wide_(sizeof(I) == 8) {}
  zor_int operator[](zor_int i) const {
    return wide_ ? static_cast<const int64_t*>(list_)[i] : static_cast<const int32_t*>(list_)[i];
  }

 private:
  const void* list_;
  bool wide_;
};

}  // namespace zor::sparse
