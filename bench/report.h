// SPDX-License-Identifier: MIT
// What a run shows: tables, rows of CSV, a plot, and progress on a terminal.
#pragma once

#include <string>
#include <vector>

#include "bench/bench.h"
#include "tools/plot.h"
#include "tools/progress.h"

namespace zor_bench {

struct measured {
  const family* of;
  bench_case what;
  std::vector<std::string> libraries;
  std::vector<std::string> left_out;  // libraries with a wrong result
  std::string note;                   // a line below the row; empty: none
  std::vector<double> seconds;        // of one call, the library's own place in `libraries`
  double ceiling;                     // of what the family shows: operations or bytes a second; 0: none known
  double bound_seconds;               // what the order of sums allows at best; 0: no such bound
};

// Time of the fastest other library over ours: above 1 we are ahead.
double ratio(const measured& m);

void print_header(const environment& env, const family& f);
void print_row(const environment& env, const measured& m);
void print_summary(const std::vector<measured>& all);
void print_csv_header();
void print_csv_rows(const environment& env, const measured& m);

// Draws all families into one file.
void plot(const std::vector<measured>& all, zor_tools::svg_plot& svg);

using zor_tools::clear_progress;
using zor_tools::show_progress;

}  // namespace zor_bench
