// SPDX-License-Identifier: MIT
// C := C + alpha op(A) B for a matrix in coordinates. Entries are taken in their stored order, and one that a
// view leaves out is skipped: with t = a alpha an entry inside the view does c(r, j) = c(r, j) + t b(c, j),
// and in the mirrored views its image c(c, j) = c(c, j) + t b(r, j), minus in the antisymmetric one. A unit
// diagonal adds alpha b(r, j) to every row last.
#pragma once

#include <cstdlib>

#include "spblas/add_scaled.h"
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

// The entries for R packs of right-hand sides from j on; at least one. The sums of a row stay in registers
// until an entry of another row comes, since entries are often sorted by rows. Whole is the general view, and
// Far asks for operands some entries ahead.
template <int N, int R, bool Whole, bool Far, class T, bool RowMajor, class I>
[[gnu::noinline]] void add_entries(const coo_product<T, RowMajor, I>& p, view v, zor_int j) {
  const entry_rule rule(v);
  const bool conj = v.conjugates_entry(), conj_image = v.conjugates_image(), skew = v.skew();
  const one<T> alpha = load<T, 1>(&p.alpha);
  const T* const val = p.a.val;
  const I *const rowind = p.a.rowind, *const colind = p.a.colind;
  // Addressed by rows and columns in the base of the matrix.
  const dense<const T, RowMajor> b{opaque(p.b.at(-p.a.base, j)), p.b.ld};
  const dense<T, RowMajor> c{opaque(p.c.at(-p.a.base, j)), p.c.ld};
  const auto factor_of = [&](zor_int e, bool conjugate) __attribute__((always_inline)) {
    return spread<T, N>(mul<T>(conj_if<T>(conjugate, load<T, 1>(val + e)), alpha));
  };
  packs<T, N, R> sum;
  zor_int row = rowind[p.first];
  const auto get = [&] __attribute__((always_inline)) {
    each<R>([&](int i) __attribute__((always_inline)) { sum.at[i] = c.template get<N>(row, i * N); });
  };
  const auto put = [&] __attribute__((always_inline)) {
    each<R>([&](int i) __attribute__((always_inline)) { c.template put<N>(row, i * N, sum.at[i]); });
  };
  const zor_int last = p.last, near = Far ? last - thresholds::coo_entries_ahead : last;
  get();
  for (zor_int e = p.first; e < last; ++e) {
    if (Far && e < near) {
      touch(b.at(colind[e + thresholds::coo_entries_ahead], 0));
      touch(c.at(rowind[e + thresholds::coo_entries_ahead], 0));
    }
    const zor_int r = rowind[e], column = colind[e], distance = rule.distance(r, column);
    if (!Whole && !rule.takes(distance)) continue;
    if (r != row) {
      put();
      row = r;
      get();
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
  put();
}

// Whether entries that follow one another mostly lie far apart, as a look at some of them tells.
template <class T, class I>
bool is_scattered(const coo<T, I>& a, zor_int first, zor_int last) {
  constexpr zor_int looks = 64;
  if (last - first < thresholds::coo_far_entries) return false;
  zor_int far = 0;
  for (zor_int n = 0; n < looks; ++n) {
    const zor_int e = first + (last - first - 2) / looks * n;
    const zor_int rows = zor_int(a.rowind[e + 1]) - a.rowind[e],
                  columns = zor_int(a.colind[e + 1]) - a.colind[e];
    far += std::abs(rows) > thresholds::coo_far_step || std::abs(columns) > thresholds::coo_far_step;
  }
  return far > looks / 2;
}

template <class T, bool RowMajor, class I>
void multiply(view v, const coo_product<T, RowMajor, I>& p) {
  const auto add = [&]<int N, int R>(zor_int j) __attribute__((always_inline)) {
    if constexpr (!RowMajor && N * R == 1) {
      const bool far = is_scattered(p.a, p.first, p.last);
      if (v.structure == 'g' && far) return add_entries<N, R, true, true>(p, v, j);
      if (v.structure == 'g') return add_entries<N, R, true, false>(p, v, j);
    }
    add_entries<N, R, false, false>(p, v, j);
  };
  if (p.first < p.last) for_right_hand_sides<RowMajor, T>(p.from_column, p.to_column, add);
  if (!v.unit()) return;
  const zor_int length = RowMajor ? p.to_column - p.from_column : p.m;
  const zor_int count = RowMajor ? p.m : p.to_column - p.from_column;
  for (zor_int i = 0; i < count; ++i) {
    const zor_int row = RowMajor ? i : 0, j = p.from_column + (RowMajor ? 0 : i);
    add_scaled(length, p.alpha, p.b.at(row, j), p.c.at(row, j));
  }
}

}  // namespace zor::sparse
