// SPDX-License-Identifier: MIT
// A file that appears whole or not at all.
#pragma once

#include <string>
#include <string_view>

namespace zor_tools {

// Opens a temporary file in the target's folder; commit() writes and renames it. Without a commit nothing is
// left behind, nor by a signal that ends the program. A file that is replaced keeps its permissions; a link
// is followed. "-", and the file that is the standard output, mean the standard output, and reports then go
// to the standard error. A target that exists and is no regular file (a device, a pipe) is written in place.
// Throws std::runtime_error with "FILE: fault" where the system refuses, std::invalid_argument for a target
// that must not be replaced: without permission to write, under several names, behind a broken link, the
// standard error, or the target of another output.
class output_file {
 public:
  explicit output_file(const std::string& target);
  ~output_file();
  output_file(const output_file&) = delete;
  output_file& operator=(const output_file&) = delete;

  // Writes more of the text; the file appears with commit().
  void append(std::string_view text);
  void commit(std::string_view text);

 private:
  void open_temporary();
  [[noreturn]] void fail();
  std::string target_;
  std::string real_;
  std::string temporary_;  // empty when the target is written in place
  int fd_ = -1;
};

}  // namespace zor_tools
