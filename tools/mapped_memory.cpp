// SPDX-License-Identifier: MIT
// Maps an input file, or a temporary one that no other process sees.
#include "tools/mapped_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

#include "tools/mmio.h"

namespace zor_tools {
namespace {

// Closes a descriptor, errno being kept for the message of what failed.
struct descriptor {
  int fd;
  ~descriptor() {
    const int fault = errno;
    if (fd >= 0) close(fd);
    errno = fault;
  }
};

}  // namespace

mapped_memory mapped_memory::of_file(const std::string& file) {
  if (file == "-") {
    const std::string text = read_file(file);
    mapped_memory copy = scratch(text.size(), "");
    std::memcpy(copy.data(), text.data(), text.size());
    return copy;
  }
  const descriptor in = {open(file.c_str(), O_RDONLY | O_CLOEXEC)};
  struct stat status;
  if (in.fd < 0 || fstat(in.fd, &status) != 0) throw input_error(file, std::strerror(errno));
  if (!S_ISREG(status.st_mode)) throw input_error(file, "not a regular file");
  if (status.st_size == 0) return {nullptr, 0};
  void* const data = mmap(nullptr, size_t(status.st_size), PROT_READ, MAP_PRIVATE, in.fd, 0);
  if (data == MAP_FAILED) throw input_error(file, std::strerror(errno));
  madvise(data, size_t(status.st_size), MADV_SEQUENTIAL);
  return {data, size_t(status.st_size)};
}

mapped_memory mapped_memory::scratch(size_t bytes, const std::string& folder) {
  if (bytes == 0) return {nullptr, 0};
  if (folder.empty()) {
    void* const data = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (data == MAP_FAILED) throw std::bad_alloc();
    return {data, bytes};
  }
  std::string name = folder + "/zor-scratch.XXXXXX";
  const descriptor file = {mkostemp(name.data(), O_CLOEXEC)};
  const auto fail = [&](int fault) { throw std::runtime_error(folder + ": " + std::strerror(fault)); };
  if (file.fd < 0) fail(errno);
  unlink(name.c_str());
  // Without its space a mapped file would end the program in the middle of its work.
  if (const int fault = posix_fallocate(file.fd, 0, off_t(bytes))) fail(fault);
  void* const data = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.fd, 0);
  if (data == MAP_FAILED) fail(errno);
  return {data, bytes};
}

mapped_memory::mapped_memory(mapped_memory&& other) noexcept : data_(other.data_), bytes_(other.bytes_) {
  other.data_ = nullptr;
}

mapped_memory::~mapped_memory() {
  if (data_ != nullptr) munmap(data_, bytes_);
}

}  // namespace zor_tools
