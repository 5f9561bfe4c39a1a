// SPDX-License-Identifier: MIT
// What each method costs, and the tiles of a transformed problem. The figures were measured once (they stand
// in docs/convolution.md); which method a call takes follows from its shapes, so that it is the same on every
// processor.
#include <cmath>

#include <algorithm>
#include <bit>

#include "conv/tiles/tile.h"
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

// Tiles of the kernels: a point costs so much up to 2^11 of them, and for each doubling up to 2^18 so much
// more; in several dimensions it is copied too. They take problems with so many terms a value, or so many
// values. Smaller ones are those of the library's transforms, whose bits they keep.
constexpr double kernel_point_cost = 24, kernel_level_cost = 4.1, kernel_copy_cost = 10,
                 kernel_call_cost = 1000;
constexpr double kernel_near_level = 11, kernel_far_level = 18, kernel_far_bytes = 1 << 22;
constexpr double tile_least_terms = 512, tile_least_values = 1 << 16;

// Beyond all memory.
constexpr double most_points = double(INT64_C(1) << 40);

// Lengths that transforms are fast for: the granule times 1, 3, 5, 9, 15 or 25 and a power of two.
zor_int good_length(zor_int least, zor_int granule) {
  zor_int best = 0;
  for (const zor_int odd : {1, 3, 5, 9, 15, 25}) {
    const zor_int base = odd * granule, length = base << std::bit_width(uint64_t(least - 1) / uint64_t(base));
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
  double columns = 1;
  for (int i = 1; i < dims; ++i) columns *= column_factor;
  double cost = points * (point_cost + level_cost * std::log2(points)) * columns;
  if (complex) cost *= complex_transform;
  if (single) cost *= single_transform;
  return cost * (bytes > far_bytes      ? beyond_factor
                 : bytes > cached_bytes ? beside_factor
                                        : 1) +
         tile_call_cost + (dims > 1 ? lines * line_cost : 0);
}

double kernel_tile_cost(double points, int dims, bool complex, bool single) {
  if (complex) points *= 2;
  const double level = std::clamp(std::log2(points), kernel_near_level, kernel_far_level);
  const double bytes = points * (single ? 4 : 8);
  const double point =
      kernel_point_cost + kernel_level_cost * (level - kernel_near_level) + (dims > 1 ? kernel_copy_cost : 0);
  return points * point * (single ? single_transform : 1) * (bytes > kernel_far_bytes ? beside_factor : 1) +
         kernel_call_cost;
}

struct transformed_problem {
  bool complex, single, by_tiles;
  int dims;
  const conv_dimension* of;
  extent e[conv_most_dims];

  // Lengths are multiples of this; the slowest of a tile of several dimensions sometimes of more.
  zor_int granule(int i) const {
    if (!by_tiles) return 2;
    if (dims == 1) return zor::conv::leaf_group * (complex ? 1 : 2);
    return i == 0 ? zor::conv::leaf_radix : 2;
  }
  // The longest lengths: one tile.
  conv_plan lone_tile(zor_int slowest_granule) const {
    conv_plan p = {by_tiles, {}, {}, 0};
    for (int i = 0; i < dims; ++i) {
      p.tile[i] = of[i].count;
      p.padded[i] =
          good_length(e[i].whole(), i == dims - 1 ? std::max(slowest_granule, granule(i)) : granule(i));
    }
    p.cost = cost_of(p);
    return p;
  }
  double cost_of(const conv_plan& p) const {
    zor::conv::tile_shape shape = {complex, false, dims, {}};
    double points = 1, tiles = 1;
    for (int i = 0; i < dims; ++i) {
      shape.lengths[i] = p.padded[i];
      points *= double(p.padded[i]);
      tiles *= std::ceil(double(of[i].count) / double(p.tile[i]));
    }
    if (by_tiles && (points > most_points || !zor::conv::is_tile(shape))) return HUGE_VAL;
    const double lines = points / double(p.padded[0]);
    const double one = by_tiles ? kernel_tile_cost(points, dims, complex, single)
                                : tile_cost(points, lines, dims, complex, single);
    return (tiles + plan_share) * one + transform_call_cost;
  }
};

// Dimension by dimension the best length for those of the others, until nothing changes.
conv_plan best_tiles(const transformed_problem& p) {
  conv_plan plan = p.lone_tile(2);
  if (plan.cost == HUGE_VAL) plan = p.lone_tile(2 * zor::conv::leaf_radix);
  for (bool changed = true; changed;) {
    changed = false;
    for (int i = 0; i < p.dims; ++i) {
      const zor_int whole = p.e[i].whole(), step = p.of[i].step, granule = p.granule(i);
      for (zor_int length = good_length(p.e[i].taps + step, granule); length < whole;
           length = good_length(length + 1, granule)) {
        conv_plan other = plan;
        other.padded[i] = length;
        other.tile[i] = std::min(p.of[i].count, (length - p.e[i].taps) / step + 1);
        other.cost = p.cost_of(other);
        if (other.cost < plan.cost) plan = other, changed = true;
      }
    }
  }
  return plan;
}

}  // namespace

conv_plan plan_transform(bool complex, bool single, bool correlation, int dims, const conv_dimension* of) {
  double x = 1, y = 1, values = 1;
  for (int i = 0; i < dims; ++i) x *= double(of[i].m), y *= double(of[i].n), values *= double(of[i].count);
  const bool taps_are_y = y <= x;
  transformed_problem p = {complex, single, false, dims, of, {}};
  for (int i = 0; i < dims; ++i) {
    const zor_int first = of[i].start + (correlation ? of[i].m - 1 : 0);
    p.e[i] = {taps_are_y ? of[i].m : of[i].n, taps_are_y ? of[i].n : of[i].m, first,
              first + (of[i].count - 1) * of[i].step};
  }
  const conv_plan plan = best_tiles(p);
  if (std::min(x, y) < tile_least_terms && values < tile_least_values) return plan;
  p.by_tiles = true;
  const conv_plan by_tiles = best_tiles(p);
  return by_tiles.cost < plan.cost ? by_tiles : plan;
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
