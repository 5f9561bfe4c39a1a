// SPDX-License-Identifier: MIT
#include "tools/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace zor_tools {

output_file::output_file(const std::string& target) : target_(target) {
  std::error_code ignored;
  const auto resolved = std::filesystem::weakly_canonical(target, ignored);
  real_ = ignored ? target : resolved.string();
  struct stat status;
  if (stat(real_.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    fd_ = open(real_.c_str(), O_WRONLY | O_CLOEXEC);
  } else {
    std::string pattern = real_ + ".XXXXXX";
    fd_ = mkostemp(pattern.data(), O_CLOEXEC);
    if (fd_ >= 0) {
      temporary_ = pattern;
      const mode_t mask = umask(0);
      umask(mask);
      fchmod(fd_, 0666 & ~mask);
    }
  }
  if (fd_ < 0) fail();
}

output_file::~output_file() {
  if (fd_ >= 0) close(fd_);
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void output_file::append(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(fd_, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) fail();
    text.remove_prefix(size_t(written));
  }
}

void output_file::commit(std::string_view text) {
  append(text);
  const int closed = close(fd_);
  fd_ = -1;
  if (closed != 0) fail();
  if (temporary_.empty()) return;
  if (std::rename(temporary_.c_str(), real_.c_str()) != 0) fail();
  temporary_.clear();
}

void output_file::fail() { throw std::runtime_error(target_ + ": " + std::strerror(errno)); }

}  // namespace zor_tools
