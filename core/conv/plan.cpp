// SPDX-License-Identifier: MIT
// What each method costs, and the tiles of a transformed problem. The figures were measured once (they stand
// in docs/convolution.md); which method a call takes follows from its shapes, so that it is the same on every
// processor.
#include <cmath>

#include <algorithm>

#include "core/conv/problem.h"

namespace zor_core {
namespace {

// The unit is a product and addition of the direct method in double precision. A point of a tile costs, there
// and back, point + level log2(points) of them; where the tile leaves the caches, the more.
constexpr double point_cost = 12, level_cost = 2.4;
constexpr double cached_bytes = 1 << 19, far_bytes = 1 << 24;
constexpr double beside_factor = 1.5, beyond_factor = 2;
// Of lines that are not contiguous, for each dimension behind the first.
constexpr double column_factor = 1.25;
// What complex and single data cost, as multiples.
constexpr double complex_transform = 1.9, complex_product = 4;
// What a term costs where lines are decimated, as a multiple.
constexpr double decimated_factor = 3;
constexpr double single_transform = 0.5, single_product = 0.5;
// A value costs this beside its products; a tile, and a contiguous line of one of several dimensions, this
// beside their points; a call this beside its values or tiles; a plan so many times a tile.
constexpr double output_cost = 8, tile_call_cost = 3600, line_cost = 20000, direct_call_cost = 5e3,
                 transform_call_cost = 2e4, plan_share = 1.5;

// Lengths that transforms are fast for.
zor_int good_length(zor_int least) {
  zor_int best = 0;
  for (const zor_int odd : {1, 3, 5, 9, 15, 25}) {
    zor_int length = odd == 1 ? 2 : odd * 2;
    while (length < least) length *= 2;
    if (best == 0 || length < best) best = length;
  }
  return best;
}

// A dimension as a convolution: the longer range of `signal` and `taps`, and the wanted values from first to
// last.
struct extent {
  zor_int signal, taps, first, last;
  // The shortest cyclic convolution that leaves all wanted values alone.
  zor_int whole() const { return std::max({last + 1, signal + taps - 1 - first, signal, taps}); }
};

double tile_cost(double points, double lines, int dims, bool complex, bool single) {
  const double bytes = points * (complex ? 16 : 8) * (single ? 0.5 : 1);
  double cost = points * (point_cost + level_cost * std::log2(points)) * std::pow(column_factor, dims - 1);
  if (complex) cost *= complex_transform;
  if (single) cost *= single_transform;
  return cost * (bytes > far_bytes      ? beyond_factor
                 : bytes > cached_bytes ? beside_factor
                                        : 1) +
         tile_call_cost + (dims > 1 ? lines * line_cost : 0);
}

}  // namespace

conv_plan plan_transform(bool complex, bool single, bool correlation, int dims, const conv_dimension* of) {
  double x = 1, y = 1;
  for (int i = 0; i < dims; ++i) x *= double(of[i].m), y *= double(of[i].n);
  const bool taps_are_y = y <= x;
  extent e[conv_most_dims];
  conv_plan plan = {};
  for (int i = 0; i < dims; ++i) {
    const zor_int first = of[i].start + (correlation ? of[i].m - 1 : 0);
    e[i] = {taps_are_y ? of[i].m : of[i].n, taps_are_y ? of[i].n : of[i].m, first,
            first + (of[i].count - 1) * of[i].step};
    plan.tile[i] = of[i].count;
    plan.padded[i] = good_length(e[i].whole());
  }
  // Dimension by dimension the best length for those of the others, until nothing changes.
  const auto cost_of = [&](const conv_plan& p) {
    double points = 1, tiles = 1;
    for (int i = 0; i < dims; ++i) {
      points *= double(p.padded[i]);
      tiles *= std::ceil(double(of[i].count) / double(p.tile[i]));
    }
    return (tiles + plan_share) * tile_cost(points, points / double(p.padded[0]), dims, complex, single) +
           transform_call_cost;
  };
  plan.cost = cost_of(plan);
  for (bool changed = true; changed;) {
    changed = false;
    for (int i = 0; i < dims; ++i) {
      const zor_int whole = e[i].whole();
      for (zor_int length = good_length(e[i].taps + of[i].step); length < whole;
           length = good_length(length + 1)) {
        conv_plan other = plan;
        other.padded[i] = length;
        other.tile[i] = std::min(of[i].count, (length - e[i].taps) / of[i].step + 1);
        other.cost = cost_of(other);
        if (other.cost < plan.cost) plan = other, changed = true;
      }
    }
  }
  return plan;
}

double direct_cost(bool complex, bool single, bool correlation, int dims, const conv_dimension* of) {
  double outputs = 1, terms = 1;
  for (int i = 0; i < dims; ++i) {
    const conv_dimension& d = of[i];
    outputs *= double(d.count);
    // Terms of a value in the middle, fewer towards the ends of the full result.
    const double longest = double(std::min(d.m, d.n));
    const double full = double(conv_last(correlation, d) - conv_first(correlation, d) + 1);
    const double mean = double(d.m) * double(d.n) / full;
    const double share = double(d.count) * double(d.step) / full;
    terms *= std::min(longest, mean / std::max(share, mean / longest));
  }
  const double product = (complex ? complex_product : 1) * (of[0].step > 1 ? decimated_factor : 1);
  const double value = terms * product + output_cost;
  return outputs * value * (single ? single_product : 1) + direct_call_cost;
}

}  // namespace zor_core
