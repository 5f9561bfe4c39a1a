// SPDX-License-Identifier: MIT
// Products with a transposed CSR matrix: each stored row is scattered, entry by entry in stored order.
#pragma once

#include "spblas/csr/matrix.h"
#include "spblas/element.h"

namespace zor::sparse {

// General: t = b(r, j) alpha, then c(col, j) = c(col, j) + a t for every entry of row r. R packs of
// right-hand sides from j on.
template <int N, int R, class T, bool RowMajor, class I>
[[gnu::noinline]] void scatter_panel(csr<T, I> a, bool conj, zor_int row, zor_int end, zor_int j, T alpha,
                                     dense<const T, RowMajor> b, dense<T, RowMajor> c) {
  const auto scale = spread<T, N>(&alpha);
  for (; row < end; ++row) {
    packs<T, N, R> t;
    each<R>([&](int i) __attribute__((always_inline)) {
      t.at[i] = mul<T>(b.template get<N>(row, j + i * N), scale);
    });
    const zor_int last = settled(a.end(row));
    for (zor_int k = a.begin(row); k < last; ++k) {
      const auto entry = spread<T, N>(conj_if<T>(conj, load<T, 1>(a.val + k)));
      const zor_int col = a.column(k);
      each<R>([&](int i) __attribute__((always_inline)) {
        c.template put<N>(col, j + i * N, c.template get<N>(col, j + i * N) + mul<T>(entry, t.at[i]));
      });
    }
  }
}

template <class T, bool RowMajor, class I>
void scatter_rows(csr<T, I> a, bool conj, zor_int m, zor_int first, zor_int last, T alpha,
                  dense<const T, RowMajor> b, dense<T, RowMajor> c) {
  for_panels<T, abreast_in<RowMajor>>(
      0, m, first,
      last, [&]<int N, int R>(zor_int j, zor_int row, zor_int end) __attribute__((always_inline)) {
        scatter_panel<N, R>(a, conj, row, end, j, alpha, b, c);
      });
}

// Triangular: every entry is scattered as c(col, j) = c(col, j) + (a alpha) b(r, j), a unit diagonal adds
// b(r, j) alpha, and a second pass takes away what the entries outside the view brought in.
template <int N, int R, class T, bool RowMajor, class I>
[[gnu::noinline]] void scatter_triangle_panel(csr<T, I> a, view v, zor_int row, zor_int end, zor_int j,
                                              T alpha, dense<const T, RowMajor> b, dense<T, RowMajor> c) {
  const bool conj = v.conjugated();
  const one<T> scale = load<T, 1>(&alpha);
  const auto change_c = [&](zor_int r, const auto& change) __attribute__((always_inline)) {
    each<R>([&](int i) __attribute__((always_inline)) {
      c.template put<N>(r, j + i * N, change(c.template get<N>(r, j + i * N), i));
    });
  };
  for (; row < end; ++row) {
    packs<T, N, R> x;
    each<R>([&](int i) __attribute__((always_inline)) { x.at[i] = b.template get<N>(row, j + i * N); });
    const zor_int start = a.begin(row), last = settled(a.end(row));
    const auto scaled = [&](zor_int k) __attribute__((always_inline)) {
      return spread<T, N>(mul<T>(conj_if<T>(conj, load<T, 1>(a.val + k)), scale));
    };
    for (zor_int k = start; k < last; ++k) {
      const auto f = scaled(k);
      change_c(
          a.column(k), [&](auto to, int i)
                           __attribute__((always_inline)) { return to + mul<T>(f, x.at[i]); });
    }
    if (v.unit())
      change_c(
          row, [&](auto to, int i)
                   __attribute__((always_inline)) { return to + mul<T>(x.at[i], spread<T, N>(scale)); });
    for (zor_int k = start; k < last; ++k) {
      const zor_int col = a.column(k);
      if (v.side() * (col - row) <= v.bound()) continue;
      const auto f = scaled(k);
      change_c(
          col, [&](auto to, int i) __attribute__((always_inline)) { return to - mul<T>(x.at[i], f); });
    }
  }
}

template <class T, bool RowMajor, class I>
void scatter_triangle(csr<T, I> a, view v, zor_int m, zor_int first, zor_int last, T alpha,
                      dense<const T, RowMajor> b, dense<T, RowMajor> c) {
  for_panels<T, abreast_in<RowMajor>>(
      0, m, first,
      last, [&]<int N, int R>(zor_int j, zor_int row, zor_int end) __attribute__((always_inline)) {
        scatter_triangle_panel<N, R>(a, v, row, end, j, alpha, b, c);
      });
}

// Diagonal view: c(r, j) = c(r, j) + (a alpha) b(r, j) for every entry on the diagonal, duplicates included.
template <class T, bool RowMajor, class I>
void scale_rows(csr<T, I> a, bool conj, zor_int m, zor_int first, zor_int last, T alpha,
                dense<const T, RowMajor> b, dense<T, RowMajor> c) {
  const one<T> scale = load<T, 1>(&alpha);
  for (zor_int r = 0; r < m; ++r) {
    for (zor_int k = a.begin(r); k < a.end(r); ++k) {
      if (a.column(k) != r) continue;
      const one<T> f = mul<T>(conj_if<T>(conj, load<T, 1>(a.val + k)), scale);
      for_packs<T>(
          first, last, [&]<int N>(zor_int j) __attribute__((always_inline)) {
            c.template put<N>(r, j,
                              c.template get<N>(r, j) + mul<T>(spread<T, N>(f), b.template get<N>(r, j)));
          });
    }
  }
}

}  // namespace zor::sparse
