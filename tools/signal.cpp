// SPDX-License-Identifier: MIT
#include "tools/signal.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "tools/mmio.h"
#include "tools/names.h"

namespace zor_tools {
namespace {

// Little-endian fields of a RIFF file, as on the processor.
template <class T>
T field(const std::string& bytes, size_t at) {
  T value;
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

struct wav_format {
  uint16_t code, channels, bits;
  uint32_t rate;
};

constexpr uint16_t integers = 1, floating = 3, extensible = 0xFFFE;

wav_format parse_format(const std::string& file, const std::string& bytes, size_t at, size_t size) {
  if (size < 16) throw input_error(file, "format chunk of " + std::to_string(size) + " bytes");
  wav_format f{field<uint16_t>(bytes, at), field<uint16_t>(bytes, at + 2), field<uint16_t>(bytes, at + 14),
               field<uint32_t>(bytes, at + 4)};
  if (f.code == extensible && size >= 26) f.code = field<uint16_t>(bytes, at + 24);
  const bool known = (f.code == integers && (f.bits == 8 || f.bits == 16 || f.bits == 24 || f.bits == 32)) ||
                     (f.code == floating && (f.bits == 32 || f.bits == 64));
  if (!known)
    throw input_error(file,
                      fmt::format("samples of format {} with {} bits are not supported", f.code, f.bits));
  if (f.channels == 0 || f.rate == 0) throw input_error(file, "no channel, or a rate of 0");
  return f;
}

double sample(const std::string& bytes, size_t at, const wav_format& f) {
  if (f.code == floating) return f.bits == 32 ? double(field<float>(bytes, at)) : field<double>(bytes, at);
  switch (f.bits) {
    case 8:
      return (double(field<uint8_t>(bytes, at)) - 128) / 128;
    case 16:
      return field<int16_t>(bytes, at) / 32768.0;
    case 24: {
      const uint32_t low = field<uint8_t>(bytes, at) | field<uint8_t>(bytes, at + 1) << 8;
      return (field<int8_t>(bytes, at + 2) * 65536.0 + low) / 8388608.0;
    }
    default:
      return field<int32_t>(bytes, at) / 2147483648.0;
  }
}

signal read_wav(const std::string& file, const std::string& bytes, int channel) {
  if (bytes.size() < 12 || bytes.compare(8, 4, "WAVE") != 0) throw input_error(file, "not a WAVE file");
  wav_format format{};
  for (size_t at = 12; at + 8 <= bytes.size();) {
    const std::string name = bytes.substr(at, 4);
    size_t size = field<uint32_t>(bytes, at + 4);
    at += 8;
    // A program that writes into a pipe cannot know the size, and says 0 or all ones.
    const bool open_end = name == "data" && (size == 0 || size == UINT32_MAX);
    if (open_end) size = bytes.size() - at;
    if (size > bytes.size() - at)
      throw input_error(file, fmt::format("cut off: {} of {} bytes of chunk '{}'", bytes.size() - at, size,
                                          printable(name)));
    if (name == "fmt ") format = parse_format(file, bytes, at, size);
    if (name == "data") {
      if (format.channels == 0) throw input_error(file, "samples before their format");
      if (channel > format.channels)
        throw input_error(file, fmt::format("channel {} of {}", channel, format.channels));
      const size_t width = format.bits / 8, frame = width * format.channels;
      if (size % frame != 0 && !open_end)
        throw input_error(file, fmt::format("{} bytes of samples, no multiple of {}", size, frame));
      signal s{{}, double(format.rate)};
      for (size_t i = 0; i + frame <= size; i += frame) {
        s.samples.push_back(sample(bytes, at + i + width * size_t(channel - 1), format));
        if (!std::isfinite(s.samples.back()))
          throw input_error(file, fmt::format("sample {} is not a finite number", s.samples.size()));
      }
      return s;
    }
    at += size + size % 2;
  }
  throw input_error(file, "no samples");
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

// A WAV file or text.
void check_kind(const std::string& file, std::string_view head) {
  if (head.starts_with("RIFF")) return;
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
  const std::string bytes = read_file(file, [&](std::string_view head) { check_kind(file, head); });
  signal s = bytes.compare(0, 4, "RIFF") == 0 ? read_wav(file, bytes, column)
                                              : read_columns(file, bytes, column, rate);
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
  put(out, floating);
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
