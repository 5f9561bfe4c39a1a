// SPDX-License-Identifier: MIT
// The text of a thread's last failure.
#include "core/spblas/error.h"

#include <cstdarg>
#include <cstdio>

#include "core/failure_text.h"
#include "zor/sparse.h"

namespace zor_core {
int32_t sparse_failure(int32_t status, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(failure_text(), longest_failure, format, arguments);
  va_end(arguments);
  return status;
}

}  // namespace zor_core

extern "C" const char* zor_sparse_error_text(void) { return zor_core::failure_text(); }
