// SPDX-License-Identifier: MIT
// The row dot: the sum of val[k] x[indx[k]] over a run of entries, one of the two forms every product has.
// Order of sums: four accumulators that start from zero, entry i of each group of four into accumulator i;
// the accumulators joined as ((s0 + s1) + s2) + s3; the one to three entries behind the last whole group
// added singly. Fewer than four entries are one plain chain. The accumulators are neighbouring lanes.
#pragma once

#include "spblas/csr/matrix.h"
#include "spblas/element.h"

namespace zor::sparse {

// x is shifted by the index base, so that an index is used as it stands; Conj conjugates every entry.
template <class T, bool Conj, class I>
[[gnu::always_inline]] inline one<T> row_dot(const T* val, const I* indx, zor_int count, const T* x) {
  // In 32 bytes a complex product takes fewer instructions than in 64.
  constexpr int most = is_complex<T> && 2 < widest<T> ? int(32 / sizeof(T)) : widest<T>;
  constexpr int n = most < 4 ? most : 4, registers = 4 / n;
  const auto term = [=](zor_int i) __attribute__((always_inline)) {
    return mul_at<T, Conj>(val + i, load<T, 1>(x + indx[i]));
  };
  one<T> sum{};
  zor_int k = 0;
  if (count >= 8) {
    pack<T, n> s[registers] = {};
    for (; k + 4 <= count; k += 4) {
      for (int i = 0; i < registers; ++i) {
        const I* at = indx + k + i * n;
        const auto xs = collect<T, n>([=](int lane) { return x + at[lane]; });
        s[i] = s[i] + mul<T, Conj>(load<T, n>(val + k + i * n), xs);
      }
    }
    sum = element<T, n, 0>(s[0]);
    [&]<int... E>(std::integer_sequence<int, E...>) __attribute__((always_inline)) {
      ((sum = sum + element<T, n, (E + 1) % n>(s[(E + 1) / n])), ...);
    }
    (std::make_integer_sequence<int, 3>{});
  }
  if (count - k >= 4) {
    for (int i = 0; i < 4; ++i) sum = sum + term(k + i);
    k += 4;
  }
  for (; k < count; ++k) sum = sum + term(k);
  return sum;
}

// The same sum for a row whose length is known to be `Count`, from 1 to 7, where that is not 0.
template <int Count, class T, bool Conj, class I>
[[gnu::always_inline]] inline one<T> row_dot_of(const T* val, const I* indx, zor_int count, const T* x) {
  static_assert(Count < 8, "a longer row is no single chain");
  if constexpr (Count == 0) return row_dot<T, Conj>(val, indx, count, x);
  one<T> sum{};
#pragma GCC unroll 8
  for (int i = 0; i < Count; ++i) sum = sum + mul_at<T, Conj>(val + i, load<T, 1>(x + indx[i]));
  return sum;
}

// A row of x that is still in registers, for R packs of right-hand sides.
template <class T, int N, int R>
struct kept_row {
  zor_int index = -1;
  packs<T, N, R> value{};
};

// The same sum over positions k to end - 1 for each of R packs of right-hand sides; Count, where not 0, is
// their number. x is shifted by the index base and starts at the first of the right-hand sides; with Kept the
// row `kept`, counted in that base too, is not loaded. Fewer than eight entries are one chain, whatever their
// grouping.
template <int N, int R = 1, int Count = 0, bool Kept = false, class T, bool RowMajor, class I>
[[gnu::always_inline]] inline packs<T, N, R> row_dots(csr<T, I> a, bool conj, zor_int k, zor_int end,
                                                      dense<const T, RowMajor> x,
                                                      const kept_row<T, N, R>& kept = {}) {
  static_assert(Count < 8, "a longer row is no single chain");
  const typename spread_factor<T, N>::signs signs(conj);
  const auto add = [&](packs<T, N, R> & s, zor_int at) __attribute__((always_inline)) {
    const spread_factor<T, N> entry(a.val + at, signs);
    const zor_int col = a.indx[at];
    if (Kept && col == kept.index)
      each<R>([&](int i)
                  __attribute__((always_inline)) { s.at[i] = s.at[i] + entry.times(kept.value.at[i]); });
    else
      each<R>([&](int i) __attribute__((always_inline)) {
        s.at[i] = s.at[i] + entry.times(x.template get<N>(col, i * N));
      });
  };
  const auto half = [&](int i) __attribute__((always_inline)) {
    constexpr int n = R / 2;
    kept_row<T, N, n> part{kept.index};
    each<n>([&](int l) __attribute__((always_inline)) { part.value.at[l] = kept.value.at[i * n + l]; });
    return row_dots<N, n, 0, Kept>(a, conj, k, end, dense<const T, RowMajor>{x.at(0, i * n * N), x.ld}, part);
  };
  // The processor alone asks too late for entries; and for rows of x, where much is done with each of them.
  const auto touch_ahead = [&] __attribute__((always_inline)) {
    touch(a.val + k + 1024 / sizeof(T));
    touch(a.indx + k + 1024 / sizeof(I));
    if (is_complex<T> && k + 8 <= end)
      each<4 * R>([&](int i)
                      __attribute__((always_inline)) { touch(x.at(a.indx[k + 4 + i / R], i % R * N)); });
  };
  packs<T, N, R> s{};
  if (Count == 0 && end - k >= 8) {
    // Four sums for each of more packs would not find room in the registers.
    if constexpr (R > (width == 64 ? 4 : 2)) {
      const packs<T, N, R / 2> low = half(0), high = half(1);
      each<R / 2>([&](int i)
                      __attribute__((always_inline)) { s.at[i] = low.at[i], s.at[R / 2 + i] = high.at[i]; });
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
