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

// The lanes of a, then those of b, in a vector of twice the bytes.
template <class V, class Half>
[[gnu::always_inline]] inline V concat(Half a, Half b) {
  return [&]<int... I>(std::integer_sequence<int, I...>) __attribute__((always_inline)) {
    return __builtin_shufflevector(a, b, I...);
  }
  (std::make_integer_sequence<int, lanes<V>>{});
}

// `Rows` rows and the columns of one vector, of two strips when it is twice as wide as a strip; group p of
// op(B) stands at b + p step.
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
  const auto group = [&](zor_int p) {
    if constexpr (sizeof(V) > tile_shape<T>::columns * sizeof(T)) {
      using half = vec<real_t<T>, int(sizeof(V) / 2)>;
      return concat<V>(load_units<half>(b + p * step), load_units<half>(b + (p + depth) * step));
    } else {
      return load_units<V>(b + p * step);
    }
  };
  V sum[Rows];
  const auto x = make_factor<V>(alpha);
  if (a.trans) {
    for (int r = 0; r < Rows; ++r) sum[r] = V{};
    for (zor_int p = 0; p < depth; ++p) {
      const V row = group(p);
      for (int r = 0; r < Rows; ++r) sum[r] = sum[r] + coefficient(r, p) * row;
    }
    for (int r = 0; r < Rows; ++r) {
      sum[r] = x * sum[r];
      if (how != update::store) sum[r] = sum[r] + old(r);
    }
  } else {
    for (int r = 0; r < Rows; ++r) sum[r] = old(r);
    for (zor_int p = 0; p < depth; ++p) {
      const V row = x * group(p);
      for (int r = 0; r < Rows; ++r) sum[r] = sum[r] + coefficient(r, p) * row;
    }
  }
  for (int r = 0; r < Rows; ++r) scatter_row(sum[r], c + r, ldc);
}

template <class T, class V>
void product_rows(zor_int m, zor_int depth, T alpha, const operand<T>& a, const T* b, zor_int step, T beta,
                  T* c, zor_int ldc) {
  zor_int i = 0;
  for (; i + 4 <= m; i += 4) row_products<T, V, 4>(depth, alpha, a.from(i, 0), b, step, beta, c + i, ldc);
  if (m - i >= 2) {
    row_products<T, V, 2>(depth, alpha, a.from(i, 0), b, step, beta, c + i, ldc);
    i += 2;
  }
  if (i < m) row_products<T, V, 1>(depth, alpha, a.from(i, 0), b, step, beta, c + i, ldc);
}

// m rows of op(A) at a, against n columns of packed op(B).
template <class T>
void product_rows(zor_int m, zor_int n, zor_int depth, T alpha, const operand<T>& a, const T* b, T beta, T* c,
                  zor_int ldc) {
  constexpr int most = tile_shape<T>::columns;
  zor_int j = 0;
  if constexpr (2 * most * sizeof(T) <= width) {
    for (; j + 2 * most <= n; j += 2 * most)
      product_rows<T, vec<real_t<T>, int(2 * most * sizeof(T))>>(m, depth, alpha, a, b + j * depth, most,
                                                                 beta, c + j * ldc, ldc);
  }
  for (; j < n; j += most) {
    const int columns = n - j < most ? int(n - j) : most;
    in_chunks<T>(columns, [&]<int Bytes>(zor_int q, zor_int last) {
      for (; q < last; q += units<T, Bytes>)
        product_rows<T, vec<real_t<T>, Bytes>>(m, depth, alpha, a, b + j * depth + q, columns, beta,
                                               c + (j + q) * ldc, ldc);
    });
  }
}

}  // namespace zor::gemm
