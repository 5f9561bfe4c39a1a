// SPDX-License-Identifier: MIT
#include "tools/recording.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>

#include "tools/mmio.h"

namespace zor_tools {
namespace {

constexpr uint16_t integers = 1, floating = 3, extensible = 0xFFFE;

// Little-endian fields, as on the processor.
template <class T>
T field(const unsigned char* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}
template <class T>
void put(std::string* out, T value) {
  char bytes[sizeof value];
  std::memcpy(bytes, &value, sizeof value);
  out->append(bytes, sizeof value);
}

double sample_at(const unsigned char* at, const wav_layout& l) {
  if (l.floating) return l.bits == 32 ? double(field<float>(at)) : field<double>(at);
  switch (l.bits) {
    case 16:
      return field<int16_t>(at) / 32768.0;
    case 24:
      return (int8_t(at[2]) * 65536.0 + at[1] * 256.0 + at[0]) / 8388608.0;
    default:
      return field<int32_t>(at) / 2147483648.0;
  }
}

}  // namespace

bool begins_with(const std::string& file, const char* characters) {
  std::FILE* const in = std::fopen(file.c_str(), "rb");
  if (in == nullptr) return false;
  char begin[8] = {};
  const size_t length = std::strlen(characters);
  const bool same = std::fread(begin, 1, length, in) == length && std::memcmp(begin, characters, length) == 0;
  std::fclose(in);
  return same;
}

recording_reader::recording_reader(const std::string& file)
    : file_(file), in_(std::fopen(file.c_str(), "rb")) {
  if (in_ == nullptr) throw input_error(file, std::strerror(errno));
  const auto fault = [&](const std::string& what) {
    std::fclose(in_);
    throw input_error(file_, what);
  };
  unsigned char head[12], chunk[8];
  if (std::fread(head, 1, 12, in_) != 12 || std::memcmp(head, "RIFF", 4) != 0 ||
      std::memcmp(head + 8, "WAVE", 4) != 0)
    fault("not a WAVE file");
  while (std::fread(chunk, 1, 8, in_) == 8) {
    const uint32_t size = field<uint32_t>(chunk + 4);
    if (std::memcmp(chunk, "data", 4) == 0) {
      if (layout_.channels == 0) fault("samples before their format");
      // A program that writes into a pipe cannot know the size, and says 0 or all ones: to the end then.
      uint64_t bytes = size;
      if (size == 0 || size == UINT32_MAX) {
        const long at = std::ftell(in_);
        std::fseek(in_, 0, SEEK_END);
        bytes = uint64_t(std::ftell(in_) - at);
        std::fseek(in_, at, SEEK_SET);
      }
      layout_.frames = left_ = bytes / layout_.frame_bytes();
      if (left_ == 0) fault("no samples");
      return;
    }
    std::vector<unsigned char> body(size + size % 2);
    if (std::fread(body.data(), 1, body.size(), in_) < size) fault("cut off");
    if (std::memcmp(chunk, "fmt ", 4) != 0) continue;
    if (size < 16) fault(fmt::format("format chunk of {} bytes", size));
    uint16_t code = field<uint16_t>(body.data());
    if (code == extensible && size >= 26) code = field<uint16_t>(body.data() + 24);
    layout_.floating = code == floating;
    layout_.bits = field<uint16_t>(body.data() + 14);
    layout_.channels = field<uint16_t>(body.data() + 2);
    layout_.rate = field<uint32_t>(body.data() + 4);
    const bool known = layout_.floating ? layout_.bits == 32 || layout_.bits == 64
                                        : code == integers && (layout_.bits == 16 || layout_.bits == 24 ||
                                                               layout_.bits == 32);
    if (!known) fault(fmt::format("samples of format {} with {} bits are not supported", code, layout_.bits));
    if (layout_.channels == 0 || layout_.rate == 0) fault("no channel, or a rate of 0");
  }
  fault("no samples");
}

recording_reader::~recording_reader() { std::fclose(in_); }

size_t recording_reader::read(size_t frames, std::vector<std::vector<double>>* channels) {
  frames = size_t(std::min<uint64_t>(frames, left_));
  bytes_.resize(frames * layout_.frame_bytes());
  if (std::fread(bytes_.data(), 1, bytes_.size(), in_) != bytes_.size())
    throw input_error(file_, fmt::format("cut off: {} frames are missing", left_));
  left_ -= frames;
  channels->resize(size_t(layout_.channels));
  const size_t step = size_t(layout_.bits) / 8;
  for (size_t c = 0; c < channels->size(); ++c) {
    std::vector<double>& channel = (*channels)[c];
    channel.resize(frames);
    for (size_t i = 0; i < frames; ++i) {
      channel[i] = sample_at(bytes_.data() + i * layout_.frame_bytes() + c * step, layout_);
      if (!std::isfinite(channel[i])) throw input_error(file_, "a sample is not finite");
    }
  }
  return frames;
}

recording_writer::recording_writer(const std::string& file, const wav_layout& layout)
    : out_(file), layout_(layout) {
  const uint64_t bytes = layout.frames * layout.frame_bytes();
  if (bytes > UINT32_MAX - 100)
    throw std::invalid_argument(
        fmt::format("{}: {} bytes of samples are more than a WAV file holds", file, bytes));
  std::string head = "RIFF";
  put(&head, uint32_t(36 + bytes + bytes % 2));
  head += "WAVEfmt ";
  put(&head, uint32_t(16));
  put(&head, layout.floating ? floating : integers);
  put(&head, uint16_t(layout.channels));
  put(&head, layout.rate);
  put(&head, uint32_t(layout.rate * layout.frame_bytes()));
  put(&head, uint16_t(layout.frame_bytes()));
  put(&head, uint16_t(layout.bits));
  head += "data";
  put(&head, uint32_t(bytes));
  out_.append(head);
}

void recording_writer::write(const std::vector<std::vector<double>>& channels, size_t first, size_t count) {
  text_.clear();
  const double range = layout_.floating ? 0 : std::ldexp(1.0, layout_.bits - 1);
  for (size_t i = first; i < first + count; ++i)
    for (const std::vector<double>& channel : channels) {
      const double value = channel[i];
      peak_ = std::max(peak_, std::abs(value));
      if (layout_.floating) {
        layout_.bits == 32 ? put(&text_, float(value)) : put(&text_, value);
        continue;
      }
      const double rounded = std::nearbyint(value * range);
      const double kept = std::clamp(rounded, -range, range - 1);
      clipped_ += kept != rounded;
      const int32_t number = int32_t(kept);
      text_.append(reinterpret_cast<const char*>(&number), size_t(layout_.bits) / 8);
    }
  out_.append(text_);
}

}  // namespace zor_tools
