// SPDX-License-Identifier: MIT
// Memory that the system pages in and out of a file.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zor_tools {

class mapped_memory {
 public:
  // The bytes of a file, or of the standard input for "-", to be read. Throws input_error.
  static mapped_memory of_file(const std::string& file);
  // Room to work in, all zeros: in a file without a name in `folder`, whose space is taken at once, or in
  // plain memory when `folder` is empty. Throws std::runtime_error with "FOLDER: fault", or std::bad_alloc.
  static mapped_memory scratch(size_t bytes, const std::string& folder);

  mapped_memory(const mapped_memory&) = delete;
  mapped_memory& operator=(const mapped_memory&) = delete;
  mapped_memory(mapped_memory&& other) noexcept;
  ~mapped_memory();

  void* data() const { return data_; }
  std::string_view text() const { return {static_cast<const char*>(data_), bytes_}; }

 private:
  mapped_memory(void* data, size_t bytes) : data_(data), bytes_(bytes) {}
  void* data_;
  size_t bytes_;
};

}  // namespace zor_tools
