// SPDX-License-Identifier: MIT
#include "core/bad_argument.h"

#include <atomic>
#include <cstdio>

#include "zor/core.h"

namespace zor_core {
namespace {

void print_argument(const char* routine, int32_t position, const char* argument) {
  std::fprintf(stderr, "zor: %s: argument %d (%s) is invalid\n", routine, position, argument);
}

std::atomic<zor_core_error_handler> handler_in_force{print_argument};

}  // namespace

void report_argument(const char* routine, int32_t position, const char* argument) {
  handler_in_force.load(std::memory_order_acquire)(routine, position, argument);
}

}  // namespace zor_core

extern "C" zor_core_error_handler zor_core_set_error_handler(zor_core_error_handler handler) {
  using namespace zor_core;
  return handler_in_force.exchange(handler != nullptr ? handler : print_argument, std::memory_order_acq_rel);
}
