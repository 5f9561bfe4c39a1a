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

// Tuned: orders up to which the products are computed in line. Beyond them the core's routines, which know of
// blocks and threads, are as fast.
inline constexpr zor_int largest_inline = 128, largest_inline_complex = 16;

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
    for (int v = 0; v < Vectors; ++v) sum[v] = mul_add(s, load_units<V>(a + i + v * U + k * lda), sum[v]);
  }
  const V by = broadcast<V>(r);
#pragma GCC unroll 4
  for (int v = 0; v < Vectors; ++v) store_units(y + i + v * U, by * sum[v]);
}

// y := (y - the sum of columns k times conj(row[k])) r, over m rows; `a` and y begin at the same row.
template <class T>
void update_column(zor_int m, zor_int terms, const T* row, const T* a, zor_int lda, real_t<T> r, T* y) {
  T f[largest_inline];
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
zor_int factor_by_columns(zor_int n, T* a, zor_int lda) {
  for (zor_int j = 0; j < n; ++j) {
    T* ajj = a + j + j * lda;
    real_t<T> root;
    if (!take_root(real_part(load_element(ajj)) - sum_of_squares(j, a + j, lda), ajj, root)) return j + 1;
    update_column(n - j - 1, j, a + j, a + j + 1, lda, 1 / root, ajj + 1);
  }
  return 0;
}

// Four columns at a time: the sums of four columns are chains of their own, and an element of the columns
// before them is loaded once for the four.
inline constexpr int group = 4;

// What the rows below a group need of it: factors of the columns before it, of those within it, and its
// scales.
template <class R>
struct group_factors {
  R before[largest_inline][group];
  R within[group][group] = {};
  R scale[group] = {};
};

// The triangle of Columns columns at `corner`, factored in registers; `left` points to its first row in
// column 0. Columns beyond a pivot that fails are not touched. Returns how many columns are done.
template <int Columns, class R>
[[gnu::always_inline]] inline int factor_corner(zor_int terms, const R* left, zor_int lda, R* corner,
                                                group_factors<R>& f) {
  R squares[Columns] = {}, e[Columns][Columns];
#pragma GCC unroll 4
  for (int c = 0; c < Columns; ++c)
#pragma GCC unroll 4
    for (int r = c; r < Columns; ++r) e[r][c] = corner[r + c * lda];
  for (zor_int k = 0; k < terms; ++k) {
    R l[Columns];
#pragma GCC unroll 4
    for (int r = 0; r < Columns; ++r) l[r] = left[r + k * lda];
#pragma GCC unroll 4
    for (int c = 0; c < Columns; ++c) {
      f.before[k][c] = -1 * l[c];
      squares[c] = squares[c] + l[c] * l[c];
#pragma GCC unroll 4
      for (int r = c + 1; r < Columns; ++r) e[r][c] = mul_add(f.before[k][c], l[r], e[r][c]);
    }
  }
#pragma GCC unroll 4
  for (int c = 0; c < Columns; ++c) {
    R root;
    if (!take_root(e[c][c] - squares[c], corner + c + c * lda, root)) return c;
    f.scale[c] = 1 / root;
#pragma GCC unroll 4
    for (int r = c + 1; r < Columns; ++r) {
      e[r][c] = f.scale[c] * e[r][c];
      corner[r + c * lda] = e[r][c];
      squares[r] = squares[r] + e[r][c] * e[r][c];
      f.within[r][c] = -1 * e[r][c];
    }
#pragma GCC unroll 4
    for (int d = c + 1; d < Columns; ++d)
#pragma GCC unroll 4
      for (int r = d + 1; r < Columns; ++r) e[r][d] = mul_add(f.within[d][c], e[r][c], e[r][d]);
  }
  return Columns;
}
template <class R>
int factor_corner_of(int columns, zor_int terms, const R* left, zor_int lda, R* corner, group_factors<R>& f) {
  if (columns == 4) return factor_corner<4>(terms, left, lda, corner, f);
  if (columns == 3) return factor_corner<3>(terms, left, lda, corner, f);
  if (columns == 2) return factor_corner<2>(terms, left, lda, corner, f);
  return factor_corner<1>(terms, left, lda, corner, f);
}

// Vectors of rows from i on, below a whole group.
template <int Bytes, int Vectors, class R>
[[gnu::always_inline]] inline void update_below(zor_int i, zor_int terms, const R* a, zor_int lda,
                                                const group_factors<R>& f) {
  using V = vec<R, Bytes>;
  constexpr int U = units<R, Bytes>;
  R* const columns = const_cast<R*>(a) + terms * lda;
  V sum[group][Vectors];
#pragma GCC unroll 4
  for (int c = 0; c < group; ++c)
#pragma GCC unroll 2
    for (int v = 0; v < Vectors; ++v) sum[c][v] = load<V>(columns + i + v * U + c * lda);
  for (zor_int k = 0; k < terms; ++k)
#pragma GCC unroll 2
    for (int v = 0; v < Vectors; ++v) {
      const V x = load<V>(a + i + v * U + k * lda);
#pragma GCC unroll 4
      for (int c = 0; c < group; ++c) sum[c][v] = mul_add(broadcast<V>(f.before[k][c]), x, sum[c][v]);
    }
#pragma GCC unroll 4
  for (int c = 0; c < group; ++c)
#pragma GCC unroll 2
    for (int v = 0; v < Vectors; ++v) {
      sum[c][v] = broadcast<V>(f.scale[c]) * sum[c][v];
      store<V>(columns + i + v * U + c * lda, sum[c][v]);
#pragma GCC unroll 4
      for (int d = c + 1; d < group; ++d)
        sum[d][v] = mul_add(broadcast<V>(f.within[d][c]), sum[c][v], sum[d][v]);
    }
}

template <class R>
zor_int factor_by_groups(zor_int n, R* a, zor_int lda) {
  group_factors<R> f;
  for (zor_int j = 0; j < n; j += group) {
    const int columns = n - j < group ? int(n - j) : group;
    const int done = factor_corner_of(columns, j, a + j, lda, a + j + j * lda, f);
    const zor_int below = j + columns;
    if (done < columns) {
      for (zor_int c = j; c < j + done; ++c)
        update_column(n - below, c, a + c, a + below, lda, f.scale[c - j], a + below + c * lda);
      return j + done + 1;
    }
    constexpr zor_int block = 2 * units<R>;
    zor_int i = below;
    for (; i + block <= n; i += block) update_below<width, 2>(i, j, a, lda, f);
    for_vectors<R>(
        i, n, [&]<int Bytes>(zor_int at) __attribute__((always_inline)) {
          update_below<Bytes, 1>(at, j, a, lda, f);
        });
  }
  return 0;
}

template <class T>
zor_int factor_small_lower(zor_int n, T* a, zor_int lda) {
  if constexpr (is_complex<T>)
    return factor_by_columns(n, a, lda);
  else
    return factor_by_groups(n, a, lda);
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
    for (int k = 0; k < Columns; ++k) sum[k] = mul_add(f, load_units<E>(b + i + k * lda), sum[k]);
  }
  const factor<T, E> minus = make_factor<E>(minus_one<T>());
#pragma GCC unroll 4
  for (int k = 0; k < Columns; ++k) {
    E e = load_units<E>(b + j + k * lda);
    if (j > 0) e = mul_add(minus, sum[k], e);
    store_units(b + j + k * lda, broadcast<E>(r) * e);
  }
}

template <class T>
zor_int factor_by_rows(zor_int n, T* a, zor_int lda) {
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

// The rows of a group in four columns, whose sums over the rows above are given: the lanes of a vector become
// the columns, so that a row is finished in the four at once.
template <class V, class R>
[[gnu::always_inline]] inline void finish_square(bool rows_above, V (&sum)[group], const R* corner,
                                                 const R* scale, R* y, zor_int lda) {
  V e[group];
#pragma GCC unroll 4
  for (int k = 0; k < group; ++k) e[k] = load<V>(y + k * lda);
  transpose_units<1>(sum);
  transpose_units<1>(e);
#pragma GCC unroll 4
  for (int c = 0; c < group; ++c) {
    if (c > 0 || rows_above) e[c] = e[c] + broadcast<V>(R(-1)) * sum[c];
    e[c] = broadcast<V>(scale[c]) * e[c];
#pragma GCC unroll 4
    for (int d = c + 1; d < group; ++d) sum[d] = sum[d] + broadcast<V>(corner[c + d * lda]) * e[c];
  }
  transpose_units<1>(e);
#pragma GCC unroll 4
  for (int k = 0; k < group; ++k) store<V>(y + k * lda, e[k]);
}

// Four rows at a time: an element above them is loaded once for the four, and their sums are the lanes of a
// vector. The rows of the group in Columns columns from b on are finished; `before` holds the group's
// columns, row by row.
template <int Columns, class R>
[[gnu::always_inline]] inline void finish_group(zor_int j, const R (*before)[group], const R* corner,
                                                const R* scale, R* b, zor_int lda) {
  constexpr int bytes = group * sizeof(R) < size_t(width) ? int(group * sizeof(R)) : width;
  constexpr int pieces = int(group * sizeof(R)) / bytes;
  using V = vec<R, bytes>;
  V sum[Columns][pieces] = {};
  for (zor_int i = 0; i < j; ++i)
#pragma GCC unroll 2
    for (int p = 0; p < pieces; ++p) {
      const V x = load<V>(before[i] + p * lanes<V>);
#pragma GCC unroll 4
      for (int k = 0; k < Columns; ++k) sum[k][p] = sum[k][p] + x * broadcast<V>(b[i + k * lda]);
    }
  if constexpr (Columns == group && pieces == 1) {
    V sums[group];
#pragma GCC unroll 4
    for (int k = 0; k < group; ++k) sums[k] = sum[k][0];
    return finish_square(j > 0, sums, corner, scale, b + j, lda);
  }
#pragma GCC unroll 4
  for (int k = 0; k < Columns; ++k) {
    R s[group], *y = b + j + k * lda;
#pragma GCC unroll 2
    for (int p = 0; p < pieces; ++p) store<V>(s + p * lanes<V>, sum[k][p]);
#pragma GCC unroll 4
    for (int c = 0; c < group; ++c) {
      R e = y[c];
      if (c > 0 || j > 0) e = e + -1 * s[c];
      y[c] = e = scale[c] * e;
#pragma GCC unroll 4
      for (int d = c + 1; d < group; ++d) s[d] = s[d] + corner[c + d * lda] * e;
    }
  }
}
// Rows j to j + Rows - 1 of one column, with nothing computed beyond them.
template <int Rows, class R>
[[gnu::always_inline]] inline void finish_rows(zor_int j, const R (*before)[group], const R* corner,
                                               const R* scale, R* b, zor_int lda) {
  R sum[Rows] = {};
  for (zor_int i = 0; i < j; ++i)
#pragma GCC unroll 4
    for (int c = 0; c < Rows; ++c) sum[c] = sum[c] + before[i][c] * b[i];
#pragma GCC unroll 4
  for (int c = 0; c < Rows; ++c) {
    R e = b[j + c];
    if (c > 0 || j > 0) e = e + -1 * sum[c];
    b[j + c] = e = scale[c] * e;
#pragma GCC unroll 4
    for (int d = c + 1; d < Rows; ++d) sum[d] = sum[d] + corner[c + d * lda] * e;
  }
}
template <class R>
void finish_rows_of(int rows, zor_int j, const R (*before)[group], const R* corner, const R* scale, R* b,
                    zor_int lda) {
  if (rows == 1) finish_rows<1>(j, before, corner, scale, b, lda);
  if (rows == 2) finish_rows<2>(j, before, corner, scale, b, lda);
  if (rows == 3) finish_rows<3>(j, before, corner, scale, b, lda);
}

template <class R>
zor_int factor_by_row_groups(zor_int n, R* a, zor_int lda) {
  R before[largest_inline][group], scale[group];
  for (zor_int j = 0; j < n; j += group) {
    const int columns = n - j < group ? int(n - j) : group;
    for (zor_int i = 0; i < j; ++i)
      for (int c = 0; c < columns; ++c) before[i][c] = a[i + (j + c) * lda];
    const R* corner = a + j + j * lda;
    for (int c = 0; c < columns; ++c) {
      R* column = a + (j + c) * lda;
      finish_rows_of(c, j, before, corner, scale, column, lda);
      R root;
      if (!take_root(column[j + c] - sum_of_squares(j + c, column, 1), column + j + c, root)) {
        for (zor_int k = j + c + 1; k < n; ++k) finish_rows_of(c, j, before, corner, scale, a + k * lda, lda);
        return j + c + 1;
      }
      scale[c] = 1 / root;
    }
    zor_int k = j + columns;
    for (; k + 4 <= n; k += 4) finish_group<4>(j, before, corner, scale, a + k * lda, lda);
    for (; k < n; ++k) finish_group<1>(j, before, corner, scale, a + k * lda, lda);
  }
  return 0;
}

// Tuned: up to `tiny` columns stay in registers, one after the other, each sum unrolled. A call of the dot
// product, and vectors loaded where single elements have just been stored, would take longer than all else.
inline constexpr int tiny = 8;

// The sum of the squares of a column's first M elements in the order of the dot product, Peel elements of it
// standing before the boundary of 16 bytes. The accumulators of blocks stay empty in so short a column.
template <int M, int Peel, class R>
[[gnu::always_inline]] inline R squares_in_order(const R* e) {
  constexpr int L = 16 / sizeof(R), peel = Peel < M ? Peel : M, rest = M - peel;
  static_assert(rest < 4 * L);
  R a0[L] = {}, a1[L] = {};
  int i = 0;
#pragma GCC unroll 8
  for (; i < peel; ++i) a0[0] = a0[0] + e[i] * e[i];
  if constexpr ((rest & 2 * L) != 0) {
#pragma GCC unroll 4
    for (int l = 0; l < L; ++l) {
      a0[l] = a0[l] + e[i + l] * e[i + l];
      a1[l] = a1[l] + e[i + L + l] * e[i + L + l];
    }
    i += 2 * L;
  }
  if constexpr ((rest & L) != 0) {
#pragma GCC unroll 4
    for (int l = 0; l < L; ++l) a0[l] = a0[l] + e[i + l] * e[i + l];
    i += L;
  }
#pragma GCC unroll 4
  for (; i < M; ++i) a0[0] = a0[0] + e[i] * e[i];
  R sum = a0[0] + a1[0];
#pragma GCC unroll 4
  for (int l = 1; l < L; ++l) sum = sum + (a0[l] + a1[l]);
  return sum;
}
template <int M, class R>
[[gnu::always_inline]] inline R squares_at(const R* column, const R* e) {
  const uintptr_t peel = (0 - reinterpret_cast<uintptr_t>(column)) % 16 / sizeof(R);
  if constexpr (sizeof(R) == 4) {
    if (peel == 3) return squares_in_order<M, 3>(e);
    if (peel == 2) return squares_in_order<M, 2>(e);
  }
  return peel == 1 ? squares_in_order<M, 1>(e) : squares_in_order<M, 0>(e);
}

// Columns K and beyond of n; above[k] holds column k of the factor, row by row. Returns info.
template <int K, class R>
[[gnu::always_inline]] inline zor_int factor_tiny_columns(int n, R* a, zor_int lda, R (&above)[tiny][tiny],
                                                          R (&scale)[tiny]) {
  if constexpr (K < tiny) {
    if (K == n) return 0;
    R* const column = a + K * lda;
#pragma GCC unroll 8
    for (int i = 0; i < K; ++i) {
      R sum = 0, e = column[i];
#pragma GCC unroll 8
      for (int l = 0; l < i; ++l) sum = sum + above[i][l] * above[K][l];
      if (i > 0) e = e + -1 * sum;
      column[i] = above[K][i] = scale[i] * e;
    }
    R root;
    if (!take_root(column[K] - squares_at<K>(column, above[K]), column + K, root)) {
      // The rows above the failed pivot are finished in the columns beyond it, too.
      for (zor_int k = K + 1; k < n; ++k)
        for (int i = 0; i < K; ++i) {
          R sum = 0, e = a[i + k * lda];
          for (int l = 0; l < i; ++l) sum = sum + above[i][l] * a[l + k * lda];
          if (i > 0) e = e + -1 * sum;
          a[i + k * lda] = scale[i] * e;
        }
      return K + 1;
    }
    scale[K] = 1 / root;
    return factor_tiny_columns<K + 1>(n, a, lda, above, scale);
  } else {
    return 0;
  }
}
template <class R>
zor_int factor_tiny_upper(zor_int n, R* a, zor_int lda) {
  R above[tiny][tiny], scale[tiny];
  return factor_tiny_columns<0>(int(n), a, lda, above, scale);
}

template <class T>
zor_int factor_small_upper(zor_int n, T* a, zor_int lda) {
  if constexpr (is_complex<T>)
    return factor_by_rows(n, a, lda);
  else
    return n <= tiny ? factor_tiny_upper(n, a, lda) : factor_by_row_groups(n, a, lda);
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
        gemv_of<T>("Transpose", &j, &left, &minus, l + lda, &lda, l, &step, &plus, y, &lda);
      else
        gemv_of<T>("No transpose", &left, &j, &minus, l + 1, &lda, l, &step, &plus, y, &one);
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
  if (on_real_boundary(a) && n <= (is_complex<T> && Upper ? largest_inline_complex : largest_inline)) {
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
