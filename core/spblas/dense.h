// SPDX-License-Identifier: MIT
// The dense side of sparse calls: scaling, right-hand sides over threads, indices in the base of a layout.
#pragma once

#include <cstring>
#include <limits>

#include "core/blas/arguments.h"
#include "core/spblas/matrix.h"
#include "core/threads.h"
#include "serv/scratch.h"
#include "zor/blas.h"
#include "zor/serv.h"

namespace zor_core {

// x := alpha x; 0 writes zeros and reads nothing.
template <class T>
void scale(T alpha, zor_int n, T* x) {
  constexpr zor_int step = 1;
  if (n < 1) return;
  if (is_zero(alpha)) {
    std::memset(static_cast<void*>(x), 0, size_t(n) * sizeof(T));
    return;
  }
#define ROW_SCAL(name, U, A) \
  if constexpr (std::is_same_v<T, U> && std::is_same_v<T, A>) name(&n, &alpha, x, &step);
#include "zor/tables/blas_vector.inc"
}

inline float negated(float x) { return -x; }
inline double negated(double x) { return -x; }
inline zor_c32 negated(zor_c32 x) { return {-x.re, -x.im}; }
inline zor_c64 negated(zor_c64 x) { return {-x.re, -x.im}; }

// Runs of a dense operand of m rows and n right-hand sides: body(offset, length) for each.
template <class Body>
void for_lines(int32_t layout, zor_int m, zor_int n, const Body& body) {
  const bool row_major = layout == ZOR_SPARSE_ROW_MAJOR;
  for (zor_int line = 0; line < (row_major ? m : n); ++line) body(line, row_major ? n : m);
}

template <class T>
void scale_lines(int32_t layout, T alpha, zor_int m, zor_int n, T* c, zor_int ldc) {
  for_lines(layout, m, n, [&](zor_int line, zor_int length) { scale(alpha, length, c + line * ldc); });
}

// Entries that a thread is worth.
constexpr zor_int least_for_threads = 1 << 15;

inline int32_t threads_for(const sparse_matrix& a, zor_int right_hand_sides) {
  return saturating_product(a.used, right_hand_sides) < least_for_threads ? 1 : usable_threads();
}

// Cuts n right-hand sides for threads: body(first, last). Row-major ones share cache lines, so they go eight
// at a time.
template <class Body>
void for_right_hand_sides(int32_t threads, int32_t layout, zor_int n, const Body& body) {
  const zor_int grain = layout == ZOR_SPARSE_ROW_MAJOR ? 8 : 1;
  const zor_int pieces = std::clamp<zor_int>(n / grain, 1, threads);
  for_each_piece(threads, pieces, [&](zor_int piece) {
    body(cut(n, grain, pieces, piece), cut(n, grain, pieces, piece + 1));
  });
}

template <class I>
int32_t bad_columns(int32_t layout, zor_int n) {
  if (layout != ZOR_SPARSE_ROW_MAJOR && layout != ZOR_SPARSE_COLUMN_MAJOR)
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "layout: %d is no value of it", layout);
  if (n < 0 || n > std::numeric_limits<I>::max())
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "n: %lld is not in 0 to %lld", (long long)n,
                          (long long)std::numeric_limits<I>::max());
  return ZOR_SPARSE_OK;
}

// The column indices in the wanted base: the matrix's own array, or a copy. The kernels of many right-hand
// sides tie the layout to the base.
template <class I>
struct indices_of_base {
  indices_of_base(const sparse_matrix& a, int32_t base) : copy(a.base == base ? 0 : a.used) {
    const I* const given = static_cast<const I*>(a.indx);
    data = a.base == base ? given : copy.data;
    if (copy.data == nullptr) return;
    for (zor_int k = 0; k < a.used; ++k)
      copy.data[k] = I(uint64_t(given[k]) + uint64_t(base) - uint64_t(a.base));
  }
  bool short_of_memory(const sparse_matrix& a) const { return data == nullptr && a.used > 0; }
  zor::scratch<I> copy;
  const I* data;
};

}  // namespace zor_core
