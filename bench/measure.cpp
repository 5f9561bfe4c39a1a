// SPDX-License-Identifier: MIT
// Repeats a call in batches and keeps the fastest; measures the peaks that ratios are taken of.
#include "bench/measure.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <limits>
#include <map>

#include "bench/operands.h"
#include "bench/peak.h"

namespace zor_bench {
namespace {

constexpr double batch_seconds = 1e-3;  // a thousand times what reading the clock costs
constexpr int min_rounds = 4;
constexpr int max_rounds = 400;
// The rounds that are owed may cost so many times the budget, and a library so many times slower than the
// fastest is not run again.
constexpr double overdraft = 5, too_slow = 3;

double timed(const runner& run, int64_t repeats) {
  const auto start = std::chrono::steady_clock::now();
  run(repeats);
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Repeats that fill a batch, found by doubling, and the time of one. The runs also warm caches and clocks.
struct pace {
  int64_t repeats;
  double seconds;
};
pace calibrate(const runner& run) {
  for (int64_t repeats = 1;; repeats *= 2) {
    const double seconds = timed(run, repeats), one = seconds / double(repeats);
    if (seconds >= batch_seconds) return {std::max<int64_t>(1, int64_t(batch_seconds / one)), one};
  }
}

double best_of(const runner& run) { return best_times({{"", run}}, 0.02, false)[0]; }

}  // namespace

std::vector<double> best_times(const std::vector<contender>& contenders, double budget, bool quick) {
  const size_t count = contenders.size();
  std::vector<int64_t> repeats(count, 1);
  std::vector<double> best(count, std::numeric_limits<double>::infinity());
  double spent = 0, fastest = std::numeric_limits<double>::infinity();
  if (!quick)
    for (size_t i = 0; i < count; ++i) {
      const pace first = calibrate(contenders[i].run);
      repeats[i] = first.repeats;
      best[i] = first.seconds;
      fastest = std::min(fastest, first.seconds);
      if (first.seconds > batch_seconds) spent += first.seconds;
    }
  const auto goes_on = [&](int round) {
    if (quick) return round < 1;
    return round < max_rounds && spent < (round < min_rounds ? overdraft * budget : budget);
  };
  for (int round = 0; goes_on(round); ++round) {
    for (size_t iteration = 0; iteration < count; ++iteration) {
      const size_t i = (iteration + size_t(round)) % count;
      if (round >= min_rounds && best[i] > too_slow * fastest) continue;
      const double seconds = timed(contenders[i].run, repeats[i]);
      best[i] = std::min(best[i], seconds / double(repeats[i]));
      spent += seconds;
    }
  }
  return best;
}

peak peak_flops(bool single_precision) {
  struct choice {
    const peak_kernel* kernel;
    double peak::*rate;
  };
  std::vector<choice> choices = {{&peak_separate_16, &peak::separate}};
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"))
    choices.insert(choices.end(), {{&peak_separate_32, &peak::separate}, {&peak_fused_32, &peak::fused}});
  if (__builtin_cpu_supports("avx512f"))
    choices.insert(choices.end(), {{&peak_separate_64, &peak::separate}, {&peak_fused_64, &peak::fused}});
  peak best;
  for (const choice& c : choices) {
    const double operations = c.kernel->operation_bytes / (single_precision ? sizeof(float) : sizeof(double));
    const auto run = single_precision ? c.kernel->run_single : c.kernel->run_double;
    best.*c.rate = std::max(best.*c.rate, operations / best_of([run](int64_t steps) { run(steps); }));
  }
  return best;
}

double add_latency() {
  return best_of([](int64_t steps) {
    double sum = 0, term = 1;
    asm volatile("" : "+x"(term));
    for (int64_t i = 0; i < steps; ++i) {
      sum += term;
      asm volatile("" : "+x"(sum));
    }
  });
}

double copy_bandwidth(double bytes) {
  static std::map<size_t, double> known;
  const size_t half = std::max<size_t>(size_t(bytes) / 2, 64);
  double& rate = known[half];
  if (rate == 0) {
    const operand<char> from(int64_t(half), 0), to(int64_t(half), 1);
    std::memset(from.data(), 1, half);
    std::memset(to.data(), 2, half);  // Its pages exist before they are timed.
    const double seconds = best_of([&](int64_t steps) {
      for (int64_t i = 0; i < steps; ++i) {
        std::memcpy(to.data(), from.data(), half);
        asm volatile("" : : "r"(to.data()) : "memory");
      }
    });
    rate = 2 * double(half) / seconds;
  }
  return rate;
}

}  // namespace zor_bench
