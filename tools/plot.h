// SPDX-License-Identifier: MIT
// A plot with a logarithmic scale of values, drawn by gnuplot into an SVG file.
#pragma once

#include <cstdio>
#include <string>

namespace zor_tools {

// Commands and data go to stream(); close() draws. Throws std::invalid_argument for a name that gnuplot
// cannot take and std::runtime_error when it fails.
class log_plot {
 public:
  log_plot(const std::string& file, const char* xlabel, const char* ylabel);
  ~log_plot();
  log_plot(const log_plot&) = delete;
  log_plot& operator=(const log_plot&) = delete;

  FILE* stream() { return gnuplot_; }
  void close();

 private:
  int finish();
  std::string file_;
  FILE* gnuplot_;
  void (*pipe_handler_)(int);
};

}  // namespace zor_tools
