// SPDX-License-Identifier: MIT
// Runs of the program, and what they print.
#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "tests/tools/scratch_folder.h"
#include "tools/digest.h"

namespace zor_test {

struct outcome {
  int status;
  std::string out;
  std::string err;
};

// Runs the program in the folder; the arguments are words of a shell.
inline outcome run(const scratch_folder& folder, const std::string& arguments) {
  const scratch_folder streams;
  const std::string command = fmt::format("cd '{}' && '{}' {} >{} 2>{}", folder.path(""), ZOR_PROGRAM,
                                          arguments, streams.path("out"), streams.path("err"));
  const int status = std::system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, streams.read("out"), streams.read("err")};
}

// A run that succeeds.
inline outcome good_run(const scratch_folder& folder, const std::string& arguments) {
  const outcome got = run(folder, arguments);
  EXPECT_EQ(0, got.status) << arguments << ": " << got.err;
  return got;
}

// A run that is refused, and the one line of the standard error stream behind the program's name.
struct refused_run {
  const char* arguments;
  int status;
  const char* message;
};

// Each run tells its fault and leaves the folder as it was. Numbers of bytes read GIB, and lists of names
// NAMES.
template <size_t Count>
void expect_refused(const scratch_folder& folder, const refused_run (&runs)[Count]) {
  const auto before = folder.names();
  for (const refused_run& c : runs) {
    const outcome got = run(folder, c.arguments);
    EXPECT_EQ(c.status, got.status) << c.arguments;
    std::string message = std::regex_replace(got.err, std::regex("need [0-9.]+ GiB"), "need GIB");
    message = std::regex_replace(message, std::regex("has [0-9.]+\n"), "has GIB\n");
    message =
        std::regex_replace(message, std::regex("(families|commands) are [a-z0-9, ]+\n"), "$1 are NAMES\n");
    EXPECT_EQ(fmt::format("zor: {}\n", c.message), message) << c.arguments;
    EXPECT_EQ(before, folder.names()) << c.arguments;
  }
}

inline std::string digest_line(const std::string& out) {
  std::smatch match;
  return std::regex_search(out, match, std::regex("sha256 +([0-9a-f]{64})\n")) ? match[1].str() : "none";
}

template <class T>
std::string digest_of(const std::vector<T>& values) {
  zor_tools::digest d;
  d.add(values.data(), values.size());
  return d.take();
}

}  // namespace zor_test
