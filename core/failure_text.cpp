// SPDX-License-Identifier: MIT
// Formats the text of a failure into the thread's buffer.
#include "core/failure_text.h"

namespace zor_core {

char* failure_text() {
  static constinit thread_local char text[longest_failure] = "no failure";
  return text;
}

}  // namespace zor_core
