// SPDX-License-Identifier: MIT
#include "dft/engine/plan/select.h"

#include "dft/engine/plan/plan.h"

namespace zor::dft {
namespace {

constexpr int32_t straight_below = 17;
constexpr int32_t direct_below = 91;
constexpr int32_t widest_even = 150, widest_odd = 90;

// Lengths the chirp transform pads to, up to 8192; powers of two serve above.
constexpr int16_t padded[] = {128,  144,  160,  192,  200,  256,  288,  320,  384,  400,  512,
                              576,  640,  768,  800,  1024, 1152, 1280, 1536, 1600, 2048, 2304,
                              2560, 3072, 3200, 4096, 4608, 5120, 6144, 6400, 8192};

// Limits grow with the memory of an element: single precision reaches twice as far.
int64_t reach(int64_t limit, int32_t slot) { return limit * (16 / slot); }

bool is_power_of_two(int32_t n) { return (n & (n - 1)) == 0; }
int32_t log2_of(int32_t n) { return 31 - __builtin_clz(uint32_t(n)); }

// Top and tile bits of the blocked power-of-two transform of an order from 15 on.
struct block_bits {
  int32_t top, tile;
};
block_bits bits_of(int32_t order) {
  if (order == 15) return {3, 8};
  if (order <= 18) return {4, 10};
  if (order <= 20) return {6, 13};
  if (order == 21) return {7, 14};
  return {8, 14};
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
  if (n < reach(int64_t{1} << 25, slot)) return select_chirp(n, slot, s);
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
      if (d > 90) return false;
      continue;
    }
    rest /= d;
    ++rows;
    if (d > 13) *widest = d;
  }
  if (rows == 0 || rest > (n % 2 == 0 ? widest_even : widest_odd)) return false;
  if (rest > 13) *widest = rest;
  return true;
}

// The chirp is even, so places n - 1 and 1 - n may coincide: 8192 serves 4097 too.
int32_t padded_length(int32_t n) {
  constexpr int32_t longest = 8192;
  const int32_t target = 2 * n - 1 == longest + 1 ? longest : 2 * n - 1;
  if (target > longest) return 1 << (log2_of(target - 1) + 1);
  int32_t i = 0;
  while (padded[i] < target) ++i;
  return padded[i];
}

int64_t power_of_two_work(int32_t order, int32_t slot) {
  if (order < 6) return 0;
  if (order < 15) return int64_t{slot} << order;
  const block_bits b = bits_of(order);
  const int64_t inner = power_of_two_work(order - b.top, slot);
  const int64_t tile = int64_t{slot} << b.tile;
  const int64_t least = order >= 19 ? int64_t{slot} << 13 : 0;
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
