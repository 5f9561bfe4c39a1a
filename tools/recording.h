// SPDX-License-Identifier: MIT
// WAV recordings of any length, read and written block by block.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/input.h"
#include "tools/output_file.h"

namespace zor_tools {

// Integers of 8, 16, 24 and 32 bits (scaled to [-1, 1)), floating point of 32 and 64.
struct wav_layout {
  bool floating;
  int bits;
  int channels;
  uint32_t rate;
  uint64_t frames;  // of all channels together

  size_t frame_bytes() const { return size_t(channels) * size_t(bits) / 8; }
};

class recording_reader {
 public:
  // Reads up to the samples, all of which must be there. Throws input_error with what is wrong.
  explicit recording_reader(const std::string& file);
  const wav_layout& layout() const { return layout_; }
  // The next frames, at most so many, one vector a channel; fewer at the end. Throws input_error for a
  // sample that is not finite.
  size_t read(size_t frames, std::vector<std::vector<double>>* channels);

 private:
  void read_format(const std::vector<unsigned char>& chunk);
  void find_samples(uint32_t size);
  [[noreturn]] void fault(const std::string& what) const;

  std::string file_;
  input_stream in_;
  wav_layout layout_{};
  uint64_t left_ = 0;  // frames
  std::vector<unsigned char> bytes_;
};

class recording_writer {
 public:
  // A file of layout.frames frames. Throws std::invalid_argument when a WAV file cannot hold them.
  recording_writer(const std::string& file, const wav_layout& layout);
  // `count` frames of the channels from `first` on, rounded to nearest; integers beyond the range stay at its
  // end.
  void write(const std::vector<std::vector<double>>& channels, size_t first, size_t count);
  void commit() { out_.commit(""); }
  uint64_t clipped() const { return clipped_; }  // samples beyond the range
  double peak() const { return peak_; }          // the largest magnitude, before the range

 private:
  output_file out_;
  wav_layout layout_;
  std::string text_;
  uint64_t clipped_ = 0;
  double peak_ = 0;
};

}  // namespace zor_tools
