// SPDX-License-Identifier: MIT
// Sums and exchanges of vectors are cut over threads anywhere, element by element; a dot product is one sum
// and stays on the calling thread.
#include <string_view>

#include "core/blas/kernels.h"
#include "core/blas/pieces.h"
#include "core/kern.h"
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
  if (incx == nullptr) return 3;
  if (*n > 0 && y == nullptr) return 4;
  return incy == nullptr ? 5 : 0;
}

template <class T>
int32_t bad_axpy_argument(const zor_int* n, const T* alpha, const T* x, const zor_int* incx, const T* y,
                          const zor_int* incy) {
  if (n == nullptr) return 1;
  if (alpha == nullptr) return 2;
  const bool used = *n > 0 && !is_zero(*alpha);
  if (used && x == nullptr) return 3;
  if (incx == nullptr) return 4;
  if (used && y == nullptr) return 5;
  return incy == nullptr ? 6 : 0;
}

// Makes the call unless one of its vectors is longer than all addresses. `before` arguments stand before n
// and between n and x.
template <class T, class Call>
[[gnu::noinline]] auto call_of_vast(const char* routine, const char* const* arguments, int32_t before,
                                    const zor_int* n, const zor_int* incx, const zor_int* incy, Call call) {
  int32_t bad = 0;
  if (!fits_memory(1, *n, *incx, sizeof(T)))
    bad = before + 3;
  else if (!fits_memory(1, *n, *incy, sizeof(T)))
    bad = before + 5;
  if (bad == 0) return call();
  report_argument(routine, bad, arguments[bad - 1]);
  return decltype(call())();
}

template <class T>
[[gnu::noinline]] void threaded_axpy(int32_t threads, zor_int n, const T* alpha, const T* x,
                                     const zor_int* incx, T* y, const zor_int* incy) {
  for_vector_pieces<T>(threads, n, [&](zor_int first, zor_int count) {
    kernels<T>::axpy(&count, alpha, part(x, n, *incx, first, count), incx, part(y, n, *incy, first, count),
                     incy);
  });
}
template <class T>
[[gnu::noinline]] void threaded_swap(int32_t threads, zor_int n, T* x, const zor_int* incx, T* y,
                                     const zor_int* incy) {
  for_vector_pieces<T>(threads, n, [&](zor_int first, zor_int count) {
    kernels<T>::swap(&count, part(x, n, *incx, first, count), incx, part(y, n, *incy, first, count), incy);
  });
}

// In the routines below nothing takes the address of an argument or goes on after a call, so that the call of
// the kernel is a jump.
template <class T>
void divided_axpy(const zor_int* n, const T* alpha, const T* x, const zor_int* incx, T* y,
                  const zor_int* incy) {
  // An increment of 0 makes y[0] one sum over all of x.
  if (const int32_t threads = *incy == 0 ? 1 : threads_for<T>(*n); threads > 1)
    return threaded_axpy(threads, *n, alpha, x, incx, y, incy);
  kernels<T>::axpy(n, alpha, x, incx, y, incy);
}

template <class T>
void axpy(const char* routine, const zor_int* n, const T* alpha, const T* x, const zor_int* incx, T* y,
          const zor_int* incy) {
  if (const int32_t bad = bad_axpy_argument(n, alpha, x, incx, y, incy))
    return report_argument(routine, bad, axpy_arguments[bad - 1]);
  if (any_vast(*n, *incx, *incy) && !is_zero(*alpha))
    return call_of_vast<T>(routine, axpy_arguments, 1, n, incx, incy,
                           [=] { divided_axpy(n, alpha, x, incx, y, incy); });
  divided_axpy(n, alpha, x, incx, y, incy);
}

template <class T>
void divided_swap(const zor_int* n, T* x, const zor_int* incx, T* y, const zor_int* incy) {
  if (const int32_t threads = *incx == 0 || *incy == 0 ? 1 : threads_for<T>(*n); threads > 1)
    return threaded_swap(threads, *n, x, incx, y, incy);
  kernels<T>::swap(n, x, incx, y, incy);
}

template <class T>
void swap(const char* routine, const zor_int* n, T* x, const zor_int* incx, T* y, const zor_int* incy) {
  if (const int32_t bad = bad_pair_argument(n, x, incx, y, incy))
    return report_argument(routine, bad, swap_arguments[bad - 1]);
  if (any_vast(*n, *incx, *incy))
    return call_of_vast<T>(routine, swap_arguments, 0, n, incx, incy,
                           [=] { divided_swap(n, x, incx, y, incy); });
  divided_swap(n, x, incx, y, incy);
}

// Whether no number is negative or so large that any_vast would tell it, in the fewest instructions.
template <class... Sizes>
constexpr bool all_modest(Sizes... sizes) {
  return ((uint64_t(sizes) | ...) >> 28) == 0;
}

template <class T>
[[gnu::cold, gnu::noinline]] T unusual_dot(const zor_int* n, const T* x, const zor_int* incx, const T* y,
                                           const zor_int* incy, const char* routine) {
  if (const int32_t bad = bad_pair_argument(n, x, incx, y, incy)) {
    report_argument(routine, bad, swap_arguments[bad - 1]);
    return 0;
  }
  return call_of_vast<T>(routine, swap_arguments, 0, n, incx, incy,
                         [=] { return kernels<T>::dot(n, x, incx, y, incy); });
}
// All good arguments but vast or negative numbers and null vectors of no element go straight to the kernel: a
// short dot product feels each test.
template <class T>
T dot(const char* routine, const zor_int* n, const T* x, const zor_int* incx, const T* y,
      const zor_int* incy) {
  if (n == nullptr || x == nullptr || incx == nullptr || y == nullptr || incy == nullptr ||
      !all_modest(*n, *incx, *incy))
    return unusual_dot(n, x, incx, y, incy, routine);
  return kernels<T>::dot(n, x, incx, y, incy);
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
  if (bad != 0) {
    if (result != nullptr) ++bad;
    return report_argument(routine, bad, cdot_arguments[bad - 1]);
  }
  if (any_vast(*n, *incx, *incy))
    return call_of_vast<T>(routine, cdot_arguments, 1, n, incx, incy,
                           [=, &kernel] { kernel.get()(result, n, x, incx, y, incy); });
  kernel.get()(result, n, x, incx, y, incy);
}

}  // namespace
}  // namespace zor_core

#define ROW_AXPY(name, T) \
  extern "C" SIG_AXPY(name, T) { zor_core::axpy(#name, n, alpha, x, incx, y, incy); }
#define ROW_SWAP(name, T) \
  extern "C" SIG_SWAP(name, T) { zor_core::swap(#name, n, x, incx, y, incy); }
#define ROW_DOT(name, T) \
  extern "C" SIG_DOT(name, T) { return zor_core::dot(#name, n, x, incx, y, incy); }
#define ROW_CDOT(name, T, conj)                                                          \
  extern "C" SIG_CDOT(name, T) {                                                         \
    static constinit zor_core::cdot_kernel<T> kernel(zor_core::cdot_kernel_name(#name)); \
    zor_core::cdot(#name, kernel, result, n, x, incx, y, incy);                          \
  }
#include "zor/tables/core_blas.inc"
