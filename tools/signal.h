// SPDX-License-Identifier: MIT
// A measured signal in a file: a WAV recording, or one column of numbers in a text or CSV file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zor_tools {

struct signal {
  std::vector<double> samples;
  double rate = 1;  // samples a second
};

// A file that begins with RIFF is a WAV file: 8, 16, 24 or 32-bit integers (scaled to [-1, 1)) or 32 or
// 64-bit floating point; `column` chooses the channel, from 1. Any other file is text: values separated by
// commas, semicolons, tabs or spaces, lines that begin with # and a first line of titles are skipped, and the
// rate is `rate`. Throws input_error, also when no sample is found or one is not finite.
signal read_signal(const std::string& file, int column, double rate);

// A WAV file of one channel of 32-bit floating point, or two columns of text: seconds and value. Throws
// std::invalid_argument for a rate or a length that a WAV file cannot hold.
std::string wav_text(const signal& s);
std::string csv_text(const signal& s);

}  // namespace zor_tools
