// SPDX-License-Identifier: MIT
// Rank-k and rank-2k updates of one triangle. Threads take the diagonal blocks of the kernel, and pieces of
// the rectangles beside them: the kernel computes each of these by products of their own, so the same
// products give the same bits here.
#include <algorithm>

#include "blas/level3/blocks.h"
#include "core/blas/argument_list.h"
#include "core/blas/division.h"
#include "core/blas/kernels.h"
#include "zor/signatures/blas.h"

namespace zor_core {
namespace {

// An update of rank k (b is null) or 2k. S is the type of the real factors of a Hermitian one.
template <class T, class S>
struct update {
  bool lower, trans, hermitian;
  zor_int n, k;
  T alpha;
  const T* a;
  zor_int lda;
  const T* b;
  zor_int ldb;
  S beta;
  T* c;
  zor_int ldc;

  const T* rows(const T* x, zor_int ld, zor_int i) const { return x + (trans ? i * ld : i); }
};

// C(row to row + rows - 1, j to j + columns - 1), scaled by beta first.
template <class T, class S>
void rectangle(const update<T, S>& q, zor_int row, zor_int rows, zor_int j, zor_int columns) {
  T* const c = q.c + row + j * q.ldc;
  if (!is_one(q.beta)) {
    const zor_int parts = zor_int(sizeof(T) / sizeof(S)), height = rows * parts, ld = q.ldc * parts;
    kernels<S>::mscale(&height, &columns, &q.beta, reinterpret_cast<S*>(c), &ld);
  }
  const char other = q.hermitian ? 'C' : 'T', first = q.trans ? other : 'N', second = q.trans ? 'N' : other;
  const T one = zor::one_of<T>(), mirrored = zor::conj_by_sign_if(q.hermitian, q.alpha);
  const auto add = [&](const T& alpha, const T* x, zor_int ldx, const T* y, zor_int ldy) {
    kernels<T>::gemm(&first, &second, &rows, &columns, &q.k, &alpha, q.rows(x, ldx, row), &ldx,
                     q.rows(y, ldy, j), &ldy, &one, c, &q.ldc);
  };
  if (q.b == nullptr) return add(q.alpha, q.a, q.lda, q.a, q.lda);
  add(q.alpha, q.a, q.lda, q.b, q.ldb);
  add(mirrored, q.b, q.ldb, q.a, q.lda);
}

// Rows of a rectangle that a piece has at least.
constexpr zor_int piece_rows = 512;

// Pieces: the diagonal block of each block column, then its rectangle in one or more pieces of rows.
template <class T, class S, class Diagonal>
void threaded_update(int32_t threads, const update<T, S>& q, const Diagonal& diagonal) {
  const zor_int step = zor::level3::diagonal_order<T>(q.trans, q.b != nullptr);
  const zor_int blocks = (q.n + step - 1) / step, most = 1 + (q.n + piece_rows - 1) / piece_rows;
  for_each_piece(threads, blocks * most, [&](zor_int piece) {
    const zor_int j = piece / most * step, part = piece % most, columns = std::min(step, q.n - j);
    if (part == 0) return diagonal(j, columns);
    const zor_int row = q.lower ? j + columns : 0, rows = q.lower ? q.n - row : j;
    const zor_int parts = std::max<zor_int>(1, rows / piece_rows);
    if (rows <= 0 || part > parts) return;
    const zor_int first = cut(rows, division_grain, parts, part - 1),
                  end = cut(rows, division_grain, parts, part);
    rectangle(q, row + first, end - first, j, columns);
  });
}

template <class S, class T, class B>
argument_list check(const char* uplo, const char* trans, bool hermitian, const zor_int* n, const zor_int* k,
                    const S* alpha, const T* a, const zor_int* lda, const T* b, const zor_int* ldb,
                    const B* beta, T* c, const zor_int* ldc, bool two) {
  const zor_int order = value(n), depth = value(k);
  const bool plain = is_letter(trans, 'N'),
             read = order > 0 && depth > 0 && alpha != nullptr && !is_zero(*alpha);
  const bool written = order > 0 && (read || (beta != nullptr && !is_one(*beta)));
  // The transpose of a complex symmetric update is T alone, that of a Hermitian one C alone.
  const bool letter =
      plain || (hermitian ? is_letter(trans, 'C')
                          : is_letter(trans, 'T') || (!zor::is_complex<T> && is_letter(trans, 'C')));
  argument_list list;
  list.option("uplo", uplo, 'U', 'L').next("trans", letter).size("n", n).size("k", k).pointer("alpha", alpha);
  list.matrix("a", a, "lda", lda, plain ? order : depth, plain ? depth : order, read);
  if (two) list.matrix("b", b, "ldb", ldb, plain ? order : depth, plain ? depth : order, read);
  list.pointer("beta", beta).matrix("c", c, "ldc", ldc, order, order, written);
  return list;
}

// Threads for an update; 1 where the kernel does not come to its products. Half of n n k products are done.
template <class S>
int32_t update_threads(zor_int n, zor_int k, const S& alpha) {
  constexpr zor_int least_products = 2 * zor::thresholds::threaded_products;
  return is_zero(alpha) || saturating_product(n, n, k) < least_products ? 1 : usable_threads();
}

template <class T, class S>
T as_element(S x) {
  if constexpr (std::is_same_v<T, S>)
    return x;
  else
    return {x, 0};
}

template <bool Hermitian, class T, class S>
void rank_k(const char* routine, zor::rank_k_fn<T, S>* kernel, const char* uplo, const char* trans,
            const zor_int* n, const zor_int* k, const S* alpha, const T* a, const zor_int* lda, const S* beta,
            T* c, const zor_int* ldc) {
  const T* const none = nullptr;
  if (check(uplo, trans, Hermitian, n, k, alpha, a, lda, none, lda, beta, c, ldc, false).reported(routine))
    return;
  const int32_t threads = update_threads(*n, *k, *alpha);
  if (threads == 1) return kernel(uplo, trans, n, k, alpha, a, lda, beta, c, ldc);
  const update<T, S> q{is_letter(uplo, 'L'),
                       !is_plain(trans),
                       Hermitian,
                       *n,
                       *k,
                       as_element<T>(*alpha),
                       a,
                       *lda,
                       none,
                       0,
                       *beta,
                       c,
                       *ldc};
  threaded_update(threads, q, [&](zor_int j, zor_int order) {
    kernel(uplo, trans, &order, k, alpha, q.rows(a, *lda, j), lda, beta, c + j + j * *ldc, ldc);
  });
}

template <bool Hermitian, class T, class S>
void rank_2k(const char* routine, zor::rank_2k_fn<T, S>* kernel, const char* uplo, const char* trans,
             const zor_int* n, const zor_int* k, const T* alpha, const T* a, const zor_int* lda, const T* b,
             const zor_int* ldb, const S* beta, T* c, const zor_int* ldc) {
  if (check(uplo, trans, Hermitian, n, k, alpha, a, lda, b, ldb, beta, c, ldc, true).reported(routine))
    return;
  const int32_t threads = update_threads(*n, *k, *alpha);
  if (threads == 1) return kernel(uplo, trans, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  const update<T, S> q{
      is_letter(uplo, 'L'), !is_plain(trans), Hermitian, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc};
  threaded_update(threads, q, [&](zor_int j, zor_int order) {
    kernel(uplo, trans, &order, k, alpha, q.rows(a, *lda, j), lda, q.rows(b, *ldb, j), ldb, beta,
           c + j + j * *ldc, ldc);
  });
}

}  // namespace
}  // namespace zor_core

#define ROW_SYRK(name, T, S, hermitian, kernel)                                                       \
  extern "C" SIG_RANK_K(name, T, S) {                                                                 \
    zor_core::rank_k<hermitian, T, S>(#name, kernel, uplo, trans, n, k, alpha, a, lda, beta, c, ldc); \
  }
#define ROW_SYR2K(name, T, S, hermitian, kernel)                                                         \
  extern "C" SIG_RANK_2K(name, T, S) {                                                                   \
    zor_core::rank_2k<hermitian, T, S>(#name, kernel, uplo, trans, n, k, alpha, a, lda, b, ldb, beta, c, \
                                       ldc);                                                             \
  }
#include "zor/tables/core_level3.inc"
