// SPDX-License-Identifier: MIT
// Outputs of a routine cut over threads: elements of vectors, rows and columns, columns of a triangle.
#pragma once

#include <algorithm>

#include "blas/thresholds.h"
#include "core/blas/arguments.h"
#include "core/threads.h"

namespace zor_core {

// Calls body(first, count) for pieces of 0 to n - 1, one a thread at most, cut at multiples of `grain`.
template <class Body>
void for_cuts(int32_t threads, zor_int n, zor_int grain, const Body& body) {
  const zor_int pieces = std::clamp<zor_int>(n / grain, 1, threads);
  for_each_piece(threads, pieces, [&](zor_int piece) {
    const zor_int first = cut(n, grain, pieces, piece);
    body(first, cut(n, grain, pieces, piece + 1) - first);
  });
}

// Threads for vectors of n elements of T that may be cut anywhere.
template <class T>
int32_t threads_for(zor_int n) {
  constexpr zor_int least_elements = zor::thresholds::threaded_vector_bytes / zor_int(sizeof(T));
  return n < least_elements ? 1 : usable_threads();
}

// Calls body(first, count) for a piece of 0 to n - 1 a thread.
template <class T, class Body>
void for_vector_pieces(int32_t threads, zor_int n, const Body& body) {
  for_cuts(threads, n, zor::thresholds::vector_cut_bytes / zor_int(sizeof(T)), body);
}

// Threads for a matrix of so many stored rows and columns, from `least` bytes on.
template <class T>
int32_t threads_for_matrix(zor_int rows, zor_int columns,
                           zor_int least = zor::thresholds::threaded_matrix_bytes) {
  return saturating_product(rows, columns, sizeof(T)) < least ? 1 : usable_threads();
}

// The first column of piece `index` of `pieces` of about equal area in a triangle of order n. In integers:
// the caller's exception flags are not this library's to raise.
inline zor_int first_column(bool upper, zor_int n, zor_int pieces, zor_int index) {
  if (!upper) return n - first_column(true, n, pieces, pieces - index);
  const auto area = static_cast<unsigned __int128>(n) * static_cast<unsigned __int128>(n) *
                    static_cast<unsigned __int128>(index) / static_cast<unsigned __int128>(pieces);
  zor_int low = 0, high = n;
  while (low < high) {
    const zor_int middle = low + (high - low) / 2;
    if (static_cast<unsigned __int128>(middle) * static_cast<unsigned __int128>(middle) < area)
      low = middle + 1;
    else
      high = middle;
  }
  return low;
}

// Calls body(j) for the columns of a triangle.
template <class Body>
void over_triangle_columns(int32_t threads, bool upper, zor_int n, const Body& body) {
  for_each_piece(threads, threads, [&](zor_int piece) {
    const zor_int end = first_column(upper, n, threads, piece + 1);
    for (zor_int j = first_column(upper, n, threads, piece); j < end; ++j) body(j);
  });
}

}  // namespace zor_core
