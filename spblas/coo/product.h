// SPDX-License-Identifier: MIT
// C := C + alpha op(A) B for a matrix in coordinates. Entries are taken in their stored order, and one that a
// view leaves out is skipped: with t = a alpha an entry inside the view does c(r, j) = c(r, j) + t b(c, j),
// and in the mirrored views its image c(c, j) = c(c, j) + t b(r, j), minus in the antisymmetric one. A unit
// diagonal adds alpha b(r, j) to every row last.
#pragma once

#include "spblas/coo/coo.h"

namespace zor::sparse {

// What a view does with an entry, from its distance to the diagonal: below 0 inside, 0 on the diagonal. The
// general view takes every entry as one inside.
struct entry_rule {
  zor_int side, shift;
  bool inside, diagonal, mirrored;

  explicit entry_rule(view v)
      : side(v.structure == 'g' ? 0 : v.side()),
        shift(v.structure == 'g' ? -1 : 0),
        inside(v.structure != 'd'),
        diagonal(v.structure != 'g' && !v.skew() && !v.unit()),
        mirrored(v.mirrored()) {}
  [[gnu::always_inline]] zor_int distance(zor_int row, zor_int column) const {
    return side * (column - row) + shift;
  }
  [[gnu::always_inline]] bool takes(zor_int distance) const {
    return distance < 0 ? inside : distance == 0 && diagonal;
  }
};

// The entries for R packs of right-hand sides from j on. The sums of a row stay in registers until an entry
// of another row comes, since entries are often sorted by rows; with Whole, the view is the general one.
template <int N, int R, bool Whole, class T, bool RowMajor, class I>
[[gnu::noinline]] void add_entries(const coo_product<T, RowMajor, I>& p, view v, zor_int j) {
  const entry_rule rule(v);
  const bool conj = v.conjugates_entry(), conj_image = v.conjugates_image(), skew = v.skew();
  const one<T> alpha = load<T, 1>(&p.alpha);
  // Addressed by rows and columns in the base of the matrix.
  const dense<const T, RowMajor> b{opaque(p.b.at(-p.a.base, j)), p.b.ld};
  const dense<T, RowMajor> c{opaque(p.c.at(-p.a.base, j)), p.c.ld};
  const auto factor_of = [&](zor_int e, bool conjugate) __attribute__((always_inline)) {
    return spread<T, N>(mul<T>(conj_if<T>(conjugate, load<T, 1>(p.a.val + e)), alpha));
  };
  const auto keep = [&](zor_int row, const packs<T, N, R>& s) __attribute__((always_inline)) {
    each<R>([&](int i) __attribute__((always_inline)) { c.template put<N>(row, i * N, s.at[i]); });
  };
  packs<T, N, R> sum{};
  zor_int row = -1;
  for (zor_int e = p.first; e < p.last; ++e) {
    const zor_int r = p.a.rowind[e], column = p.a.colind[e], distance = rule.distance(r, column);
    if (!Whole && !rule.takes(distance)) continue;
    if (r != row) {
      if (row >= 0) keep(row, sum);
      row = r;
      each<R>([&](int i) __attribute__((always_inline)) { sum.at[i] = c.template get<N>(r, i * N); });
    }
    const pack<T, N> t = factor_of(e, conj);
    each<R>([&](int i) __attribute__((always_inline)) {
      sum.at[i] = sum.at[i] + mul<T>(t, b.template get<N>(column, i * N));
    });
    if (Whole || !rule.mirrored || distance == 0) continue;
    const pack<T, N> image = factor_of(e, conj_image);
    each<R>([&](int i) __attribute__((always_inline)) {
      const auto product = mul<T>(image, b.template get<N>(r, i * N));
      const auto before = c.template get<N>(column, i * N);
      c.template put<N>(column, i * N, skew ? before - product : before + product);
    });
  }
  if (row >= 0) keep(row, sum);
}

// y[i] := y[i] + alpha x[i].
template <class T>
[[gnu::noinline]] void add_scaled(zor_int n, T alpha, const T* x, T* y) {
  for_packs<T>(
      0, n, [&]<int N>(zor_int i) __attribute__((always_inline)) {
        store<T, N>(y + i, load<T, N>(y + i) + mul<T>(spread<T, N>(&alpha), load<T, N>(x + i)));
      });
}

template <class T, bool RowMajor, class I>
void multiply(view v, const coo_product<T, RowMajor, I>& p) {
  const auto add = [&]<int N, int R>(zor_int j) __attribute__((always_inline)) {
    if constexpr (N * R == 1)
      if (v.structure == 'g') return add_entries<N, R, true>(p, v, j);
    add_entries<N, R, false>(p, v, j);
  };
  if (v.structure != 'd' || !v.unit()) for_right_hand_sides<RowMajor, T>(p.from_column, p.to_column, add);
  if (!v.unit()) return;
  const zor_int length = RowMajor ? p.to_column - p.from_column : p.m;
  const zor_int count = RowMajor ? p.m : p.to_column - p.from_column;
  for (zor_int i = 0; i < count; ++i) {
    const zor_int row = RowMajor ? i : 0, j = p.from_column + (RowMajor ? 0 : i);
    add_scaled(length, p.alpha, p.b.at(row, j), p.c.at(row, j));
  }
}

}  // namespace zor::sparse
