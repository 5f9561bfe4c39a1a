// SPDX-License-Identifier: MIT
// Time of one call, and what the machine could do at best.
#pragma once

#include <vector>

#include "bench/bench.h"

namespace zor_bench {

// Seconds of one call for each contender: batches long enough for the clock, contenders taking turns, the
// best batch of each. `budget` is the time in seconds for all of them together; calls that take longer are
// run once, and libraries far behind the fastest only a few times.
std::vector<double> best_times(const std::vector<contender>& contenders, double budget, bool quick);

// Floating-point operations a second of one core in registers, in the widest vectors the processor has, with
// multiplication and addition separate or fused (0 where it cannot fuse them).
struct peak {
  double separate = 0, fused = 0;
};
peak peak_flops(bool single_precision);

// Seconds from one addition to the next that needs its result.
double add_latency();

// Bytes a second, read and written, of the C library's memcpy when source and destination are `bytes`
// together.
double copy_bandwidth(double bytes);

}  // namespace zor_bench
