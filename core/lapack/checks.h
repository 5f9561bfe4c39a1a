// SPDX-License-Identifier: MIT
// What the entries for tridiagonal and small matrices share: checks of their arguments.
#pragma once

#include "core/blas/argument_list.h"
#include "zor/lapack.h"

namespace zor_core {

// The arguments of a routine by value, in their order; what is bad is told by name.
class value_arguments : public argument_list {
 public:
  value_arguments& letter(const char* name, char c, char first, char second, char third) {
    next(name, is_letter(&c, first, second, third));
    return *this;
  }
  value_arguments& count(const char* name, zor_int n) {
    next(name, n >= 0);
    return *this;
  }
  value_arguments& array(const char* name, const void* p, bool used) {
    pointer(name, p, used);
    return *this;
  }
  template <class T>
  value_arguments& columns(const char* name, const T* a, const char* ld_name, zor_int ld, zor_int rows,
                           zor_int cols) {
    matrix(name, a, ld_name, &ld, rows, cols, rows > 0 && cols > 0);
    return *this;
  }
  // The distance between matrices of a batch.
  template <class T>
  value_arguments& stride(const char* name, zor_int step, zor_int rows, zor_int cols, zor_int ld,
                          zor_int matrices) {
    const zor_int last = saturating_product(cols - 1, ld);
    const bool empty = rows < 1 || cols < 1;
    next(name, empty || matrices == 0 || matrices == 1 ||
                   (step >= rows && step - rows >= last && fits_memory(step, matrices, step, sizeof(T))));
    return *this;
  }
};

}  // namespace zor_core
