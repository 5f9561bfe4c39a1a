// SPDX-License-Identifier: MIT
// Convolution as a loop that a user would write, in a shared object compiled for this very processor.
#pragma once

#include <cstdint>

namespace zor_bench {

// z := the full convolution of x and y, of two dimensions by rows; lines have one row. The longer operand
// comes first.
struct convolution_job {
  char type;  // s, d, c or z
  int64_t x_rows, x_columns, y_rows, y_columns;
  const void *x, *y;
  void* z;
};

using convolution_loop = void(const convolution_job& job);

// Null when the shared object is not there.
convolution_loop* find_convolution_loop();

}  // namespace zor_bench
