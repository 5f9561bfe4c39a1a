// SPDX-License-Identifier: MIT
// A set of columns that is read in ascending order: a bit a column, and over each 64 words of bits one more
// word that tells which of them are not zero, twice. Adding a column and reading it take a few operations
// each, however many columns there are.
#pragma once

#include <cstring>

#include "serv/vec.h"

namespace zor::sparse {

class column_set {
 public:
  // Words of memory for columns 0 to n - 1.
  static zor_int words(zor_int n) { return level_words(n) + level_words(level_words(n)) + top_words(n); }

  // The memory is cleared here, and again by each drain.
  column_set(uint64_t* memory, zor_int n)
      : low_(memory),
        middle_(low_ + level_words(n)),
        top_(middle_ + level_words(level_words(n))),
        top_count_(top_words(n)) {
    std::memset(memory, 0, size_t(words(n)) * sizeof(uint64_t));
  }

  [[gnu::always_inline]] void add(zor_int column) {
    const uint64_t c = uint64_t(column);
    const uint64_t before = low_[c >> 6];
    low_[c >> 6] = before | uint64_t(1) << (c & 63);
    if (before != 0) return;
    const uint64_t above = middle_[c >> 12];
    middle_[c >> 12] = above | uint64_t(1) << (c >> 6 & 63);
    if (above == 0) top_[c >> 18] |= uint64_t(1) << (c >> 12 & 63);
  }

  // Calls visit(first, bits) for each word of 64 columns from `first` on that is not empty, in ascending
  // order, and empties the set.
  template <class Visit>
  [[gnu::always_inline]] void drain(const Visit& visit) {
    for (zor_int t = 0; t < top_count_; ++t) {
      for (uint64_t high = take(top_[t]); high != 0; high &= high - 1) {
        const zor_int m = t * 64 + __builtin_ctzll(high);
        for (uint64_t mid = take(middle_[m]); mid != 0; mid &= mid - 1) {
          const zor_int w = m * 64 + __builtin_ctzll(mid);
          visit(w * 64, take(low_[w]));
        }
      }
    }
  }

 private:
  static zor_int level_words(zor_int n) { return (n + 63) / 64; }
  static zor_int top_words(zor_int n) { return level_words(level_words(level_words(n))); }
  [[gnu::always_inline]] static uint64_t take(uint64_t& word) {
    const uint64_t bits = word;
    word = 0;
    return bits;
  }

  uint64_t *low_, *middle_, *top_;
  zor_int top_count_;
};

}  // namespace zor::sparse
