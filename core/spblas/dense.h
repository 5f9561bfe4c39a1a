// SPDX-License-Identifier: MIT
// The dense operands of sparse calls: their scaling, right-hand sides divided over threads, and the base of
// indices that the kernels expect for a layout.
#pragma once

#include <cstring>

#include "core/blas/arguments.h"
#include "core/spblas/arguments.h"
#include "core/spblas/kernels.h"
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

// Cuts n right-hand sides for threads: body(first, last, piece).
inline zor_int grain_of(int32_t layout) {
  return layout == ZOR_SPARSE_ROW_MAJOR ? sparse_thresholds::row_major_grain : 1;
}
inline zor_int pieces_of_right_hand_sides(int32_t threads, int32_t layout, zor_int n) {
  return std::clamp<zor_int>(n / grain_of(layout), 1, threads);
}
template <class Body>
void for_right_hand_sides(int32_t threads, int32_t layout, zor_int n, const Body& body) {
  const zor_int grain = grain_of(layout), pieces = pieces_of_right_hand_sides(threads, layout, n);
  for_each_piece(threads, pieces, [&](zor_int piece) {
    body(cut(n, grain, pieces, piece), cut(n, grain, pieces, piece + 1), piece);
  });
}

// The right-hand side as a solve wants it, in x. Kernels of a stored diagonal view in compressed rows apply
// alpha themselves.
template <class T>
void prepare(const sparse_matrix& a, T alpha, zor_int n, const T* b, T* x) {
  if (n > 0 && b != x) std::memcpy(static_cast<void*>(x), b, size_t(n) * sizeof(T));
  if (a.structure == 't' || a.identity() || a.format != ZOR_SPARSE_CSR) scale(alpha, n, x);
}

// Parts with an output each, a whole y long, to which add(part, output) adds; y := beta y + the outputs.
template <class T, class I, class Add>
void add_and_merge(const sparse_matrix& a, int32_t threads, zor_int outputs, T beta, T* work, T* y,
                   const Add& add) {
  for_each_piece(threads, a.parts, [&](zor_int part) {
    T* const own = work + part * outputs;
    std::memset(static_cast<void*>(own), 0, size_t(outputs) * sizeof(T));
    add(part, own);
  });
  const zor_int pieces = std::clamp<zor_int>(outputs / sparse_thresholds::merge_grain, 1, threads);
  for_each_piece(threads, pieces, [&](zor_int piece) {
    const zor_int first = cut(outputs, 1, pieces, piece), last = cut(outputs, 1, pieces, piece + 1);
    scale(beta, last - first, y + first);
    const I from = I(first + 1), to = I(last), parts = I(a.parts), stride = I(outputs);
    merge_of<T, I>(&from, &to, &parts, &stride, work, y);
  });
}

// Stored indices in the wanted base: the array itself, or a copy. The kernels of many right-hand sides take
// row-major operands with 0-based indices and column-major ones with 1-based.
template <class I>
struct indices_in_base {
  indices_in_base(const void* indices, zor_int count, int32_t from, int32_t to)
      : copy(from == to ? 0 : count) {
    const I* const given = static_cast<const I*>(indices);
    data = from == to ? given : copy.data;
    short_of_memory = data == nullptr && count > 0;
    for (zor_int k = 0; copy.data != nullptr && k < count; ++k)
      copy.data[k] = I(uint64_t(given[k]) + uint64_t(to) - uint64_t(from));
  }
  zor::scratch<I> copy;
  const I* data;
  bool short_of_memory;
};

// Some right-hand sides of an operand in columns of their own.
template <class T>
struct column_stage {
  T* columns;
  zor_int apart, rows, length;
  int32_t layout;

  // Elements from first element to first element of neighbouring columns: an odd number of cache lines, so
  // that columns of any length fall on different places in the cache.
  static zor_int distance(zor_int length) { return ((length + 7) / 8 | 1) * 8; }
  // Calls body(element of the operand, element of the stage).
  template <class U, class Body>
  void each(U* operand, zor_int ld, zor_int first, zor_int last, const Body& body) const {
    constexpr zor_int most = sparse_thresholds::staged_columns;
    const zor_int count = last - first;
    if (layout == ZOR_SPARSE_COLUMN_MAJOR) {
      for (zor_int j = 0; j < count; ++j)
        for (zor_int i = 0; i < rows; ++i) body(operand[i + (first + j) * ld], columns[i + j * apart]);
    } else if (count == most) {
      for (zor_int i = 0; i < rows; ++i)
        for (zor_int j = 0; j < most; ++j) body(operand[i * ld + first + j], columns[i + j * apart]);
    } else {
      for (zor_int i = 0; i < rows; ++i)
        for (zor_int j = 0; j < count; ++j) body(operand[i * ld + first + j], columns[i + j * apart]);
    }
  }
  void take(const T* operand, zor_int ld, zor_int first, zor_int last) const {
    each(operand, ld, first, last, [](const T& from, T& to) { to = from; });
    for (zor_int j = 0; j < last - first; ++j)
      std::memset(static_cast<void*>(columns + j * apart + rows), 0, size_t(length - rows) * sizeof(T));
  }
  void clear(zor_int count) const {
    std::memset(static_cast<void*>(columns), 0, size_t(count * apart) * sizeof(T));
  }
  void put(T* operand, zor_int ld, zor_int first, zor_int last) const {
    each(operand, ld, first, last, [](T& to, const T& from) { to = from; });
  }
};

}  // namespace zor_core
