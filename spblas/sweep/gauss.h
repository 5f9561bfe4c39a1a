// SPDX-License-Identifier: MIT
// Block triangular sweeps, in place. Order of sums: a matrix by block rows takes t = 0, adds a(i, j) y[j] for
// each block in its order and each column j of it, and ends with y[i] - t[i]; one by block columns subtracts
// each a(i, j) y[j] from y[i] at once. The triangle of a diagonal block takes s = 0, adds a(i, j) y[j] for
// ascending j, and ends with (y[i] - s) / a(i, i).
//
// Rows of a block, or right-hand sides that are neighbours, are spread over lanes.
#pragma once

#include "spblas/sweep/block_matrix.h"

namespace zor::sparse {

struct sweep_kind {
  bool upper, with_diagonal, by_block_columns;
};

// The sweep for nrhs right-hand sides; by rows, and more than one, they have stride ldy.
template <class T, class I, bool ByRows>
void sweep_blocks(const block_matrix<T, I, ByRows>& a, const sweep_kind& kind, zor_int nrhs, T* y,
                  zor_int ldy);

#define ZOR_BLOCK_SWEEPS(T)          \
  ZOR_BLOCK_SWEEP(T, int32_t, true)  \
  ZOR_BLOCK_SWEEP(T, int32_t, false) \
  ZOR_BLOCK_SWEEP(T, int64_t, true)  \
  ZOR_BLOCK_SWEEP(T, int64_t, false)
#define ZOR_BLOCK_SWEEP(T, I, by_rows)                                                     \
  template void zor::sparse::sweep_blocks(const zor::sparse::block_matrix<T, I, by_rows>&, \
                                          const zor::sparse::sweep_kind&, zor_int, T*, zor_int);

}  // namespace zor::sparse
