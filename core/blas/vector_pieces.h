// SPDX-License-Identifier: MIT
// Elementwise routines over vectors, cut over threads.
#pragma once

#include "blas/thresholds.h"
#include "core/blas/arguments.h"
#include "core/threads.h"

namespace zor_core {

// Threads for vectors of n elements of T that may be cut anywhere.
template <class T>
int32_t threads_for(zor_int n) {
  constexpr zor_int least_elements = zor::thresholds::threaded_vector_bytes / zor_int(sizeof(T));
  return n < least_elements ? 1 : usable_threads();
}

// Calls body(first, count) for a piece of 0 to n a thread.
template <class T, class Body>
void over_pieces(int32_t threads, zor_int n, const Body& body) {
  constexpr zor_int grain = zor::thresholds::vector_cut_bytes / zor_int(sizeof(T));
  for_each_piece(threads, threads, [&](zor_int piece) {
    const zor_int first = cut(n, grain, threads, piece);
    body(first, cut(n, grain, threads, piece + 1) - first);
  });
}

}  // namespace zor_core
