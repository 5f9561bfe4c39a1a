// SPDX-License-Identifier: MIT
// Threads take pieces of y, so no sum is cut.
#include "core/blas/kernels.h"
#include "core/blas/pieces.h"
#include "zor/signatures/blas.h"

namespace zor_core {
namespace {

constexpr const char* gemv_arguments[] = {"trans", "m",    "n",    "alpha", "a",   "lda",
                                          "x",     "incx", "beta", "y",     "incy"};

template <class T>
int32_t bad_gemv_argument(const char* trans, const zor_int* m, const zor_int* n, const T* alpha, const T* a,
                          const zor_int* lda, const T* x, const zor_int* incx, const T* beta, T* y,
                          const zor_int* incy) {
  if (!is_trans(trans)) return 1;
  if (!is_size(m)) return 2;
  if (!is_size(n)) return 3;
  if (alpha == nullptr) return 4;
  const bool read = *m > 0 && *n > 0 && !is_zero(*alpha);
  if (read && a == nullptr) return 5;
  if (!is_leading(lda, *m) || (read && !fits_memory(*m, *n, *lda, sizeof(T)))) return 6;
  if (read && x == nullptr) return 7;
  const zor_int inputs = is_plain(trans) ? *n : *m, outputs = is_plain(trans) ? *m : *n;
  if (!is_step(incx) || (read && !fits_memory(1, inputs, *incx, sizeof(T)))) return 8;
  if (beta == nullptr) return 9;
  const bool written = *m > 0 && *n > 0 && (read || !is_one(*beta));
  if (written && y == nullptr) return 10;
  if (!is_step(incy) || (written && !fits_memory(1, outputs, *incy, sizeof(T)))) return 11;
  return 0;
}

constexpr zor_int grain = zor::thresholds::matvec_cut;

template <class T>
[[gnu::noinline]] void threaded_gemv(int32_t threads, const char* trans, const zor_int* m, const zor_int* n,
                                     const T* alpha, const T* a, zor_int lda, const T* x, const zor_int* incx,
                                     const T* beta, T* y, const zor_int* incy) {
  const bool plain = is_plain(trans);
  const zor_int outputs = plain ? *m : *n;
  for_cuts(threads, outputs, grain, [&](zor_int first, zor_int count) {
    kernels<T>::gemv(trans, plain ? &count : m, plain ? n : &count, alpha, a + (plain ? first : first * lda),
                     &lda, x, incx, beta, part(y, outputs, *incy, first, count), incy);
  });
}

// Nothing here takes the address of an argument, so that the call of the kernel is a jump.
template <class T>
void gemv(const char* routine, const char* trans, const zor_int* m, const zor_int* n, const T* alpha,
          const T* a, const zor_int* lda, const T* x, const zor_int* incx, const T* beta, T* y,
          const zor_int* incy) {
  if (const int32_t bad = bad_gemv_argument(trans, m, n, alpha, a, lda, x, incx, beta, y, incy))
    return report_argument(routine, bad, gemv_arguments[bad - 1]);
  if ((is_plain(trans) ? *m : *n) >= 2 * grain && !is_zero(*alpha)) {
    const int32_t threads = threads_for_matrix<T>(*m, *n);
    if (threads > 1) return threaded_gemv(threads, trans, m, n, alpha, a, *lda, x, incx, beta, y, incy);
  }
  kernels<T>::gemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
}

}  // namespace
}  // namespace zor_core

#define ROW_GEMV(name, T) \
  extern "C" SIG_GEMV(name, T) { zor_core::gemv(#name, trans, m, n, alpha, a, lda, x, incx, beta, y, incy); }
#include "zor/tables/core_blas.inc"
