// SPDX-License-Identifier: MIT
// The row dot: the sum of value(i) x[column(i)] over a run of entries, one of the two forms that products and
// solves of every format have. Order of sums: four accumulators that start from zero, entry i of each group
// of four into accumulator i; the accumulators joined as ((s0 + s1) + s2) + s3; the one to three entries
// behind the last whole group added singly. Fewer than four entries are one plain chain. The accumulators are
// neighbouring lanes.
//
// The entries are those of any format that has
//   value(i)      the address of the value of entry i
//   values<N>(i)  the values of entries i to i + N - 1
//   column(i)     the place of its x
//   touch(i)      a request for what stands behind entry i in memory, where it pays
// They are passed by value: by reference the compiler keeps them in memory.
#pragma once

#include "spblas/panel.h"

namespace zor::sparse {

// Entries that are neighbours in memory.
template <class T, class I>
struct stored_entries {
  const T* val;
  const I* indx;

  [[gnu::always_inline]] const T* value(zor_int i) const { return val + i; }
  [[gnu::always_inline]] zor_int column(zor_int i) const { return indx[i]; }
  template <int N>
  [[gnu::always_inline]] pack<T, N> values(zor_int i) const {
    return load<T, N>(val + i);
  }
  [[gnu::always_inline]] void touch(zor_int i) const {
    zor::touch(val + i + thresholds::entries_ahead / zor_int(sizeof(T)));
    zor::touch(indx + i + thresholds::entries_ahead / zor_int(sizeof(I)));
  }
};

// The sum over entries 0 to count - 1; Conj conjugates each within its product.
template <class T, bool Conj, class Entries>
[[gnu::always_inline]] inline one<T> row_dot(Entries entries, zor_int count, const T* x) {
  // In 32 bytes a complex product takes fewer instructions than in 64.
  constexpr int most = is_complex<T> && 2 < widest<T> ? int(32 / sizeof(T)) : widest<T>;
  constexpr int group = thresholds::accumulators, n = most < group ? most : group, registers = group / n;
  const auto term = [=](zor_int i) __attribute__((always_inline)) {
    return mul_at<T, Conj>(entries.value(i), load<T, 1>(x + entries.column(i)));
  };
  one<T> sum{};
  zor_int k = 0;
  if (count >= thresholds::least_for_accumulators) {
    pack<T, n> s[registers] = {};
    for (; k + group <= count; k += group) {
      for (int i = 0; i < registers; ++i) {
        const auto xs = collect<T, n>([=](int lane) { return x + entries.column(k + i * n + lane); });
        s[i] = s[i] + mul<T, Conj>(entries.template values<n>(k + i * n), xs);
      }
    }
    sum = element<T, n, 0>(s[0]);
    [&]<int... E>(std::integer_sequence<int, E...>) __attribute__((always_inline)) {
      ((sum = sum + element<T, n, (E + 1) % n>(s[(E + 1) / n])), ...);
    }
    (std::make_integer_sequence<int, group - 1>{});
  }
  if (count - k >= group) {
    for (int i = 0; i < group; ++i) sum = sum + term(k + i);
    k += group;
  }
  for (; k < count; ++k) sum = sum + term(k);
  return sum;
}

// The same sum where the number of entries is known to be Count, from 1 to 7, or 0 where it is not.
template <int Count, class T, bool Conj, class Entries>
[[gnu::always_inline]] inline one<T> row_dot_of(Entries entries, zor_int count, const T* x) {
  static_assert(Count < thresholds::least_for_accumulators, "a longer row is no single chain");
  if constexpr (Count == 0) return row_dot<T, Conj>(entries, count, x);
  one<T> sum{};
#pragma GCC unroll 8
  for (int i = 0; i < Count; ++i)
    sum = sum + mul_at<T, Conj>(entries.value(i), load<T, 1>(x + entries.column(i)));
  return sum;
}

// A row of x that is still in registers, for R packs of right-hand sides.
template <class T, int N, int R>
struct kept_row {
  zor_int index = -1;
  packs<T, N, R> value{};
};

// The packs First to First + R - 1 of some.
template <int First, int R, class T, int N, int All>
[[gnu::always_inline]] inline packs<T, N, R> some_packs(const packs<T, N, All>& p) {
  packs<T, N, R> s;
  each<R>([&](int i) __attribute__((always_inline)) { s.at[i] = p.at[First + i]; });
  return s;
}

// The row dot of entries k to end - 1 for R packs of right-hand sides; Count, where not 0, is their number.
// With Kept the row `kept` of x is not loaded. Fewer than eight entries are one chain, whatever their
// grouping.
template <int N, int R = 1, int Count = 0, bool Kept = false, class T, bool RowMajor, class Entries>
[[gnu::always_inline]] inline packs<T, N, R> row_dots(Entries entries, bool conj, zor_int k, zor_int end,
                                                      dense<const T, RowMajor> x,
                                                      const kept_row<T, N, R>& kept = {}) {
  static_assert(Count < thresholds::least_for_accumulators, "a longer row is no single chain");
  const typename spread_factor<T, N>::signs signs(conj);
  const auto add = [&](packs<T, N, R> & s, zor_int at) __attribute__((always_inline)) {
    const spread_factor<T, N> entry(entries.value(at), signs);
    const zor_int col = entries.column(at);
    if (Kept && col == kept.index)
      each<R>([&](int i)
                  __attribute__((always_inline)) { s.at[i] = s.at[i] + entry.times(kept.value.at[i]); });
    else
      each<R>([&](int i) __attribute__((always_inline)) {
        s.at[i] = s.at[i] + entry.times(x.template get<N>(col, i * N));
      });
  };
  // The hardware fetches entries too late, and under complex products, which take long, rows of x as well.
  const auto touch_ahead = [&] __attribute__((always_inline)) {
    entries.touch(k);
    if (is_complex<T> && k + 8 <= end)
      each<4 * R>([&](int i) __attribute__((always_inline)) {
        touch(x.at(entries.column(k + 4 + i / R), i % R * N));
      });
  };
  packs<T, N, R> s{};
  if (Count == 0 && end - k >= thresholds::least_for_accumulators) {
    if constexpr (R > thresholds::packs_of_four_sums) {
      constexpr int half = R / 2;
      const dense<const T, RowMajor> x_high{x.at(0, half * N), x.ld};
      const packs<T, N, half> low = row_dots<N, half, 0, Kept>(
          entries, conj, k, end, x, kept_row<T, N, half>{kept.index, some_packs<0, half>(kept.value)});
      const packs<T, N, half> high =
          row_dots<N, half, 0, Kept>(entries, conj, k, end, x_high,
                                     kept_row<T, N, half>{kept.index, some_packs<half, half>(kept.value)});
      each<half>([&](int i)
                     __attribute__((always_inline)) { s.at[i] = low.at[i], s.at[half + i] = high.at[i]; });
      return s;
    }
    packs<T, N, R> s1{}, s2{}, s3{};
    for (; k + 4 <= end; k += 4) {
      touch_ahead();
      add(s, k);
      add(s1, k + 1);
      add(s2, k + 2);
      add(s3, k + 3);
    }
    each<R>([&](int i)
                __attribute__((always_inline)) { s.at[i] = s.at[i] + s1.at[i] + s2.at[i] + s3.at[i]; });
  }
  if constexpr (Count > 0)
    each<Count>([&](int i) __attribute__((always_inline)) { add(s, k + i); });
  else
    for (; k < end; ++k) add(s, k);
  return s;
}

}  // namespace zor::sparse
