// SPDX-License-Identifier: MIT
// The kernels of blocks and skyline, and the names of those of coordinates.
#pragma once

#include "core/spblas/format_calls.h"

namespace zor_core {

ZOR_ONE_KERNEL(bsr_general_of)
ZOR_ONE_KERNEL(bsr_symmetric_of)
ZOR_ONE_KERNEL(bsr_skew_of)
ZOR_ONE_KERNEL(bsr_triangular_of)
ZOR_ONE_KERNEL(bsr_diagonal_of)
ZOR_ONE_KERNEL(sky_triangular_of)
ZOR_ONE_KERNEL(sky_symmetric_of)
ZOR_ONE_KERNEL(sky_skew_of)
ZOR_ONE_KERNEL(sky_solve_of)
// Of blocks those by columns, with indices from 1.
#define ZOR_BLOCKS_1(of, name, T, I) ZOR_ONE(of, name, T, I)
#define ZOR_BLOCKS_0(of, name, T, I)
#define ROW_BSR_GENERAL(name, T, I) ZOR_ONE(bsr_general_of, name, T, I)
#define ROW_BSR_SYMMETRIC(name, T, I, base) ZOR_BLOCKS_##base(bsr_symmetric_of, name, T, I)
#define ROW_BSR_SKEW(name, T, I, base) ZOR_BLOCKS_##base(bsr_skew_of, name, T, I)
#define ROW_BSR_TRIANGULAR(name, T, I, base) ZOR_BLOCKS_##base(bsr_triangular_of, name, T, I)
#define ROW_BSR_DIAGONAL(name, T, I, base) ZOR_BLOCKS_##base(bsr_diagonal_of, name, T, I)
#define ROW_SKY_TRIANGULAR(...) ZOR_ONE(sky_triangular_of, __VA_ARGS__)
#define ROW_SKY_SYMMETRIC(...) ZOR_ONE(sky_symmetric_of, __VA_ARGS__)
#define ROW_SKY_SKEW(...) ZOR_ONE(sky_skew_of, __VA_ARGS__)
#define ROW_SKY_SOLVE(...) ZOR_ONE(sky_solve_of, __VA_ARGS__)
#include "zor/tables/spblas_stems.inc"
#undef ZOR_BLOCKS_0
#undef ZOR_BLOCKS_1

// The name of a kernel of coordinates, which have none for transposes: rows and columns change places, and
// with them the triangle. A Hermitian matrix's conjugate is its transpose.
template <class T>
kernel_name coordinate_name(const sparse_matrix& a, int32_t op, int32_t base, bool& exchanged) {
  const bool transposed = is_transposed(op), conjugated = is_conjugated<T>(op),
             hermitian = a.structure == 'h';
  exchanged = hermitian ? transposed != conjugated : transposed && (a.structure == 'g' || a.structure == 't');
  kernel_name k{base, conjugated && !hermitian ? 's' : 'n', a.structure, a.triangle, a.diagonal};
  if (exchanged && a.triangle != '_') k.triangle = a.triangle == 'l' ? 'u' : 'l';
  return k;
}

}  // namespace zor_core
