// SPDX-License-Identifier: MIT
// Calls that may touch unmapped memory: the fault is caught and reported as an answer, so that a test can
// name the case at hand.
#pragma once

#include <csetjmp>
#include <csignal>

namespace zor_test {

inline sigjmp_buf fault_return;

// While it lives, a memory fault in `faults` returns there instead of ending the program.
class fault_guard {
 public:
  fault_guard() {
    struct sigaction action {};
    action.sa_handler = [](int) { siglongjmp(fault_return, 1); };
    // Not blocked during the handler: leaving it by a jump would keep it blocked.
    action.sa_flags = SA_NODEFER;
    sigaction(SIGSEGV, &action, &before_);
  }
  fault_guard(const fault_guard&) = delete;
  fault_guard& operator=(const fault_guard&) = delete;
  ~fault_guard() { sigaction(SIGSEGV, &before_, nullptr); }

  // Whether the call touched memory that is not there. Such a call is abandoned where it stands.
  template <class Call>
  [[gnu::noinline]] bool faults(const Call& call) const {
    if (sigsetjmp(fault_return, 0) != 0) return true;
    call();
    return false;
  }

 private:
  struct sigaction before_;
};

}  // namespace zor_test
