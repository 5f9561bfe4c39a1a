// SPDX-License-Identifier: MIT
// Parses and writes RIFF headers and samples of each width.
#include "tools/recording.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
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
    case 8:
      return (double(*at) - 128) / 128;
    case 16:
      return field<int16_t>(at) / 32768.0;
    case 24:
      return (int8_t(at[2]) * 65536.0 + at[1] * 256.0 + at[0]) / 8388608.0;
    default:
      return field<int32_t>(at) / 2147483648.0;
  }
}

}  // namespace

void recording_reader::fault(const std::string& what) const { throw input_error(file_, what); }

void recording_reader::read_format(const std::vector<unsigned char>& chunk) {
  if (chunk.size() < 16) fault(fmt::format("format chunk of {} bytes", chunk.size()));
  uint16_t code = field<uint16_t>(chunk.data());
  if (code == extensible && chunk.size() >= 26) code = field<uint16_t>(chunk.data() + 24);
  layout_.floating = code == floating;
  layout_.channels = field<uint16_t>(chunk.data() + 2);
  layout_.rate = field<uint32_t>(chunk.data() + 4);
  const size_t frame = field<uint16_t>(chunk.data() + 12);
  layout_.bits = field<uint16_t>(chunk.data() + 14);
  const auto among = [&](std::initializer_list<int> known) {
    return std::ranges::count(known, layout_.bits) > 0;
  };
  if (!(code == floating ? among({32, 64}) : code == integers && among({8, 16, 24, 32})))
    fault(fmt::format("samples of format {} with {} bits are not supported", code, layout_.bits));
  if (layout_.channels == 0 || layout_.rate == 0) fault("no channel, or a rate of 0");
  if (frame != layout_.frame_bytes())
    fault(fmt::format("{} channels of {} bits in frames of {} bytes", layout_.channels, layout_.bits, frame));
}

void recording_reader::find_samples(uint32_t size) {
  if (layout_.channels == 0) fault("samples before their format");
  const long at = std::ftell(in_.get());
  std::fseek(in_.get(), 0, SEEK_END);
  const uint64_t there = uint64_t(std::ftell(in_.get()) - at);
  std::fseek(in_.get(), at, SEEK_SET);
  // A program that writes into a pipe cannot know the size, and says 0 or all ones: to the end then.
  const bool open_end = size == 0 || size == UINT32_MAX;
  const uint64_t bytes = open_end ? there : size;
  if (bytes > there) fault(fmt::format("cut off: {} of {} bytes of chunk 'data'", there, bytes));
  if (!open_end && bytes % layout_.frame_bytes() != 0)
    fault(fmt::format("{} bytes of samples, no multiple of {}", bytes, layout_.frame_bytes()));
  layout_.frames = left_ = bytes / layout_.frame_bytes();
  if (left_ == 0) fault("no samples");
}

recording_reader::recording_reader(const std::string& file) : file_(file), in_(open_seekable(file)) {
  if (!in_) fault(std::strerror(errno));
  unsigned char head[12], chunk[8];
  if (std::fread(head, 1, 12, in_.get()) != 12 || std::memcmp(head, "RIFF", 4) != 0 ||
      std::memcmp(head + 8, "WAVE", 4) != 0)
    fault("not a WAVE file");
  while (std::fread(chunk, 1, 8, in_.get()) == 8) {
    const uint32_t size = field<uint32_t>(chunk + 4);
    if (std::memcmp(chunk, "data", 4) == 0) {
      find_samples(size);
      return;
    }
    if (std::memcmp(chunk, "fmt ", 4) != 0) {
      std::fseek(in_.get(), long(size) + size % 2, SEEK_CUR);
      continue;
    }
    if (size > 1 << 16) fault(fmt::format("format chunk of {} bytes", size));
    std::vector<unsigned char> body(size);
    if (std::fread(body.data(), 1, size, in_.get()) != size) fault("cut off in its format");
    if (size % 2 != 0) std::fgetc(in_.get());
    read_format(body);
  }
  fault("no samples");
}

size_t recording_reader::read(size_t frames, std::vector<std::vector<double>>* channels) {
  frames = size_t(std::min<uint64_t>(frames, left_));
  const uint64_t before = layout_.frames - left_;
  bytes_.resize(frames * layout_.frame_bytes());
  if (std::fread(bytes_.data(), 1, bytes_.size(), in_.get()) != bytes_.size())
    fault(fmt::format("cut off: {} frames are missing", left_));
  left_ -= frames;
  channels->resize(size_t(layout_.channels));
  const size_t step = size_t(layout_.bits) / 8;
  for (size_t c = 0; c < channels->size(); ++c) {
    std::vector<double>& channel = (*channels)[c];
    channel.resize(frames);
    for (size_t i = 0; i < frames; ++i) {
      channel[i] = sample_at(bytes_.data() + i * layout_.frame_bytes() + c * step, layout_);
      if (!std::isfinite(channel[i])) fault(fmt::format("sample {} is not a finite number", before + i + 1));
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
      const int32_t number = int32_t(kept) + (layout_.bits == 8 ? 128 : 0);
      text_.append(reinterpret_cast<const char*>(&number), size_t(layout_.bits) / 8);
    }
  out_.append(text_);
}

}  // namespace zor_tools
