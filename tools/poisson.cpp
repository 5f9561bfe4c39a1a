// SPDX-License-Identifier: MIT
// Problems in files: the description, the right-hand side, the solution and what is left of the equations.
#include "zor/poisson.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iterator>
#include <new>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>

#include "tools/closing_lines.h"
#include "tools/commands.h"
#include "tools/grid_file.h"
#include "tools/mmio.h"
#include "tools/output_file.h"
#include "tools/plot.h"
#include "tools/poisson_study.h"

namespace zor_tools {
namespace {

constexpr const char* side_names[] = {"left", "right", "bottom", "top", "front", "back"};
constexpr const char* conditions[] = {"value", "derivative", "periodic"};

struct problem {
  zor_poisson_box box = {};  // lengths of 0: steps of the first axis
  double constant[6] = {};   // on the sides
  double offset = 0;         // added to the data
  double factor = 1;         // of the sums
  std::string data;          // its file; empty: zero
  bool single = false;
};

std::string beside(const std::string& file, const std::string& name) {
  const size_t slash = file.rfind('/');
  const bool alone = name[0] == '/' || name == "-" || slash == std::string::npos;
  return alone ? name : file.substr(0, slash + 1) + name;
}

// The words behind the first one of a line.
class line_words {
 public:
  line_words(const std::string& file, int64_t number, const std::string& line)
      : file_(file), number_(number), words_(line.substr(0, line.find('#'))) {
    words_ >> key_;
  }
  const std::string& key() const { return key_; }
  [[noreturn]] void wrong(const std::string& what) const {
    throw input_error(file_, number_, key_ + ": " + what);
  }
  // From 1 to `most` finite numbers; returns how many.
  int numbers(double* to, int most) {
    int count = 0;
    for (double v; count < most && words_ >> v; ++count) to[count] = v;
    if (count == 0 || !at_end() || !std::all_of(to, to + count, [](double v) { return std::isfinite(v); }))
      wrong(most == 1 ? "one finite number is expected"
                      : fmt::format("up to {} finite numbers are expected", most));
    return count;
  }
  std::string word(const char* expected) {
    std::string w;
    if (!(words_ >> w)) wrong(fmt::format("{} is expected", expected));
    return w;
  }
  bool at_end() {
    words_.clear();
    return (words_ >> std::ws).eof();
  }

 private:
  const std::string& file_;
  int64_t number_;
  std::istringstream words_;
  std::string key_;
};

void read_intervals(line_words& line, zor_poisson_box* box) {
  double n[3] = {};
  box->dimensions = line.numbers(n, 3);
  for (int a = 0; a < box->dimensions; ++a) {
    if (!(n[a] >= 2 && n[a] <= 0x1p30) || n[a] != std::floor(n[a]))
      line.wrong("whole numbers from 2 to 2^30 are expected");
    box->n[a] = zor_int(n[a]);
  }
  if (box->dimensions == 1) line.wrong("two or three axes are expected");
}

void read_side(line_words& line, size_t side, problem* p) {
  const std::string word = line.word("value, derivative or periodic");
  const auto* const condition = std::find(std::begin(conditions), std::end(conditions), word);
  if (condition == std::end(conditions)) line.wrong("value, derivative or periodic is expected");
  p->box.side[side] = condition - conditions;
  if (line.at_end()) return;
  if (p->box.side[side] == ZOR_POISSON_PERIODIC) line.wrong("nothing stands behind periodic");
  line.numbers(&p->constant[side], 1);
}

// A line is a word and its values; # begins a comment.
problem read_problem(const std::string& file) {
  problem p;
  std::istringstream text(read_file(file));
  std::string content;
  std::set<std::string> seen;
  int lengths = 0;
  for (int64_t number = 1; std::getline(text, content); ++number) {
    line_words line(file, number, content);
    const std::string& key = line.key();
    if (key.empty()) continue;
    if (!seen.insert(key).second) line.wrong("it stands in a line before");
    const auto* const side = std::find(std::begin(side_names), std::end(side_names), key);
    if (key == "intervals") {
      read_intervals(line, &p.box);
    } else if (key == "lengths") {
      lengths = line.numbers(p.box.length, 3);
    } else if (key == "q") {
      line.numbers(&p.box.q, 1);
    } else if (key == "offset") {
      line.numbers(&p.offset, 1);
    } else if (key == "factor") {
      line.numbers(&p.factor, 1);
    } else if (key == "data") {
      p.data = beside(file, line.word("a file"));
      if (!line.at_end()) line.wrong("one file is expected");
    } else if (key == "precision") {
      const std::string word = line.word("double or single");
      if ((word != "double" && word != "single") || !line.at_end())
        line.wrong("double or single is expected");
      p.single = word == "single";
    } else if (side != std::end(side_names)) {
      read_side(line, size_t(side - side_names), &p);
    } else {
      line.wrong("no word of problem files");
    }
  }
  if (p.box.dimensions == 0 && p.data.empty()) throw input_error(file, "neither intervals nor data");
  const int axes = p.box.dimensions == 0 ? 2 : int(p.box.dimensions);
  if (lengths != 0 && lengths != axes)
    throw input_error(file, fmt::format("{} lengths for {} axes", lengths, axes));
  if (axes == 2 && (seen.count("front") != 0 || seen.count("back") != 0))
    throw input_error(file, "front and back are sides of a box with three axes");
  return p;
}

zor_int points(const zor_poisson_box& b) {
  zor_int count = 1;
  for (int a = 0; a < b.dimensions; ++a) count *= b.n[a] + 1;
  return count;
}

// The values of the data, and sizes and lengths that the problem leaves to them.
std::vector<double> read_data(problem* p) {
  zor_poisson_box& box = p->box;
  grid_values g;
  if (!p->data.empty()) g = read_grid(p->data);
  if (box.dimensions == 0) {
    if (g.width < 3 || g.height < 3)
      throw input_error(p->data,
                        fmt::format("{} by {} values, and a grid has 3 by 3 at least", g.width, g.height));
    box.dimensions = 2;
    box.n[0] = g.width - 1;
    box.n[1] = g.height - 1;
  }
  const zor_int width = box.n[0] + 1, height = (box.n[1] + 1) * (box.dimensions == 3 ? box.n[2] + 1 : 1);
  if (!p->data.empty() && (g.width != width || g.height != height))
    throw input_error(
        p->data, fmt::format("{} by {} values, and the grid has {} by {}", g.width, g.height, width, height));
  for (int a = int(box.dimensions) - 1; a >= 0; --a)
    if (box.length[0] == 0) box.length[a] = double(box.n[a]) / double(box.n[0]);
  for (double& v : g.values) v = (v + p->offset) * p->factor;
  return std::move(g.values);
}

// What is left of the equations, in the places that have one.
struct remainder {
  double largest = 0;  // the largest sum of the terms of an equation
  double worst = 0;    // the largest difference of its sides, less the constant of a singular problem
  double constant = 0;
};
remainder residual(const problem& p, const std::vector<double>& u, const std::vector<double>& f,
                   bool singular) {
  const zor_poisson_box& b = p.box;
  const zor_int planes = b.dimensions == 3 ? b.n[2] + 1 : 1,
                stride[3] = {1, b.n[0] + 1, (b.n[0] + 1) * (b.n[1] + 1)};
  remainder r;
  std::vector<double> left;
  for (zor_int at = 0; at < stride[2] * planes; ++at) {
    const zor_int place[3] = {at % stride[1], at / stride[1] % (b.n[1] + 1), at / stride[2]};
    double sum = b.q * u[size_t(at)] - f[size_t(at)];
    double size = std::fabs(f[size_t(at)]) + std::fabs(b.q * u[size_t(at)]);
    bool given = false;
    for (int a = 0; a < b.dimensions; ++a) {
      const double h = b.length[a] / double(b.n[a]);
      double around = 0;
      for (int end = 0; end < 2; ++end) {
        const zor_int inwards = end == 0 ? stride[a] : -stride[a], side = 2 * a + end;
        if (place[a] != (end == 0 ? 0 : b.n[a])) {
          around += u[size_t(at - inwards)];
        } else if (b.side[side] == ZOR_POISSON_DERIVATIVE) {
          around += u[size_t(at + inwards)] + 2 * h * p.constant[side];
        } else if (b.side[side] == ZOR_POISSON_PERIODIC) {
          around += u[size_t(at + inwards * (b.n[a] - 1))];
        } else {
          given = true;
        }
      }
      sum += (2 * u[size_t(at)] - around) / (h * h);
      size += (2 * std::fabs(u[size_t(at)]) + std::fabs(around)) / (h * h);
    }
    if (given) continue;
    left.push_back(sum);
    r.largest = std::max(r.largest, size);
  }
  if (singular) {
    for (const double v : left) r.constant += v;
    r.constant /= double(left.size());
  }
  for (const double v : left) r.worst = std::max(r.worst, std::fabs(v - r.constant));
  return r;
}

// A heat map of the layer in the middle, and a cut through its middle.
void draw(svg_plot& plot, const zor_poisson_box& b, const std::vector<double>& u) {
  const zor_int nx = b.n[0], ny = b.n[1];
  const double hx = b.length[0] / double(nx), hy = b.length[1] / double(ny);
  const size_t layer = b.dimensions == 3 ? size_t((nx + 1) * (ny + 1) * (b.n[2] / 2)) : 0;
  const auto value = [&](zor_int i, zor_int j) { return u[layer + size_t(i + (nx + 1) * j)]; };
  std::string text =
      "1000,430\nset multiplot layout 1,2\nset size ratio -1\nset xlabel 'x'\nset ylabel 'y'\nset tics out\n";
  text += fmt::format("set xrange [0:{}]\nset yrange [0:{}]\nplot '-' using 1:2:3 with image notitle\n",
                      b.length[0], b.length[1]);
  const zor_int step_x = std::max<zor_int>(1, nx / 400), step_y = std::max<zor_int>(1, ny / 400);
  for (zor_int j = 0; j <= ny; j += step_y)
    for (zor_int i = 0; i <= nx; i += step_x)
      text += fmt::format("{:.6g} {:.6g} {:.9g}\n", hx * double(i), hy * double(j), value(i, j));
  text += fmt::format(
      "e\nset size noratio\nset yrange [*:*]\nset ylabel 'u(x, {:g}{})'\n", hy * double(ny / 2),
      b.dimensions == 3 ? fmt::format(", {:g}", b.length[2] * double(b.n[2] / 2) / double(b.n[2])) : "");
  text += "plot '-' with lines notitle\n";
  for (zor_int i = 0; i <= nx; ++i) text += fmt::format("{:.6g} {:.9g}\n", hx * double(i), value(i, ny / 2));
  plot.draw(text + "e\nunset multiplot\n");
}

class solver {
 public:
  solver(const std::string& file, const problem& p) {
    const zor_int made = p.single ? zor_poisson_create_s(&p_, &p.box) : zor_poisson_create_d(&p_, &p.box);
    if (made < 0) throw input_error(file, zor_poisson_text(made));
    expect(made);
  }
  solver(const solver&) = delete;
  ~solver() { zor_poisson_free(&p_); }
  // True for a singular problem. The time is that of the call.
  bool solve(const problem& p, std::vector<double>* u, double* seconds) {
    if (!p.single) return solve_in(zor_poisson_solve_d, p, u, seconds);
    std::vector<float> narrow(u->begin(), u->end());
    const bool singular = solve_in(zor_poisson_solve_s, p, &narrow, seconds);
    u->assign(narrow.begin(), narrow.end());
    return singular;
  }

 private:
  static void expect(zor_int status) {
    if (status == ZOR_POISSON_NO_MEMORY) throw std::bad_alloc();
    if (status != ZOR_POISSON_OK && status != ZOR_POISSON_ZERO_MEAN)
      throw std::runtime_error(zor_poisson_text(status));
  }
  template <class T, class Solve>
  bool solve_in(const Solve& call, const problem& p, std::vector<T>* u, double* seconds) {
    std::vector<T> side[6];
    const T* sides[6] = {};
    for (int s = 0; s < 2 * p.box.dimensions; ++s) {
      side[s].assign(size_t(points(p.box) / (p.box.n[s / 2] + 1)), T(p.constant[s]));
      sides[s] = side[s].data();
    }
    const auto start = std::chrono::steady_clock::now();
    const zor_int status = call(p_, u->data(), sides);
    *seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    expect(status);
    return status == ZOR_POISSON_ZERO_MEAN;
  }
  zor_poisson* p_ = nullptr;
};

}  // namespace

int poisson(const poisson_options& options) {
  zor_core_set_num_threads(options.threads);
  if (options.study) {
    print_study();
    return 0;
  }
  // Files are opened first and written last, so that nothing is left of a run that fails.
  std::optional<output_file> output;
  std::optional<svg_plot> plot;
  if (!options.output.empty()) {
    check_grid_name(options.output);
    output.emplace(options.output);
  }
  if (!options.plot.empty()) plot.emplace(options.plot);
  problem p = read_problem(options.problem);
  std::vector<double> f = read_data(&p);
  solver s(options.problem, p);
  if (f.empty()) f.assign(size_t(points(p.box)), 0);
  std::vector<double> u = f;
  double seconds = 0;
  const bool singular = s.solve(p, &u, &seconds);
  if (!std::all_of(u.begin(), u.end(), [](double v) { return std::isfinite(v); }))
    throw std::runtime_error("the solution is not finite: q is an eigenvalue, or the data are too large");
  const remainder r = residual(p, u, f, singular);
  if (plot) draw(*plot, p.box, u);
  if (output)
    output->commit(grid_text(options.output, {p.box.n[0] + 1, points(p.box) / (p.box.n[0] + 1), u}));

  std::string size = fmt::format("{}", p.box.n[0]);
  for (int a = 1; a < p.box.dimensions; ++a) size += fmt::format(" by {}", p.box.n[a]);
  const auto [least, largest] = std::minmax_element(u.begin(), u.end());
  fmt::print("grid        {} intervals, {} precision\n", size, p.single ? "single" : "double");
  fmt::print("u           {:.6g} to {:.6g}\n", *least, *largest);
  if (singular) fmt::print("singular    u has a mean of zero; f is out of balance by {:.6g}\n", -r.constant);
  fmt::print("residual    {:.1e}, of {:.1e} in the terms of an equation\n", r.worst, r.largest);
  fmt::print("time        {:.6f} s, threads at most {}\n", seconds, zor_core_num_threads());
  digest sum;
  sum.add(u.data(), u.size());
  print_digest(sum);
  return 0;
}

}  // namespace zor_tools
