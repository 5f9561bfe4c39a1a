// SPDX-License-Identifier: MIT
// Copies, scalings, rotations and weighted sums of vectors: cut over threads anywhere, since no element of a
// result meets another.
#include <algorithm>

#include "core/blas/argument_list.h"
#include "core/blas/kernels.h"
#include "core/blas/pieces.h"
#include "core/kern.h"
#include "zor/signatures/blas.h"

namespace zor_core {
namespace {

template <class... Pointers>
constexpr bool all_given(const Pointers*... pointers) {
  return ((pointers != nullptr) & ...);
}

// A vector of n elements and its increment, as the next two arguments of a list.
template <class T>
argument_list& vector(argument_list& list, const char* name, const T* x, const char* inc_name,
                      const zor_int* n, const zor_int* inc, bool used = true) {
  used = used && value(n) > 0;
  list.pointer(name, x, used);
  return list.next(inc_name, inc != nullptr && (!used || fits_memory(1, *n, *inc, sizeof(T))));
}

// Each check below runs only when one argument is null or a size is vast.

template <class T>
[[gnu::cold, gnu::noinline]] bool bad_copy(const char* routine, const zor_int* n, const T* x,
                                           const zor_int* incx, const T* y, const zor_int* incy) {
  argument_list list;
  list.pointer("n", n);
  vector(list, "x", x, "incx", n, incx);
  return vector(list, "y", y, "incy", n, incy).reported(routine) || *n < 1;
}

template <class T>
void copy(const char* routine, zor::copy_fn<T>* kernel, const zor_int* n, const T* x, const zor_int* incx,
          T* y, const zor_int* incy) {
  if ((!all_given(n, x, incx, y, incy) || any_vast(*n, *incx, *incy)) &&
      bad_copy(routine, n, x, incx, y, incy))
    return;
  // With an increment of 0 the last element of x stays in y.
  const int32_t threads = *incy == 0 ? 1 : threads_for<T>(*n);
  if (threads == 1) return kernel(n, x, incx, y, incy);
  for_vector_pieces<T>(threads, *n, [=](zor_int first, zor_int count) {
    kernel(&count, part(x, *n, *incx, first, count), incx, part(y, *n, *incy, first, count), incy);
  });
}

template <class T, class A>
[[gnu::cold, gnu::noinline]] bool bad_scal(const char* routine, const zor_int* n, const A* alpha, const T* x,
                                           const zor_int* incx) {
  argument_list list;
  list.pointer("n", n).pointer("alpha", alpha);
  return vector(list, "x", x, "incx", n, incx).reported(routine) || *n < 1;
}

template <class T, class A>
[[gnu::noinline]] void threaded_scal(int32_t threads, zor::scal_fn<T, A>* scale, zor_int n, const A* alpha,
                                     T* x, zor_int incx) {
  const zor_int step = incx < 0 ? -incx : incx;
  for_vector_pieces<T>(threads, n,
                       [=](zor_int first, zor_int count) { scale(&count, alpha, x + first * step, &step); });
}

// Nothing here takes the address of an argument, so that the call of the kernel is a jump.
template <class T, class A>
void scal(const char* routine, kern_function<zor::scal_fn<T, A>>& kernel, const zor_int* n, const A* alpha,
          T* x, const zor_int* incx) {
  if ((!all_given(n, alpha, x, incx) || any_vast(*n, *incx)) && bad_scal(routine, n, alpha, x, incx)) return;
  auto* const scale = kernel.get();
  const int32_t threads = *incx == 0 ? 1 : threads_for<T>(*n);
  if (threads > 1) return threaded_scal(threads, scale, *n, alpha, x, *incx);
  scale(n, alpha, x, incx);
}

template <class T, class C, class S>
[[gnu::cold, gnu::noinline]] bool bad_rot(const char* routine, const zor_int* n, const T* x,
                                          const zor_int* incx, const T* y, const zor_int* incy, const C* c,
                                          const S* s) {
  argument_list list;
  list.pointer("n", n);
  vector(list, "x", x, "incx", n, incx);
  vector(list, "y", y, "incy", n, incy);
  return list.pointer("c", c).pointer("s", s).reported(routine) || *n < 1;
}

template <class T, class C, class S>
void rot(const char* routine, zor::rot_fn<T, C, S>* kernel, const zor_int* n, T* x, const zor_int* incx, T* y,
         const zor_int* incy, const C* c, const S* s) {
  if ((!all_given(n, x, incx, y, incy, c) || s == nullptr || any_vast(*n, *incx, *incy)) &&
      bad_rot(routine, n, x, incx, y, incy, c, s))
    return;
  const int32_t threads = *incx == 0 || *incy == 0 ? 1 : threads_for<T>(*n);
  if (threads == 1) return kernel(n, x, incx, y, incy, c, s);
  for_vector_pieces<T>(threads, *n, [=](zor_int first, zor_int count) {
    kernel(&count, part(x, *n, *incx, first, count), incx, part(y, *n, *incy, first, count), incy, c, s);
  });
}

template <class T>
[[gnu::cold, gnu::noinline]] bool bad_rotm(const char* routine, const zor_int* n, const T* x,
                                           const zor_int* incx, const T* y, const zor_int* incy,
                                           const T* param) {
  argument_list list;
  list.pointer("n", n);
  vector(list, "x", x, "incx", n, incx);
  vector(list, "y", y, "incy", n, incy);
  return list.pointer("param", param).reported(routine) || *n < 1;
}

template <class T>
void rotm(const char* routine, kern_function<zor::rotm_fn<T>>& kernel, const zor_int* n, T* x,
          const zor_int* incx, T* y, const zor_int* incy, const T* param) {
  if ((!all_given(n, x, incx, y, incy, param) || any_vast(*n, *incx, *incy)) &&
      bad_rotm(routine, n, x, incx, y, incy, param))
    return;
  kernel.get()(n, x, incx, y, incy, param);
}

// Elements of y that are scaled and then added to: few enough to stay in the first-level cache between the
// two.
template <class T>
constexpr zor_int axpby_block = (zor_int(1) << 13) / zor_int(sizeof(T));

// y := alpha x + beta y, block after block.
template <class T>
void axpby_range(zor::scal_fn<T, T>* scale, const T& alpha, const T* x, zor_int incx, const T& beta, T* y,
                 zor_int incy, zor_int n, zor_int begin, zor_int end) {
  const zor_int step = incy < 0 ? -incy : incy;
  for (zor_int first = begin; first < end; first += axpby_block<T>) {
    const zor_int count = std::min(axpby_block<T>, end - first);
    const T* const xb = part(x, n, incx, first, count);
    T* const yb = part(y, n, incy, first, count);
    if (!is_zero(beta)) {
      scale(&count, &beta, yb, &step);
      kernels<T>::axpy(&count, &alpha, xb, &incx, yb, &incy);
    } else if (!is_zero(alpha)) {
      kernels<T>::copy(&count, xb, &incx, yb, &incy);
      scale(&count, &alpha, yb, &step);
    } else {
      const zor_int still = 0;
      const T zero{};
      kernels<T>::copy(&count, &zero, &still, yb, &incy);
    }
  }
}

template <class T>
void axpby(const char* routine, kern_function<zor::scal_fn<T, T>>& scale, const zor_int* n, const T* alpha,
           const T* x, const zor_int* incx, const T* beta, T* y, const zor_int* incy) {
  argument_list list;
  list.pointer("n", n).pointer("alpha", alpha);
  vector(list, "x", x, "incx", n, incx, alpha != nullptr && !is_zero(*alpha));
  list.pointer("beta", beta);
  if (vector(list, "y", y, "incy", n, incy).reported(routine) || *n < 1) return;
  // With an increment of 0 the whole of x meets one element, each time scaled anew.
  if (*incy == 0) {
    for (zor_int i = 0; i < *n; ++i)
      axpby_range(scale.get(), *alpha, part(x, *n, *incx, i, 1), 1, *beta, y, 1, 1, 0, 1);
    return;
  }
  for_vector_pieces<T>(threads_for<T>(*n), *n, [=, &scale](zor_int first, zor_int count) {
    axpby_range(scale.get(), *alpha, x, *incx, *beta, y, *incy, *n, first, first + count);
  });
}

template <class T>
struct scal_of;
template <>
struct scal_of<float> {
  static constexpr const char* kernel = "zor_blas_sscal";
};
template <>
struct scal_of<double> {
  static constexpr const char* kernel = "zor_blas_dscal";
};
template <>
struct scal_of<zor_c32> {
  static constexpr const char* kernel = "zor_blas_cscal";
};
template <>
struct scal_of<zor_c64> {
  static constexpr const char* kernel = "zor_blas_zscal";
};

}  // namespace
}  // namespace zor_core

using namespace zor_core;

#define ROW_COPY(name, T, kernel) \
  extern "C" SIG_COPY(name, T) { copy<T>(#name, kernel, n, x, incx, y, incy); }
#define ROW_SCAL(name, T, A)                                       \
  extern "C" SIG_SCAL(name, T, A) {                                \
    static constinit kern_function<zor::scal_fn<T, A>> own(#name); \
    scal<T, A>(#name, own, n, alpha, x, incx);                     \
  }
#define ROW_ROT(name, T, C, S, kernel) \
  extern "C" SIG_ROT(name, T, C, S) { rot<T, C, S>(#name, kernel, n, x, incx, y, incy, c, s); }
#define ROW_ROTM(name, T)                                       \
  extern "C" SIG_ROTM(name, T) {                                \
    static constinit kern_function<zor::rotm_fn<T>> own(#name); \
    rotm<T>(#name, own, n, x, incx, y, incy, param);            \
  }
#define ROW_AXPBY(name, T)                                                        \
  extern "C" SIG_AXPBY(name, T) {                                                 \
    static constinit kern_function<zor::scal_fn<T, T>> scale(scal_of<T>::kernel); \
    axpby<T>(#name, scale, n, alpha, x, incx, beta, y, incy);                     \
  }
#include "zor/tables/core_vector.inc"
