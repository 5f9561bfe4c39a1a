// SPDX-License-Identifier: MIT
#include "tools/plot.h"

#include <fmt/format.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>

namespace zor_tools {

log_plot::log_plot(const std::string& file, const char* xlabel, const char* ylabel) : file_(file) {
  if (file.find('\'') != std::string::npos || file.find('\n') != std::string::npos)
    throw std::invalid_argument(file + ": a plot's name may not hold quotes or line ends");
  text_ = fmt::format(
      "set terminal svg size 900,500 background 'white'\nset output '{}'\nset grid\nset xlabel '{}'\n"
      "set ylabel '{}'\nset logscale y\nset format y '%g'\nunset key\n",
      file, xlabel, ylabel);
}

void log_plot::draw() const {
  FILE* gnuplot = popen("gnuplot", "w");
  if (gnuplot == nullptr) throw std::runtime_error("gnuplot cannot be started");
  // A gnuplot that is not there shows in the status of its shell, not in a signal.
  const auto handler = std::signal(SIGPIPE, SIG_IGN);
  std::fwrite(text_.data(), 1, text_.size(), gnuplot);
  const int status = pclose(gnuplot);
  std::signal(SIGPIPE, handler);
  if (status != 0) throw std::runtime_error("gnuplot failed to draw " + file_);
}

}  // namespace zor_tools
