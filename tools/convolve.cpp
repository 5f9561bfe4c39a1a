// SPDX-License-Identifier: MIT
// Recordings through impulse responses, images through kernels, and the place where a template fits best.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "tools/closing_lines.h"
#include "tools/commands.h"
#include "tools/image.h"
#include "tools/input.h"
#include "tools/mmio.h"
#include "tools/plot.h"
#include "tools/recording.h"
#include "tools/signal.h"
#include "zor/conv.h"

namespace zor_tools {
namespace {

using lengths = std::vector<zor_int>;

void expect_done(int32_t status) {
  if (status == ZOR_CONV_NO_MEMORY) throw std::bad_alloc();
  if (status != ZOR_CONV_OK) throw std::runtime_error(zor_conv_error_text(status));
}

// An array of one dimension or two, by rows.
struct values {
  lengths shape;
  std::vector<double> data;
};

values apply(int32_t job, const values& x, const values& y, int32_t mode) {
  zor_conv_options options = {};
  options.mode = mode;
  const int32_t dims = int32_t(x.shape.size());
  values z{lengths(x.shape.size()), {}};
  expect_done(zor_conv_output_shape(job, dims, x.shape.data(), y.shape.data(), &options, z.shape.data()));
  size_t count = 1;
  for (const zor_int n : z.shape) count *= size_t(n);
  z.data.resize(count);
  const auto entry = job == ZOR_CONV_CONVOLUTION ? zor_convolve_d : zor_correlate_d;
  expect_done(entry(dims, x.shape.data(), x.data.data(), y.shape.data(), y.data.data(), z.shape.data(),
                    z.data.data(), &options));
  return z;
}

// ---- Recordings.

// Frames that are convolved together; their number does not show but in rounding.
constexpr size_t block_frames = size_t(1) << 18;

// Every channel of the response in memory.
std::vector<std::vector<double>> read_response(const std::string& file, uint32_t rate, int channels) {
  recording_reader reader(file);
  const wav_layout& l = reader.layout();
  if (l.rate != rate)
    throw input_error(file, fmt::format("{} samples a second, the recording has {}", l.rate, rate));
  if (l.channels != 1 && l.channels != channels)
    throw input_error(file, fmt::format("{} channels, the recording has {}", l.channels, channels));
  std::vector<std::vector<double>> response;
  reader.read(size_t(l.frames), &response);
  return response;
}

// Block by block; what a block gives beyond its end is added to the next.
int convolve_recording(const convolve_options& options) {
  recording_reader reader(options.input);
  wav_layout layout = reader.layout();
  const auto response = read_response(options.kernel, layout.rate, layout.channels);
  const size_t taps = response[0].size();
  const uint64_t samples = layout.frames;
  layout.frames += taps - 1;
  recording_writer writer(options.output, layout);
  std::vector<std::vector<double>> block, result(size_t(layout.channels)),
      tail(size_t(layout.channels), std::vector<double>(taps - 1));
  const auto start = std::chrono::steady_clock::now();
  digest sum;
  for (uint64_t done = 0; done < samples;) {
    const size_t frames = reader.read(block_frames, &block);
    for (size_t c = 0; c < block.size(); ++c) {
      const std::vector<double>& taps_of = response[response.size() == 1 ? 0 : c];
      values z = apply(ZOR_CONV_CONVOLUTION, {{zor_int(frames)}, block[c]}, {{zor_int(taps)}, taps_of},
                       ZOR_CONV_FULL);
      for (double& v : z.data) v *= options.gain;
      for (size_t i = 0; i + 1 < taps; ++i) z.data[i] += tail[c][i];
      tail[c].assign(z.data.begin() + ptrdiff_t(frames), z.data.end());
      result[c] = std::move(z.data);
      sum.add(result[c].data(), frames);
    }
    writer.write(result, 0, frames);
    done += frames;
  }
  writer.write(tail, 0, taps - 1);
  for (const std::vector<double>& t : tail) sum.add(t.data(), t.size());
  writer.commit();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  fmt::print("recording   {} samples, {} channels, {} a second\n", samples, layout.channels, layout.rate);
  fmt::print("response    {} samples\n", taps);
  fmt::print("peak        {:.6g}{}\n", writer.peak(),
             writer.clipped() > 0 ? fmt::format(", {} samples clipped: lower --gain", writer.clipped()) : "");
  fmt::print("time        {:.6f} s\n", seconds);
  print_digest(sum);
  return 0;
}

// ---- Images.

// Rows of numbers in a text file.
values read_kernel(const std::string& file) {
  values k{{0, 0}, {}};
  std::istringstream lines(read_file(file));
  int64_t number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (line.empty() || line[0] == '#') continue;
    std::istringstream row(line);
    zor_int columns = 0;
    for (double v; row >> v; ++columns) k.data.push_back(v);
    if (!row.eof()) throw input_error(file, number, "not a number");
    if (columns == 0) continue;
    if (k.shape[0] > 0 && columns != k.shape[1]) throw input_error(file, number, "rows of different lengths");
    k.shape = {k.shape[0] + 1, columns};
  }
  if (k.shape[0] == 0) throw input_error(file, "no numbers");
  return k;
}

values gauss_kernel(double sigma) {
  const zor_int reach = std::max<zor_int>(1, zor_int(std::ceil(3 * sigma)));
  values k{{2 * reach + 1, 2 * reach + 1}, {}};
  double total = 0;
  for (zor_int i = -reach; i <= reach; ++i)
    for (zor_int j = -reach; j <= reach; ++j) {
      k.data.push_back(std::exp(-double(i * i + j * j) / (2 * sigma * sigma)));
      total += k.data.back();
    }
  for (double& v : k.data) v /= total;
  return k;
}

// The plane with its border values repeated outwards, so that every pixel has all neighbours.
values extended(const std::vector<double>& plane, zor_int rows, zor_int columns, const lengths& kernel) {
  values e{{rows + kernel[0] - 1, columns + kernel[1] - 1}, {}};
  const zor_int top = kernel[0] / 2, left = kernel[1] / 2;
  for (zor_int i = 0; i < e.shape[0]; ++i)
    for (zor_int j = 0; j < e.shape[1]; ++j) {
      const zor_int row = std::clamp<zor_int>(i - top, 0, rows - 1),
                    column = std::clamp<zor_int>(j - left, 0, columns - 1);
      e.data.push_back(plane[size_t(row * columns + column)]);
    }
  return e;
}

int convolve_image(const convolve_options& options) {
  image picture = read_image(options.input);
  const values horizontal{{3, 3}, {1, 0, -1, 2, 0, -2, 1, 0, -1}},
      vertical{{3, 3}, {1, 2, 1, 0, 0, 0, -1, -2, -1}};
  const bool sobel = options.kernel == "sobel";
  const values kernel = sobel                       ? horizontal
                        : options.kernel == "gauss" ? gauss_kernel(options.sigma)
                                                    : read_kernel(options.kernel);
  std::optional<output_file> output(options.output);
  const auto start = std::chrono::steady_clock::now();
  digest sum;
  for (std::vector<double>& plane : picture.planes) {
    const values e = extended(plane, picture.rows, picture.columns, kernel.shape);
    plane = apply(ZOR_CONV_CONVOLUTION, e, kernel, ZOR_CONV_VALID).data;
    if (sobel) {
      const std::vector<double> other = apply(ZOR_CONV_CONVOLUTION, e, vertical, ZOR_CONV_VALID).data;
      for (size_t p = 0; p < plane.size(); ++p)
        plane[p] = std::sqrt(plane[p] * plane[p] + other[p] * other[p]);
    }
    for (double& v : plane) v *= options.gain;
    sum.add(plane.data(), plane.size());
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  output->commit(image_text(picture));
  fmt::print("image       {} by {} pixels, {} planes\n", picture.columns, picture.rows,
             picture.planes.size());
  fmt::print("kernel      {} by {}\n", kernel.shape[1], kernel.shape[0]);
  fmt::print("time        {:.6f} s\n", seconds);
  print_digest(sum);
  return 0;
}

// ---- Correlation.

// Grey values of an image (the mean of its planes), or samples of a signal.
values read_values(const std::string& file, int column) {
  if (!is_image_file(file)) {
    signal s = read_signal(file, column, 1);
    return {{zor_int(s.samples.size())}, std::move(s.samples)};
  }
  const image i = read_image(file);
  values v{{i.rows, i.columns}, i.planes[0]};
  for (size_t c = 1; c < i.planes.size(); ++c)
    for (size_t p = 0; p < v.data.size(); ++p) v.data[p] += i.planes[c][p];
  for (double& x : v.data) x /= double(i.planes.size());
  return v;
}

// The coefficient of correlation of the template with every stretch of y of its size, from -1 to 1; 0 where
// either is constant but for rounding.
values coefficients(values x, const values& y) {
  const double n = double(x.data.size());
  double mean = 0, power = 0, largest = 0;
  for (const double v : x.data) mean += v / n;
  for (double& v : x.data) v -= mean, power += v * v;
  // Around its own mean y loses fewer digits in the sums of squares.
  values centred = y, squares = y;
  double y_mean = 0;
  for (const double v : y.data) y_mean += v / double(y.data.size());
  for (size_t i = 0; i < y.data.size(); ++i) {
    centred.data[i] -= y_mean;
    squares.data[i] = centred.data[i] * centred.data[i];
    largest = std::max(largest, squares.data[i]);
  }
  values r = apply(ZOR_CONV_CORRELATION, x, centred, ZOR_CONV_VALID);
  const values ones{x.shape, std::vector<double>(x.data.size(), 1.0)};
  const values sums = apply(ZOR_CONV_CORRELATION, ones, centred, ZOR_CONV_VALID),
               of_squares = apply(ZOR_CONV_CORRELATION, ones, squares, ZOR_CONV_VALID);
  for (size_t i = 0; i < r.data.size(); ++i) {
    const double spread = of_squares.data[i] - sums.data[i] * sums.data[i] / n;
    const bool constant = spread <= 1e-10 * n * largest || power == 0;
    r.data[i] = constant ? 0 : r.data[i] / std::sqrt(power * spread);
  }
  return r;
}

std::string place_text(const lengths& shape, size_t at) {
  if (shape.size() == 1) return fmt::format("{}", at);
  return fmt::format("column {}, row {}", zor_int(at) % shape[1], zor_int(at) / shape[1]);
}

// A curve, or a map of at most some hundred points a side: of each stretch the highest.
void plot_coefficients(const values& r, svg_plot& plot) {
  const bool plane = r.shape.size() == 2;
  const zor_int rows = plane ? r.shape[0] : 1, columns = r.shape.back();
  const zor_int points = plane ? 300 : 2000;
  const zor_int row_step = (rows + points - 1) / points, column_step = (columns + points - 1) / points;
  std::string text = plane ? "700,600\nset xlabel 'column'\nset ylabel 'row'\nset yrange [*:*] reverse\n"
                             "set cblabel 'correlation'\nplot '-' using 1:2:3 with image notitle\n"
                           : "900,500\nset xlabel 'place'\nset ylabel 'correlation'\nset grid\n"
                             "plot '-' with lines notitle\n";
  for (zor_int i = 0; i < rows; i += row_step)
    for (zor_int j = 0; j < columns; j += column_step) {
      double highest = -2;
      for (zor_int k = i; k < std::min(i + row_step, rows); ++k)
        for (zor_int l = j; l < std::min(j + column_step, columns); ++l)
          highest = std::max(highest, r.data[size_t(k * columns + l)]);
      text += plane ? fmt::format("{} {} {:.6g}\n", j, i, highest) : fmt::format("{} {:.6g}\n", j, highest);
    }
  plot.draw(text + "e\n");
}

}  // namespace

int convolve(const convolve_options& options) {
  zor_core_set_num_threads(options.threads);
  if (begins_with(options.input, "RIFF")) return convolve_recording(options);
  if (is_image_file(options.input)) return convolve_image(options);
  throw input_error(options.input, "neither a WAV recording nor a PGM or PPM image");
}

int correlate(const correlate_options& options) {
  zor_core_set_num_threads(options.threads);
  std::optional<svg_plot> plot;
  if (!options.plot.empty()) plot.emplace(options.plot);
  const values x = read_values(options.pattern, options.column),
               y = read_values(options.input, options.column);
  if (x.shape.size() != y.shape.size())
    throw input_error(options.pattern, "a signal and an image do not go together");
  for (size_t d = 0; d < x.shape.size(); ++d)
    if (x.shape[d] > y.shape[d])
      throw input_error(options.pattern, "the template is larger than what is searched");
  const auto start = std::chrono::steady_clock::now();
  const values r = coefficients(x, y);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const size_t best = size_t(std::max_element(r.data.begin(), r.data.end()) - r.data.begin());
  if (plot) plot_coefficients(r, *plot);
  digest sum;
  sum.add(r.data.data(), r.data.size());
  fmt::print("best        {}, correlation {:.6f}\n", place_text(r.shape, best), r.data[best]);
  fmt::print("places      {}\n", r.data.size());
  fmt::print("time        {:.6f} s\n", seconds);
  print_digest(sum);
  return 0;
}

}  // namespace zor_tools
