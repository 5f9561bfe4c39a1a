// SPDX-License-Identifier: MIT
// Lays out tables and writes them, CSV and plots.
#include "bench/report.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <stdexcept>

#include "zor/core.h"

namespace zor_bench {
namespace {

const char* unit_name(unit u) { return u == unit::gflops ? "GFLOP/s" : u == unit::gbytes ? "GB/s" : "ns"; }

double shown_value(const measured& m, double seconds) {
  switch (m.of->shown) {
    case unit::gflops:
      return m.what.flops / seconds * 1e-9;
    case unit::gbytes:
      return m.what.bytes / seconds * 1e-9;
    case unit::time:
      break;
  }
  return seconds * 1e9;
}

std::string time_text(double seconds) {
  if (seconds < 1e-6) return fmt::format("{:.1f} ns", seconds * 1e9);
  if (seconds < 1e-3) return fmt::format("{:.2f} us", seconds * 1e6);
  return fmt::format("{:.2f} ms", seconds * 1e3);
}

std::string percent(double part) { return fmt::format("{:.0f} %", 100 * part); }

// The column of a library, "" when the case does not run it.
std::string value_of(const measured& m, const std::string& library) {
  for (size_t i = 0; i < m.libraries.size(); ++i)
    if (m.libraries[i].starts_with(library) && (i == 0) == (library == "zor")) {
      const double value = shown_value(m, m.seconds[i]);
      return fmt::format("{:.{}f}", value, value < 1e5 ? 2 : 0);
    }
  return "";
}

// The libraries of a family's table.
std::vector<std::string> columns(const environment& env, const family& f) {
  std::vector<std::string> names = {"zor"};
  for (const char* name : f.own_peers)
    if (name != nullptr) names.push_back(name);
  if (names.size() == 1)
    for (const peer& p : env.peers) names.push_back(p.name);
  return names;
}

std::string quoted_csv(const std::string& text) {
  if (text.find_first_of(",\"") == std::string::npos) return text;
  std::string result = "\"";
  for (const char c : text) result += c == '"' ? std::string("\"\"") : std::string(1, c);
  return result + "\"";
}

}  // namespace

double ratio(const measured& m) {
  if (m.seconds.size() < 2) return std::numeric_limits<double>::quiet_NaN();
  return *std::min_element(m.seconds.begin() + 1, m.seconds.end()) / m.seconds[0];
}

void print_header(const environment& env, const family& f) {
  fmt::print("\n{}: zor {} ({}), {} arithmetic, {} thread{}; {}\n", f.name, zor_core_kern_build(),
             zor_core_kern_path(), zor_arithmetic(), env.opts.threads, env.opts.threads == 1 ? "" : "s",
             unit_name(f.shown));
  fmt::print("{:<28}", "case");
  for (const std::string& name : columns(env, f)) fmt::print("{:>11}", name);
  fmt::print("{:>9}{:>11}{:>9}{:>9}\n", "ratio", "time",
             f.shown == unit::gflops   ? "of peak"
             : f.shown == unit::gbytes ? "of copy"
                                       : "",
             f.shown == unit::gbytes ? "of bound" : "");
}

void print_row(const environment& env, const measured& m) {
  fmt::print("{:<28}", m.what.name);
  for (const std::string& name : columns(env, *m.of)) fmt::print("{:>11}", value_of(m, name));
  const double against = ratio(m);
  fmt::print("{:>9}{:>11}", std::isnan(against) ? "" : fmt::format("{:.2f}", against),
             time_text(m.seconds[0]));
  fmt::print("{:>9}", m.ceiling > 0 ? percent(shown_value(m, m.seconds[0]) * 1e9 / m.ceiling) : "");
  fmt::print("{:>9}", m.bound_seconds > 0 ? percent(m.bound_seconds / m.seconds[0]) : "");
  for (const std::string& library : m.left_out) fmt::print("  {}: wrong result, left out", library);
  fmt::print("\n");
  if (!m.note.empty()) fmt::print("    {}\n", m.note);
  std::fflush(stdout);
}

void print_summary(const std::vector<measured>& all) {
  for (const family& f : families) {
    double sum = 0, least = std::numeric_limits<double>::infinity();
    int count = 0;
    std::string where;
    for (const measured& m : all) {
      const double against = ratio(m);
      if (m.of != &f || std::isnan(against)) continue;
      sum += std::log(against);
      ++count;
      if (against < least) least = against, where = m.what.name;
    }
    if (count > 0)
      fmt::print("\n{}: {} cases, geometric mean of the ratios {:.2f}, least {:.2f} ({})\n", f.name, count,
                 std::exp(sum / count), least, where);
  }
}

void print_csv_header() {
  fmt::print(
      "family,case,build,threads,library,details,seconds,gflops,gbytes_per_s,ratio_of_zor,ceiling,bound_"
      "seconds,arithmetic\n");
}

void print_csv_rows(const environment& env, const measured& m) {
  for (size_t i = 0; i < m.libraries.size(); ++i) {
    std::string details;
    for (const peer& p : env.peers)
      if (p.name == m.libraries[i]) details = p.details;
    fmt::print("{},{},{},{},{},{},{:.6g},{:.6g},{:.6g},{:.4g},{:.6g},{:.6g},{}\n", m.of->name,
               quoted_csv(m.what.name), zor_core_kern_build(), env.opts.threads, quoted_csv(m.libraries[i]),
               quoted_csv(details), m.seconds[i], m.what.flops / m.seconds[i] * 1e-9,
               m.what.bytes / m.seconds[i] * 1e-9, ratio(m), m.ceiling, m.bound_seconds, zor_arithmetic());
  }
  std::fflush(stdout);
}

namespace {

// One panel: cases along the axis, a box per library, the ceiling of each case as a line.
std::string panel(const family& f, const std::vector<const measured*>& rows) {
  std::vector<std::string> names;
  for (const measured* m : rows)
    for (const std::string& name : m->libraries)
      if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  std::string block = fmt::format("$data_{} << END\n", f.name);
  for (const measured* m : rows) {
    block += fmt::format("\"{}\"", m->what.name);
    for (const std::string& name : names) {
      const auto place = std::find(m->libraries.begin(), m->libraries.end(), name);
      if (place == m->libraries.end())
        block += " NaN";
      else
        block += fmt::format(" {:.6g}", shown_value(*m, m->seconds[size_t(place - m->libraries.begin())]));
    }
    block += m->ceiling > 0 ? fmt::format(" {:.6g}\n", m->ceiling * 1e-9) : " NaN\n";
  }
  block += fmt::format("END\nset title '{}'\nset ylabel '{}'\nplot ", f.name, unit_name(f.shown));
  for (size_t i = 0; i < names.size(); ++i)
    block +=
        fmt::format("{}$data_{} using {}:xtic(1) title '{}'", i == 0 ? "" : ", ", f.name, i + 2, names[i]);
  if (f.shown != unit::time)
    block += fmt::format(", '' using 0:{} with lines lt -1 title '{}'", names.size() + 2,
                         f.shown == unit::gflops ? "peak" : "copy");
  return block + "\n";
}

}  // namespace

void plot(const std::vector<measured>& all, zor_tools::svg_plot& svg) {
  std::string panels;
  size_t count = 0, widest = 0;
  for (const family& f : families) {
    std::vector<const measured*> rows;
    for (const measured& m : all)
      if (m.of == &f) rows.push_back(&m);
    if (rows.empty()) continue;
    panels += panel(f, rows);
    widest = std::max(widest, rows.size());
    ++count;
  }
  svg.draw(fmt::format(
      "{},{}\nset multiplot layout {},1\n"
      "set style data histogram\nset style histogram clustered\nset style fill solid 0.8 noborder\n"
      "set yrange [0:*]\nset grid ytics\nset key outside top\nset xtics rotate by 45 right noenhanced\n{}"
      "unset multiplot\n",
      std::max<size_t>(700, 150 + 60 * widest), 460 * count, count, panels));
}

}  // namespace zor_bench
