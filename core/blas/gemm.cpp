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
  if (read && a == nullptr) return 7;
  if (!is_leading(lda, is_plain(transa) ? *m : *k)) return 8;
  if (read && b == nullptr) return 9;
  if (!is_leading(ldb, is_plain(transb) ? *k : *n)) return 10;
  if (beta == nullptr) return 11;
  if (some && c == nullptr && (read || !is_one(*beta))) return 12;
  return is_leading(ldc, *m) ? 0 : 13;
}
// Of otherwise good arguments, the leading dimension of the first operand longer than all addresses.
template <class T>
int32_t vast_gemm_argument(const char* transa, const char* transb, zor_int m, zor_int n, zor_int k, T alpha,
                           zor_int lda, zor_int ldb, T beta, zor_int ldc) {
  const bool read = k > 0 && !is_zero(alpha);
  const auto fits = [](bool plain, zor_int rows, zor_int columns, zor_int ld) {
    return fits_memory(plain ? rows : columns, plain ? columns : rows, ld, sizeof(T));
  };
  if (m < 1 || n < 1 || (!read && is_one(beta))) return 0;
  if (read && !fits(is_plain(transa), m, k, lda)) return 8;
  if (read && !fits(is_plain(transb), k, n, ldb)) return 10;
  return fits(true, m, n, ldc) ? 0 : 13;
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

// In what follows nothing takes the address of an argument or goes on after a call, so that the call of the
// kernel is a jump.
template <class T>
[[gnu::always_inline]] inline void divided_gemm(const char* transa, const char* transb, const zor_int* m,
                                                const zor_int* n, const zor_int* k, const T* alpha,
                                                const T* a, const zor_int* lda, const T* b,
                                                const zor_int* ldb, const T* beta, T* c, const zor_int* ldc) {
  if (saturating_product(*m, *n, *k) >= zor::thresholds::threaded_products && !is_zero(*alpha)) {
    const int32_t threads = usable_threads();
    if (threads > 1)
      return threaded_gemm(threads, transa, transb, *m, *n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  }
  kernels<T>::gemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

template <class T>
[[gnu::noinline]] void vast_gemm(const char* routine, const char* transa, const char* transb,
                                 const zor_int* m, const zor_int* n, const zor_int* k, const T* alpha,
                                 const T* a, const zor_int* lda, const T* b, const zor_int* ldb,
                                 const T* beta, T* c, const zor_int* ldc) {
  if (const int32_t bad = vast_gemm_argument(transa, transb, *m, *n, *k, *alpha, *lda, *ldb, *beta, *ldc))
    return report_argument(routine, bad, gemm_arguments[bad - 1]);
  divided_gemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

template <class T>
[[gnu::always_inline]] inline void gemm(const char* routine, const char* transa, const char* transb,
                                        const zor_int* m, const zor_int* n, const zor_int* k, const T* alpha,
                                        const T* a, const zor_int* lda, const T* b, const zor_int* ldb,
                                        const T* beta, T* c, const zor_int* ldc) {
  if (const int32_t bad = bad_gemm_argument(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc))
    return report_argument(routine, bad, gemm_arguments[bad - 1]);
  if (any_vast(*m, *n, *k, *lda, *ldb, *ldc))
    return vast_gemm(routine, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
  divided_gemm(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

}  // namespace
}  // namespace zor_core

#define ROW_GEMM(name, T)                                                                \
  extern "C" SIG_GEMM(name, T) {                                                         \
    zor_core::gemm(#name, transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc); \
  }
#include "zor/tables/core_blas.inc"
