// SPDX-License-Identifier: MIT
// Plots drawn by gnuplot into an SVG file, which appears whole or not at all.
#pragma once

#include <string>
#include <string_view>

#include "tools/output_file.h"

namespace zor_tools {

class svg_plot {
 public:
  // Throws std::runtime_error with "FILE: fault" when the file cannot be written.
  explicit svg_plot(const std::string& file) : name_(file), file_(file) {}
  // Commands and data for gnuplot, from the terminal's size on ("900,500\n..."). Throws std::runtime_error
  // when gnuplot is missing or fails.
  void draw(std::string_view commands);

 private:
  std::string name_;
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
