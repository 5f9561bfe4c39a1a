// SPDX-License-Identifier: MIT
// Calls of the public routines with several numbers of threads, and what they report.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "tests/support/elements.h"
#include "zor/core.h"

namespace zor_test {

inline constexpr int32_t thread_counts[] = {2, 3, 7};

// What call() returns with one thread; with other numbers it must be the same.
template <class Call>
auto with_any_threads(const Call& call) {
  zor_core_set_num_threads(1);
  const auto expected = call();
  for (const int32_t count : thread_counts) {
    zor_core_set_num_threads(count);
    EXPECT_TRUE(same_elements(expected, call())) << count << " threads";
  }
  zor_core_set_num_threads(0);
  return expected;
}
// What call(pointer) makes of copies of the input.
template <class T, class Call>
std::vector<T> with_any_threads(const std::vector<T>& input, const Call& call) {
  return with_any_threads([&] {
    std::vector<T> result = input;
    call(result.data());
    return result;
  });
}

// The same against a reference of the result.
template <class T, class Call>
void expect_with_any_threads(const std::vector<T>& expected, const std::vector<T>& input, const Call& call) {
  EXPECT_TRUE(same_elements(expected, with_any_threads(input, call)));
}

// While it lives, bad arguments are noted as "routine position argument".
class noted_reports {
 public:
  noted_reports() : before_(zor_core_set_error_handler(note)) { take(); }
  noted_reports(const noted_reports&) = delete;
  noted_reports& operator=(const noted_reports&) = delete;
  ~noted_reports() { zor_core_set_error_handler(before_); }
  static std::string take() { return std::exchange(text(), {}); }

 private:
  static std::string& text() {
    static std::string noted;
    return noted;
  }
  static void note(const char* routine, int32_t position, const char* argument) {
    text() += std::string(routine) + " " + std::to_string(position) + " " + argument;
  }
  zor_core_error_handler before_;
};

}  // namespace zor_test
