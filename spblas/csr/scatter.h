// SPDX-License-Identifier: MIT
// Products with a transposed CSR matrix: each stored row is scattered, entry by entry in stored order.
#pragma once

#include "spblas/csr/matrix.h"
#include "spblas/element.h"

namespace zor::sparse {

// General: t = b(r, j) alpha, then c(col, j) = c(col, j) + a t for every entry of row r.
template <class T, bool RowMajor, class I>
void scatter_rows(csr<T, I> a, bool conj, zor_int m, zor_int first, zor_int last, T alpha,
                  dense<const T, RowMajor> b, dense<T, RowMajor> c) {
  for (zor_int r = 0; r < m; ++r) {
    for_packs<T>(
        first, last, [&]<int N>(zor_int j) __attribute__((always_inline)) {
          const auto t = mul<T>(b.template get<N>(r, j), spread<T, N>(&alpha));
          for (zor_int k = a.begin(r); k < a.end(r); ++k) {
            const auto entry = spread<T, N>(conj_if<T>(conj, load<T, 1>(a.val + k)));
            const zor_int col = a.column(k);
            c.template put<N>(col, j, c.template get<N>(col, j) + mul<T>(entry, t));
          }
        });
  }
}

// Triangular: every entry is scattered as c(col, j) = c(col, j) + (a alpha) b(r, j), a unit diagonal adds
// b(r, j) alpha, and a second pass takes away what the entries outside the view brought in.
template <class T, bool RowMajor, class I>
void scatter_triangle(csr<T, I> a, view v, zor_int m, zor_int first, zor_int last, T alpha,
                      dense<const T, RowMajor> b, dense<T, RowMajor> c) {
  const bool conj = v.conjugated();
  const one<T> scale = load<T, 1>(&alpha);
  for (zor_int r = 0; r < m; ++r) {
    for_packs<T>(
        first, last, [&]<int N>(zor_int j) __attribute__((always_inline)) {
          const auto x = b.template get<N>(r, j);
          for (zor_int k = a.begin(r); k < a.end(r); ++k) {
            const auto f = spread<T, N>(mul<T>(conj_if<T>(conj, load<T, 1>(a.val + k)), scale));
            const zor_int col = a.column(k);
            c.template put<N>(col, j, c.template get<N>(col, j) + mul<T>(f, x));
          }
          if (v.unit()) c.template put<N>(r, j, c.template get<N>(r, j) + mul<T>(x, spread<T, N>(scale)));
          for (zor_int k = a.begin(r); k < a.end(r); ++k) {
            const zor_int col = a.column(k);
            if (v.side() * (col - r) <= v.bound()) continue;
            const auto f = spread<T, N>(mul<T>(conj_if<T>(conj, load<T, 1>(a.val + k)), scale));
            c.template put<N>(col, j, c.template get<N>(col, j) - mul<T>(x, f));
          }
        });
  }
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
