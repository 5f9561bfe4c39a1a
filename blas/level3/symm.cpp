// SPDX-License-Identifier: MIT
// Products with a symmetric or Hermitian matrix of which one triangle is stored:
// C := alpha A B + beta C and C := alpha B A + beta C.
//
// Each diagonal block of A is expanded to a full square, times alpha; what lies before and behind it in its
// block row is read as a rectangle, once as it stands and once transposed: by panels of its depth that many
// blocks share, where the sums of an element stay in their order. The square of a symmetric A comes from the
// pool, and without memory C is left as it was; that of a Hermitian A stands on the stack.
#include "blas/level3/blocking.h"
#include "blas/level3/blocks.h"
#include "blas/level3/gemm.h"
#include "blas/level3/product.h"
#include "serv/element.h"
#include "serv/imports.h"
#include "serv/scratch.h"

namespace zor::level3 {
namespace {

// square := alpha times the full block of A whose triangle is stored, of leading dimension ld.
template <bool Hermitian, class T>
void expand(bool lower, zor_int order, T alpha, const T* a, zor_int lda, T* square, zor_int ld) {
  for (zor_int j = 0; j < order; ++j) {
    for (zor_int i = lower ? j : 0; i < (lower ? order : j + 1); ++i) {
      T stored = load_element(a + i + j * lda);
      if constexpr (Hermitian) {
        if (i == j) stored.im = 0;
      }
      square[i + j * ld] = mul(alpha, stored);
      if (i != j) square[j + i * ld] = mul(alpha, conj_by_sign_if(Hermitian, stored));
    }
  }
}

template <class T>
struct symmetric_product {
  bool left, lower;
  zor_int m, n;
  T alpha;
  const T* a;
  zor_int lda;
  const T* b;
  zor_int ldb;
  T* c;
  zor_int ldc;
};

// Columns (side left) or rows (side right) of C that are taken together.
struct free_range {
  zor_int first, count;
};

// Adds to rows (side left) or columns (side right) first to first + count - 1 of C their products with a part
// of A beside the diagonal, columns or rows from to from + depth - 1.
template <class T>
void add_part(const symmetric_product<T>& q, free_range f, zor_int first, zor_int count, zor_int from,
              zor_int depth, T alpha, char letter, const T* a, zor_int lda) {
  const T one = from_real<T>(1);
  if (q.left)
    multiply_add(letter, 'N', count, f.count, depth, alpha, a, lda, q.b + from + f.first * q.ldb, q.ldb, one,
                 q.c + first + f.first * q.ldc, q.ldc);
  else
    multiply_add('N', letter, f.count, count, depth, alpha, q.b + f.first + from * q.ldb, q.ldb, a, lda, one,
                 q.c + f.first + first * q.ldc, q.ldc);
}
// The same with the stored elements, all of them before or all of them behind the diagonal: rows before it
// stand in a lower triangle, columns in an upper one.
template <bool Hermitian, class T>
void add_stored(const symmetric_product<T>& q, free_range f, zor_int first, zor_int count, zor_int from,
                zor_int depth) {
  const bool before = from < first, plain = before == (q.lower == q.left);
  const T* const a = q.lower == before ? q.a + first + from * q.lda : q.a + from + first * q.lda;
  add_part(q, f, first, count, from, depth, q.alpha, plain ? 'N' : transpose_letter(Hermitian), a, q.lda);
}
// Adds the products with the diagonal block j.
template <bool Hermitian, class T>
void add_square(const symmetric_product<T>& q, free_range f, zor_int j, zor_int order, T* square,
                zor_int ld) {
  expand<Hermitian>(q.lower, order, q.alpha, q.a + j + j * q.lda, q.lda, square, ld);
  add_part(q, f, j, order, j, order, from_real<T>(1), 'N', square, ld);
}

template <bool Hermitian, class T>
void add_by_blocks(const symmetric_product<T>& q, free_range f, zor_int n, zor_int step, T* square) {
  for (zor_int j = 0; j < n; j += step) {
    const zor_int order = n - j < step ? n - j : step, behind = j + order;
    if (j > 0) add_stored<Hermitian>(q, f, j, order, 0, j);
    add_square<Hermitian>(q, f, j, order, square, step);
    if (behind < n) add_stored<Hermitian>(q, f, j, order, behind, n - behind);
  }
}

// Whether all blocks end between the panels of the depth that the matrix product cuts it into, and its
// products may be taken apart into those of single panels: no panel, block or range may be so small, or have
// such a tail, that the product would take another way for it alone.
template <class T>
bool falls_into_panels(zor_int n, zor_int step, zor_int free) {
  using limits = gemm::limits<T>;
  const auto suits = [](zor_int size) { return size == 0 || size >= least_product; };
  constexpr zor_int least_blocks = 4;
  return step % limits::kb == 0 && n >= least_blocks * step && suits(n % step) && suits(n % limits::kb) &&
         free >= least_product && free % limits::columns == 0 && n % limits::columns == 0;
}

// The same as by blocks, in the order that an element of C finds there: before the diagonal the last panel
// and then the others from 0 on, the diagonal block, and behind it the tail and then the others. A panel is
// one product for all blocks that it stands before or behind, which packs that of the other matrix once.
template <bool Hermitian, class T>
void add_by_panels(const symmetric_product<T>& q, free_range f, zor_int n, zor_int step, T* square) {
  constexpr zor_int kb = gemm::limits<T>::kb;
  const zor_int last = (n - 1) / step * step, tail = gemm::first_depth(n, kb);
  const auto order = [=](zor_int j) { return j < last ? step : n - last; };
  for (zor_int j = step; j < n; j += step) add_stored<Hermitian>(q, f, j, order(j), j - kb, kb);
  for (zor_int p = 0; p + 2 * kb <= last; p += kb) {
    const zor_int j = (p + 2 * kb + step - 1) / step * step;
    add_stored<Hermitian>(q, f, j, n - j, p, kb);
  }
  for (zor_int j = 0; j < n; j += step) add_square<Hermitian>(q, f, j, order(j), square, step);
  add_stored<Hermitian>(q, f, 0, last, n - tail, tail);
  for (zor_int p = step; p < n - tail; p += kb) add_stored<Hermitian>(q, f, 0, p / step * step, p, kb);
}

template <bool Hermitian, class T>
void add_products(const symmetric_product<T>& q, zor_int step, T* square) {
  const zor_int n = q.left ? q.m : q.n, all = q.left ? q.n : q.m;
  for (zor_int first = 0; first < all; first += symmetric_free) {
    const free_range f{first, all - first < symmetric_free ? all - first : symmetric_free};
    if (falls_into_panels<T>(n, step, f.count))
      add_by_panels<Hermitian>(q, f, n, step, square);
    else
      add_by_blocks<Hermitian>(q, f, n, step, square);
  }
}

template <class T>
void scale_result(const symmetric_product<T>& q, T beta) {
  if (is_zero(beta))
    gemm::zero_columns(q.m, q.n, q.c, q.ldc);
  else if (!is_one(beta))
    gemm::scale_columns(q.m, q.n, beta, q.c, q.ldc);
}

// With an alpha of 0 and a beta other than 1 the products still run, so that what A and B hold is multiplied
// by 0.
template <class T>
bool has_work(const symmetric_product<T>& q, T beta) {
  return q.m > 0 && q.n > 0 && !(is_zero(q.alpha) && is_one(beta));
}

template <class T>
void symm(const symmetric_product<T>& q, T beta) {
  constexpr zor_int order = symmetric_order<T>;
  scratch<T> square(order * order);
  if (core::zor_serv_check_ptr(square.data, "xsymm") != 0 || !has_work(q, beta)) return;
  scale_result(q, beta);
  add_products<false>(q, order, square.data);
}

template <class T>
void hemm(const symmetric_product<T>& q, T beta) {
  if (!has_work(q, beta)) return;
  alignas(64) T square[hermitian_order * hermitian_order];
  scale_result(q, beta);
  add_products<true>(q, hermitian_order, square);
}

}  // namespace
}  // namespace zor::level3

#define ROW_SYMM(name, T, form)                                                                           \
  extern "C" SIG_SYMM(name, T) {                                                                          \
    const zor::level3::symmetric_product<T> q{                                                            \
        zor::is_letter(side, 'L'), zor::is_letter(uplo, 'L'), *m, *n, *alpha, a, *lda, b, *ldb, c, *ldc}; \
    zor::level3::form(q, *beta);                                                                          \
  }
#include "zor/tables/blas_level3.inc"
