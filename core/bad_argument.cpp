// SPDX-License-Identifier: MIT
// Puts the report of a bad argument into words and hands it to the handler.
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
std::atomic<zor_core_error_filter> filter_in_force{nullptr};

}  // namespace

void report_argument(const char* routine, int32_t position, const char* argument) {
  const zor_core_error_filter filter = filter_in_force.load(std::memory_order_acquire);
  if (filter != nullptr && filter(routine, position, argument) != 0) return;
  handler_in_force.load(std::memory_order_acquire)(routine, position, argument);
}

}  // namespace zor_core

extern "C" zor_core_error_handler zor_core_set_error_handler(zor_core_error_handler handler) {
  using namespace zor_core;
  return handler_in_force.exchange(handler != nullptr ? handler : print_argument, std::memory_order_acq_rel);
}

extern "C" zor_core_error_filter zor_core_set_error_filter(zor_core_error_filter filter) {
  return zor_core::filter_in_force.exchange(filter, std::memory_order_acq_rel);
}
