// SPDX-License-Identifier: MIT
// Dense operands of the program. The position of an operand modulo 16 bytes is part of what fixes a result's
// bits, so all stand on 64.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "tools/mmio.h"

namespace zor_tools {

template <class T>
using operand = std::unique_ptr<T[], void (*)(void*)>;

template <class T>
operand<T> allocate(int64_t count) {
  const size_t bytes = (size_t(std::max<int64_t>(count, 1)) * sizeof(T) + 63) / 64 * 64;
  void* p = std::aligned_alloc(64, bytes);
  if (p == nullptr) throw std::bad_alloc();
  return operand<T>(static_cast<T*>(p), std::free);
}

// The elements of a file by columns, without gaps.
template <class T>
operand<T> dense(const mm_matrix& matrix) {
  mm_check_dense_size(matrix, sizeof(T));
  operand<T> data = allocate<T>(matrix.rows * matrix.cols);
  mm_fill(matrix, data.get());
  return data;
}

template <class T>
const char* field_name() {
  return sizeof(T) == sizeof(double) ? "real" : "complex";
}
// Operations that a multiplication with its addition counts as.
template <class T>
constexpr double flops_of_term = sizeof(T) == sizeof(double) ? 2 : 8;

}  // namespace zor_tools
