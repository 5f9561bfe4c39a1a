// SPDX-License-Identifier: MIT
// Reads and writes the three kinds of grid files.
#include "tools/grid_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <stdexcept>
#include <string_view>

#include "tools/image.h"
#include "tools/mmio.h"
#include "tools/names.h"

namespace zor_tools {
namespace {

grid_values of_matrix(const std::string& file, std::string_view text) {
  grid_values g;
  const auto begin = [&](const mm_header& m, int64_t) {
    if (m.format != mm_format::array || m.field == mm_field::complex || m.symmetry != mm_symmetry::general)
      throw input_error(file, 1, "not a general real array");
    mm_check_dense_size(m, sizeof(double));
    g = {m.rows, m.cols, std::vector<double>(size_t(m.rows * m.cols))};
  };
  mm_scan(file, text, begin, [&](const mm_entry& e) {
    if (!std::isfinite(e.re))
      throw input_error(file, fmt::format("value ({}, {}) is not finite", e.row + 1, e.col + 1));
    g.values[size_t(e.row + g.width * e.col)] = e.re;
  });
  return g;
}

grid_values of_image(const std::string& file, const std::string& bytes) {
  const image i = parse_image(file, bytes);
  if (i.planes.size() != 1) throw input_error(file, "a colour image; a grid takes a grey one");
  grid_values g = {i.columns, i.rows, {}};
  g.values.reserve(i.planes[0].size());
  for (int64_t row = i.rows - 1; row >= 0; --row)
    for (int64_t column = 0; column < i.columns; ++column)
      g.values.push_back(i.planes[0][size_t(column + i.columns * row)] / double(i.most));
  return g;
}

// Appends the values of a line and returns their number.
int64_t append_values(const std::string& file, int64_t number, std::string_view line,
                      std::vector<double>* values) {
  int64_t count = 0;
  while (true) {
    line.remove_prefix(std::min(line.find_first_not_of(" \t\r,;"), line.size()));
    if (line.empty() || line[0] == '#') return count;
    double v = 0;
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), v);
    const bool ends =
        end == line.data() + line.size() || std::string_view(" \t\r,;#").find(*end) != std::string_view::npos;
    if (error != std::errc() || !ends || !std::isfinite(v))
      throw input_error(file, number, fmt::format("value {} is not a finite number", count + 1));
    values->push_back(v);
    ++count;
    line.remove_prefix(size_t(end - line.data()));
  }
}

grid_values of_text(const std::string& file, std::string_view text) {
  grid_values g;
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  for (int64_t number = 1; !text.empty(); ++number) {
    const size_t end = std::min(text.find('\n'), text.size());
    const int64_t count = append_values(file, number, text.substr(0, end), &g.values);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (count == 0) continue;
    if (g.height > 0 && count != g.width)
      throw input_error(file, number, fmt::format("{} values, and {} in the lines before", count, g.width));
    g.width = count;
    ++g.height;
  }
  if (g.height == 0) throw input_error(file, "no values");
  for (int64_t low = 0, high = g.height - 1; low < high; ++low, --high)
    std::swap_ranges(g.values.begin() + g.width * low, g.values.begin() + g.width * (low + 1),
                     g.values.begin() + g.width * high);
  return g;
}

}  // namespace

grid_values read_grid(const std::string& file) {
  const std::string text = read_file(file);
  if (text.starts_with("%%MatrixMarket")) return of_matrix(file, text);
  if (text.size() > 1 && text[0] == 'P' && text[1] >= '1' && text[1] <= '6') return of_image(file, text);
  return of_text(file, text);
}

void check_grid_name(const std::string& name) {
  if (name == "-") return;
  for (const char* ending : {".mtx", ".csv", ".pgm"})
    if (has_ending(name, ending)) return;
  throw std::invalid_argument(fmt::format("{}: the name of a grid ends in .mtx, .csv or .pgm", name));
}

std::string grid_text(const std::string& name, const grid_values& g) {
  if (has_ending(name, ".mtx")) return mm_array_text(g.width, g.height, g.values.data());
  if (has_ending(name, ".pgm")) {
    const auto [least, largest] = std::minmax_element(g.values.begin(), g.values.end());
    const double range = *largest > *least ? *largest - *least : 1;
    image i = {g.height, g.width, 255, {{}}};
    for (int64_t j = g.height - 1; j >= 0; --j)
      for (int64_t k = 0; k < g.width; ++k)
        i.planes[0].push_back(255 * ((g.values[size_t(k + g.width * j)] - *least) / range));
    return image_text(i);
  }
  std::string text;
  for (int64_t j = g.height - 1; j >= 0; --j)
    for (int64_t i = 0; i < g.width; ++i) {
      mm_put_value(text, g.values[size_t(i + g.width * j)]);
      text += i + 1 < g.width ? ',' : '\n';
    }
  return text;
}

}  // namespace zor_tools
