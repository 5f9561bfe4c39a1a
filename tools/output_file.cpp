// SPDX-License-Identifier: MIT
// Writes to a temporary file beside the target, which is renamed at the end.
#include "tools/output_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "tools/standard_streams.h"

namespace zor_tools {
namespace {

// Temporary files that a signal would leave behind, where its handler finds them.
constexpr int most_files = 16;
struct pending_file {
  volatile std::sig_atomic_t there = 0;
  char name[PATH_MAX];
};
pending_file pending[most_files];

constexpr int ending_signals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ};

extern "C" void remove_and_end(int signal) {
  for (pending_file& file : pending)
    if (file.there) unlink(file.name);
  std::signal(signal, SIG_DFL);
  raise(signal);
}

void catch_signals() {
  struct sigaction catching {};
  catching.sa_handler = remove_and_end;
  sigemptyset(&catching.sa_mask);
  for (const int signal : ending_signals) {
    struct sigaction before;
    sigaction(signal, nullptr, &before);
    if (before.sa_handler == SIG_DFL) sigaction(signal, &catching, nullptr);
  }
}

// The signals wait while a file and its entry in the table are made or removed together.
class signals_held {
 public:
  signals_held() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : ending_signals) sigaddset(&set, signal);
    pthread_sigmask(SIG_BLOCK, &set, &before_);
  }
  signals_held(const signals_held&) = delete;
  ~signals_held() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_;
};

bool remember(const std::string& name) {
  for (pending_file& file : pending)
    if (!file.there && name.size() < sizeof file.name) {
      std::memcpy(file.name, name.c_str(), name.size() + 1);
      file.there = 1;
      return true;
    }
  return false;
}

void forget(const std::string& name) {
  for (pending_file& file : pending)
    if (file.there && name == file.name) file.there = 0;
}

// Targets of the outputs that are open.
std::vector<std::string>& open_targets() {
  static std::vector<std::string> targets;
  return targets;
}

bool same_file(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}
bool is_stream(int stream, const struct stat& file) {
  struct stat status;
  return fstat(stream, &status) == 0 && S_ISREG(status.st_mode) && same_file(status, file);
}

[[noreturn]] void refuse(const std::string& target, const char* why) {
  throw std::invalid_argument(fmt::format("{}: {}", target, why));
}

}  // namespace

output_file::output_file(const std::string& target) : target_(target) {
  struct stat status, link;
  const bool there = target != "-" && stat(target.c_str(), &status) == 0;
  if (target == "-" || (there && is_stream(STDOUT_FILENO, status))) {
    fd_ = take_standard_output();
    if (fd_ < 0) fail();
    return;
  }
  if (there && !S_ISREG(status.st_mode)) {
    fd_ = open(target.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd_ < 0) fail();
    return;
  }
  if (!there && lstat(target.c_str(), &link) == 0) refuse(target, "a link to a file that is not there");
  if (there && is_stream(STDERR_FILENO, status)) refuse(target, "is the standard error");
  if (there && (status.st_mode & 0222) == 0) refuse(target, "is read-only");
  if (there && status.st_nlink > 1) refuse(target, "has other names, which would keep the old content");
  std::error_code ignored;
  const auto resolved = std::filesystem::weakly_canonical(std::filesystem::absolute(target), ignored);
  real_ = ignored ? target : resolved.string();
  if (std::ranges::count(open_targets(), real_) != 0) refuse(target, "named for two outputs");
  open_temporary();
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(fd_, there ? status.st_mode & 07777 : 0666 & ~mask);
  if (there && fchown(fd_, status.st_uid, status.st_gid) != 0) fchmod(fd_, status.st_mode & 0777);
  open_targets().push_back(real_);
}

void output_file::open_temporary() {
  const signals_held held;
  std::string pattern = real_ + ".XXXXXX";
  fd_ = mkostemp(pattern.data(), O_CLOEXEC);
  if (fd_ < 0) fail();
  temporary_ = pattern;
  catch_signals();
  if (!remember(temporary_)) {
    unlink(temporary_.c_str());
    refuse(target_, "too many outputs, or too long a name");
  }
}

output_file::~output_file() {
  const signals_held held;
  if (fd_ >= 0) close(fd_);
  std::erase(open_targets(), real_);
  if (temporary_.empty()) return;
  unlink(temporary_.c_str());
  forget(temporary_);
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
  const signals_held held;
  if (std::rename(temporary_.c_str(), real_.c_str()) != 0) fail();
  forget(temporary_);
  temporary_.clear();
}

void output_file::fail() { throw std::runtime_error(target_ + ": " + std::strerror(errno)); }

}  // namespace zor_tools
