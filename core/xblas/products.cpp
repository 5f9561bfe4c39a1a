// SPDX-License-Identifier: MIT
// Threads take outputs, so no sum is cut. The kernel of a general matrix takes a part of the outputs as it
// is, that of a band a part whose diagonals are counted from its own corner. A symmetric matrix is spread out
// into rows of a general one, block by block, whose product has the same terms in the same order.
#include <algorithm>

#include "core/blas/arguments.h"
#include "core/heap_array.h"
#include "core/threads.h"
#include "zor/signatures/xblas.h"

namespace zor_core {
namespace {

// What any of the routines takes; tail is null in those of one vector.
template <class T>
struct product_call {
  zor_int trans, uplo, m, n, kl, ku;
  T alpha;
  const T* a;
  zor_int lda;
  const T *head, *tail;
  zor_int incx;
  T beta;
  T* y;
  zor_int incy, prec;

  bool plain() const { return trans == ZOR_NO_TRANS; }
  zor_int outputs() const { return plain() ? m : n; }
  zor_int inputs() const { return plain() ? n : m; }
};

template <class T>
using product_kernel = void(const product_call<T>& c);

// ---- Checks: the name of the first bad argument, null when there is none.

// Which routine it is: a matrix, and one vector or two.
enum class matrix { general, band, symmetric, hermitian };
struct kind {
  matrix of;
  bool two;
  bool square() const { return of == matrix::symmetric || of == matrix::hermitian; }
};

template <class T>
const char* bad_argument(kind k, const product_call<T>& c) {
  const auto among = [](zor_int code, zor_int first, zor_int last) { return code >= first && code <= last; };
  if (k.square() && !among(c.uplo, ZOR_UPPER, ZOR_LOWER)) return "uplo";
  if (!among(c.trans, ZOR_NO_TRANS, ZOR_CONJ_TRANS)) return "trans";
  if (c.m < 0) return k.square() ? "n" : "m";
  if (c.n < 0) return "n";
  if (c.kl < 0) return "kl";
  if (c.ku < 0) return "ku";
  const bool empty = c.m == 0 || c.n == 0, band = k.of == matrix::band;
  const bool left_alone = band && (empty || (zor::is_zero(c.alpha) && zor::is_one(c.beta)));
  const bool reads_matrix = !empty && !left_alone && (band || !zor::is_zero(c.alpha));
  if (reads_matrix && c.a == nullptr) return "a";
  zor_int stored = c.m;
  if (band && (__builtin_add_overflow(c.kl, c.ku, &stored) || __builtin_add_overflow(stored, 1, &stored)))
    return "ku";
  if (!is_leading(&c.lda, stored) || !fits_memory(stored, c.n, c.lda, sizeof(T))) return "lda";
  if (reads_matrix && c.head == nullptr) return k.two ? "head_x" : "x";
  if (reads_matrix && k.two && c.tail == nullptr) return "tail_x";
  if (c.incx == 0 || !fits_memory(1, c.inputs(), c.incx, sizeof(T))) return "incx";
  if (c.outputs() > 0 && !left_alone && c.y == nullptr) return "y";
  if (c.incy == 0 || !fits_memory(1, c.outputs(), c.incy, sizeof(T))) return "incy";
  if (!among(c.prec, ZOR_SINGLE, ZOR_EXTRA)) return "prec";
  return nullptr;
}

// ---- Parts.

// Terms of a product below which one thread is faster, by what a term costs.
template <class T>
int32_t threads_for(kind k, const product_call<T>& c) {
  const zor_int row = k.of == matrix::band ? std::min(c.inputs(), c.kl + c.ku + 1) : c.inputs();
  const zor_int least = c.prec == ZOR_EXTRA ? 1 << 15 : 1 << 18;
  return saturating_product(c.outputs(), row) < least || zor::is_zero(c.alpha) ? 1 : usable_threads();
}

// Outputs of a part, a multiple of the lanes of every vector.
constexpr zor_int grain = 32;

// Calls body(first output, number of outputs) for parts of all.
template <class T, class Body>
void for_parts(int32_t threads, const product_call<T>& c, const Body& body) {
  const zor_int pieces = std::min<zor_int>(c.outputs() / grain, threads);
  if (pieces <= 1) return body(zor_int(0), c.outputs());
  for_each_piece(threads, pieces, [&](zor_int piece) {
    const zor_int first = cut(c.outputs(), grain, pieces, piece);
    body(first, cut(c.outputs(), grain, pieces, piece + 1) - first);
  });
}

// The call for outputs first to first + count - 1 of a general matrix.
template <class T>
product_call<T> outputs_of(const product_call<T>& c, zor_int first, zor_int count) {
  product_call<T> some = c;
  some.a = c.a + (c.plain() ? first : first * c.lda);
  (c.plain() ? some.m : some.n) = count;
  some.y = part(c.y, c.outputs(), c.incy, first, count);
  return some;
}

// The same of a band: its rows keep their place in the array, and one diagonal more lies above its corner
// with each.
template <class T>
product_call<T> band_outputs_of(const product_call<T>& c, zor_int first, zor_int count) {
  product_call<T> some = outputs_of(c, first, count);
  if (c.plain()) some.a = c.a;
  some.kl = c.plain() ? c.kl - first : c.kl + first;
  some.ku = c.plain() ? c.ku + first : c.ku - first;
  return some;
}

// ---- Symmetric matrices.

// Columns first to first + count - 1 of the whole matrix, n elements each.
template <class T>
void spread(const product_call<T>& c, bool hermitian, zor_int first, zor_int count, T* columns) {
  constexpr zor_int block = 16;
  const auto stored = [&](zor_int i, zor_int j) { return c.uplo == ZOR_UPPER ? i <= j : i >= j; };
  for (zor_int i0 = 0; i0 < c.n; i0 += block)
    for (zor_int j = first; j < first + count; ++j)
      for (zor_int i = i0; i < std::min(i0 + block, c.n); ++i) {
        const bool here = stored(i, j);
        // Rows of A are wanted, which are conjugated columns where it is Hermitian.
        const T e = here ? c.a[i + j * c.lda] : c.a[j + i * c.lda];
        T& to = columns[i + (j - first) * c.n];
        to = hermitian && here ? zor::conj_by_sign(e) : e;
        if constexpr (zor::is_complex<T>)
          if (hermitian && i == j) to.im = 0;
      }
}

template <class T>
void multiply_symmetric(kind k, const product_call<T>& c, product_kernel<T>* kernel,
                        product_kernel<T>* general) {
  const int32_t threads = threads_for(k, c);
  const zor_int blocks = (c.n + grain - 1) / grain;
  if (threads == 1) return kernel(c);
  const heap_array<T> columns(saturating_product(threads, grain, c.n));
  if (columns.data() == nullptr) return kernel(c);
  const zor_int pieces = std::min<zor_int>(blocks, threads);
  for_each_piece(threads, pieces, [&](zor_int piece) {
    product_call<T> some = c;
    T* const own = columns.data() + piece * grain * c.n;
    for (zor_int block = cut(blocks, 1, pieces, piece); block < cut(blocks, 1, pieces, piece + 1); ++block) {
      const zor_int first = block * grain, count = std::min(grain, c.n - first);
      spread(c, k.of == matrix::hermitian, first, count, own);
      some.trans = ZOR_TRANS;
      some.a = own;
      some.lda = c.n;
      some.n = count;
      some.y = part(c.y, c.n, c.incy, first, count);
      general(some);
    }
  });
}

// ---- Entries.

template <class T>
void multiply(kind k, const product_call<T>& c, product_kernel<T>* kernel, product_kernel<T>* general) {
  if (k.square()) return multiply_symmetric(k, c, kernel, general);
  for_parts(threads_for(k, c), c, [&](zor_int first, zor_int count) {
    kernel(k.of == matrix::band ? band_outputs_of(c, first, count) : outputs_of(c, first, count));
  });
}

// Names of the arguments in their order; those of the routines of two vectors after those of one.
constexpr const char* general_names[][13] = {
    {"trans", "m", "n", "alpha", "a", "lda", "x", "incx", "beta", "y", "incy", "prec"},
    {"trans", "m", "n", "alpha", "a", "lda", "head_x", "tail_x", "incx", "beta", "y", "incy", "prec"}};
constexpr const char* band_names[][15] = {
    {"trans", "m", "n", "kl", "ku", "alpha", "a", "lda", "x", "incx", "beta", "y", "incy", "prec"},
    {"trans", "m", "n", "kl", "ku", "alpha", "a", "lda", "head_x", "tail_x", "incx", "beta", "y", "incy",
     "prec"}};
constexpr const char* symmetric_names[][12] = {
    {"uplo", "n", "alpha", "a", "lda", "x", "incx", "beta", "y", "incy", "prec"},
    {"uplo", "n", "alpha", "a", "lda", "head_x", "tail_x", "incx", "beta", "y", "incy", "prec"}};

bool refused_call(const char* routine, kind k, const char* bad) {
  switch (k.of) {
    case matrix::general:
      return refused(routine, general_names[k.two], bad);
    case matrix::band:
      return refused(routine, band_names[k.two], bad);
    default:
      return refused(routine, symmetric_names[k.two], bad);
  }
}

template <class T>
void entry(const char* routine, kind k, const product_call<T>& c, product_kernel<T>* kernel,
           product_kernel<T>* general = nullptr) {
  if (!refused_call(routine, k, bad_argument(k, c))) multiply(k, c, kernel, general);
}

}  // namespace
}  // namespace zor_core

// The kernels of one and of two vectors by what a call holds.
#define GENERAL(T, kernel, ...)                                                                      \
  [](const zor_core::product_call<T>& c) {                                                           \
    kernel(&c.trans, &c.m, &c.n, &c.alpha, c.a, &c.lda, __VA_ARGS__, &c.incx, &c.beta, c.y, &c.incy, \
           &c.prec);                                                                                 \
  }
#define BAND(T, kernel, ...)                                                                              \
  [](const zor_core::product_call<T>& c) {                                                                \
    kernel(&c.trans, &c.m, &c.n, &c.kl, &c.ku, &c.alpha, c.a, &c.lda, __VA_ARGS__, &c.incx, &c.beta, c.y, \
           &c.incy, &c.prec);                                                                             \
  }
#define SYMMETRIC(T, kernel, ...)                                                                       \
  [](const zor_core::product_call<T>& c) {                                                              \
    kernel(&c.uplo, &c.n, &c.alpha, c.a, &c.lda, __VA_ARGS__, &c.incx, &c.beta, c.y, &c.incy, &c.prec); \
  }

#define ROW_VALUE_GEMV_X(name, T, kernel)                                                            \
  extern "C" SIG_VALUE_GEMV_X(name, T) {                                                             \
    zor_core::entry<T>(#name, {zor_core::matrix::general, false},                                    \
                       {trans, 0, m, n, 0, 0, alpha, a, lda, x, nullptr, incx, beta, y, incy, prec}, \
                       GENERAL(T, kernel, c.head));                                                  \
  }
#define ROW_VALUE_GEMV2_X(name, T, kernel)                                                               \
  extern "C" SIG_VALUE_GEMV2_X(name, T) {                                                                \
    zor_core::entry<T>(#name, {zor_core::matrix::general, true},                                         \
                       {trans, 0, m, n, 0, 0, alpha, a, lda, head_x, tail_x, incx, beta, y, incy, prec}, \
                       GENERAL(T, kernel, c.head, c.tail));                                              \
  }
#define ROW_VALUE_GBMV_X(name, T, kernel)                                                              \
  extern "C" SIG_VALUE_GBMV_X(name, T) {                                                               \
    zor_core::entry<T>(#name, {zor_core::matrix::band, false},                                         \
                       {trans, 0, m, n, kl, ku, alpha, a, lda, x, nullptr, incx, beta, y, incy, prec}, \
                       BAND(T, kernel, c.head));                                                       \
  }
#define ROW_VALUE_GBMV2_X(name, T, kernel)                                                                 \
  extern "C" SIG_VALUE_GBMV2_X(name, T) {                                                                  \
    zor_core::entry<T>(#name, {zor_core::matrix::band, true},                                              \
                       {trans, 0, m, n, kl, ku, alpha, a, lda, head_x, tail_x, incx, beta, y, incy, prec}, \
                       BAND(T, kernel, c.head, c.tail));                                                   \
  }
#define SYMMETRIC_ENTRY(name, T, kind, kernel, general)                                         \
  extern "C" SIG_VALUE_SYMV_X(name, T) {                                                        \
    zor_core::entry<T>(                                                                         \
        #name, {zor_core::matrix::kind, false},                                                 \
        {ZOR_NO_TRANS, uplo, n, n, 0, 0, alpha, a, lda, x, nullptr, incx, beta, y, incy, prec}, \
        SYMMETRIC(T, kernel, c.head), GENERAL(T, general, c.head));                             \
  }
#define SYMMETRIC_ENTRY2(name, T, kind, kernel, general)                                            \
  extern "C" SIG_VALUE_SYMV2_X(name, T) {                                                           \
    zor_core::entry<T>(                                                                             \
        #name, {zor_core::matrix::kind, true},                                                      \
        {ZOR_NO_TRANS, uplo, n, n, 0, 0, alpha, a, lda, head_x, tail_x, incx, beta, y, incy, prec}, \
        SYMMETRIC(T, kernel, c.head, c.tail), GENERAL(T, general, c.head, c.tail));                 \
  }
#define ROW_VALUE_SYMV_X(name, T, kernel, general) SYMMETRIC_ENTRY(name, T, symmetric, kernel, general)
#define ROW_VALUE_SYMV2_X(name, T, kernel, general) SYMMETRIC_ENTRY2(name, T, symmetric, kernel, general)
#define ROW_VALUE_HEMV_X(name, T, kernel, general) SYMMETRIC_ENTRY(name, T, hermitian, kernel, general)
#define ROW_VALUE_HEMV2_X(name, T, kernel, general) SYMMETRIC_ENTRY2(name, T, hermitian, kernel, general)
#include "zor/tables/core_xblas.inc"
#undef SYMMETRIC_ENTRY
#undef SYMMETRIC_ENTRY2
#undef GENERAL
#undef BAND
#undef SYMMETRIC
