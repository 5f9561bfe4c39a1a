// SPDX-License-Identifier: MIT
// Files as streams, "-" being the standard input. Some are looked at before they are read, or read in no
// order; a pipe is then copied into a temporary file, which stands for it from then on.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace zor_tools {

struct close_stream {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using input_stream = std::unique_ptr<std::FILE, close_stream>;

// Null with the reason in errno.
input_stream open_input(const std::string& file);
// The same at the beginning of a stream that can be positioned.
input_stream open_seekable(const std::string& file);

// Whether a file begins with these characters; false when it cannot be read.
bool begins_with(const std::string& file, const char* characters);

}  // namespace zor_tools
