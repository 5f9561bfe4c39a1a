// SPDX-License-Identifier: MIT
// Tridiagonal solves: threads take right-hand sides, each of which is a chain of operations of its own.
#include <algorithm>

#include "core/heap_array.h"
#include "core/lapack/checks.h"
#include "core/threads.h"
#include "zor/signatures/lapack.h"

namespace zor_core {
namespace {

// Bytes of right-hand sides below which one thread is faster, and columns at multiples of which they are cut:
// the kernels' groups, so that columns are divided or multiplied as in one piece.
constexpr zor_int least_bytes = 1 << 19, grain = 8;

template <class T>
zor_int pieces_for(zor_int n, zor_int nrhs) {
  if (nrhs < 2 * grain || saturating_product(n, nrhs, sizeof(T)) < least_bytes) return 1;
  return std::min<zor_int>(usable_threads(), nrhs / grain);
}

template <class T>
zor_int dttrf(const char* routine, zor::dttrfb_fn<T>* kernel, zor_int n, T* dl, T* d, const T* du) {
  if (value_arguments()
          .count("n", n)
          .array("dl", dl, n > 1)
          .array("d", d, n > 0)
          .array("du", du, n > 1)
          .reported(routine))
    return ZOR_LAPACK_ARGUMENT;
  zor_int info;
  kernel(&n, dl, d, du, &info);
  return info;
}

// The kernel finds the transposed system by the off-diagonals in each other's place.
template <class T>
void solve(zor::dttrsb_fn<T>* kernel, char trans, zor_int n, zor_int nrhs, const T* dl, const T* d,
           const T* du, T* b, zor_int ldb) {
  if (!is_plain(&trans)) std::swap(dl, du);
  const zor_int pieces = pieces_for<T>(n, nrhs);
  for_each_piece(int32_t(pieces), pieces, [&](zor_int piece) {
    const zor_int first = cut(nrhs, grain, pieces, piece),
                  count = cut(nrhs, grain, pieces, piece + 1) - first;
    zor_int info;
    kernel(&trans, &n, &count, dl, d, du, b + first * ldb, &ldb, &info);
  });
}

template <class T>
zor_int dttrs(const char* routine, zor::dttrsb_fn<T>* kernel, char trans, zor_int n, zor_int nrhs,
              const T* dl, const T* d, const T* du, T* b, zor_int ldb) {
  const bool used = n > 0 && nrhs > 0;
  if (value_arguments()
          .letter("trans", trans, 'N', 'T', 'C')
          .count("n", n)
          .count("nrhs", nrhs)
          .array("dl", dl, used && n > 1)
          .array("d", d, used)
          .array("du", du, used && n > 1)
          .columns("b", b, "ldb", ldb, n, nrhs)
          .reported(routine))
    return ZOR_LAPACK_ARGUMENT;
  if (used) solve(kernel, trans, n, nrhs, dl, d, du, b, ldb);
  return ZOR_LAPACK_OK;
}

template <class T>
bool bad_solve(const char* routine, zor_int n, zor_int nrhs, const T* dl, const T* d, const T* du, const T* b,
               zor_int ldb) {
  return value_arguments()
      .count("n", n)
      .count("nrhs", nrhs)
      .array("dl", dl, n > 1)
      .array("d", d, n > 0)
      .array("du", du, n > 1)
      .columns("b", b, "ldb", ldb, n, nrhs)
      .reported(routine);
}

template <class T>
zor_int dtsv(const char* routine, zor::dtsvb_fn<T>* both, zor::dttrfb_fn<T>* factor,
             zor::dttrsb_fn<T>* solution, zor_int n, zor_int nrhs, T* dl, T* d, const T* du, T* b,
             zor_int ldb) {
  if (bad_solve(routine, n, nrhs, dl, d, du, b, ldb)) return ZOR_LAPACK_ARGUMENT;
  zor_int info;
  if (pieces_for<T>(n, nrhs) == 1) {
    both(&n, &nrhs, dl, d, du, b, &ldb, &info);
  } else {
    factor(&n, dl, d, du, &info);
    if (info == 0) solve(solution, 'N', n, nrhs, dl, d, du, b, ldb);
  }
  return info;
}

// Each piece eliminates for its own columns, all but the first in a copy of the matrix.
template <class T>
zor_int gtsv(const char* routine, zor::gtsv_small_fn<T>* kernel, zor_int n, zor_int nrhs, T* dl, T* d, T* du,
             T* b, zor_int ldb) {
  if (bad_solve<T>(routine, n, nrhs, dl, d, du, b, ldb)) return ZOR_LAPACK_ARGUMENT;
  zor_int info = 0, pieces = pieces_for<T>(n, nrhs);
  const heap_array<T> copies(pieces > 1 ? saturating_product(3 * (pieces - 1), n) : 1);
  if (copies.data() == nullptr) pieces = 1;
  T* const own[3] = {dl, d, du};
  const auto array_of = [&](zor_int piece, int which) {
    return piece == 0 ? own[which] : copies.data() + (3 * (piece - 1) + which) * n;
  };
  for (zor_int piece = 1; piece < pieces; ++piece)
    for (int which = 0; which < 3; ++which)
      std::copy_n(own[which], which == 1 ? n : n - 1, array_of(piece, which));
  for_each_piece(int32_t(pieces), pieces, [&](zor_int piece) {
    const zor_int first = cut(nrhs, grain, pieces, piece),
                  count = cut(nrhs, grain, pieces, piece + 1) - first;
    zor_int failed;
    kernel(&n, &count, array_of(piece, 0), array_of(piece, 1), array_of(piece, 2), b + first * ldb, &ldb,
           &failed);
    if (piece == 0) info = failed;
  });
  return info;
}

}  // namespace
}  // namespace zor_core

#define ROW_VALUE_DTTRF(name, T, kernel) \
  extern "C" SIG_VALUE_DTTRF(name, T) { return zor_core::dttrf<T>(#name, kernel, n, dl, d, du); }
#define ROW_VALUE_DTTRS(name, T, kernel)                                         \
  extern "C" SIG_VALUE_DTTRS(name, T) {                                          \
    return zor_core::dttrs<T>(#name, kernel, trans, n, nrhs, dl, d, du, b, ldb); \
  }
#define ROW_VALUE_DTSV(name, T, both, factor, solution)                                  \
  extern "C" SIG_VALUE_DTSV(name, T) {                                                   \
    return zor_core::dtsv<T>(#name, both, factor, solution, n, nrhs, dl, d, du, b, ldb); \
  }
#define ROW_VALUE_GTSV(name, T, kernel) \
  extern "C" SIG_VALUE_GTSV(name, T) { return zor_core::gtsv<T>(#name, kernel, n, nrhs, dl, d, du, b, ldb); }
#include "zor/tables/core_lapack.inc"
