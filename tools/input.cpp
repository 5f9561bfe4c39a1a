// SPDX-License-Identifier: MIT
// Opens files and the standard input, and copies a pipe where it has to be read twice.
#include "tools/input.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace zor_tools {
namespace {

// Pipes that have been copied; the copies stay open to the end of the program.
struct copied_pipe {
  std::string name;
  int copy;
};
std::vector<copied_pipe>& copied_pipes() {
  static std::vector<copied_pipe> pipes;
  return pipes;
}

input_stream stream_of(int fd) {
  std::FILE* const stream = fd < 0 ? nullptr : fdopen(fd, "rb");
  if (stream == nullptr && fd >= 0) close(fd);
  return input_stream(stream);
}

// A copy of all that is left in the stream; null when the system has no room for it.
input_stream copy_of(std::FILE* from) {
  input_stream to(std::tmpfile());
  char bytes[1 << 16];
  for (size_t got; to && (got = std::fread(bytes, 1, sizeof bytes, from)) > 0;)
    if (std::fwrite(bytes, 1, got, to.get()) != got) return nullptr;
  if (std::ferror(from) || (to && std::fflush(to.get()) != 0)) return nullptr;
  return to;
}

}  // namespace

input_stream open_input(const std::string& file) {
  for (const copied_pipe& pipe : copied_pipes())
    if (pipe.name == file) {
      lseek(pipe.copy, 0, SEEK_SET);
      return stream_of(fcntl(pipe.copy, F_DUPFD_CLOEXEC, 0));
    }
  return stream_of(file == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                               : open(file.c_str(), O_RDONLY | O_CLOEXEC));
}

input_stream open_seekable(const std::string& file) {
  input_stream stream = open_input(file);
  if (!stream || std::fseek(stream.get(), 0, SEEK_SET) == 0) return stream;
  const input_stream copy = copy_of(stream.get());
  const int kept = copy ? fcntl(fileno(copy.get()), F_DUPFD_CLOEXEC, 0) : -1;
  if (kept < 0) return nullptr;
  copied_pipes().push_back({file, kept});
  return open_input(file);
}

bool begins_with(const std::string& file, const char* characters) {
  const input_stream stream = open_seekable(file);
  if (!stream) return false;
  char begin[8] = {};
  const size_t length = std::strlen(characters);
  const bool same =
      std::fread(begin, 1, length, stream.get()) == length && std::memcmp(begin, characters, length) == 0;
  // The standard input keeps its place from one stream to the next.
  std::rewind(stream.get());
  return same;
}

}  // namespace zor_tools
