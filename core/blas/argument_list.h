// SPDX-License-Identifier: MIT
// The arguments of a public entry, looked at one after the other: the first that may not stand is reported.
#pragma once

#include "core/blas/arguments.h"

namespace zor_core {

// What an integer argument holds, 0 for a null pointer (which is reported at its own place).
constexpr zor_int value(const zor_int* n) { return n != nullptr ? *n : 0; }

class argument_list {
 public:
  argument_list& next(const char* name, bool good) {
    ++position_;
    if (!good && bad_ == 0) {
      bad_ = position_;
      name_ = name;
    }
    return *this;
  }
  argument_list& option(const char* name, const char* letter, char first, char second) {
    return next(name, is_letter(letter, first, second));
  }
  argument_list& size(const char* name, const zor_int* n) { return next(name, is_size(n)); }
  // A pointer, and where one is needed only sometimes.
  argument_list& pointer(const char* name, const void* p, bool needed = true) {
    return next(name, !needed || p != nullptr);
  }
  // A matrix and its leading dimension; `used` tells whether any element of it is.
  template <class T>
  argument_list& matrix(const char* name, const T* a, const char* ld_name, const zor_int* ld, zor_int rows,
                        zor_int columns, bool used) {
    pointer(name, a, used);
    return next(ld_name, is_leading(ld, rows) && (!used || fits_memory(rows, columns, *ld, sizeof(T))));
  }
  // Whether one was bad; it has been reported then.
  bool reported(const char* routine) const {
    if (bad_ != 0) report_argument(routine, bad_, name_);
    return bad_ != 0;
  }

 private:
  int32_t position_ = 0, bad_ = 0;
  const char* name_ = nullptr;
};

}  // namespace zor_core
