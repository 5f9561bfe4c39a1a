// SPDX-License-Identifier: MIT
// The product without blocks and without memory: for sizes below a tile, and when scratch memory is short.
//
// A not transposed: C(:,j) := beta C(:,j) (zeros when beta is 0, untouched when it is 1), then for ascending
// p C(:,j) := C(:,j) + A(:,p) (alpha B(p,j)). A transposed: C(i,j) := alpha sum + beta C(i,j), the second
// term left out when beta is 0 and C itself when it is 1, where sum runs from +0 over ascending p. Both
// transposed, double precision, k of at least 9: four partial sums, the products p with p mod 4 = 0 to 3 for
// all complete groups of 4, joined as (s0 + s2) + (s1 + s3); the other products follow one by one. With k
// below 1 every form is C := beta C. Conjugation of B is (re, 0 - im).
#include "blas/level3/gemm.h"
#include "blas/thresholds.h"
#include "serv/mul_add.h"

namespace zor::gemm {
namespace {

template <class T>
T b_element(const operand<T>& b, zor_int p, zor_int j) {
  const T e = load_element(b.at(p, j));
  return b.conj ? conj_by_subtraction(e) : e;
}

template <class T>
void scale_or_zero(zor_int m, zor_int n, T beta, T* c, zor_int ldc) {
  if (is_zero(beta))
    zero_columns(m, n, c, ldc);
  else if (!is_one(beta))
    scale_columns(m, n, beta, c, ldc);
}

template <class T>
void add_products(zor_int m, zor_int n, zor_int k, T alpha, const operand<T>& a, const operand<T>& b, T* c,
                  zor_int ldc) {
  for (zor_int j = 0; j < n; ++j) {
    zor_int p = 0;
    T s[4];
    for (; p + 4 <= k; p += 4) {
      for (int q = 0; q < 4; ++q) s[q] = mul_adding(alpha, b_element(b, p + q, j));
      add_columns<4>(m, s, a.at(0, p), a.column_stride, c + j * ldc);
    }
    for (; p < k; ++p) {
      s[0] = mul_adding(alpha, b_element(b, p, j));
      add_columns<1>(m, s, a.at(0, p), a.column_stride, c + j * ldc);
    }
  }
}

template <class T>
void join(T alpha, element<T> sum, T beta, T* c) {
  using V = element<T>;
  const V product = make_factor<V>(alpha) * sum;
  if (is_zero(beta))
    store_units(c, product);
  else if (is_one(beta))
    store_units(c, product + load_units<V>(c));
  else
    store_units(c, product + make_factor<V>(beta) * load_units<V>(c));
}

// Rows of A^T that share a column of op(B), each with one running sum. Real sums are plain numbers: a vector
// of one lane would be kept in memory.
template <int Rows, bool Conj, class T>
void dot_rows(zor_int k, T alpha, const operand<T>& a, const operand<T>& b, zor_int j, T beta, T* c) {
  using V = element<T>;
  vec_or_real<real_t<T>, sizeof(T)> sum[Rows] = {};
  for (zor_int p = 0; p < k; ++p) {
    const T e = b_element(b, p, j);
    if constexpr (is_complex<T>) {
      const auto f = make_factor<V, Conj>(e);
      for (int r = 0; r < Rows; ++r) sum[r] = mul_add(f, load_units<V>(a.at(r, p)), sum[r]);
    } else {
      for (int r = 0; r < Rows; ++r) sum[r] = mul_add(e, load_element(a.at(r, p)), sum[r]);
    }
  }
  for (int r = 0; r < Rows; ++r) {
    if constexpr (is_complex<T>)
      join(alpha, sum[r], beta, c + r);
    else
      join(alpha, V{sum[r]}, beta, c + r);
  }
}

double pair_sum(zor_int k, const double* a, const double* b, zor_int ldb) {
  using V = vec<double, 16>;
  V s0 = {}, s1 = {};
  zor_int p = 0;
  for (; p + 4 <= k; p += 4) {
    s0 = mul_add(load<V>(a + p), V{b[p * ldb], b[(p + 1) * ldb]}, s0);
    s1 = mul_add(load<V>(a + p + 2), V{b[(p + 2) * ldb], b[(p + 3) * ldb]}, s1);
  }
  double sum = sum_lanes(s0 + s1);
  for (; p < k; ++p) sum = mul_add(a[p], b[p * ldb], sum);
  return sum;
}

template <bool Conj, class T>
void dot_products(zor_int m, zor_int n, zor_int k, T alpha, const operand<T>& a, const operand<T>& b, T beta,
                  T* c, zor_int ldc) {
  for (zor_int j = 0; j < n; ++j) {
    T* column = c + j * ldc;
    zor_int i = 0;
    if constexpr (std::is_same_v<T, double>) {
      if (b.trans && k >= thresholds::paired_sums_depth) {
        for (; i < m; ++i)
          join(alpha, element<T>{pair_sum(k, a.at(i, 0), b.at(0, j), b.row_stride)}, beta, column + i);
      }
    }
    for (; i + 4 <= m; i += 4) dot_rows<4, Conj>(k, alpha, a.from(i, 0), b, j, beta, column + i);
    for (; i < m; ++i) dot_rows<1, Conj>(k, alpha, a.from(i, 0), b, j, beta, column + i);
  }
}

}  // namespace

template <class T>
void plain_product(zor_int m, zor_int n, zor_int k, T alpha, const operand<T>& a, const operand<T>& b, T beta,
                   T* c, zor_int ldc) {
  if (k < 1) {
    scale_or_zero(m, n, beta, c, ldc);
  } else if (!a.trans) {
    scale_or_zero(m, n, beta, c, ldc);
    add_products(m, n, k, alpha, a, b, c, ldc);
  } else if (a.conj) {
    dot_products<true>(m, n, k, alpha, a, b, beta, c, ldc);
  } else {
    dot_products<false>(m, n, k, alpha, a, b, beta, c, ldc);
  }
}

#define PLAIN(T)                                                                                         \
  template void plain_product(zor_int, zor_int, zor_int, T, const operand<T>&, const operand<T>&, T, T*, \
                              zor_int);
PLAIN(float)
PLAIN(double)
PLAIN(c32)
PLAIN(c64)
#undef PLAIN

}  // namespace zor::gemm
