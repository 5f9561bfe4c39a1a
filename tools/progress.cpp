// SPDX-License-Identifier: MIT
// Writes a line over itself, and only to a terminal.
#include "tools/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>

namespace zor_tools {

void show_progress(size_t done, size_t total, const std::string& name, double seconds_left) {
  if (!isatty(STDERR_FILENO)) return;
  constexpr size_t length = 24;
  const size_t filled = total > 0 ? length * done / total : length;
  const long left = std::lround(seconds_left);
  const std::string time = seconds_left == 0 ? "" : fmt::format(", {}:{:02} left", left / 60, left % 60);
  fmt::print(stderr, "\r\033[K[{:#<{}}{:.<{}}] {}/{}{} {}", "", filled, "", length - filled, done, total,
             time, name);
  std::fflush(stderr);
}

void clear_progress() {
  if (!isatty(STDERR_FILENO)) return;
  fmt::print(stderr, "\r\033[K");
  std::fflush(stderr);
}

}  // namespace zor_tools
