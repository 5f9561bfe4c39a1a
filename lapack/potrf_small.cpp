// SPDX-License-Identifier: MIT
// Cholesky factorisation column by column. Step j: the pivot is a(j,j) - dot(l, l), l being row j left of the
// diagonal (column j above it, for the upper triangle), with the order of sums of the dot product for that
// increment; then the elements beside the pivot get a(i,j) - L(i,:) l with the order of sums of the
// matrix-vector product, and are scaled by 1 / sqrt(pivot), rounded once.
//
// Small matrices do this in line. The sums are those of the routines that large ones call, term by term.
#include "blas/level2/matvec.h"
#include "lapack/blas.h"
#include "zor/signatures/lapack.h"

namespace zor {
namespace {

// Orders up to which the products are computed in line. Measured: at 64 the calls take as long as half of the
// products.
inline constexpr zor_int largest_inline_lower = 128, largest_inline_upper = 16;

template <class T>
constexpr T minus_one() {
  if constexpr (is_complex<T>)
    return {-1, 0};
  else
    return -1;
}

template <class T>
void conjugate(zor_int n, T* x, zor_int incx) {
  if constexpr (is_complex<T>)
    for (zor_int k = 0; k < n; ++k) store_element(x + k * incx, conj_by_sign(load_element(x + k * incx)));
}

inline float square_root(float x) { return __builtin_sqrtf(x); }
inline double square_root(double x) { return __builtin_sqrt(x); }

// The pivot in the place of a(j,j): its root, or itself if there is none. Returns whether there is.
template <class T>
bool take_root(real_t<T> pivot, T* ajj, real_t<T>& root) {
  const bool positive = pivot > 0;
  root = positive ? square_root(pivot) : pivot;
  if constexpr (is_complex<T>)
    store_element(ajj, T{root, 0});
  else
    store_element(ajj, root);
  return positive;
}

template <class T>
real_t<T> real_part(T v) {
  if constexpr (is_complex<T>)
    return v.re;
  else
    return v;
}

// ---- Lower triangle, in line.

// Rows i to i + Vectors - 1 vectors of y := (y + the sum of f[k] columns k) r.
template <int Bytes, int Vectors, class T>
[[gnu::always_inline]] inline void update_rows(zor_int i, zor_int terms, const T* f, const T* a, zor_int lda,
                                               real_t<T> r, T* y) {
  using V = vec<real_t<T>, Bytes>;
  constexpr int U = units<T, Bytes>;
  V sum[Vectors];
#pragma GCC unroll 4
  for (int v = 0; v < Vectors; ++v) sum[v] = load_units<V>(y + i + v * U);
  for (zor_int k = 0; k < terms; ++k) {
    const factor<T, V> s = make_factor<V>(f[k]);
#pragma GCC unroll 4
    for (int v = 0; v < Vectors; ++v) sum[v] = sum[v] + s * load_units<V>(a + i + v * U + k * lda);
  }
  const V by = broadcast<V>(r);
#pragma GCC unroll 4
  for (int v = 0; v < Vectors; ++v) store_units(y + i + v * U, by * sum[v]);
}

// y := (y - the sum of columns k times conj(row[k])) r, over m rows; `a` and y begin at the same row.
template <class T>
void update_column(zor_int m, zor_int terms, const T* row, const T* a, zor_int lda, real_t<T> r, T* y) {
  T f[largest_inline_lower];
  for (zor_int k = 0; k < terms; ++k)
    f[k] = mul_adding(minus_one<T>(), conj_by_sign(load_element(row + k * lda)));
  constexpr zor_int block = 4 * units<T>;
  zor_int i = 0;
  for (; i + block <= m; i += block) update_rows<width, 4>(i, terms, f, a, lda, r, y);
  for_vectors<T>(
      i, m, [&]<int Bytes>(zor_int at) __attribute__((always_inline)) {
        update_rows<Bytes, 1>(at, terms, f, a, lda, r, y);
      });
}

template <class T>
zor_int factor_small_lower(zor_int n, T* a, zor_int lda) {
  for (zor_int j = 0; j < n; ++j) {
    T* ajj = a + j + j * lda;
    real_t<T> squares = 0;
    if constexpr (is_complex<T>)
      squares = sum_of_squares(j, a + j, lda);
    else
      for (zor_int k = 0; k < j; ++k) squares = squares + a[j + k * lda] * a[j + k * lda];
    real_t<T> root;
    if (!take_root(real_part(load_element(ajj)) - squares, ajj, root)) return j + 1;
    update_column(n - j - 1, j, a + j, a + j + 1, lda, 1 / root, ajj + 1);
  }
  return 0;
}

// ---- Upper triangle, in line.

// Elements of row j right of the diagonal in Columns columns from b on: (b(j) - the sum of conj(x[i]) b(i), i
// < j) r.
template <int Columns, class T>
[[gnu::always_inline]] inline void update_columns(zor_int j, const T* x, T* b, zor_int lda, real_t<T> r) {
  using E = element<T>;
  E sum[Columns] = {};
  for (zor_int i = 0; i < j; ++i) {
    const factor<T, E> f = make_factor<E>(conj_by_sign(load_element(x + i)));
#pragma GCC unroll 4
    for (int k = 0; k < Columns; ++k) sum[k] = sum[k] + f * load_units<E>(b + i + k * lda);
  }
  const factor<T, E> minus = make_factor<E>(minus_one<T>());
#pragma GCC unroll 4
  for (int k = 0; k < Columns; ++k) {
    E e = load_units<E>(b + j + k * lda);
    if (j > 0) e = e + minus * sum[k];
    store_units(b + j + k * lda, broadcast<E>(r) * e);
  }
}

template <class T>
zor_int factor_small_upper(zor_int n, T* a, zor_int lda) {
  for (zor_int j = 0; j < n; ++j) {
    T* column = a + j * lda;
    real_t<T> root;
    if (!take_root(real_part(load_element(column + j)) - sum_of_squares(j, column, 1), column + j, root))
      return j + 1;
    const real_t<T> r = 1 / root;
    zor_int k = j + 1;
    for (; k + 4 <= n; k += 4) update_columns<4>(j, column, a + k * lda, lda, r);
    for (; k < n; ++k) update_columns<1>(j, column, a + k * lda, lda, r);
  }
  return 0;
}

// ---- Any order, by calls: the products are the core's, which divides large ones over threads.

template <bool Upper, class T>
zor_int factor_by_calls(zor_int n, T* a, zor_int lda) {
  const zor_int one = 1;
  const T minus = minus_one<T>(), plus = one_of<T>();
  for (zor_int j = 0; j < n; ++j) {
    T* ajj = a + j + j * lda;
    T* l = Upper ? a + j * lda : a + j;
    const zor_int step = Upper ? 1 : lda, beside = Upper ? lda : 1, left = n - j - 1;
    real_t<T> root;
    if (!take_root(real_part(load_element(ajj)) - sum_of_squares(j, l, step), ajj, root)) return j + 1;
    if (left == 0) break;
    T* y = ajj + beside;
    if (j > 0) {
      conjugate(j, l, step);
      if constexpr (Upper)
        blas_of<T>::gemv("Transpose", &j, &left, &minus, l + lda, &lda, l, &step, &plus, y, &lda);
      else
        blas_of<T>::gemv("No transpose", &left, &j, &minus, l + 1, &lda, l, &step, &plus, y, &one);
      conjugate(j, l, step);
    }
    scale(left, 1 / root, y, beside);
  }
  return 0;
}

template <bool Upper, class T>
void potrf_small(zor_int n, T* a, zor_int lda, zor_int* info) {
  if (n < 1) return;
  zor_int failed;
  if (on_real_boundary(a) && n <= (Upper ? largest_inline_upper : largest_inline_lower)) {
    if constexpr (Upper)
      failed = factor_small_upper(n, a, lda);
    else
      failed = factor_small_lower(n, a, lda);
  } else {
    failed = factor_by_calls<Upper>(n, a, lda);
  }
  if (failed != 0) *info = failed;
}

}  // namespace
}  // namespace zor

#define ROW_POTRF_SMALL(name, T, upper)            \
  extern "C" SIG_POTRF_SMALL(name, T) {            \
    (void)uplo;                                    \
    zor::potrf_small<upper, T>(*n, a, *lda, info); \
  }
#include "zor/tables/lapack.inc"
