// SPDX-License-Identifier: MIT
// C := C + alpha op(A) B for a CSR matrix under its views. B and C do not overlap. No sum crosses right-hand
// sides, so packs of them are worked on at once.
#pragma once

#include "spblas/csr/mmout/general.h"
#include "spblas/csr/mmout/view_panel.h"

namespace zor::sparse {

// c(r, j) plus the whole row: groups of four, c(r, j) + (((a3 b3 + a2 b2) + a1 b1) + a0 b0) alpha, then
// single entries, c(r, j) + (a alpha) b.
template <int N, int R, class T, bool RowMajor, class I>
[[gnu::always_inline]] inline packs<T, N, R> add_whole_row(const view_panel<N, R, T, RowMajor, I>& q,
                                                           zor_int row, bool conj) {
  using V = pack<T, N>;
  const typename spread_factor<T, N>::signs signs(conj);
  packs<T, N, R> c = q.row_of_c(row);
  zor_int k = q.a.begin(row);
  const zor_int end = opaque(q.a.end(row));
  for (; k + 4 <= end; k += 4) {
    const auto e0 = q.entry(k, signs), e1 = q.entry(k + 1, signs), e2 = q.entry(k + 2, signs),
               e3 = q.entry(k + 3, signs);
    each<R>([&](int i) __attribute__((always_inline)) {
      const V group = e3.times(q.b_of(k + 3, i)) + e2.times(q.b_of(k + 2, i)) + e1.times(q.b_of(k + 1, i)) +
                      e0.times(q.b_of(k, i));
      c.at[i] = c.at[i] + q.scale.times(group);
    });
  }
  for (; k < end; ++k) {
    const auto f = q.scaled_entry(k, conj);
    each<R>([&](int i) __attribute__((always_inline)) { c.at[i] = c.at[i] + f.times(q.b_of(k, i)); });
  }
  return c;
}

// Triangular view: the whole row, then u = sum of (a alpha) b over the entries that the view leaves out;
// c(r, j) = c(r, j) - u, with b(r, j) alpha added before for a unit diagonal.
template <int N, int R, class T, bool RowMajor, class I>
[[gnu::noinline]] void triangle_panel(const matrix_product<T, RowMajor, I>& p, view v, zor_int row,
                                      zor_int end, zor_int j) {
  const view_panel<N, R, T, RowMajor, I> q(p, j);
  for (; row < end; ++row) {
    packs<T, N, R> c = add_whole_row(q, row, v.conjugated()), u{};
    const zor_int last = opaque(q.a.end(row));
    for (zor_int k = q.a.begin(row); k < last; ++k) {
      if (!v.leaves_out(row, q.a.column(k))) continue;
      const auto f = q.scaled_entry(k, v.conjugated());
      each<R>([&](int i) __attribute__((always_inline)) { u.at[i] = u.at[i] + f.times(q.b_of(k, i)); });
    }
    each<R>([&](int i) __attribute__((always_inline)) {
      if (v.unit()) c.at[i] = q.scale.times(q.b.template get<N>(row, i * N)) + c.at[i];
      c.at[i] = c.at[i] - u.at[i];
    });
    q.set_row_of_c(row, c);
  }
}

// Both sweeps of the symmetric, Hermitian and antisymmetric views go over all rows; this is the first.
template <int N, int R, class T, bool RowMajor, class I>
[[gnu::noinline]] void whole_panel(const matrix_product<T, RowMajor, I>& p, view v, zor_int row, zor_int end,
                                   zor_int j) {
  const view_panel<N, R, T, RowMajor, I> q(p, j);
  for (; row < end; ++row) q.set_row_of_c(row, add_whole_row(q, row, v.conjugates_entry()));
}

// The second: entries inside the triangle go to their mirror row, c(col, j) = c(col, j) + (b(r, j) alpha) a,
// minus in the antisymmetric view; the others are gathered, u = u + (a alpha) b, with the diagonal among them
// unless it is stored; c(r, j) = c(r, j) - u, and a unit diagonal adds b(r, j) alpha last.
template <int N, int R, class T, bool RowMajor, class I>
[[gnu::noinline]] void correct_panel(const matrix_product<T, RowMajor, I>& p, view v, zor_int row,
                                     zor_int end, zor_int j) {
  using V = pack<T, N>;
  const view_panel<N, R, T, RowMajor, I> q(p, j);
  const bool keeps_diagonal = v.diagonal == 'n';
  const typename spread_factor<T, N>::signs signs(v.conjugates_image());
  for (; row < end; ++row) {
    const packs<T, N, R> t = q.scaled_row_of_b(row);
    packs<T, N, R> u{};
    const zor_int last = opaque(q.a.end(row));
    for (zor_int k = q.a.begin(row); k < last; ++k) {
      const zor_int column = q.a.column(k), beyond = v.side() * (column - row);
      if (beyond < 0) {
        const auto e = q.entry(k, signs);
        const auto image = [&](int i) __attribute__((always_inline)) { return e.times(t.at[i]); };
        if (v.skew())
          q.change_c(
              column, [&](V c, int i) __attribute__((always_inline)) { return c - image(i); });
        else
          q.change_c(
              column, [&](V c, int i) __attribute__((always_inline)) { return c + image(i); });
      } else if (beyond > 0 || !keeps_diagonal) {
        const auto f = q.scaled_entry(k, v.conjugates_entry());
        each<R>([&](int i) __attribute__((always_inline)) { u.at[i] = u.at[i] + f.times(q.b_of(k, i)); });
      }
    }
    q.change_c(
        row, [&](V c, int i)
                 __attribute__((always_inline)) { return v.unit() ? c - u.at[i] + t.at[i] : c - u.at[i]; });
  }
}

// Transposed, general: t = b(r, j) alpha, then c(col, j) = c(col, j) + a t for every entry of row r in stored
// order.
template <int N, int R, class T, bool RowMajor, class I>
[[gnu::noinline]] void scatter_panel(const matrix_product<T, RowMajor, I>& p, view v, zor_int row,
                                     zor_int end, zor_int j) {
  using V = pack<T, N>;
  const view_panel<N, R, T, RowMajor, I> q(p, j);
  const typename spread_factor<T, N>::signs signs(v.conjugated());
  for (; row < end; ++row) {
    const packs<T, N, R> t = q.scaled_row_of_b(row);
    const zor_int last = opaque(q.a.end(row));
    for (zor_int k = q.a.begin(row); k < last; ++k) {
      const auto e = q.entry(k, signs);
      q.change_c(
          q.a.column(k), [&](V c, int i) __attribute__((always_inline)) { return c + e.times(t.at[i]); });
    }
  }
}

// Transposed, triangular: every entry is scattered as c(col, j) = c(col, j) + (a alpha) b(r, j), a unit
// diagonal adds b(r, j) alpha, and a second pass takes away what the entries that the view leaves out brought
// in.
template <int N, int R, class T, bool RowMajor, class I>
[[gnu::noinline]] void scatter_triangle_panel(const matrix_product<T, RowMajor, I>& p, view v, zor_int row,
                                              zor_int end, zor_int j) {
  using V = pack<T, N>;
  const view_panel<N, R, T, RowMajor, I> q(p, j);
  for (; row < end; ++row) {
    const packs<T, N, R> b = q.row_of_b(row);
    const zor_int start = q.a.begin(row), last = opaque(q.a.end(row));
    for (zor_int k = start; k < last; ++k) {
      const auto f = q.scaled_entry(k, v.conjugated());
      q.change_c(
          q.a.column(k), [&](V c, int i) __attribute__((always_inline)) { return c + f.times(b.at[i]); });
    }
    if (v.unit())
      q.change_c(
          row, [&](V c, int i) __attribute__((always_inline)) { return c + q.scale.times(b.at[i]); });
    for (zor_int k = start; k < last; ++k) {
      const zor_int column = q.a.column(k);
      if (!v.leaves_out(row, column)) continue;
      const auto f = q.scaled_entry(k, v.conjugated());
      q.change_c(
          column, [&](V c, int i) __attribute__((always_inline)) { return c - f.times(b.at[i]); });
    }
  }
}

// Diagonal view: c(r, j) = c(r, j) + (a alpha) b(r, j) for every entry on the diagonal, duplicates included.
template <class T, bool RowMajor, class I>
void scale_rows(bool conj, const matrix_product<T, RowMajor, I>& p) {
  const one<T> scale = load<T, 1>(&p.alpha);
  for (zor_int r = 0; r < p.m; ++r) {
    for (zor_int k = p.a.begin(r); k < p.a.end(r); ++k) {
      if (p.a.column(k) != r) continue;
      const one<T> f = mul<T>(conj_if<T>(conj, load<T, 1>(p.a.val + k)), scale);
      for_packs<T>(
          p.first, p.last, [&]<int N>(zor_int j) __attribute__((always_inline)) {
            const auto product = mul<T>(spread<T, N>(f), p.b.template get<N>(r, j));
            p.c.template put<N>(r, j, p.c.template get<N>(r, j) + product);
          });
    }
  }
}

// What is done with each panel in one sweep over all of them.
enum class sweep { triangle, whole, correct, scatter, scatter_triangle };

template <sweep Sweep, class T, bool RowMajor, class I>
void sweep_panels(view v, const matrix_product<T, RowMajor, I>& p) {
  for_panels<T, thresholds::packs_abreast_in<RowMajor>>(
      0, p.m, p.first,
      p.last, [&]<int N, int R>(zor_int j, zor_int row, zor_int end) __attribute__((always_inline)) {
        if constexpr (Sweep == sweep::triangle) triangle_panel<N, R>(p, v, row, end, j);
        if constexpr (Sweep == sweep::whole) whole_panel<N, R>(p, v, row, end, j);
        if constexpr (Sweep == sweep::correct) correct_panel<N, R>(p, v, row, end, j);
        if constexpr (Sweep == sweep::scatter) scatter_panel<N, R>(p, v, row, end, j);
        if constexpr (Sweep == sweep::scatter_triangle) scatter_triangle_panel<N, R>(p, v, row, end, j);
      });
}

template <class T, bool RowMajor, class I>
void multiply(view v, const matrix_product<T, RowMajor, I>& p) {
  if (v.structure == 'd') return scale_rows(v.conjugated(), p);
  if (v.structure == 'g' && !v.transposed()) return multiply_general(v.conjugated(), p);
  if (v.structure == 'g') return sweep_panels<sweep::scatter>(v, p);
  if (v.structure == 't' && v.transposed()) return sweep_panels<sweep::scatter_triangle>(v, p);
  if (v.structure == 't') return sweep_panels<sweep::triangle>(v, p);
  sweep_panels<sweep::whole>(v, p);
  sweep_panels<sweep::correct>(v, p);
}

}  // namespace zor::sparse
