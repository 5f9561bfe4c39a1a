// SPDX-License-Identifier: MIT
// A plot with a logarithmic scale of values, drawn by gnuplot into an SVG file.
#pragma once

#include <string>

namespace zor_tools {

// Commands and data are gathered in text(); draw() hands them to gnuplot. Throws std::invalid_argument for a
// name that gnuplot cannot take and std::runtime_error when it fails.
class log_plot {
 public:
  log_plot(const std::string& file, const char* xlabel, const char* ylabel);
  std::string& text() { return text_; }
  void draw() const;

 private:
  std::string file_;
  std::string text_;
};

}  // namespace zor_tools
