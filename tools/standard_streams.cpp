// SPDX-License-Identifier: MIT
// Duplicates the standard output for the one who takes it, and hands its place to the standard error stream.
#include "tools/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace zor_tools {
namespace {

int silenced_output = -1;  // the standard output while reports are dropped
bool taken = false;

int duplicate_of_output() { return fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1); }

}  // namespace

void protect_standard_streams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
    while (fcntl(stream, F_GETFD) < 0)
      if (open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0) return;
}

void silence_reports() {
  silenced_output = duplicate_of_output();
  const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (silenced_output < 0 || nothing < 0 || dup2(nothing, STDOUT_FILENO) < 0)
    throw std::runtime_error(std::string("--quiet: ") + std::strerror(errno));
  close(nothing);
}

int take_standard_output() {
  if (taken) throw std::invalid_argument("-: named for two outputs");
  taken = true;
  if (silenced_output >= 0) return silenced_output;
  std::fflush(stdout);
  const int output = duplicate_of_output();
  if (output >= 0) dup2(STDERR_FILENO, STDOUT_FILENO);
  return output;
}

}  // namespace zor_tools
