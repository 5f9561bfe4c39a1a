// SPDX-License-Identifier: MIT
// The method of a length and the bytes of work that its runs ask for.
#include "dft/engine/plan/select.h"

#include <iterator>

#include "dft/engine/plan/plan.h"
#include "dft/thresholds.h"

namespace zor::dft {
namespace {

// Limits grow with the memory of an element: single precision reaches twice as far.
int64_t reach(int64_t limit, int32_t slot) { return limit * (16 / slot); }

bool is_power_of_two(int32_t n) { return (n & (n - 1)) == 0; }
int32_t log2_of(int32_t n) { return 31 - __builtin_clz(uint32_t(n)); }

const tile_bits& bits_of(int32_t order) {
  const tile_bits* b = tiles_of_orders;
  while (b->up_to_order < order) ++b;
  return *b;
}

int32_t select_power_of_two(int32_t n, int32_t slot, selection* s) {
  if (n >= reach(int64_t{1} << 27, slot)) return engine_bad_order;
  *s = {method::power_of_two, 0, 0, power_of_two_work(log2_of(n), slot)};
  return engine_done;
}

int32_t select_chirp(int32_t n, int32_t slot, selection* s) {
  const int32_t m = padded_length(n);
  selection inner;
  const int32_t code = select_complex(m, slot, false, &inner);
  if (code != engine_done) return code;
  *s = {method::chirp, m, 0, inner.work + int64_t{m} * slot + 32};
  return engine_done;
}

// Lengths that are neither straight nor a power of two. Direct work is counted in elements of `direct_slot`
// bytes.
int32_t select_composite(int32_t n, int32_t slot, int32_t direct_slot, selection* s) {
  int32_t widest = 0;
  if (factors_usable(n, &widest)) {
    *s = {method::mixed, 0, widest, (int64_t{n} + widest) * slot + 64};
    return engine_done;
  }
  if (n < direct_below) {
    *s = {method::direct, 0, 0, int64_t{n} * direct_slot + 32};
    return engine_done;
  }
  if (n < 1 << 25) return select_chirp(n, slot, s);
  return engine_bad_size;
}

}  // namespace

bool factors_usable(int32_t n, int32_t* widest) {
  *widest = 0;
  int32_t rest = n;
  int32_t rows = 0;
  while (rest % 2 == 0) {
    rest /= rest % 4 == 0 ? 4 : 2;
    ++rows;
  }
  for (int32_t d = 3; rest >= 9 && rest >= d * d;) {
    if (rest % d != 0) {
      d += 2;
      if (d > factors_searched_to) return false;
      continue;
    }
    rest /= d;
    ++rows;
    if (d > largest_small_factor) *widest = d;
  }
  if (rows == 0 || rest > (n % 2 == 0 ? widest_last_factor_even : widest_last_factor_odd)) return false;
  if (rest > largest_small_factor) *widest = rest;
  return true;
}

// The chirp is even, so places n - 1 and 1 - n may coincide: 8192 serves 4097 too.
int32_t padded_length(int32_t n) {
  constexpr int32_t longest = *std::rbegin(padded_lengths);
  const int32_t target = 2 * n - 1 == longest + 1 ? longest : 2 * n - 1;
  if (target > longest) return 1 << (log2_of(target - 1) + 1);
  int32_t i = 0;
  while (padded_lengths[i] < target) ++i;
  return padded_lengths[i];
}

int64_t power_of_two_work(int32_t order, int32_t slot) {
  if (order < no_work_below_order) return 0;
  if (order < tiled_from_order) return int64_t{slot} << order;
  const tile_bits& b = bits_of(order);
  const int64_t inner = power_of_two_work(order - b.top, slot);
  const int64_t tile = int64_t{slot} << b.tile;
  const int64_t least = order >= least_tile_from_order ? int64_t{slot} << least_tile_bits : 0;
  const int64_t larger = inner > tile ? inner : tile;
  return larger > least ? larger : least;
}

int32_t select_complex(int32_t n, int32_t slot, bool unordered, selection* s) {
  if (n < straight_below) {
    *s = {method::straight, 0, 0, 0};
    return engine_done;
  }
  if (is_power_of_two(n)) return select_power_of_two(n, slot, s);
  if (n >= reach(int64_t{1} << 26, slot)) return engine_bad_size;
  const int32_t code = select_composite(n, slot, slot, s);
  if (code == engine_done && unordered && s->how == method::mixed && n > unordered_above)
    s->work = s->widest != 0 ? int64_t{s->widest} * slot + 64 : 0;
  return code;
}

int32_t select_real(int32_t n, int32_t slot, selection* s) {
  if (n < straight_below) {
    *s = {method::straight, 0, 0, 0};
    return engine_done;
  }
  if (is_power_of_two(n)) {
    if (n >= reach(int64_t{1} << 27, slot)) return engine_bad_order;
    return select_power_of_two(n / 2, slot, s);
  }
  if (n >= reach(int64_t{1} << 26, slot)) return engine_bad_size;
  return n % 2 == 0 ? select_composite(n / 2, slot, slot, s) : select_composite(n, slot, slot / 2, s);
}

}  // namespace zor::dft
