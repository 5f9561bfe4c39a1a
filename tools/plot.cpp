// SPDX-License-Identifier: MIT
#include "tools/plot.h"

#include <fmt/format.h>

#include <csignal>
#include <stdexcept>

namespace zor_tools {

log_plot::log_plot(const std::string& file, const char* xlabel, const char* ylabel) : file_(file) {
  if (file.find('\'') != std::string::npos || file.find('\n') != std::string::npos)
    throw std::invalid_argument(file + ": a plot's name may not hold quotes or line ends");
  gnuplot_ = popen("gnuplot", "w");
  if (gnuplot_ == nullptr) throw std::runtime_error("gnuplot cannot be started");
  pipe_handler_ = std::signal(SIGPIPE, SIG_IGN);  // a gnuplot that is not there shows in its status
  fmt::print(gnuplot_,
             "set terminal svg size 900,500 background 'white'\nset output '{}'\nset grid\nset xlabel '{}'\n"
             "set ylabel '{}'\nset logscale y\nset format y '%g'\nunset key\n",
             file, xlabel, ylabel);
}

log_plot::~log_plot() {
  if (gnuplot_ != nullptr) finish();
}

int log_plot::finish() {
  const int status = pclose(gnuplot_);
  gnuplot_ = nullptr;
  std::signal(SIGPIPE, pipe_handler_);
  return status;
}

void log_plot::close() {
  if (finish() != 0) throw std::runtime_error("gnuplot failed to draw " + file_);
}

}  // namespace zor_tools
