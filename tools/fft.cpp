// SPDX-License-Identifier: MIT
// The spectrum of a recording, and a low-pass filter by way of it.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <optional>
#include <stdexcept>

#include "bench/report.h"
#include "tools/closing_lines.h"
#include "tools/commands.h"
#include "tools/digest.h"
#include "tools/names.h"
#include "tools/output_file.h"
#include "tools/plot.h"
#include "tools/signal.h"
#include "zor/core.h"
#include "zor/dft.h"

namespace zor_tools {
namespace {

// Stages of the work on long inputs; short ones are over before a bar could be read.
constexpr size_t long_input = 1000000;
class progress {
 public:
  explicit progress(size_t stages) : stages_(stages) {}
  ~progress() { zor_bench::clear_progress(); }
  void enter(size_t samples, const char* stage) {
    if (samples >= long_input) zor_bench::show_progress(done_++, stages_, stage);
  }

 private:
  size_t stages_;
  size_t done_ = 0;
};

void expect_done(int32_t status) {
  if (status != ZOR_DFT_OK) throw std::runtime_error(zor_fft_failure_text());
}

// Real samples and n/2 + 1 complex values, out of place in either direction; forward divides by n.
class transform {
 public:
  explicit transform(zor_int n) {
    expect_done(zor_fft_create(&fft_, ZOR_DFT_DOUBLE, ZOR_DFT_REAL, 1, &n));
    expect_done(zor_fft_set_int(fft_, ZOR_DFT_PLACEMENT, ZOR_DFT_NOT_INPLACE));
    expect_done(zor_fft_set_int(fft_, ZOR_DFT_CONJUGATE_EVEN_STORAGE, ZOR_DFT_COMPLEX_COMPLEX));
    expect_done(zor_fft_set_real(fft_, ZOR_DFT_FORWARD_SCALE, 1.0 / double(n)));
    expect_done(zor_fft_commit(fft_));
  }
  transform(const transform&) = delete;
  transform& operator=(const transform&) = delete;
  ~transform() { zor_fft_free(&fft_); }
  void forward(std::vector<double>& x, std::vector<zor_c64>& y) {
    expect_done(zor_fft_forward(fft_, x.data(), y.data()));
  }
  void backward(std::vector<zor_c64>& y, std::vector<double>& x) {
    expect_done(zor_fft_backward(fft_, y.data(), x.data()));
  }

 private:
  zor_fft fft_ = nullptr;
};

// Amplitude of the cosine of frequency k in the signal: both halves of the spectrum count, but for the ends.
double amplitude(const std::vector<zor_c64>& spectrum, size_t k, size_t n) {
  const double both = k == 0 || 2 * k == n ? 1 : 2;
  return both * std::hypot(spectrum[k].re, spectrum[k].im);
}

// A sum of finite samples, which may pass the range.
std::string number_text(double value) {
  return std::isfinite(value) ? fmt::format("{:.9g}", value) : "beyond double precision";
}

std::string spectrum_text(const std::vector<zor_c64>& spectrum, size_t n, double rate) {
  std::string out = "frequency,amplitude,phase\n";
  for (size_t k = 0; k < spectrum.size(); ++k)
    fmt::format_to(std::back_inserter(out), "{:.9g},{:.9g},{:.6g}\n", double(k) * rate / double(n),
                   amplitude(spectrum, k, n), std::atan2(spectrum[k].im, spectrum[k].re));
  return out;
}

// At most a few thousand points: of each stretch the highest, so that no line is lost.
void plot_spectrum(const std::vector<zor_c64>& spectrum, size_t n, double rate, log_plot& plot) {
  plot.text() += "plot '-' with lines\n";
  constexpr size_t points = 4000;
  const size_t stretch = (spectrum.size() + points - 1) / points;
  for (size_t first = 0; first < spectrum.size(); first += stretch) {
    size_t highest = first;
    for (size_t k = first; k < std::min(first + stretch, spectrum.size()); ++k)
      if (amplitude(spectrum, k, n) > amplitude(spectrum, highest, n)) highest = k;
    fmt::format_to(std::back_inserter(plot.text()), "{} {}\n", double(highest) * rate / double(n),
                   std::max(amplitude(spectrum, highest, n), 1e-18));
  }
  plot.text() += "e\n";
  plot.draw();
}

// The samples are replaced by those of the frequencies kept.
size_t filter(transform& t, std::vector<zor_c64> spectrum, double highest, signal* s) {
  const size_t n = s->samples.size();
  size_t removed = 0;
  for (size_t k = 0; k < spectrum.size(); ++k)
    if (double(k) * s->rate / double(n) > highest) {
      spectrum[k] = {0, 0};
      ++removed;
    }
  t.backward(spectrum, s->samples);
  return removed;
}

}  // namespace

int fft(const fft_options& options) {
  zor_core_set_num_threads(options.threads);
  // Files are opened first and written last, so that nothing is left of a run that fails.
  std::optional<log_plot> plot;
  std::optional<output_file> output, filtered;
  if (!options.plot.empty()) plot.emplace(options.plot, "frequency", "amplitude");
  if (!options.output.empty()) output.emplace(options.output);
  if (!options.filtered.empty()) filtered.emplace(options.filtered);
  progress bar(4);
  signal s = read_signal(options.input, options.column, options.rate);
  const size_t n = s.samples.size();
  bar.enter(n, "planning");
  transform t{zor_int(n)};
  std::vector<zor_c64> spectrum(n / 2 + 1);
  bar.enter(n, "transform");
  const auto start = std::chrono::steady_clock::now();
  t.forward(s.samples, spectrum);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  size_t peak = spectrum.size() > 1 ? 1 : 0;
  for (size_t k = 1; k < spectrum.size(); ++k)
    if (amplitude(spectrum, k, n) > amplitude(spectrum, peak, n)) peak = k;
  digest sum;
  sum.add(spectrum.data(), spectrum.size());
  size_t removed = 0;
  std::string filtered_text;
  if (filtered) {
    bar.enter(n, "filter");
    removed = filter(t, spectrum, options.highest, &s);
    filtered_text = has_ending(options.filtered, ".wav") ? wav_text(s) : csv_text(s);
  }
  bar.enter(n, "writing");
  if (plot) plot_spectrum(spectrum, n, s.rate, *plot);
  if (output) output->commit(spectrum_text(spectrum, n, s.rate));
  if (filtered) filtered->commit(filtered_text);
  zor_bench::clear_progress();
  if (filtered)
    fmt::print("filter      {} of {} frequencies above {:g} removed\n", removed, spectrum.size(),
               options.highest);
  fmt::print("samples     {}, {:g} a second\n", n, s.rate);
  fmt::print("mean        {}\n", number_text(spectrum[0].re));
  fmt::print("peak        amplitude {} at frequency {:.9g}\n", number_text(amplitude(spectrum, peak, n)),
             double(peak) * s.rate / double(n));
  fmt::print("time        {:.6f} s\n", seconds);
  print_digest(sum);
  return 0;
}

}  // namespace zor_tools
