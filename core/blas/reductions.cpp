// SPDX-License-Identifier: MIT
// Sums, norms and searches over vectors: each is one sum or one walk, and stays on the calling thread. Both
// libraries export these names, so the kernel is asked of the kernel library itself.
#include "core/blas/argument_list.h"
#include "core/kern.h"
#include "zor/signatures/blas.h"

namespace zor_core {
namespace {

template <class T>
[[gnu::cold, gnu::noinline]] bool bad_vector(const char* routine, const zor_int* n, const T* x,
                                             const zor_int* incx) {
  const bool used = value(n) > 0;
  argument_list list;
  list.pointer("n", n).pointer("x", x, used);
  list.next("incx", incx != nullptr && (!used || fits_memory(1, *n, *incx, sizeof(T))));
  return list.reported(routine);
}

// asum, nrm2, iamax and iamin.
template <class T, class F>
auto reduction(const char* routine, kern_function<F>& kernel, const zor_int* n, const T* x,
               const zor_int* incx) -> decltype(kernel.get()(n, x, incx)) {
  if ((n == nullptr || x == nullptr || incx == nullptr || any_vast(*n, *incx)) &&
      bad_vector(routine, n, x, incx))
    return 0;
  return kernel.get()(n, x, incx);
}

[[gnu::cold, gnu::noinline]] bool bad_pair(const char* routine, const zor_int* n, const float* start,
                                           bool has_start, const float* x, const zor_int* incx,
                                           const float* y, const zor_int* incy) {
  const bool used = value(n) > 0;
  argument_list list;
  list.pointer("n", n);
  if (has_start) list.pointer("sb", start);
  list.pointer("x", x, used)
      .next("incx", incx != nullptr && (!used || fits_memory(1, *n, *incx, sizeof(float))))
      .pointer("y", y, used)
      .next("incy", incy != nullptr && (!used || fits_memory(1, *n, *incy, sizeof(float))));
  return list.reported(routine);
}

bool unusual(const zor_int* n, const float* x, const zor_int* incx, const float* y, const zor_int* incy) {
  return n == nullptr || x == nullptr || incx == nullptr || y == nullptr || incy == nullptr ||
         any_vast(*n, *incx, *incy);
}

}  // namespace
}  // namespace zor_core

using namespace zor_core;

#define REDUCTION(name, ...)                                \
  {                                                         \
    static constinit kern_function<__VA_ARGS__> own(#name); \
    return reduction(#name, own, n, x, incx);               \
  }
#define ROW_ASUM(name, T, R) extern "C" SIG_ASUM(name, T, R) REDUCTION(name, zor::asum_fn<T, R>)
#define ROW_NRM2(name, T, R) extern "C" SIG_ASUM(name, T, R) REDUCTION(name, zor::asum_fn<T, R>)
#define ROW_IAMAX(name, T) extern "C" SIG_IAMAX(name, T) REDUCTION(name, zor::iamax_fn<T>)
#define ROW_IAMIN(name, T) extern "C" SIG_IAMAX(name, T) REDUCTION(name, zor::iamax_fn<T>)
#define ROW_DSDOT(name)                                                                                 \
  extern "C" SIG_DSDOT(name) {                                                                          \
    static constinit kern_function<zor::dsdot_fn> own(#name);                                           \
    if (unusual(n, x, incx, y, incy) && bad_pair(#name, n, nullptr, false, x, incx, y, incy)) return 0; \
    return own.get()(n, x, incx, y, incy);                                                              \
  }
#define ROW_SDSDOT(name)                                                                                   \
  extern "C" SIG_SDSDOT(name) {                                                                            \
    static constinit kern_function<zor::sdsdot_fn> own(#name);                                             \
    if ((sb == nullptr || unusual(n, x, incx, y, incy)) && bad_pair(#name, n, sb, true, x, incx, y, incy)) \
      return 0;                                                                                            \
    return own.get()(n, sb, x, incx, y, incy);                                                             \
  }
#include "zor/tables/core_vector.inc"
