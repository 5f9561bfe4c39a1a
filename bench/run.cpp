// SPDX-License-Identifier: MIT
// The run of the bench: which cases fit, one after the other through all libraries, into the report.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <optional>
#include <regex>
#include <stdexcept>

#include "bench/bench.h"
#include "bench/measure.h"
#include "bench/report.h"

namespace zor_bench {
namespace {

struct ceilings {
  peak single_precision, double_precision;
  double add = 0;
};

ceilings machine_ceilings(const options& opts) {
  if (opts.quick) return {};
  return {peak_flops(true), peak_flops(false), add_latency()};
}

void print_machine(const environment& env, const ceilings& top) {
  if (env.peers.empty()) fmt::print("no peer library found\n");
  for (const peer& p : env.peers) fmt::print("peer {} {} ({})\n", p.name, p.details, p.file);
  if (env.opts.quick) {
    fmt::print("quick: every case runs once, no figure below is a measurement\n");
    return;
  }
  for (const auto& [name, p] :
       {std::pair("double", top.double_precision), std::pair("single", top.single_precision)})
    fmt::print(
        "peak of one core in registers, {}: {:.1f} GFLOP/s with separate multiply and add, {:.1f} fused\n",
        name, p.separate * 1e-9, p.fused * 1e-9);
  fmt::print("from one addition to the next that needs its result: {:.2f} ns\n", top.add * 1e9);
}

double ceiling_of(const environment& env, const family& f, const bench_case& c, const ceilings& top) {
  if (env.opts.quick || c.bytes == 0) return 0;
  if (f.shown == unit::gbytes) return copy_bandwidth(c.bytes);
  const peak& p = c.single_precision ? top.single_precision : top.double_precision;
  return (c.threads > 0 ? c.threads : env.opts.threads) * std::max(p.separate, p.fused);
}

struct selected_case {
  const family* of;
  bench_case what;
};

std::regex compile(const std::string& filter) {
  try {
    return std::regex(filter);
  } catch (const std::regex_error&) {
    throw std::invalid_argument(fmt::format("--case: '{}' is no regular expression", filter));
  }
}

std::vector<selected_case> select(const environment& env) {
  const auto& wanted = env.opts.families;
  for (const std::string& name : wanted)
    if (std::none_of(std::begin(families), std::end(families),
                     [&](const family& f) { return f.name == name; }))
      throw std::invalid_argument(
          fmt::format("there is no family '{}'; the families are {}", name, family_names()));
  const std::regex filter = compile(env.opts.filter);
  std::vector<selected_case> chosen;
  for (const family& f : families) {
    if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), f.name) == wanted.end()) continue;
    for (bench_case& c : f.cases(env))
      if (std::regex_search(c.name, filter)) chosen.push_back({&f, std::move(c)});
  }
  return chosen;
}

measured measure(const environment& env, const selected_case& chosen, const ceilings& top) {
  const prepared ready = chosen.what.setup();
  if (!ready.left_out.empty() && ready.contenders.size() == 1)
    throw std::runtime_error(
        fmt::format("{}: the result of zor is that of no other library", chosen.what.name));
  measured m;
  m.left_out = ready.left_out;
  m.note = ready.note;
  m.of = chosen.of;
  m.what = chosen.what;
  for (const contender& c : ready.contenders) m.libraries.push_back(c.library);
  m.seconds = best_times(ready.contenders, env.opts.seconds, env.opts.quick);
  m.ceiling = ceiling_of(env, *chosen.of, chosen.what, top);
  m.bound_seconds = chosen.what.chained_adds * top.add;
  return m;
}

// What a case is likely to cost, in any unit: the budget, or the calls of one that takes longer.
double likely_cost(const options& opts, const bench_case& c) {
  constexpr double calls = 6, rate = 5e10;
  return opts.quick ? 1 : std::max(opts.seconds, calls * c.flops / rate);
}

}  // namespace

std::string family_names() {
  std::string names;
  for (const family& f : families) names += (names.empty() ? "" : ", ") + std::string(f.name);
  return names;
}

int run(const options& opts) {
  environment env;
  env.opts = opts;
  env.peers = load_blas_peers(opts.threads, opts.openblas_core);
  const std::vector<selected_case> chosen = select(env);
  if (chosen.empty()) throw std::invalid_argument("no case fits");
  std::optional<zor_tools::svg_plot> svg;
  if (!opts.plot.empty()) svg.emplace(opts.plot);
  const ceilings top = machine_ceilings(opts);
  if (!opts.csv) print_machine(env, top);

  double cost_left = 0, cost_done = 0;
  for (const selected_case& c : chosen) cost_left += likely_cost(opts, c.what);
  const auto start = std::chrono::steady_clock::now();
  std::vector<measured> all;
  const family* shown = nullptr;
  if (opts.csv) print_csv_header();
  for (size_t i = 0; i < chosen.size(); ++i) {
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    show_progress(i, chosen.size(), chosen[i].what.name, i > 0 ? elapsed / cost_done * cost_left : 0);
    all.push_back(measure(env, chosen[i], top));
    clear_progress();
    cost_left -= likely_cost(opts, chosen[i].what);
    cost_done += likely_cost(opts, chosen[i].what);
    if (opts.csv) {
      print_csv_rows(env, all.back());
      continue;
    }
    if (shown != chosen[i].of) print_header(env, *chosen[i].of);
    shown = chosen[i].of;
    print_row(env, all.back());
  }
  if (!opts.csv) print_summary(all);
  if (svg) plot(all, *svg);
  return 0;
}

}  // namespace zor_bench
