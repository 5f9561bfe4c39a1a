// SPDX-License-Identifier: MIT
// Arguments of the extended-precision products: what codes mean, and the checks. A check that fails is
// reported and the call goes on with the argument as it is.
#pragma once

#include "serv/scalar.h"

namespace zor {

// Receives the routine's name, the position of the argument in the row of all arguments, the storage order
// being the first, and its value. Nothing is done with them: libzor_core checks the arguments of its callers.
inline void report(const char* /*routine*/, int /*position*/, zor_int /*value*/) {}

// An argument to look at: reported as `value` at `position` where it is bad.
struct argument_check {
  bool bad;
  int position;
  zor_int value;
};
// Every bad one is reported.
template <class... Checks>
void report_all(const char* routine, const Checks&... checks) {
  for (const argument_check& c : {checks...})
    if (c.bad) report(routine, c.position, c.value);
}
// Only the first bad one is.
template <class... Checks>
void report_first(const char* routine, const Checks&... checks) {
  for (const argument_check& c : {checks...})
    if (c.bad) return report(routine, c.position, c.value);
}

// A code is an enumeration of C, which has 32 bits: no more are read, so that the caller may also pass a
// zor_int.
inline int code(const zor_int* p) {
  int32_t value;
  std::memcpy(&value, p, sizeof value);
  return value;
}

enum { not_transposed = 111, transposed = 112, conjugate_transposed = 113 };
enum { upper_triangle = 121 };

}  // namespace zor
