// SPDX-License-Identifier: MIT
// Sums and exchanges of vectors are cut over threads anywhere, element by element; a dot product is one sum
// and stays on the calling thread.
#include <string_view>

#include "blas/thresholds.h"
#include "core/blas/arguments.h"
#include "core/blas/kernels.h"
#include "core/kern.h"
#include "core/threads.h"
#include "zor/signatures/blas.h"

namespace zor_core {
namespace {

constexpr const char* axpy_arguments[] = {"n", "alpha", "x", "incx", "y", "incy"};
constexpr const char* swap_arguments[] = {"n", "x", "incx", "y", "incy"};
constexpr const char* cdot_arguments[] = {"result", "n", "x", "incx", "y", "incy"};

// Position of the first bad argument of (n, x, incx, y, incy), 0 when all are good.
template <class T>
int32_t bad_pair_argument(const zor_int* n, const T* x, const zor_int* incx, const T* y,
                          const zor_int* incy) {
  if (n == nullptr) return 1;
  if (*n > 0 && x == nullptr) return 2;
  if (incx == nullptr || !fits_memory(1, *n, *incx, sizeof(T))) return 3;
  if (*n > 0 && y == nullptr) return 4;
  return incy == nullptr || !fits_memory(1, *n, *incy, sizeof(T)) ? 5 : 0;
}

template <class T>
int32_t bad_axpy_argument(const zor_int* n, const T* alpha, const T* x, const zor_int* incx, const T* y,
                          const zor_int* incy) {
  if (n == nullptr) return 1;
  if (alpha == nullptr) return 2;
  const bool used = *n > 0 && !is_zero(*alpha);
  if (used && x == nullptr) return 3;
  if (incx == nullptr || (used && !fits_memory(1, *n, *incx, sizeof(T)))) return 4;
  if (used && y == nullptr) return 5;
  return incy == nullptr || (used && !fits_memory(1, *n, *incy, sizeof(T))) ? 6 : 0;
}

template <class T>
constexpr zor_int least_elements = zor::thresholds::threaded_vector_bytes / zor_int(sizeof(T));
template <class T>
constexpr zor_int grain = zor::thresholds::vector_cut_bytes / zor_int(sizeof(T));

// Calls body(first, count) for pieces of 0 to n: one piece when threads do not pay.
template <class T, class Body>
void over_elements(zor_int n, bool separable, const Body& body) {
  int32_t threads = 1;
  if (n >= least_elements<T> && separable) threads = usable_threads();
  if (threads == 1) return body(zor_int(0), n);
  for_each_piece(threads, threads, [&](zor_int piece) {
    const zor_int first = cut(n, grain<T>, threads, piece);
    body(first, cut(n, grain<T>, threads, piece + 1) - first);
  });
}

template <class T>
void axpy(const char* routine, const zor_int* n, const T* alpha, const T* x, const zor_int* incx, T* y,
          const zor_int* incy) {
  if (const int32_t bad = bad_axpy_argument(n, alpha, x, incx, y, incy))
    return report_argument(routine, bad, axpy_arguments[bad - 1]);
  // An increment of 0 makes y[0] one sum over all of x.
  over_elements<T>(*n, *incy != 0, [&](zor_int first, zor_int count) {
    kernels<T>::axpy(&count, alpha, part(x, *n, *incx, first, count), incx, part(y, *n, *incy, first, count),
                     incy);
  });
}

template <class T>
void swap(const char* routine, const zor_int* n, T* x, const zor_int* incx, T* y, const zor_int* incy) {
  if (const int32_t bad = bad_pair_argument(n, x, incx, y, incy))
    return report_argument(routine, bad, swap_arguments[bad - 1]);
  over_elements<T>(*n, *incx != 0 && *incy != 0, [&](zor_int first, zor_int count) {
    kernels<T>::swap(&count, part(x, *n, *incx, first, count), incx, part(y, *n, *incy, first, count), incy);
  });
}

template <class T, class Kernel>
T dot(const char* routine, Kernel* kernel, const zor_int* n, const T* x, const zor_int* incx, const T* y,
      const zor_int* incy) {
  if (const int32_t bad = bad_pair_argument(n, x, incx, y, incy)) {
    report_argument(routine, bad, swap_arguments[bad - 1]);
    return 0;
  }
  return kernel(n, x, incx, y, incy);
}

template <class T>
using cdot_kernel = kern_function<zor::cdot_fn<T>>;

// Only zor_blas_cdotc has a kernel under an x name; the others share the public name with their kernel, so it
// is asked of the kernel library itself.
constexpr const char* cdot_kernel_name(std::string_view routine) {
  return routine == "zor_blas_cdotc" ? "zor_blas_xcdotc" : routine.data();
}

template <class T>
void cdot(const char* routine, cdot_kernel<T>& kernel, T* result, const zor_int* n, const T* x,
          const zor_int* incx, const T* y, const zor_int* incy) {
  int32_t bad = result == nullptr ? 1 : bad_pair_argument(n, x, incx, y, incy);
  if (bad == 0) return kernel.get()(result, n, x, incx, y, incy);
  if (result != nullptr) ++bad;
  report_argument(routine, bad, cdot_arguments[bad - 1]);
}

}  // namespace
}  // namespace zor_core

#define ROW_AXPY(name, T) \
  extern "C" SIG_AXPY(name, T) { zor_core::axpy(#name, n, alpha, x, incx, y, incy); }
#define ROW_SWAP(name, T) \
  extern "C" SIG_SWAP(name, T) { zor_core::swap(#name, n, x, incx, y, incy); }
#define ROW_DOT(name, T) \
  extern "C" SIG_DOT(name, T) { return zor_core::dot(#name, zor_core::kernels<T>::dot, n, x, incx, y, incy); }
#define ROW_CDOT(name, T, conj)                                                          \
  extern "C" SIG_CDOT(name, T) {                                                         \
    static constinit zor_core::cdot_kernel<T> kernel(zor_core::cdot_kernel_name(#name)); \
    zor_core::cdot(#name, kernel, result, n, x, incx, y, incy);                          \
  }
#include "zor/tables/core_blas.inc"
