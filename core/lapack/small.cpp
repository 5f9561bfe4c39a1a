// SPDX-License-Identifier: MIT
// Small factorisations and their solves, one or many matrices in a call. Threads take matrices.
#include <algorithm>

#include "core/lapack/checks.h"
#include "core/lapack/small.h"
#include "core/threads.h"
#include "zor/signatures/lapack.h"

namespace zor_core {
namespace {

// Measured: elements of all matrices below which one thread is faster, and pieces a thread takes so that none
// waits long. Factorisations of order 8 on an AMD Zen 4: two threads take 0.88 of the time of one with so
// many elements, 0.65 with twice as many and half with four times.
constexpr zor_int least_elements = 1 << 14, pieces_a_thread = 4;

// Calls body(k) for each of `count` matrices of that many elements.
template <class Body>
void for_matrices(zor_int elements, zor_int count, const Body& body) {
  const int32_t threads =
      count < 2 || saturating_product(elements, count) < least_elements ? 1 : usable_threads();
  const zor_int pieces = std::min(count, threads == 1 ? zor_int(1) : threads * pieces_a_thread);
  for_each_piece(threads, pieces, [&](zor_int piece) {
    for (zor_int k = cut(count, 1, pieces, piece); k < cut(count, 1, pieces, piece + 1); ++k) body(k);
  });
}

zor_int failures(const zor_int* info, zor_int count) {
  return zor_int(std::count_if(info, info + count, [](zor_int failed) { return failed != 0; }));
}

// The arguments of a factorisation, and of a solve behind them; `matrices` is 1 for a single one.
template <class T>
struct batch {
  char uplo;
  zor_int n;
  T* a;
  zor_int lda, stride, count;

  // A count that is bad leaves operands in use: they stand before it.
  bool used() const { return n != 0 && count != 0; }
  T* matrix(zor_int k) const { return a + k * stride; }
};

template <class T>
struct right_sides {
  zor_int nrhs;
  T* b;
  zor_int ldb, stride;
};

template <class T>
value_arguments& look_at(value_arguments& arguments, const batch<T>& m) {
  arguments.letter("uplo", m.uplo, 'U', 'L', 'L').count("n", m.n);
  return arguments.columns("a", m.a, "lda", m.lda, m.n, m.used() ? m.n : 0);
}
template <class T>
value_arguments& look_at(value_arguments& arguments, const batch<const T>& m, const right_sides<T>& r) {
  arguments.letter("uplo", m.uplo, 'U', 'L', 'L').count("n", m.n).count("nrhs", r.nrhs);
  return arguments.columns("a", m.a, "lda", m.lda, m.n, m.used() && r.nrhs != 0 ? m.n : 0);
}

// ---- Cholesky.

template <class T>
bool bad_factor(const char* routine, const batch<T>& m, bool many, const zor_int* info) {
  value_arguments arguments;
  look_at(arguments, m);
  if (many)
    arguments.stride<T>("stride", m.stride, m.n, m.n, m.lda, m.count)
        .count("count", m.count)
        .array("info", info, m.count > 0);
  return arguments.reported(routine);
}

template <class T>
zor_int potrf(const char* routine, const batch<T>& m) {
  if (bad_factor(routine, m, false, nullptr)) return ZOR_LAPACK_ARGUMENT;
  return factor_cholesky(m.uplo, m.n, m.a, m.lda);
}
template <class T>
zor_int potrf_batch(const char* routine, const batch<T>& m, zor_int* info) {
  if (bad_factor(routine, m, true, info)) return ZOR_LAPACK_ARGUMENT;
  for_matrices(saturating_product(m.n, m.n), m.count,
               [&](zor_int k) { info[k] = factor_cholesky(m.uplo, m.n, m.matrix(k), m.lda); });
  return failures(info, m.count);
}

template <class T>
bool bad_solve(const char* routine, const batch<const T>& m, bool pivoted, const zor_int* ipiv,
               const right_sides<T>& r, bool many) {
  value_arguments arguments;
  look_at(arguments, m, r);
  if (many) arguments.stride<T>("stridea", m.stride, m.n, m.n, m.lda, m.count);
  if (pivoted) arguments.array("ipiv", ipiv, m.used() && r.nrhs != 0);
  arguments.columns("b", r.b, "ldb", r.ldb, m.n, m.used() ? r.nrhs : 0);
  if (many)
    arguments.stride<T>("strideb", r.stride, m.n, r.nrhs, r.ldb, m.count)
        .count("count", m.count)
        .next("info", true);
  return arguments.reported(routine);
}

// Calls body(k) for the matrices that were factored.
template <class T, class Body>
zor_int for_factored(const batch<const T>& m, const right_sides<T>& r, const zor_int* info,
                     const Body& body) {
  if (!m.used() || r.nrhs == 0) return ZOR_LAPACK_OK;
  for_matrices(saturating_product(m.n, m.n + r.nrhs), m.count, [&](zor_int k) {
    if (info == nullptr || info[k] == 0) body(k);
  });
  return info == nullptr ? 0 : failures(info, m.count);
}

template <class T>
zor_int potrs(const char* routine, const batch<const T>& m, const right_sides<T>& r, bool many,
              const zor_int* info) {
  if (bad_solve(routine, m, false, nullptr, r, many)) return ZOR_LAPACK_ARGUMENT;
  return for_factored(m, r, info, [&](zor_int k) {
    solve_cholesky(m.uplo, m.n, r.nrhs, m.matrix(k), m.lda, r.b + k * r.stride, r.ldb);
  });
}

// ---- Bunch-Kaufman.

template <class T>
zor_int factor_symmetric(const batch<T>& m, zor_int k, zor_int* ipiv) {
  zor_int info = 0;
  (is_letter(&m.uplo, 'U') ? small_kernels<T>::sytrf_u : small_kernels<T>::sytrf_l)(
      &m.uplo, &m.n, m.matrix(k), &m.lda, ipiv + k * m.n, &info);
  return info;
}

template <class T>
zor_int sytrf(const char* routine, const batch<T>& m, zor_int* ipiv) {
  value_arguments arguments;
  if (look_at(arguments, m).array("ipiv", ipiv, m.n > 0).reported(routine)) return ZOR_LAPACK_ARGUMENT;
  return m.n < 1 ? 0 : factor_symmetric(m, 0, ipiv);
}
template <class T>
zor_int sytrf_batch(const char* routine, const batch<T>& m, zor_int* ipiv, zor_int* info) {
  value_arguments arguments;
  look_at(arguments, m);
  arguments.stride<T>("stride", m.stride, m.n, m.n, m.lda, m.count)
      .array("ipiv", ipiv, m.used())
      .count("count", m.count)
      .array("info", info, m.count > 0);
  if (arguments.reported(routine)) return ZOR_LAPACK_ARGUMENT;
  for_matrices(saturating_product(m.n, m.n), m.count,
               [&](zor_int k) { info[k] = m.n < 1 ? 0 : factor_symmetric(m, k, ipiv); });
  return failures(info, m.count);
}

// One right-hand side. Steps of the factorisation go `towards` the end at which it finished; "beyond" a row
// lie the rows that were eliminated after it.
template <bool Upper, class T>
struct symmetric_solve {
  static constexpr zor_int towards = Upper ? -1 : 1;
  zor_int n;
  const T* a;
  zor_int lda;
  const zor_int* ipiv;
  T* b;

  T at(zor_int i, zor_int j) const { return a[i + j * lda]; }
  zor_int first(zor_int i) const { return Upper ? 0 : i + 1; }
  zor_int end(zor_int i) const { return Upper ? i : n; }
  bool inside(zor_int k) const { return k >= 0 && k < n; }

  void eliminate(zor_int k, zor_int from) const {
    for (zor_int i = first(from); i < end(from); ++i) b[i] -= at(i, k) * b[k];
  }
  void substitute(zor_int k, zor_int from) const {
    T sum = 0;
    for (zor_int i = first(from); i < end(from); ++i) sum += at(i, k) * b[i];
    b[k] -= sum;
  }
  void divide_by_block(zor_int k, zor_int l) const {
    const T between = at(l, k), dk = at(k, k) / between, dl = at(l, l) / between;
    const T bk = b[k] / between, bl = b[l] / between, determinant = dk * dl - 1;
    b[k] = (dl * bk - bl) / determinant;
    b[l] = (dk * bl - bk) / determinant;
  }
  void run() const {
    zor_int k = Upper ? n - 1 : 0;
    while (inside(k)) {
      const zor_int l = ipiv[k] > 0 ? k : k + towards;
      std::swap(b[l], b[(ipiv[k] > 0 ? ipiv[k] : -ipiv[k]) - 1]);
      eliminate(k, l);
      if (l != k) eliminate(l, l);
      if (l != k)
        divide_by_block(k, l);
      else
        b[k] /= at(k, k);
      k = l + towards;
    }
    for (k -= towards; inside(k);) {
      // Of a block of two, k is the row eliminated last.
      const zor_int outer = ipiv[k] > 0 ? k : k - towards;
      substitute(k, k);
      if (outer != k) substitute(outer, k);
      std::swap(b[k], b[(ipiv[k] > 0 ? ipiv[k] : -ipiv[k]) - 1]);
      k = outer - towards;
    }
  }
};

template <class T>
zor_int sytrs(const char* routine, const batch<const T>& m, const zor_int* ipiv, const right_sides<T>& r,
              bool many, const zor_int* info) {
  if (bad_solve(routine, m, true, ipiv, r, many)) return ZOR_LAPACK_ARGUMENT;
  return for_factored(m, r, info, [&](zor_int k) {
    for (zor_int column = 0; column < r.nrhs; ++column) {
      T* const b = r.b + k * r.stride + column * r.ldb;
      if (is_letter(&m.uplo, 'U'))
        symmetric_solve<true, T>{m.n, m.matrix(k), m.lda, ipiv + k * m.n, b}.run();
      else
        symmetric_solve<false, T>{m.n, m.matrix(k), m.lda, ipiv + k * m.n, b}.run();
    }
  });
}

}  // namespace
}  // namespace zor_core

#define ROW_VALUE_POTRF(name, T) \
  extern "C" SIG_VALUE_POTRF(name, T) { return zor_core::potrf<T>(#name, {uplo, n, a, lda, 0, 1}); }
#define ROW_VALUE_POTRS(name, T)                                                                  \
  extern "C" SIG_VALUE_POTRS(name, T) {                                                           \
    return zor_core::potrs<T>(#name, {uplo, n, a, lda, 0, 1}, {nrhs, b, ldb, 0}, false, nullptr); \
  }
#define ROW_POTRF_BATCH(name, T)                                                    \
  extern "C" SIG_POTRF_BATCH(name, T) {                                             \
    return zor_core::potrf_batch<T>(#name, {uplo, n, a, lda, stride, count}, info); \
  }
#define ROW_POTRS_BATCH(name, T)                                                                       \
  extern "C" SIG_POTRS_BATCH(name, T) {                                                                \
    return zor_core::potrs<T>(#name, {uplo, n, a, lda, stridea, count}, {nrhs, b, ldb, strideb}, true, \
                              info);                                                                   \
  }
#define ROW_VALUE_SYTRF(name, T) \
  extern "C" SIG_VALUE_SYTRF(name, T) { return zor_core::sytrf<T>(#name, {uplo, n, a, lda, 0, 1}, ipiv); }
#define ROW_VALUE_SYTRS(name, T)                                                                        \
  extern "C" SIG_VALUE_SYTRS(name, T) {                                                                 \
    return zor_core::sytrs<T>(#name, {uplo, n, a, lda, 0, 1}, ipiv, {nrhs, b, ldb, 0}, false, nullptr); \
  }
#define ROW_SYTRF_BATCH(name, T)                                                          \
  extern "C" SIG_SYTRF_BATCH(name, T) {                                                   \
    return zor_core::sytrf_batch<T>(#name, {uplo, n, a, lda, stride, count}, ipiv, info); \
  }
#define ROW_SYTRS_BATCH(name, T)                                                                             \
  extern "C" SIG_SYTRS_BATCH(name, T) {                                                                      \
    return zor_core::sytrs<T>(#name, {uplo, n, a, lda, stridea, count}, ipiv, {nrhs, b, ldb, strideb}, true, \
                              info);                                                                         \
  }
#include "zor/tables/core_lapack.inc"
