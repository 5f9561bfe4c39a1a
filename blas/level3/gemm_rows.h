// SPDX-License-Identifier: MIT
// Rows of C that do not fill a tile, over one panel of the depth: the sums of plain_product, with a vector
// over the columns of packed op(B).
#pragma once

#include "blas/level3/gemm_pack.h"

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

// Where row_products finds its columns: group p of op(B) stands at b + p step, that of the next strip b_next
// further; the columns of C of the next strip stand c_next columns further.
template <class T>
struct strip_walk {
  const T* b;
  zor_int step, b_next;
  T* c;
  zor_int ldc, c_next;
};

// `Rows` rows and the columns of one vector in each of `Strips` strips of op(B), whose sums run side by side;
// a vector of twice the bytes of a strip takes two of them.
template <class T, class V, int Rows, int Strips>
void row_products(zor_int depth, T alpha, const operand<T>& a, T beta, const strip_walk<T>& w) {
  const update how = update_of(beta);
  const auto at = [&](int r, int s) { return w.c + r + s * w.c_next * w.ldc; };
  const auto old = [&](int r, int s) {
    if (how == update::store) return V{};
    const V row = gather_row<T, V>(at(r, s), w.ldc);
    return how == update::add ? row : make_factor<V>(beta) * row;
  };
  const auto coefficient = [&](int r, zor_int p) {
    return make_factor<V>(conj_by_sign_if(a.conj, load_element(a.at(r, p))));
  };
  const auto group = [&](zor_int p, int s) {
    const T* const b = w.b + p * w.step + s * w.b_next;
    if constexpr (sizeof(V) > tile_shape<T>::columns * sizeof(T)) {
      using half = vec<real_t<T>, int(sizeof(V) / 2)>;
      return concat<V>(load_units<half>(b), load_units<half>(b + depth * w.step));
    } else {
      return load_units<V>(b);
    }
  };
  V sum[Strips][Rows];
  const auto for_sums = [&](const auto& body) __attribute__((always_inline)) {
#pragma GCC unroll 2
    for (int s = 0; s < Strips; ++s)
#pragma GCC unroll 4
      for (int r = 0; r < Rows; ++r) body(sum[s][r], r, s);
  };
  const auto x = make_factor<V>(alpha);
  const auto for_depth = [&](const auto& prepared) __attribute__((always_inline)) {
    for (zor_int p = 0; p < depth; ++p) {
      V row[Strips];
#pragma GCC unroll 2
      for (int s = 0; s < Strips; ++s) row[s] = prepared(group(p, s));
#pragma GCC unroll 4
      for (int r = 0; r < Rows; ++r) {
        const auto f = coefficient(r, p);
#pragma GCC unroll 2
        for (int s = 0; s < Strips; ++s) sum[s][r] = mul_add(f, row[s], sum[s][r]);
      }
    }
  };
  if (a.trans) {
    for_sums([](V& v, int, int) { v = V{}; });
    for_depth([](V row) { return row; });
    for_sums([&](V& v, int r, int s) { v = how == update::store ? x * v : x * v + old(r, s); });
  } else {
    for_sums([&](V& v, int r, int s) { v = old(r, s); });
    for_depth([&](V row) { return x * row; });
  }
  for (int s = 0; s < Strips; ++s)
    for (int r = 0; r < Rows; ++r) scatter_row(sum[s][r], at(r, s), w.ldc);
}

template <class T, class V, int Strips>
void product_rows(zor_int m, zor_int depth, T alpha, const operand<T>& a, T beta, strip_walk<T> w) {
  zor_int i = 0;
  for (; i + 4 <= m; i += 4, w.c += 4) row_products<T, V, 4, Strips>(depth, alpha, a.from(i, 0), beta, w);
  if (m - i >= 2) {
    row_products<T, V, 2, Strips>(depth, alpha, a.from(i, 0), beta, w);
    i += 2;
    w.c += 2;
  }
  if (i < m) row_products<T, V, 1, Strips>(depth, alpha, a.from(i, 0), beta, w);
}

// m rows of op(A) at a, against n columns of packed op(B).
template <class T>
void product_rows(zor_int m, zor_int n, zor_int depth, T alpha, const operand<T>& a, const T* b, T beta, T* c,
                  zor_int ldc) {
  constexpr int most = tile_shape<T>::columns;
  zor_int j = 0;
  // Whole strips, `Taken` of them at a time, as far as they go.
  const auto for_strips = [&]<int Taken>(const auto& body) {
    for (; j + Taken * most <= n; j += Taken * most)
      body(strip_walk<T>{b + j * depth, most, Taken / 2 * most * depth, c + j * ldc, ldc, Taken / 2 * most});
  };
  if constexpr (2 * most * sizeof(T) <= width) {
    using V = vec<real_t<T>, int(2 * most * sizeof(T))>;
    for_strips.template operator()<4>(
        [&](const strip_walk<T>& w) { product_rows<T, V, 2>(m, depth, alpha, a, beta, w); });
    for_strips.template operator()<2>(
        [&](const strip_walk<T>& w) { product_rows<T, V, 1>(m, depth, alpha, a, beta, w); });
  }
  // Between one and two vectors of 16 bytes: two that overlap. Both have read C before either is stored, and
  // the same sums are stored twice.
  if constexpr (constexpr int n16 = units<T, 16>; n16 < most && most < 2 * n16) {
    for (; j + most <= n; j += most)
      product_rows<T, vec<real_t<T>, 16>, 2>(
          m, depth, alpha, a, beta,
          strip_walk<T>{b + j * depth, most, most - n16, c + j * ldc, ldc, most - n16});
  }
  const auto columns_of = [&]<int Strips>(int columns, strip_walk<T> w) {
    for_ranges<T>(0, columns, [&]<int Bytes>(zor_int q, zor_int last) {
      for (; q < last; q += units<T, Bytes>) {
        strip_walk<T> part = w;
        part.b += q;
        part.c += q * ldc;
        product_rows<T, vec<real_t<T>, Bytes>, Strips>(m, depth, alpha, a, beta, part);
      }
    });
  };
  for_strips.template operator()<2>(
      [&](const strip_walk<T>& w) { columns_of.template operator()<2>(most, w); });
  for (; j < n; j += most) {
    const int columns = n - j < most ? int(n - j) : most;
    columns_of.template operator()<1>(columns, strip_walk<T>{b + j * depth, columns, 0, c + j * ldc, ldc, 0});
  }
}

}  // namespace zor::gemm
