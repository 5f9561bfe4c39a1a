// SPDX-License-Identifier: MIT
// Plots drawn by gnuplot into an SVG, PNG or PDF file, as the name ends, which appears whole or not at all.
#pragma once

#include <string>
#include <string_view>

#include "tools/output_file.h"

namespace zor_tools {

class svg_plot {
 public:
  // Throws std::invalid_argument for a name of another ending, std::runtime_error with "FILE: fault" when the
  // file cannot be written or gnuplot is not installed.
  explicit svg_plot(const std::string& file);
  // Commands and data for gnuplot, from the size in pixels on ("900,500\n..."). Throws std::runtime_error
  // when gnuplot fails.
  void draw(std::string_view commands);

 private:
  enum class format { svg, png, pdf };
  static format format_of(const std::string& name);
  std::string name_;
  format format_;
  output_file file_;
};

// A plot with a logarithmic scale of values: commands and data are gathered in text().
class log_plot {
 public:
  log_plot(const std::string& file, const char* xlabel, const char* ylabel);
  std::string& text() { return text_; }
  void draw() { plot_.draw(text_); }

 private:
  svg_plot plot_;
  std::string text_;
};

}  // namespace zor_tools
