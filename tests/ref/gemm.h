// SPDX-License-Identifier: MIT
// Plain loops of the matrix product in its stated orders of sums.
#pragma once

#include "tests/ref/matvec.h"

namespace zor_ref {

template <class T>
T conj_by_zero(T e) {
  return element_of<T>(real_part(e), 0 - imaginary_part(e));
}

template <class T>
struct product {
  char transa, transb;
  zor_int m, n, k;
  T alpha;
  const T* a;
  zor_int lda;
  const T* b;
  zor_int ldb;
  T beta;
  T* c;
  zor_int ldc;

  static bool upper(char letter, char wanted) { return letter == wanted || letter == wanted + 'a' - 'A'; }
  bool a_transposed() const { return !upper(transa, 'N'); }
  bool b_transposed() const { return !upper(transb, 'N'); }
  T a_raw(zor_int i, zor_int p) const { return a_transposed() ? a[p + i * lda] : a[i + p * lda]; }
  T op_a(zor_int i, zor_int p) const { return upper(transa, 'C') ? conj(a_raw(i, p)) : a_raw(i, p); }
  T op_b(zor_int p, zor_int j) const {
    const T e = b_transposed() ? b[j + p * ldb] : b[p + j * ldb];
    return upper(transb, 'C') ? conj_by_zero(e) : e;
  }
  T& at(zor_int i, zor_int j) const { return c[i + j * ldc]; }
};

// The sum of a panel: p from first to last - 1.
template <class T>
T panel_sum(const product<T>& q, zor_int i, zor_int j, zor_int first, zor_int last) {
  T sum{};
  for (zor_int p = first; p < last; ++p) {
    const T s = times(q.alpha, q.op_a(i, p)), b = q.op_b(p, j);
    if constexpr (std::is_floating_point_v<T>) {
      sum = plus_product(sum, s, b);
    } else {
      sum.re = minus_product(plus_product(sum.re, b.re, s.re), b.im, s.im);
      sum.im = plus_product(plus_product(sum.im, b.re, s.im), b.im, s.re);
    }
  }
  return sum;
}

// The product without panels, for one block of rows, columns and depth. By_a says that the first factor of a
// term is the element of op(A), as in the rows beyond those of tiles.
template <class T>
void plain(const product<T>& q, zor_int i0, zor_int i1, zor_int j0, zor_int j1, zor_int p0, zor_int p1,
           T beta, bool by_a = false) {
  const auto joined = [&](T sum, T a, T b) { return by_a ? plus_term(sum, a, b) : plus_term(sum, b, a); };
  for (zor_int j = j0; j < j1; ++j)
    for (zor_int i = i0; i < i1; ++i) {
      T& c = q.at(i, j);
      if (!q.a_transposed() || p1 <= p0) {
        c = is(beta, 0) ? T{} : is(beta, 1) ? c : times(beta, c);
        for (zor_int p = p0; p < p1; ++p) c = joined(c, q.op_a(i, p), times(q.alpha, q.op_b(p, j)));
        continue;
      }
      T sum{};
      zor_int start = p0;
      if constexpr (std::is_same_v<T, double>) {
        if (q.b_transposed() && p1 - p0 >= 9) {
          const zor_int pairs = p0 + (p1 - p0) / 4 * 4;
          double lane[4] = {0, 0, 0, 0};
          for (zor_int p = p0; p < pairs; ++p) {
            double& sum_of_lane = lane[(p - p0) % 4];
            sum_of_lane = plus_product(sum_of_lane, q.op_a(i, p), q.op_b(p, j));
          }
          sum = (lane[0] + lane[2]) + (lane[1] + lane[3]);
          for (zor_int p = pairs; p < p1; ++p) sum = plus_product(sum, q.op_a(i, p), q.op_b(p, j));
          start = p1;
        }
      }
      for (zor_int p = start; p < p1; ++p) sum = joined(sum, q.op_a(i, p), q.op_b(p, j));
      sum = times(q.alpha, sum);
      c = is(beta, 0) ? sum : is(beta, 1) ? plus(sum, c) : plus(sum, times(beta, c));
    }
}

template <class T>
void join(T& c, T sum, T beta) {
  c = is(beta, 0) ? sum : is(beta, 1) ? plus(c, sum) : plus(times(beta, c), sum);
}

struct groups {
  zor_int least_m, least, rows, columns, depth;
};
template <class T>
constexpr groups groups_of() {
  if constexpr (std::is_same_v<T, double>) return {3, 3, 1, 1, 112};
  if constexpr (std::is_same_v<T, float>) return {8, 8, 8, 4, 112};
  if constexpr (std::is_same_v<T, zor_c32>) return {4, 8, 4, 4, 64};
  if constexpr (std::is_same_v<T, zor_c64>) return {4, 8, 2, 4, 64};
}

// The whole product. `memory` tells whether the scratch block was to be had.
template <class T>
void gemm(const product<T>& q, bool memory = true) {
  constexpr groups g = groups_of<T>();
  if (q.m < 1 || q.n < 1) return;
  if (is(q.alpha, 0)) {
    for (zor_int j = 0; j < q.n; ++j)
      for (zor_int i = 0; i < q.m; ++i)
        if (T& c = q.at(i, j); !is(q.beta, 1)) c = is(q.beta, 0) ? T{} : times(q.beta, c);
    return;
  }
  if (q.m < g.least_m || q.n < g.least || q.k < g.least || !memory) {
    plain(q, 0, q.m, 0, q.n, 0, q.k, q.beta);
    return;
  }
  zor_int kb = g.depth;
  if (std::is_same_v<T, double> && q.k >= 113 && q.k <= 224) kb = q.k / 2 - q.k / 2 % 4;
  const zor_int m = q.m - q.m % g.rows, n = q.n - q.n % g.columns, head = q.k % kb ? q.k % kb : kb;
  for (zor_int j = 0; j < n; ++j) {
    for (zor_int i = 0; i < m; ++i) {
      join(q.at(i, j), panel_sum(q, i, j, q.k - head, q.k), q.beta);
      for (zor_int p = 0; p < q.k - head; p += kb)
        q.at(i, j) = plus(q.at(i, j), panel_sum(q, i, j, p, p + kb));
    }
  }
  const T one = unity<T>();
  plain(q, m, q.m, 0, n, q.k - head, q.k, q.beta, true);
  for (zor_int p = 0; p < q.k - head; p += kb) plain(q, m, q.m, 0, n, p, p + kb, one, true);
  if (product<T>::upper(q.transb, 'C') && n < q.n && !std::is_same_v<T, float>) {
    plain(q, 0, q.m, n, q.n, 0, q.k, q.beta);
  } else {
    for (zor_int j = n; j < q.n; ++j)
      gemv(q.transa, q.a_transposed() ? q.k : q.m, q.a_transposed() ? q.m : q.k, q.alpha, q.a, q.lda,
           q.b_transposed() ? q.b + j : q.b + j * q.ldb, q.b_transposed() ? q.ldb : 1, q.beta,
           q.c + j * q.ldc, zor_int(1));
  }
}

}  // namespace zor_ref
