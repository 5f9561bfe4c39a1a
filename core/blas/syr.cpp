// SPDX-License-Identifier: MIT
// Threads take runs of columns of about equal area. A column is alpha x[j] times a part of x, added once to
// each element of A, so it is an axpy of its own.
#include "blas/thresholds.h"
#include "core/blas/arguments.h"
#include "core/blas/kernels.h"
#include "core/threads.h"
#include "zor/signatures/blas.h"

namespace zor_core {
namespace {

constexpr const char* syr_arguments[] = {"uplo", "n", "alpha", "x", "incx", "a", "lda"};

template <class T>
int32_t bad_syr_argument(const char* uplo, const zor_int* n, const T* alpha, const T* x, const zor_int* incx,
                         const T* a, const zor_int* lda) {
  if (!is_letter(uplo, 'U', 'L')) return 1;
  if (!is_size(n)) return 2;
  if (alpha == nullptr) return 3;
  const bool used = *n > 0 && !is_zero(*alpha);
  if (used && x == nullptr) return 4;
  if (!is_step(incx) || (used && !fits_memory(1, *n, *incx, sizeof(T)))) return 5;
  if (used && a == nullptr) return 6;
  return is_leading(lda, *n) && (!used || fits_memory(*n, *n, *lda, sizeof(T))) ? 0 : 7;
}

template <class T>
void update_columns(bool upper, zor_int n, T alpha, const T* x, zor_int incx, T* a, zor_int lda,
                    zor_int first, zor_int last) {
  const zor_int one = 1;
  for (zor_int j = first; j < last; ++j) {
    const T xj = *part(x, n, incx, j, 1);
    if (xj == 0) continue;
    const T s = alpha * xj;
    const zor_int top = upper ? 0 : j, count = upper ? j + 1 : n - j;
    kernels<T>::axpy(&count, &s, part(x, n, incx, top, count), &incx, a + top + j * lda, &one);
  }
}

// The first column of piece `index` of `pieces` of about equal area. In integers: the caller's exception
// flags are not this library's to raise.
zor_int first_column(bool upper, zor_int n, zor_int pieces, zor_int index) {
  if (!upper) return n - first_column(true, n, pieces, pieces - index);
  const auto area = static_cast<unsigned __int128>(n) * n * index / pieces;
  zor_int low = 0, high = n;
  while (low < high) {
    const zor_int middle = low + (high - low) / 2;
    if (static_cast<unsigned __int128>(middle) * middle < area)
      low = middle + 1;
    else
      high = middle;
  }
  return low;
}

template <class T>
void syr(const char* routine, const char* uplo, const zor_int* n, const T* alpha, const T* x,
         const zor_int* incx, T* a, const zor_int* lda) {
  if (const int32_t bad = bad_syr_argument(uplo, n, alpha, x, incx, a, lda))
    return report_argument(routine, bad, syr_arguments[bad - 1]);
  int32_t threads = 1;
  if (saturating_product(*n, *n, sizeof(T)) >= 2 * zor::thresholds::threaded_matrix_bytes && !is_zero(*alpha))
    threads = usable_threads();
  if (threads == 1) return kernels<T>::syr(uplo, n, alpha, x, incx, a, lda);
  const bool upper = *uplo == 'U' || *uplo == 'u';
  for_each_piece(threads, threads, [&](zor_int piece) {
    update_columns(upper, *n, *alpha, x, *incx, a, *lda, first_column(upper, *n, threads, piece),
                   first_column(upper, *n, threads, piece + 1));
  });
}

}  // namespace
}  // namespace zor_core

#define ROW_SYR(name, T) \
  extern "C" SIG_SYR(name, T) { zor_core::syr(#name, uplo, n, alpha, x, incx, a, lda); }
#include "zor/tables/core_blas.inc"
