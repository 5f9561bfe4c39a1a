// SPDX-License-Identifier: MIT
// What the views other than the general one do with an entry of a row and R packs of right-hand sides.
#pragma once

#include "spblas/csr/mmout/mmout.h"

namespace zor::sparse {

// R packs of right-hand sides from j on, addressed from there.
template <int N, int R, class T, bool RowMajor, class I>
struct view_panel {
  using V = pack<T, N>;
  using row_of_packs = packs<T, N, R>;
  using factor = spread_factor<T, N>;
  using signs = typename factor::signs;
  csr<T, I> a;
  dense<const T, RowMajor> b;
  dense<T, RowMajor> c;
  const T* alpha;
  signs plain;
  factor scale;

  view_panel(const matrix_product<T, RowMajor, I>& p, zor_int j)
      : a(p.a),
        b{p.b.at(0, j), p.b.ld},
        c{p.c.at(0, j), p.c.ld},
        alpha(&p.alpha),
        plain(false),
        scale(alpha, plain) {}

  // a of an entry, or its conjugate, as `conj` was made.
  [[gnu::always_inline]] factor entry(zor_int k, const signs& conj) const { return {a.val + k, conj}; }
  // (a alpha) of an entry, or of its conjugate.
  [[gnu::always_inline]] factor scaled_entry(zor_int k, bool conj) const {
    const one<T> product = mul<T>(conj_if<T>(conj, load<T, 1>(a.val + k)), load<T, 1>(alpha));
    T scaled;
    std::memcpy(&scaled, &product, sizeof scaled);
    return {&scaled, plain};
  }
  // b of the column of an entry, pack i.
  [[gnu::always_inline]] V b_of(zor_int k, int i) const { return b.template get<N>(a.column(k), i * N); }

  [[gnu::always_inline]] row_of_packs row_of_b(zor_int row) const {
    row_of_packs v;
    each<R>([&](int i) __attribute__((always_inline)) { v.at[i] = b.template get<N>(row, i * N); });
    return v;
  }
  // b(r, j) alpha.
  [[gnu::always_inline]] row_of_packs scaled_row_of_b(zor_int row) const {
    row_of_packs v = row_of_b(row);
    each<R>([&](int i) __attribute__((always_inline)) { v.at[i] = scale.times(v.at[i]); });
    return v;
  }
  [[gnu::always_inline]] row_of_packs row_of_c(zor_int row) const {
    row_of_packs v;
    each<R>([&](int i) __attribute__((always_inline)) { v.at[i] = c.template get<N>(row, i * N); });
    return v;
  }
  [[gnu::always_inline]] void set_row_of_c(zor_int row, const row_of_packs& v) const {
    each<R>([&](int i) __attribute__((always_inline)) { c.template put<N>(row, i * N, v.at[i]); });
  }
  // c(row, j) = change(c(row, j), i) for every pack i.
  template <class Change>
  [[gnu::always_inline]] void change_c(zor_int row, const Change& change) const {
    each<R>([&](int i) __attribute__((always_inline)) {
      c.template put<N>(row, i * N, change(c.template get<N>(row, i * N), i));
    });
  }
};

}  // namespace zor::sparse
