// SPDX-License-Identifier: MIT
#include "tools/plot.h"

#include <fmt/format.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>

namespace zor_tools {

// gnuplot is told the open file, not its name, so that any name will do.
void svg_plot::draw(std::string_view commands) {
  const std::string text =
      fmt::format("set output '/proc/{}/fd/{}'\nset terminal svg background 'white' size {}", getpid(),
                  file_.descriptor(), commands);
  FILE* gnuplot = popen("gnuplot 2>/dev/null", "w");
  if (gnuplot == nullptr) throw std::runtime_error("gnuplot cannot be started");
  // A gnuplot that is not there shows in the status of its shell, not in a signal.
  const auto handler = std::signal(SIGPIPE, SIG_IGN);
  std::fwrite(text.data(), 1, text.size(), gnuplot);
  const int status = pclose(gnuplot);
  std::signal(SIGPIPE, handler);
  if (status != 0) throw std::runtime_error("gnuplot failed to draw " + name_);
  file_.commit("");
}

log_plot::log_plot(const std::string& file, const char* xlabel, const char* ylabel)
    : plot_(file),
      text_(fmt::format("900,500\nset grid\nset xlabel '{}'\nset ylabel '{}'\nset logscale y\n"
                        "set format y '%g'\nunset key\n",
                        xlabel, ylabel)) {}

}  // namespace zor_tools
