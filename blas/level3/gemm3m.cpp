// SPDX-License-Identifier: MIT
// The complex product by three real ones (3M): with T1 = Ar Br, T2 = Ai Bi and T3 = (Ar + Ai)(Br + Bi), the
// product is T1 - T2 + i (T3 - T1 - T2). A quarter fewer multiplications than four products; the imaginary
// part may lose digits to cancellation (Higham 1992).
#include "blas/level3/blocks.h"
#include "blas/level3/gemm.h"
#include "blas/level3/lanes.h"
#include "blas/level3/product.h"
#include "serv/imports.h"
#include "serv/memory.h"
#include "serv/scratch.h"

namespace zor::level3 {
namespace {

constexpr zor_int block_rows = three_product_rows, block_columns = three_product_columns,
                  block_depth = three_product_depth;
// Below this size in any direction the ordinary product is called.
constexpr zor_int least = 9;

// The three arrays of a block, column-major with the block's own row count as leading dimension.
template <class R>
struct three_parts {
  R *re, *im, *sum;
};

// Splits the block of op(A) that begins at `row` and `column`; sum is the real plus the imaginary part of
// op(A).
template <class T>
void split(char form, zor_int rows, zor_int columns, const T* a, zor_int lda, zor_int row, zor_int column,
           three_parts<real_t<T>> to) {
  const T* const from = form == 'n' ? a + row + column * lda : a + column + row * lda;
  const auto put = [&](zor_int at, auto e) {
    if (form == 'c') e = conj_by_subtraction(e);
    store_reals(to.re + at, e.re);
    store_reals(to.im + at, e.im);
    store_reals(to.sum + at, e.re + e.im);
  };
  for (zor_int j = 0; j < columns; ++j) {
    if (form == 'n')
      for_vectors<real_t<T>>(0, rows, [&]<int Bytes>(zor_int i) {
        put(j * rows + i, load_parts<vec_or_real<real_t<T>, Bytes>>(from + i + j * lda));
      });
    else
      for (zor_int i = 0; i < rows; ++i) put(j * rows + i, load_element(from + j + i * lda));
  }
}

// A block of C from its three products: C := alpha (T1 - T2, (T3 - T1) - T2) + beta C; a beta of 0 does not
// read C.
template <class T>
void combine(zor_int rows, zor_int columns, T alpha, three_parts<const real_t<T>> t, T beta, T* c,
             zor_int ldc) {
  const bool store = is_zero(beta);
  for (zor_int j = 0; j < columns; ++j) {
    for_vectors<real_t<T>>(0, rows, [&]<int Bytes>(zor_int i) {
      using V = vec_or_real<real_t<T>, Bytes>;
      const V t1 = load_reals<V>(t.re + j * rows + i), t2 = load_reals<V>(t.im + j * rows + i);
      const V re = t1 - t2, im = load_reals<V>(t.sum + j * rows + i) - t1 - t2;
      complex_lanes<V> x{re * alpha.re - im * alpha.im, re * alpha.im + im * alpha.re};
      if (!store) {
        const auto old = load_parts<V>(c + i + j * ldc);
        x.re = x.re + old.re * beta.re - old.im * beta.im;
        x.im = x.im + old.re * beta.im + old.im * beta.re;
      }
      store_parts(c + i + j * ldc, x);
    });
  }
}

// The form of the copy for an option letter, 0 when there is none.
char form_of(char letter) {
  switch (letter | 0x20) {
    case 'n':
    case 't':
    case 'c':
      return char(letter | 0x20);
    default:
      return 0;
  }
}

template <class R>
three_parts<R> parts_of(R* block, zor_int elements) {
  return {block, block + elements, block + 2 * elements};
}

template <class T>
struct problem {
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
};

template <class T>
void ordinary_product(const problem<T>& q) {
  multiply_add(q.transa, q.transb, q.m, q.n, q.k, q.alpha, q.a, q.lda, q.b, q.ldb, q.beta, q.c, q.ldc);
}

// Adds one panel of the depth to the three products of a block of rows.
template <class T>
void add_panel(const problem<T>& q, zor_int row, zor_int rows, zor_int p, zor_int depth,
               three_parts<real_t<T>> a, three_parts<real_t<T>> b, three_parts<real_t<T>> t) {
  using R = real_t<T>;
  const R beta = p == 0 ? 0 : 1;
  split(form_of(q.transa), rows, depth, q.a, q.lda, row, p, a);
  for (zor_int j = 0; j < q.n; j += block_columns) {
    const zor_int columns = q.n - j < block_columns ? q.n - j : block_columns, at = j * rows;
    split(form_of(q.transb), depth, columns, q.b, q.ldb, p, j, b);
    multiply_add<R>('n', 'n', rows, columns, depth, 1, a.re, rows, b.re, depth, beta, t.re + at, rows);
    multiply_add<R>('n', 'n', rows, columns, depth, 1, a.im, rows, b.im, depth, beta, t.im + at, rows);
    multiply_add<R>('n', 'n', rows, columns, depth, 1, a.sum, rows, b.sum, depth, beta, t.sum + at, rows);
  }
}

template <class T>
void gemm3m(const problem<T>& q) {
  using R = real_t<T>;
  if (q.m < 1 || q.n < 1) return;
  if (q.k <= 0 || is_zero(q.alpha)) {
    if (is_zero(q.beta)) return gemm::zero_columns(q.m, q.n, q.c, q.ldc);
    return gemm::scale_columns(q.m, q.n, q.beta, q.c, q.ldc);
  }
  if (q.m < least || q.n < least || q.k < least) return ordinary_product(q);
  if (form_of(q.transa) == 0 || form_of(q.transb) == 0) return;
  constexpr zor_int a_size = block_rows * block_depth, b_size = block_depth * block_columns;
  const scratch<R> a(3 * a_size, scratch_boundary), b(3 * b_size, scratch_boundary),
      t(3 * block_rows * q.n, scratch_boundary);
  for (const void* block :
       {static_cast<const void*>(a.data), static_cast<const void*>(b.data), static_cast<const void*>(t.data)})
    if (core::zor_serv_check_ptr(block, "xgemm3m") != 0) return ordinary_product(q);
  for (zor_int row = 0; row < q.m; row += block_rows) {
    const zor_int rows = q.m - row < block_rows ? q.m - row : block_rows;
    const auto products = parts_of(t.data, block_rows * q.n);
    for (zor_int p = 0; p < q.k; p += block_depth)
      add_panel(q, row, rows, p, q.k - p < block_depth ? q.k - p : block_depth, parts_of(a.data, a_size),
                parts_of(b.data, b_size), products);
    combine(rows, q.n, q.alpha, {products.re, products.im, products.sum}, q.beta, q.c + row, q.ldc);
  }
}

}  // namespace
}  // namespace zor::level3

#define ROW_XGEMM3M(name, T)                                                                          \
  extern "C" SIG_GEMM(name, T) {                                                                      \
    zor::level3::gemm3m<T>({*transa, *transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc}); \
  }
#define ROW_SPLIT3(name, T, R, form)                                                      \
  extern "C" SIG_SPLIT3(name, T, R) {                                                     \
    zor::level3::split(#form[0], *rows, *columns, x, *ldx, *row, *column, {re, im, sum}); \
  }
#include "zor/tables/blas_level3.inc"
