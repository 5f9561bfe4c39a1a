// SPDX-License-Identifier: MIT
// C is cut into a grid of pieces, a kernel call each. No sum is cut, and an element takes the same path
// through the kernel in any piece: pieces but the last of a row or column are multiples of 8, so that tails
// of whole tiles stay tails and a piece is large enough for the blocked path whenever the whole is.
#include "blas/thresholds.h"
#include "core/blas/arguments.h"
#include "core/blas/kernels.h"
#include "core/threads.h"
#include "zor/signatures/blas.h"

namespace zor_core {
namespace {

constexpr const char* gemm_arguments[] = {"transa", "transb", "m",   "n",    "k", "alpha", "a",
                                          "lda",    "b",      "ldb", "beta", "c", "ldc"};

template <class T>
int32_t bad_gemm_argument(const char* transa, const char* transb, const zor_int* m, const zor_int* n,
                          const zor_int* k, const T* alpha, const T* a, const zor_int* lda, const T* b,
                          const zor_int* ldb, const T* beta, const T* c, const zor_int* ldc) {
  if (!is_trans(transa)) return 1;
  if (!is_trans(transb)) return 2;
  if (!is_size(m)) return 3;
  if (!is_size(n)) return 4;
  if (!is_size(k)) return 5;
  if (alpha == nullptr) return 6;
  const bool some = *m > 0 && *n > 0, read = some && *k > 0 && !is_zero(*alpha);
  const bool plain_a = is_plain(transa), plain_b = is_plain(transb);
  if (read && a == nullptr) return 7;
  if (!is_leading(lda, plain_a ? *m : *k)) return 8;
  if (read && !fits_memory(plain_a ? *m : *k, plain_a ? *k : *m, *lda, sizeof(T))) return 8;
  if (read && b == nullptr) return 9;
  if (!is_leading(ldb, plain_b ? *k : *n)) return 10;
  if (read && !fits_memory(plain_b ? *k : *n, plain_b ? *n : *k, *ldb, sizeof(T))) return 10;
  if (beta == nullptr) return 11;
  const bool written = some && (read || !is_one(*beta));
  if (written && c == nullptr) return 12;
  if (!is_leading(ldc, *m)) return 13;
  return !written || fits_memory(*m, *n, *ldc, sizeof(T)) ? 0 : 13;
}

constexpr zor_int grain = zor::thresholds::product_cut;

struct grid {
  zor_int rows, columns;
};

// As many pieces as threads, of the least circumference: what a piece costs beside its products is the
// packing of its rows of A and columns of B.
grid grid_for(zor_int m, zor_int n, int32_t threads) {
  const zor_int most_rows = m < grain ? 1 : m / grain, most_columns = n < grain ? 1 : n / grain;
  grid best{1, 1};
  zor_int best_pieces = 1;
  zor_int best_length = m + n;
  for (zor_int rows = 1; rows <= threads && rows <= most_rows; ++rows) {
    const zor_int columns = threads / rows < most_columns ? threads / rows : most_columns;
    const zor_int length = m / rows + n / columns;
    const zor_int pieces = rows * columns;
    if (pieces < best_pieces || (pieces == best_pieces && length >= best_length)) continue;
    best = {rows, columns};
    best_pieces = pieces;
    best_length = length;
  }
  return best;
}

template <class T>
[[gnu::noinline]] void threaded_gemm(int32_t threads, const char* transa, const char* transb, zor_int m,
                                     zor_int n, const zor_int* k, const T* alpha, const T* a,
                                     const zor_int* lda, const T* b, const zor_int* ldb, const T* beta, T* c,
                                     const zor_int* ldc) {
  const grid g = grid_for(m, n, threads);
  for_each_piece(threads, g.rows * g.columns, [&](zor_int piece) {
    const zor_int row = piece % g.rows, column = piece / g.rows;
    const zor_int i = cut(m, grain, g.rows, row), j = cut(n, grain, g.columns, column);
    const zor_int mp = cut(m, grain, g.rows, row + 1) - i, np = cut(n, grain, g.columns, column + 1) - j;
    kernels<T>::gemm(transa, transb, &mp, &np, k, alpha, a + (is_plain(transa) ? i : i * *lda), lda,
                     b + (is_plain(transb) ? j * *ldb : j), ldb, beta, c + i + j * *ldc, ldc);
  });
}

// Nothing here takes the address of an argument, so that the call of the kernel is a jump.
template <class T>
[[gnu::always_inline]] inline void gemm(const char* routine, const char* transa, const char* transb,
                                        const zor_int* m, const zor_int* n, const zor_int* k, const T* alpha,
                                        const T* a, const zor_int* lda, const T* b, const zor_int* ldb,
                                        const T* beta, T* c, const zor_int* ldc) {
  if (const int32_t bad = bad_gemm_argument(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc))
    return report_argument(routine, bad, gemm_arguments[bad - 1]);
  if (saturating_product(*m, *n, *k) >= zor::thresholds::threaded_products && !is_zero(*alpha)) {
    const int32_t threads = usable_threads();
    if (threads > 1)
      return threaded_gemm(threads, transa, transb, *m, *n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  }
  kernels<T>::gemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

}  // namespace
}  // namespace zor_core

#define ROW_GEMM(name, T)                                                                \
  extern "C" SIG_GEMM(name, T) {                                                         \
    zor_core::gemm(#name, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc); \
  }
#include "zor/tables/core_blas.inc"
