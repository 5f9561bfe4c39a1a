// SPDX-License-Identifier: MIT
// Products with a symmetric or Hermitian matrix of which one triangle is stored:
// C := alpha A B + beta C and C := alpha B A + beta C.
//
// Each diagonal block of A is expanded to a full square, times alpha; what lies before and behind it in its
// block row is read as a rectangle, once as it stands and once transposed. The square of a symmetric A comes
// from the pool, and without memory C is left as it was; that of a Hermitian A stands on the stack.
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

// Adds the products of the diagonal block j with all of its block row (side left) or block column (side
// right), for the `size` columns or rows of C from `free` on.
template <bool Hermitian, class T>
void add_block(const symmetric_product<T>& q, zor_int free, zor_int size, zor_int j, zor_int order, T* square,
               zor_int ld) {
  const T one = from_real<T>(1);
  const zor_int n = q.left ? q.m : q.n, behind = j + order, rest = n - behind;
  const char mirrored = transpose_letter(Hermitian);
  // Block row j before the diagonal stands in a lower triangle, and behind it in an upper one; of the block
  // column it is the other way round.
  const bool before_is_stored = q.lower == q.left;
  const auto part = [&](zor_int from) {
    return q.lower == (from < j) ? q.a + j + from * q.lda : q.a + from + j * q.lda;
  };
  const auto add = [&](char letter, zor_int depth, T alpha, const T* a, zor_int lda, zor_int from) {
    if (q.left)
      multiply_add(letter, 'N', order, size, depth, alpha, a, lda, q.b + from + free * q.ldb, q.ldb, one,
                   q.c + j + free * q.ldc, q.ldc);
    else
      multiply_add('N', letter, size, order, depth, alpha, q.b + free + from * q.ldb, q.ldb, a, lda, one,
                   q.c + free + j * q.ldc, q.ldc);
  };
  if (j > 0) add(before_is_stored ? 'N' : mirrored, j, q.alpha, part(0), q.lda, 0);
  expand<Hermitian>(q.lower, order, q.alpha, q.a + j + j * q.lda, q.lda, square, ld);
  add('N', order, one, square, ld, j);
  if (rest > 0) add(before_is_stored ? mirrored : 'N', rest, q.alpha, part(behind), q.lda, behind);
}

template <bool Hermitian, class T>
void add_products(const symmetric_product<T>& q, zor_int step, T* square) {
  const zor_int n = q.left ? q.m : q.n, all = q.left ? q.n : q.m;
  for (zor_int free = 0; free < all; free += symmetric_free) {
    const zor_int size = all - free < symmetric_free ? all - free : symmetric_free;
    for (zor_int j = 0; j < n; j += step)
      add_block<Hermitian>(q, free, size, j, n - j < step ? n - j : step, square, step);
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
