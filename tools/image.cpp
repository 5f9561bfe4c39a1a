// SPDX-License-Identifier: MIT
// Reads and writes portable pixmaps, binary and in text.
#include "tools/image.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>

#include "tools/input.h"
#include "tools/mmio.h"

namespace zor_tools {
namespace {

// Whole numbers of the head and of text images, separated by white space; # begins a comment.
class number_reader {
 public:
  number_reader(const std::string& file, const std::string& bytes) : file_(file), bytes_(bytes) {}
  int64_t next(int64_t low, int64_t high, const char* what) {
    while (at_ < bytes_.size() &&
           (std::isspace(static_cast<unsigned char>(bytes_[at_])) || bytes_[at_] == '#')) {
      if (bytes_[at_] == '#') at_ = std::min(bytes_.find('\n', at_), bytes_.size());
      at_ += at_ < bytes_.size();
    }
    int64_t value = -1;
    for (; at_ < bytes_.size() && std::isdigit(static_cast<unsigned char>(bytes_[at_])) && value <= high;
         ++at_)
      value = std::max<int64_t>(value, 0) * 10 + (bytes_[at_] - '0');
    if (value < low || value > high)
      throw input_error(file_, fmt::format("{}: no whole number from {} to {}", what, low, high));
    return value;
  }
  // Where binary samples begin: one white space behind the head.
  size_t samples() const { return at_ + 1; }

 private:
  const std::string& file_;
  const std::string& bytes_;
  size_t at_ = 2;
};

}  // namespace

bool is_image_file(const std::string& file) {
  for (const char* magic : {"P2", "P3", "P5", "P6"})
    if (begins_with(file, magic)) return true;
  return false;
}

image read_image(const std::string& file) { return parse_image(file, read_file(file)); }

image parse_image(const std::string& file, const std::string& bytes) {
  if (bytes.size() < 2 || bytes[0] != 'P' || std::string("2356").find(bytes[1]) == std::string::npos)
    throw input_error(file, "neither a PGM nor a PPM image");
  const bool colour = bytes[1] == '3' || bytes[1] == '6', binary = bytes[1] >= '5';
  number_reader numbers(file, bytes);
  image i;
  i.columns = numbers.next(1, 1 << 24, "width");
  i.rows = numbers.next(1, 1 << 24, "height");
  i.most = int(numbers.next(1, 65535, "largest value"));
  const size_t channels = colour ? 3 : 1, size = i.most > 255 ? 2 : 1;
  const size_t pixels = size_t(i.rows) * size_t(i.columns);
  const size_t needed = binary ? pixels * channels * size : pixels * channels;
  if (bytes.size() < numbers.samples() || bytes.size() - numbers.samples() < needed)
    throw input_error(file, fmt::format("cut off: {} by {} pixels need {} bytes", i.columns, i.rows, needed));
  i.planes.assign(channels, std::vector<double>(pixels));
  const auto* at = reinterpret_cast<const unsigned char*>(bytes.data()) + numbers.samples();
  for (size_t p = 0; p < pixels; ++p)
    for (std::vector<double>& plane : i.planes) {
      if (binary) {
        plane[p] = size == 2 ? at[0] * 256 + at[1] : at[0];
        at += size;
      } else {
        plane[p] = double(numbers.next(0, i.most, "pixel"));
      }
    }
  return i;
}

std::string image_text(const image& i) {
  std::string out = fmt::format("P{}\n{} {}\n{}\n", i.planes.size() == 3 ? 6 : 5, i.columns, i.rows, i.most);
  for (size_t p = 0; p < i.planes[0].size(); ++p)
    for (const std::vector<double>& plane : i.planes) {
      const int value = int(std::clamp(std::nearbyint(plane[p]), 0.0, double(i.most)));
      if (i.most > 255) out += char(value >> 8);
      out += char(value & 255);
    }
  return out;
}

}  // namespace zor_tools
