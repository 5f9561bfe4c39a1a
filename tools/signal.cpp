// SPDX-License-Identifier: MIT
// Tells recordings from columns of numbers, and reads both.
#include "tools/signal.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "tools/mmio.h"
#include "tools/recording.h"

namespace zor_tools {
namespace {

signal read_wav(const std::string& file, int channel) {
  recording_reader reader(file);
  if (channel > reader.layout().channels)
    throw input_error(file, fmt::format("channel {} of {}", channel, reader.layout().channels));
  signal s{{}, double(reader.layout().rate)};
  std::vector<std::vector<double>> block;
  while (reader.read(size_t(1) << 18, &block) > 0) {
    const std::vector<double>& one = block[size_t(channel - 1)];
    s.samples.insert(s.samples.end(), one.begin(), one.end());
  }
  return s;
}

// What a number can begin with; a title must not, lest a misspelt first value be taken for one.
bool begins_number(const char* text) {
  return *text != '\0' && std::strchr("0123456789+-.", *text) != nullptr;
}

// The text of a column, behind its quotation mark if it has one, or null when the line has fewer columns.
const char* find_column(const char* line, int column) {
  for (;;) {
    line += std::strspn(line, " \t");
    const bool in_quotes = *line == '"';
    if (--column == 0) return line + in_quotes;
    if (in_quotes) line = std::strchr(line + 1, '"');
    if (line == nullptr) return nullptr;
    line += std::strcspn(line, ",; \t");
    line += std::strspn(line, " \t");
    if (*line == ',' || *line == ';') ++line;
    if (*line == '\0') return nullptr;
  }
}

signal read_columns(const std::string& file, const std::string& text, int column, double rate) {
  signal s{{}, rate};
  int64_t number = 0;
  bool titles = true;
  const bool marked = text.compare(0, 3, "\xEF\xBB\xBF") == 0;  // UTF-8
  for (size_t at = marked ? 3 : 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    std::string line = text.substr(at, end - at);
    at = end + 1;
    ++number;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.find_first_not_of(" \t") == std::string::npos || line[0] == '#') continue;
    const char* value = find_column(line.c_str(), column);
    if (value == nullptr) throw input_error(file, number, fmt::format("no column {}", column));
    char* rest = nullptr;
    const double x = std::strtod(value, &rest);
    if (value != line.c_str() && value[-1] == '"' && *rest == '"') ++rest;
    const bool ends_line = rest == line.data() + line.size();
    if (rest == value || (!ends_line && std::string_view(",; \t").find(*rest) == std::string_view::npos)) {
      if (titles && !begins_number(value)) {
        titles = false;
        continue;
      }
      throw input_error(file, number, "not a number");
    }
    if (!std::isfinite(x)) throw input_error(file, number, "not a finite number");
    s.samples.push_back(x);
    titles = false;
  }
  return s;
}

// Text, not another kind of file.
void check_kind(const std::string& file, std::string_view head) {
  if (head.starts_with("RF64"))
    throw input_error(file,
                      "an RF64 recording, whose samples may pass 4 GiB: only WAV files of RIFF are read");
  if (head.find('\0') != std::string_view::npos) throw input_error(file, "neither a WAV file nor text");
}

template <class T>
void put(std::string& out, T value) {
  out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace

signal read_signal(const std::string& file, int column, double rate) {
  if (begins_with(file, "RIFF")) return read_wav(file, column);
  signal s = read_columns(file, read_file(file, [&](std::string_view head) { check_kind(file, head); }),
                          column, rate);
  if (s.samples.empty()) throw input_error(file, "no samples");
  return s;
}

std::string wav_text(const signal& s) {
  constexpr double most = 0x3FFFFFFF;  // 4 bytes of each in 32 bits
  if (!(s.rate >= 1 && s.rate <= most) || s.rate != std::floor(s.rate))
    throw std::invalid_argument(
        fmt::format("a WAV file cannot hold the rate {:g}: it takes whole numbers", s.rate));
  if (double(s.samples.size()) > most - 16)
    throw std::invalid_argument("a WAV file cannot hold so many samples");
  const uint32_t size = uint32_t(4 * s.samples.size()), rate = uint32_t(s.rate);
  std::string out = "RIFF";
  put(out, uint32_t(36 + size));
  out += "WAVEfmt ";
  put(out, uint32_t(16));
  put(out, uint16_t(3));  // floating point
  put(out, uint16_t(1));
  put(out, rate);
  put(out, uint32_t(4 * rate));
  put(out, uint16_t(4));
  put(out, uint16_t(32));
  out += "data";
  put(out, size);
  for (const double x : s.samples) put(out, float(x));
  return out;
}

std::string csv_text(const signal& s) {
  std::string out = "seconds,value\n";
  for (size_t i = 0; i < s.samples.size(); ++i)
    fmt::format_to(std::back_inserter(out), "{:.9g},{:.17g}\n", double(i) / s.rate, s.samples[i]);
  return out;
}

}  // namespace zor_tools
