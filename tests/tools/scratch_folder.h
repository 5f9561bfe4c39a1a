// SPDX-License-Identifier: MIT
// A folder of one test, removed with all it holds.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>

namespace zor_test {

class scratch_folder {
 public:
  scratch_folder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zor-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder for the test");
    path_ = pattern;
  }
  scratch_folder(const scratch_folder&) = delete;
  scratch_folder& operator=(const scratch_folder&) = delete;
  ~scratch_folder() { std::filesystem::remove_all(path_); }

  std::string path(const std::string& name) const { return path_ + "/" + name; }
  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(path(name), std::ios::binary) << text;
    return path(name);
  }
  std::string read(const std::string& name) const {
    std::ifstream stream(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  void remove(const std::string& name) const { std::filesystem::remove(path(name)); }
  std::set<std::string> names() const {
    std::set<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(path_))
      found.insert(entry.path().filename().string());
    return found;
  }

 private:
  std::string path_;
};

}  // namespace zor_test
