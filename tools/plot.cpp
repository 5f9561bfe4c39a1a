// SPDX-License-Identifier: MIT
// Hands commands and numbers to gnuplot through a pipe, and keeps the picture in memory until it is whole.
#include "tools/plot.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "tools/mmio.h"
#include "tools/names.h"

namespace zor_tools {
namespace {

bool is_installed(const char* program) {
  const char* const path = std::getenv("PATH");
  std::string_view rest = path == nullptr ? "" : path;
  while (!rest.empty()) {
    const std::string_view folder = rest.substr(0, rest.find(':'));
    if (access(fmt::format("{}/{}", folder, program).c_str(), X_OK) == 0) return true;
    rest.remove_prefix(std::min(folder.size() + 1, rest.size()));
  }
  return false;
}

// Memory that another program can write to as a file.
class memory_file {
 public:
  memory_file() : fd_(memfd_create("plot", MFD_CLOEXEC)) {
    if (fd_ < 0) throw std::runtime_error(fmt::format("plot: {}", std::strerror(errno)));
  }
  memory_file(const memory_file&) = delete;
  ~memory_file() { close(fd_); }
  std::string name() const { return fmt::format("/proc/{}/fd/{}", getpid(), fd_); }

 private:
  int fd_;
};

}  // namespace

svg_plot::format svg_plot::format_of(const std::string& name) {
  if (has_ending(name, ".svg")) return format::svg;
  if (has_ending(name, ".png")) return format::png;
  if (has_ending(name, ".pdf")) return format::pdf;
  throw std::invalid_argument(fmt::format("{}: the name of a plot ends in .svg, .png or .pdf", name));
}

svg_plot::svg_plot(const std::string& file) : name_(file), format_(format_of(file)), file_(file) {
  if (!is_installed("gnuplot"))
    throw std::runtime_error(fmt::format("{}: plots need gnuplot installed", file));
}

// gnuplot draws into memory: it does not tell when a disk is full.
void svg_plot::draw(std::string_view commands) {
  static constexpr std::array terminals = {"svg background 'white'", "pngcairo", "pdfcairo"};
  int width = 0, height = 0;
  const std::string text(commands);
  if (std::sscanf(text.c_str(), "%d,%d", &width, &height) != 2)
    throw std::logic_error("a plot without a size");
  const memory_file drawn;
  const std::string size = format_ == format::pdf ? fmt::format("{}in,{}in", width / 100.0, height / 100.0)
                                                  : fmt::format("{},{}", width, height);
  const std::string input = fmt::format("set output '{}'\nset terminal {} size {}{}", drawn.name(),
                                        terminals[size_t(format_)], size, text.substr(text.find('\n')));
  FILE* gnuplot = popen("gnuplot 2>/dev/null", "w");
  if (gnuplot == nullptr) throw std::runtime_error("gnuplot cannot be started");
  // A gnuplot that ends early shows in its status, not in a signal.
  const auto handler = std::signal(SIGPIPE, SIG_IGN);
  std::fwrite(input.data(), 1, input.size(), gnuplot);
  const int status = pclose(gnuplot);
  std::signal(SIGPIPE, handler);
  const std::string image = status == 0 ? read_file(drawn.name()) : "";
  if (image.empty()) throw std::runtime_error("gnuplot failed to draw " + name_);
  file_.commit(image);
}

log_plot::log_plot(const std::string& file, const char* xlabel, const char* ylabel)
    : plot_(file),
      text_(fmt::format("900,500\nset grid\nset xlabel '{}'\nset ylabel '{}'\nset logscale y\n"
                        "set format y '%g'\nunset key\n",
                        xlabel, ylabel)) {}

}  // namespace zor_tools
