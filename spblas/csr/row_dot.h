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
  constexpr int n = widest<T> < 4 ? widest<T> : 4, registers = 4 / n;
  const auto term = [=](zor_int i) __attribute__((always_inline)) {
    return mul<T, Conj>(load<T, 1>(val + i), load<T, 1>(x + indx[i]));
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

// The same sum over positions k to end - 1 for each of N right-hand sides from j on.
template <int N, class T, bool RowMajor, class I>
[[gnu::always_inline]] inline pack<T, N> row_dots(csr<T, I> a, bool conj, zor_int k, zor_int end,
                                                  dense<const T, RowMajor> b, zor_int j) {
  const auto term = [&](zor_int at) __attribute__((always_inline)) {
    return mul<T>(spread<T, N>(conj_if<T>(conj, load<T, 1>(a.val + at))), b.template get<N>(a.column(at), j));
  };
  pack<T, N> s0{}, s1{}, s2{}, s3{};
  for (; k + 4 <= end; k += 4) {
    s0 = s0 + term(k);
    s1 = s1 + term(k + 1);
    s2 = s2 + term(k + 2);
    s3 = s3 + term(k + 3);
  }
  pack<T, N> s = s0 + s1 + s2 + s3;
  for (; k < end; ++k) s = s + term(k);
  return s;
}

}  // namespace zor::sparse
