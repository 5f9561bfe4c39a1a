// SPDX-License-Identifier: MIT
// Entries in the order of a key, a row or a column, by counting; entries of one key keep their order. Where
// neighbours have keys far apart and the result is larger than the caches, each entry placed would move lines
// of its own to the processor and back. Such entries are first divided into ranges of keys, one stream each,
// and every range is then sorted within the second cache.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

#include "serv/scalar.h"
#include "serv/scratch.h"

namespace zor::sparse {

namespace thresholds {
// Tuned: the entries from which a result is taken to be larger than the caches, the bits of the number of key
// ranges, and the looks that tell whether neighbours are far apart.
inline constexpr zor_int least_for_ranges = zor_int(1) << 21;
inline constexpr int range_bits = 8;
inline constexpr zor_int neighbour_looks = 64;
}  // namespace thresholds

// The entries: their keys from `base` on, one after the other, and their values. each(visit) calls
// visit(k, number) for every entry k in the same order, with the number that belongs to it.
template <class T, class I, class Each>
struct keyed_entries {
  const I* key;
  zor_int count, base;
  const T* value;  // null where values do not matter
  Each each;
};
// Where they go: starts[] has one element more than there are keys, and counts positions from `origin`.
template <class T, class I>
struct sorted_entries {
  I *starts, *number;
  T* value;
  zor_int origin;
};

// counts[c] := origin + the number of entries of keys before c, one more element than there are keys.
template <class I>
void starts_of_counts(I* counts, zor_int keys, zor_int origin) {
  zor_int start = origin;
  for (zor_int c = 0; c < keys; ++c) {
    const zor_int count = counts[c];
    counts[c] = I(start);
    start += count;
  }
  counts[keys] = I(start);
}
// The starts again, after each was moved to the end of its run.
template <class I>
void shift_starts_back(I* starts, zor_int keys, zor_int origin) {
  if (keys > 0) std::memmove(starts + 1, starts, size_t(keys) * sizeof(I));
  starts[0] = I(origin);
}

// starts[] for the keys as they are.
template <class T, class I, class Each>
void count_keys(zor_int keys, const keyed_entries<T, I, Each>& from, const sorted_entries<T, I>& to) {
  std::memset(to.starts, 0, size_t(keys + 1) * sizeof(I));
  I* const counts = to.starts - from.base;
  for (zor_int k = 0; k < from.count; ++k) ++counts[from.key[k]];
  starts_of_counts(to.starts, keys, to.origin);
}

// Puts the entries in their places, and moves each start to the end of its run.
template <class T, class I, class Each>
void place_entries(const keyed_entries<T, I, Each>& from, const sorted_entries<T, I>& to) {
  I *const next = to.starts - from.base, *const numbers = to.number - to.origin;
  T* const values = from.value == nullptr ? nullptr : to.value - to.origin;
  from.each([&](zor_int k, I number) __attribute__((always_inline)) {
    const zor_int at = next[from.key[k]]++;
    numbers[at] = number;
    if (values != nullptr) values[at] = from.value[k];
  });
}

// Ranges of 2^shift keys.
struct key_ranges {
  static constexpr zor_int most = zor_int(1) << thresholds::range_bits;
  static constexpr int most_shift = 16;

  explicit key_ranges(zor_int keys)
      : shift(std::max(0, int(std::bit_width(uint64_t(keys))) - thresholds::range_bits)),
        count(((keys - 1) >> shift) + 1) {}

  // Whether neighbours mostly lie in ranges that are not neighbours, as a look at some of them tells.
  template <class I>
  bool separate(const I* key, zor_int entries) const {
    zor_int far = 0;
    for (zor_int n = 0; n < thresholds::neighbour_looks; ++n) {
      const I* const k = key + (entries - 2) / thresholds::neighbour_looks * n;
      far += std::abs((zor_int(k[1]) >> shift) - (zor_int(k[0]) >> shift)) > 1;
    }
    return far > thresholds::neighbour_looks / 2;
  }

  int shift;
  zor_int count, start[most + 1] = {};
};

// One range, whose entries stand in the places of the range in the order in which they came. low[k] is what
// the key of entry k has beyond the first key of the range.
template <class T, class I>
void sort_range(zor_int from, zor_int count, zor_int first_key, zor_int keys, const uint16_t* low,
                const sorted_entries<T, I>& to, I* number, T* value) {
  I* const starts = to.starts + first_key;
  I* const numbers = to.number - to.origin;
  std::memset(starts, 0, size_t(keys) * sizeof(I));
  for (zor_int k = 0; k < count; ++k) ++starts[low[k]];
  starts_of_counts(starts, keys, from + to.origin);
  std::memcpy(number, to.number + from, size_t(count) * sizeof(I));
  if (value == nullptr) {
    for (zor_int k = 0; k < count; ++k) numbers[starts[low[k]]++] = number[k];
    return;
  }
  T* const values = to.value - to.origin;
  std::memcpy(static_cast<void*>(value), to.value + from, size_t(count) * sizeof(T));
  for (zor_int k = 0; k < count; ++k) {
    const zor_int at = starts[low[k]]++;
    numbers[at] = number[k];
    values[at] = value[k];
  }
}

// False, with nothing done, where it does not pay or memory is short.
template <class T, class I, class Each>
bool sort_by_ranges(zor_int keys, const keyed_entries<T, I, Each>& from, const sorted_entries<T, I>& to) {
  if (from.count < thresholds::least_for_ranges || keys < key_ranges::most) return false;
  key_ranges ranges(keys);
  if (ranges.shift > key_ranges::most_shift || !ranges.separate(from.key, from.count)) return false;
  const int shift = ranges.shift;
  const auto range_of = [&](zor_int k) { return (zor_int(from.key[k]) - from.base) >> shift; };
  for (zor_int k = 0; k < from.count; ++k) ++ranges.start[range_of(k) + 1];
  const zor_int longest = *std::max_element(ranges.start, ranges.start + ranges.count + 1);
  const bool valued = from.value != nullptr;
  const scratch<uint16_t> low(from.count);
  const scratch<I> number(longest);
  const scratch<T> value(valued ? longest : 0);
  if (low.data == nullptr || number.data == nullptr || (valued && value.data == nullptr)) return false;

  for (zor_int r = 0; r < ranges.count; ++r) ranges.start[r + 1] += ranges.start[r];
  zor_int next[key_ranges::most];
  std::copy_n(ranges.start, ranges.count, next);
  from.each([&](zor_int k, I own) __attribute__((always_inline)) {
    const zor_int key = zor_int(from.key[k]) - from.base, at = next[key >> shift]++;
    low.data[at] = uint16_t(key & ((zor_int(1) << shift) - 1));
    to.number[at] = own;
    if (valued) to.value[at] = from.value[k];
  });
  for (zor_int r = 0; r < ranges.count; ++r) {
    const zor_int start = ranges.start[r], first = r << shift;
    sort_range(start, ranges.start[r + 1] - start, first, std::min(keys - first, zor_int(1) << shift),
               low.data + start, to, number.data, value.data);
  }
  shift_starts_back(to.starts, keys, to.origin);
  return true;
}

template <class T, class I, class Each>
void sort_by_key(zor_int keys, const keyed_entries<T, I, Each>& from, const sorted_entries<T, I>& to) {
  if (sort_by_ranges(keys, from, to)) return;
  count_keys(keys, from, to);
  place_entries(from, to);
  shift_starts_back(to.starts, keys, to.origin);
}

}  // namespace zor::sparse
