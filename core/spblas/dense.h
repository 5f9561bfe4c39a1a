// SPDX-License-Identifier: MIT
// The dense operands of sparse calls: their scaling, right-hand sides divided over threads, and the base of
// indices that the kernels expect for a layout.
#pragma once

#include <cstring>

#include "core/blas/arguments.h"
#include "core/spblas/arguments.h"
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

// The contiguous lines of a dense operand of m rows and n right-hand sides: body(line, length) for each.
template <class Body>
void for_lines(int32_t layout, zor_int m, zor_int n, const Body& body) {
  const bool row_major = layout == ZOR_SPARSE_ROW_MAJOR;
  for (zor_int line = 0; line < (row_major ? m : n); ++line) body(line, row_major ? n : m);
}

template <class T>
void scale_lines(int32_t layout, T alpha, zor_int m, zor_int n, T* c, zor_int ldc) {
  for_lines(layout, m, n, [&](zor_int line, zor_int length) { scale(alpha, length, c + line * ldc); });
}

// Threads for a product or solve with so many right-hand sides.
inline int32_t threads_for(const sparse_matrix& a, zor_int right_hand_sides) {
  const zor_int work = saturating_product(a.used, right_hand_sides);
  return work < sparse_thresholds::least_for_threads ? 1 : usable_threads();
}

// Cuts n right-hand sides for threads: body(first, last).
template <class Body>
void for_right_hand_sides(int32_t threads, int32_t layout, zor_int n, const Body& body) {
  const zor_int grain = layout == ZOR_SPARSE_ROW_MAJOR ? sparse_thresholds::row_major_grain : 1;
  const zor_int pieces = std::clamp<zor_int>(n / grain, 1, threads);
  for_each_piece(threads, pieces, [&](zor_int piece) {
    body(cut(n, grain, pieces, piece), cut(n, grain, pieces, piece + 1));
  });
}

// The column indices in the wanted base: the matrix's own array, or a copy. The kernels of many right-hand
// sides take row-major operands with 0-based indices and column-major ones with 1-based.
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
