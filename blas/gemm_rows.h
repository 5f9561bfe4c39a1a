// SPDX-License-Identifier: MIT
// Rows of C that do not fill a tile, over one panel of the depth: the sums of plain_product, with a vector
// over the columns of packed op(B).
#pragma once

#include "blas/gemm_pack.h"

namespace zor::gemm {

template <class T, class V>
[[gnu::always_inline]] inline V gather_row(const T* c, zor_int ldc) {
  T row[units<T, sizeof(V)>];
  for (int q = 0; q < units<T, sizeof(V)>; ++q) row[q] = c[q * ldc];
  return load_units<V>(row);
}
template <class T, class V>
[[gnu::always_inline]] inline void scatter_row(V v, T* c, zor_int ldc) {
  T row[units<T, sizeof(V)>];
  store_units(row, v);
  for (int q = 0; q < units<T, sizeof(V)>; ++q) c[q * ldc] = row[q];
}

// `Rows` rows and the columns of one vector; group p of op(B) stands at b + p step.
template <class T, class V, int Rows>
void row_products(zor_int depth, T alpha, const operand<T>& a, const T* b, zor_int step, T beta, T* c,
                  zor_int ldc) {
  const update how = update_of(beta);
  const auto old = [&](int r) {
    if (how == update::store) return V{};
    const V row = gather_row<T, V>(c + r, ldc);
    return how == update::add ? row : make_factor<V>(beta) * row;
  };
  const auto coefficient = [&](int r, zor_int p) {
    T e = load_element(a.at(r, p));
    if constexpr (is_complex<T>) {
      if (a.conj) e.im = -e.im;
    }
    return make_factor<V>(e);
  };
  V sum[Rows];
  const auto x = make_factor<V>(alpha);
  if (a.trans) {
    for (int r = 0; r < Rows; ++r) sum[r] = V{};
    for (zor_int p = 0; p < depth; ++p) {
      const V row = load_units<V>(b + p * step);
      for (int r = 0; r < Rows; ++r) sum[r] = sum[r] + coefficient(r, p) * row;
    }
    for (int r = 0; r < Rows; ++r) {
      sum[r] = x * sum[r];
      if (how != update::store) sum[r] = sum[r] + old(r);
    }
  } else {
    for (int r = 0; r < Rows; ++r) sum[r] = old(r);
    for (zor_int p = 0; p < depth; ++p) {
      const V row = x * load_units<V>(b + p * step);
      for (int r = 0; r < Rows; ++r) sum[r] = sum[r] + coefficient(r, p) * row;
    }
  }
  for (int r = 0; r < Rows; ++r) scatter_row(sum[r], c + r, ldc);
}

// m rows of op(A) at a, against n columns of packed op(B).
template <class T>
void product_rows(zor_int m, zor_int n, zor_int depth, T alpha, const operand<T>& a, const T* b, T beta, T* c,
                  zor_int ldc) {
  constexpr int most = tile_shape<T>::columns;
  for (zor_int j = 0; j < n; j += most) {
    const int columns = n - j < most ? int(n - j) : most;
    in_chunks<T>(columns, [&]<int Bytes>(zor_int q, zor_int last) {
      using V = vec<real_t<T>, Bytes>;
      for (; q < last; q += units<T, Bytes>) {
        zor_int i = 0;
        T* column = c + (j + q) * ldc;
        for (; i + 4 <= m; i += 4)
          row_products<T, V, 4>(depth, alpha, a.from(i, 0), b + q, columns, beta, column + i, ldc);
        if (m - i >= 2) {
          row_products<T, V, 2>(depth, alpha, a.from(i, 0), b + q, columns, beta, column + i, ldc);
          i += 2;
        }
        if (i < m) row_products<T, V, 1>(depth, alpha, a.from(i, 0), b + q, columns, beta, column + i, ldc);
      }
    });
    b += columns * depth;
  }
}

}  // namespace zor::gemm
