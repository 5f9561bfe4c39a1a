// SPDX-License-Identifier: MIT
// Level 2 beside gemv: arguments checked. Products and updates with full matrices and general bands, and
// updates of packed triangles, are divided over threads (matvec_threads.h); solves with a full triangle come
// to threads by the products in their kernels. The others run on the calling thread: an element of a packed
// or banded symmetric or triangular product meets the whole matrix in steps too short to be divided, and
// solves need one element after the other.
#include "core/blas/argument_list.h"
#include "core/blas/matvec_threads.h"

namespace zor_core {
namespace {

// How a matrix stands: full and banded ones have a leading dimension, packed ones do not.
struct storage {
  const zor_int* ld;
  zor_int rows;  // stored rows, 0 for a packed triangle
};

// The checks that these routines share.
struct arguments : argument_list {
  // A vector of n elements and its increment, which is not 0.
  template <class T>
  arguments& vector(const char* name, const T* x, const char* inc_name, const zor_int* inc, zor_int n,
                    bool used) {
    pointer(name, x, used);
    next(inc_name, is_step(inc) && (!used || fits_memory(1, n, *inc, sizeof(T))));
    return *this;
  }
  // The order of a matrix; a packed one has no leading dimension to tell that it is too long.
  template <class T>
  arguments& order(const zor_int* n, bool packed) {
    next("n", is_size(n) && (!packed || fits_memory(*n, *n, *n, sizeof(T))));
    return *this;
  }
  template <class T>
  arguments& matrix_of(const T* a, const storage& s, zor_int columns, bool used) {
    if (s.rows == 0)
      pointer("ap", a, used);
    else
      matrix("a", a, "lda", s.ld, s.rows, columns, used);
    return *this;
  }
};

template <class T>
bool is_given(const T* scalar) {
  return scalar != nullptr && !is_zero(*scalar);
}
// Whether beta y differs from y, or something is added to it.
template <class T>
bool is_written(bool read, const T* beta) {
  return read || (beta != nullptr && !is_one(*beta));
}
// Rows of a band of `below` and `above` diagonals beside the main one.
zor_int band_rows(zor_int below, zor_int above) {
  zor_int rows = INT64_MAX;
  return __builtin_add_overflow(below, above, &rows) || rows == INT64_MAX ? INT64_MAX : rows + 1;
}
zor_int full_rows(const zor_int* n) { return std::max<zor_int>(1, value(n)); }

// ---- Rank-one updates.

template <class T>
void ger(const char* routine, kern_function<zor::xger_fn<T>>& kernel, const zor_int* m, const zor_int* n,
         const T* alpha, const T* x, const zor_int* incx, const T* y, const zor_int* incy, T* a,
         const zor_int* lda) {
  const zor_int rows = value(m), columns = value(n);
  const bool used = rows > 0 && columns > 0 && is_given(alpha);
  arguments list;
  list.size("m", m).size("n", n).pointer("alpha", alpha);
  list.vector("x", x, "incx", incx, rows, used).vector("y", y, "incy", incy, columns, used);
  if (list.matrix("a", a, "lda", lda, rows, columns, used).reported(routine) || !used) return;
  const int32_t threads = threads_for_matrix<T>(rows, columns);
  if (threads == 1) return kernel.get()(m, n, alpha, x, incx, y, incy, a, lda);
  threaded_ger(threads, kernel.get(), rows, columns, alpha, x, *incx, y, *incy, a, *lda);
}

// A triangle, packed without a leading dimension.
template <class T>
stored_triangle<T> triangle_of(const char* uplo, zor_int n, T* a, const zor_int* lda) {
  const bool upper = is_letter(uplo, 'U');
  return lda != nullptr ? zor::full_triangle(upper, n, a, *lda) : zor::packed_triangle(upper, n, a);
}

// Kernels of Hermitian updates, for diagonals.
template <class T>
constinit kern_function<zor::xher_fn<T, real_t<T>>> her_kernel{nullptr};
template <class T>
constinit kern_function<zor::xsyr2_fn<T>> her2_kernel{nullptr};
#define ROW_XHER(name, T, R) \
  template <>                \
  constinit kern_function<zor::xher_fn<T, R>> her_kernel<T>{#name};
#define ROW_XSYR2(name, T, hermitian) \
  template <>                         \
  constinit kern_function<zor::xsyr2_fn<T>> her2_kernel<T>{#name};
#include "zor/tables/blas_level2.inc"

// Updates of a triangle by x, and by x and y; `call` is that of the kernel.
template <class T, class A, class Call>
void rank_1(const char* routine, const char* uplo, const zor_int* n, const A* alpha, const T* x,
            const zor_int* incx, T* a, const storage& s, const Call& call) {
  const bool used = value(n) > 0 && is_given(alpha);
  arguments list;
  list.option("uplo", uplo, 'U', 'L');
  list.order<T>(n, s.rows == 0).pointer("alpha", alpha);
  list.vector("x", x, "incx", incx, value(n), used).matrix_of(a, s, value(n), used);
  if (list.reported(routine) || !used) return;
  const int32_t threads = threads_for_update<T>(*n);
  if (threads == 1) return call();
  threaded_rank_1<is_complex<T>>(
      threads, triangle_of(uplo, *n, a, s.ld), *alpha, x, incx, [&](const T* xj, T* diagonal) {
        her_kernel<T>.get()("U", &one_step, alpha, xj, &one_step, diagonal, &one_step);
      });
}
template <class T, class Call>
void rank_2(const char* routine, const char* uplo, const zor_int* n, const T* alpha, const T* x,
            const zor_int* incx, const T* y, const zor_int* incy, T* a, const storage& s, const Call& call) {
  const bool used = value(n) > 0 && is_given(alpha);
  arguments list;
  list.option("uplo", uplo, 'U', 'L');
  list.order<T>(n, s.rows == 0).pointer("alpha", alpha);
  list.vector("x", x, "incx", incx, value(n), used).vector("y", y, "incy", incy, value(n), used);
  if (list.matrix_of(a, s, value(n), used).reported(routine) || !used) return;
  const int32_t threads = threads_for_update<T>(*n);
  const stored_triangle<T> triangle = triangle_of(uplo, *n, a, s.ld);
  bool done = false;
  if constexpr (is_complex<T>)
    done = threads > 1 && threaded_her2(threads, triangle, *alpha, x, incx, y, incy,
                                        [&](const T* xj, const T* yj, T* diagonal) {
                                          her2_kernel<T>.get()("U", &one_step, alpha, xj, &one_step, yj,
                                                               &one_step, diagonal, &one_step);
                                        });
  else
    done = threads > 1 && threaded_syr2(threads, triangle, alpha, x, incx, y, incy);
  if (!done) call();
}

// ---- Products.

template <class T>
void gbmv(const char* routine, const char* trans, const zor_int* m, const zor_int* n, const zor_int* kl,
          const zor_int* ku, const T* alpha, const T* a, const zor_int* lda, const T* x, const zor_int* incx,
          const T* beta, T* y, const zor_int* incy) {
  const bool some = value(m) > 0 && value(n) > 0, read = some && is_given(alpha),
             written = some && is_written(read, beta);
  const zor_int inputs = is_letter(trans, 'N') ? value(n) : value(m),
                outputs = is_letter(trans, 'N') ? value(m) : value(n);
  arguments list;
  list.next("trans", is_trans(trans))
      .size("m", m)
      .size("n", n)
      .size("kl", kl)
      .size("ku", ku)
      .pointer("alpha", alpha);
  list.matrix("a", a, "lda", lda, band_rows(value(kl), value(ku)), value(n), read);
  list.vector("x", x, "incx", incx, inputs, read).pointer("beta", beta);
  if (list.vector("y", y, "incy", incy, outputs, written).reported(routine) || !written) return;
  const int32_t threads =
      read && outputs >= 2 * matvec_grain ? threads_for_matrix<T>(band_rows(*kl, *ku), *n) : 1;
  if (threads > 1)
    return threaded_gbmv(threads, trans, *m, *n, *kl, *ku, alpha, a, lda, x, incx, beta, y, incy);
  gbmv_kernel<T>.get()(trans, m, n, kl, ku, alpha, a, lda, x, incx, beta, y, incy);
}

// y := alpha A x + beta y with one triangle of A stored; k is null where there is no band.
template <class T, class Call>
void symmetric(const char* routine, const char* uplo, const zor_int* n, const zor_int* k, const T* alpha,
               const T* a, const storage& s, const T* x, const zor_int* incx, const T* beta, const T* y,
               const zor_int* incy, bool banded, const Call& call) {
  const bool read = value(n) > 0 && is_given(alpha), written = value(n) > 0 && is_written(read, beta);
  arguments list;
  list.option("uplo", uplo, 'U', 'L');
  list.order<T>(n, s.rows == 0);
  if (banded) list.size("k", k);
  list.pointer("alpha", alpha);
  list.matrix_of(a, s, value(n), read).vector("x", x, "incx", incx, value(n), read).pointer("beta", beta);
  if (!list.vector("y", y, "incy", incy, value(n), written).reported(routine) && written) call();
}

template <class T>
void symv(zor::xsymv_fn<T>* kernel, const char* uplo, const zor_int* n, const T* alpha, const T* a,
          const zor_int* lda, const T* x, const zor_int* incx, const T* beta, T* y, const zor_int* incy) {
  const int32_t threads = is_zero(*alpha) || *incx != 1 || *incy != 1 || !axpy_rounds_alike<T>()
                              ? 1
                              : threads_for_matrix<T>(*n, *n, least_symmetric_bytes);
  if (threads == 1 || !symmetric_product<T>{kernel, uplo, *n, alpha, a, *lda, x, y}.run(threads, beta))
    kernel(uplo, n, alpha, a, lda, x, incx, beta, y, incy);
}

// x := op(A) x and its inverse.
template <class T, class Call>
void triangular(const char* routine, const char* uplo, const char* trans, const char* diag, const zor_int* n,
                const zor_int* k, const T* a, const storage& s, const T* x, const zor_int* incx, bool banded,
                const Call& call) {
  const bool used = value(n) > 0;
  arguments list;
  list.option("uplo", uplo, 'U', 'L').next("trans", is_trans(trans)).option("diag", diag, 'N', 'U');
  list.order<T>(n, s.rows == 0);
  if (banded) list.size("k", k);
  list.matrix_of(a, s, value(n), used);
  if (!list.vector("x", x, "incx", incx, value(n), used).reported(routine) && used) call();
}

template <class T>
void tbmv(zor::xtbmv_fn<T>* kernel, const char* uplo, const char* trans, const char* diag, const zor_int* n,
          const zor_int* k, const T* a, const zor_int* lda, T* x, const zor_int* incx) {
  const int32_t threads = threads_for_band<T>(*n, *k);
  const bool lower = is_letter(uplo, 'U') != is_plain(trans);
  const auto multiply = [&](zor_int first, zor_int size, T* v) {
    kernel(uplo, trans, diag, &size, k, a + first * *lda, lda, v, &one_step);
  };
  if (threads == 1 || !banded_product<T>{*n, lower ? *k : 0, lower ? 0 : *k, x, incx}.run(threads, multiply))
    kernel(uplo, trans, diag, n, k, a, lda, x, incx);
}

template <class T>
void trmv(zor::xtrmv_fn<T>* kernel, const char* uplo, const char* trans, const char* diag, const zor_int* n,
          const T* a, const zor_int* lda, T* x, const zor_int* incx) {
  const int32_t threads = threads_for_matrix<T>(*n, *n, 2 * zor::thresholds::threaded_matrix_bytes);
  if (threads == 1 || !threaded_trmv<T>(threads, {kernel, uplo, trans, diag, *n, a, lda, x, incx, nullptr}))
    kernel(uplo, trans, diag, n, a, lda, x, incx);
}

}  // namespace
}  // namespace zor_core

using namespace zor_core;

#define KERNEL(name, ...) static constinit kern_function<__VA_ARGS__> kernel(#name)

#define ROW_GER(name, T)                                       \
  extern "C" SIG_XGER(name, T) {                               \
    KERNEL(name, zor::xger_fn<T>);                             \
    ger(#name, kernel, m, n, alpha, x, incx, y, incy, a, lda); \
  }
#define ROW_GERU ROW_GER
#define ROW_GERC ROW_GER

#define ROW_GBMV(name, T) \
  extern "C" SIG_XGBMV(name, T) { gbmv(#name, trans, m, n, kl, ku, alpha, a, lda, x, incx, beta, y, incy); }

#define ROW_SYMV(name, T, own)                                                                       \
  extern "C" SIG_XSYMV(name, T) {                                                                    \
    KERNEL(own, zor::xsymv_fn<T>);                                                                   \
    symmetric(#name, uplo, n, nullptr, alpha, a, {lda, full_rows(n)}, x, incx, beta, y, incy, false, \
              [=] { symv(kernel.get(), uplo, n, alpha, a, lda, x, incx, beta, y, incy); });          \
  }
#define ROW_HEMV ROW_SYMV
#define ROW_SBMV(name, T)                                                                               \
  extern "C" SIG_XSBMV(name, T) {                                                                       \
    KERNEL(name, zor::xsbmv_fn<T>);                                                                     \
    symmetric(#name, uplo, n, k, alpha, a, {lda, band_rows(value(k), 0)}, x, incx, beta, y, incy, true, \
              [=] { kernel.get()(uplo, n, k, alpha, a, lda, x, incx, beta, y, incy); });                \
  }
#define ROW_HBMV ROW_SBMV
#define ROW_SPMV(name, T)                                                                      \
  extern "C" SIG_XSPMV(name, T) {                                                              \
    KERNEL(name, zor::xspmv_fn<T>);                                                            \
    symmetric(#name, uplo, n, nullptr, alpha, ap, {nullptr, 0}, x, incx, beta, y, incy, false, \
              [=] { kernel.get()(uplo, n, alpha, ap, x, incx, beta, y, incy); });              \
  }
#define ROW_HPMV ROW_SPMV

#define ROW_SYR(name, T)                                               \
  extern "C" SIG_SYR(name, T) {                                        \
    rank_1(#name, uplo, n, alpha, x, incx, a, {lda, full_rows(n)},     \
           [=] { kernels<T>::syr(uplo, n, alpha, x, incx, a, lda); }); \
  }
#include "zor/tables/core_blas.inc"

#define ROW_HER(name, T, R)                                                \
  extern "C" SIG_XHER(name, T, R) {                                        \
    rank_1(#name, uplo, n, alpha, x, incx, a, {lda, full_rows(n)},         \
           [=] { her_kernel<T>.get()(uplo, n, alpha, x, incx, a, lda); }); \
  }
#define ROW_HPR(name, T, R)                                     \
  extern "C" SIG_XHPR(name, T, R) {                             \
    KERNEL(name, zor::xhpr_fn<T, R>);                           \
    rank_1(#name, uplo, n, alpha, x, incx, ap, {nullptr, 0},    \
           [=] { kernel.get()(uplo, n, alpha, x, incx, ap); }); \
  }
#define ROW_SPR(name, T)                                        \
  extern "C" SIG_SPR(name, T) {                                 \
    KERNEL(name, zor::spr_fn<T>);                               \
    rank_1(#name, uplo, n, alpha, x, incx, ap, {nullptr, 0},    \
           [=] { kernel.get()(uplo, n, alpha, x, incx, ap); }); \
  }
#define ROW_SYR2(name, T, own)                                               \
  extern "C" SIG_XSYR2(name, T) {                                            \
    KERNEL(own, zor::xsyr2_fn<T>);                                           \
    rank_2(#name, uplo, n, alpha, x, incx, y, incy, a, {lda, full_rows(n)},  \
           [=] { kernel.get()(uplo, n, alpha, x, incx, y, incy, a, lda); }); \
  }
#define ROW_HER2 ROW_SYR2
#define ROW_SPR2(name, T)                                                \
  extern "C" SIG_XSPR2(name, T) {                                        \
    KERNEL(name, zor::xspr2_fn<T>);                                      \
    rank_2(#name, uplo, n, alpha, x, incx, y, incy, ap, {nullptr, 0},    \
           [=] { kernel.get()(uplo, n, alpha, x, incx, y, incy, ap); }); \
  }
#define ROW_HPR2 ROW_SPR2

#define ROW_TRMV(name, T, own)                                                               \
  extern "C" SIG_XTRMV(name, T) {                                                            \
    triangular(#name, uplo, trans, diag, n, nullptr, a, {lda, full_rows(n)}, x, incx, false, \
               [=] { trmv(own, uplo, trans, diag, n, a, lda, x, incx); });                   \
  }
#define ROW_TRSV(name, T, own)                                                               \
  extern "C" SIG_XTRMV(name, T) {                                                            \
    KERNEL(own, zor::xtrmv_fn<T>);                                                           \
    triangular(#name, uplo, trans, diag, n, nullptr, a, {lda, full_rows(n)}, x, incx, false, \
               [=] { kernel.get()(uplo, trans, diag, n, a, lda, x, incx); });                \
  }
#define ROW_TBMV(name, T)                                                                       \
  extern "C" SIG_XTBMV(name, T) {                                                               \
    KERNEL(name, zor::xtbmv_fn<T>);                                                             \
    triangular(#name, uplo, trans, diag, n, k, a, {lda, band_rows(value(k), 0)}, x, incx, true, \
               [=] { tbmv(kernel.get(), uplo, trans, diag, n, k, a, lda, x, incx); });          \
  }
#define ROW_TBSV(name, T)                                                                       \
  extern "C" SIG_XTBMV(name, T) {                                                               \
    KERNEL(name, zor::xtbmv_fn<T>);                                                             \
    triangular(#name, uplo, trans, diag, n, k, a, {lda, band_rows(value(k), 0)}, x, incx, true, \
               [=] { kernel.get()(uplo, trans, diag, n, k, a, lda, x, incx); });                \
  }
#define ROW_TPMV(name, T)                                                              \
  extern "C" SIG_XTPMV(name, T) {                                                      \
    KERNEL(name, zor::xtpmv_fn<T>);                                                    \
    triangular(#name, uplo, trans, diag, n, nullptr, ap, {nullptr, 0}, x, incx, false, \
               [=] { kernel.get()(uplo, trans, diag, n, ap, x, incx); });              \
  }
#define ROW_TPSV ROW_TPMV
#include "zor/tables/core_matvec.inc"
