// SPDX-License-Identifier: MIT
// The kernels of coordinates, diagonals, blocks and skyline, from the tables of names, and which products and
// solves they give. Blocks are those by columns, with indices from 1.
#pragma once

#include "core/spblas/format_calls.h"

namespace zor_core {

#define ZOR_FIND(name, U, J, base, op, structure, triangle, diagonal) \
  if constexpr (std::is_same_v<T, U> && std::is_same_v<I, J>)         \
    if (wanted == kernel_name{base, #op[0], #structure[0], #triangle[0], #diagonal[0]}) return name;

template <class T, class I>
zor::coo_mvout_par_fn<T, I>* find_coo_mvout_par(const kernel_name& wanted) {
#define ROW_coo_mvout_par ZOR_FIND
#include "zor/tables/spblas_coo.inc"
  return nullptr;
}
template <class T, class I>
zor::coo_mvout_seq_fn<T, I>* find_coo_mvout_seq(const kernel_name& wanted) {
#define ROW_coo_mvout_seq ZOR_FIND
#include "zor/tables/spblas_coo.inc"
  return nullptr;
}
template <class T, class I>
zor::coo_mmout_par_fn<T, I>* find_coo_mmout_par(const kernel_name& wanted) {
#define ROW_coo_mmout_par ZOR_FIND
#include "zor/tables/spblas_coo.inc"
  return nullptr;
}
template <class T, class I>
zor::coo_smout_par_fn<T, I>* find_coo_smout_par(const kernel_name& wanted) {
#define ROW_coo_smout_par ZOR_FIND
#include "zor/tables/spblas_coo.inc"
  return nullptr;
}
template <class T, class I>
zor::dia_mvout_par_fn<T, I>* find_dia_mvout_par(const kernel_name& wanted) {
#define ROW_dia_mvout_par ZOR_FIND
#include "zor/tables/spblas_dia.inc"
  return nullptr;
}
template <class T, class I>
zor::dia_mmout_par_fn<T, I>* find_dia_mmout_par(const kernel_name& wanted) {
#define ROW_dia_mmout_par ZOR_FIND
#include "zor/tables/spblas_dia.inc"
  return nullptr;
}
template <class T, class I>
zor::dia_smout_par_fn<T, I>* find_dia_smout_par(const kernel_name& wanted) {
#define ROW_dia_smout_par ZOR_FIND
#include "zor/tables/spblas_dia.inc"
  return nullptr;
}
template <class T, class I>
zor::dia_smout_unit_par_fn<T, I>* find_dia_smout_unit_par(const kernel_name& wanted) {
#define ROW_dia_smout_unit_par ZOR_FIND
#include "zor/tables/spblas_dia.inc"
  return nullptr;
}
template <class T, class I>
zor::dia_smout_diag_seq_fn<T, I>* find_dia_smout_diag_seq(const kernel_name& wanted) {
#define ROW_dia_smout_diag_seq ZOR_FIND
#include "zor/tables/spblas_dia.inc"
  return nullptr;
}
#undef ZOR_FIND

// The one kernel of a kind for a pair of types.
#define ZOR_STEM(name, U, J, by_columns) \
  if constexpr (std::is_same_v<T, U> && std::is_same_v<I, J> && by_columns) return &name;
template <class T, class I>
constexpr auto bsr_general_of() {
#define ROW_BSR_GENERAL(name, U, J) ZOR_STEM(name, U, J, true)
#include "zor/tables/spblas_stems.inc"
}
template <class T, class I>
constexpr auto bsr_symmetric_of() {
#define ROW_BSR_SYMMETRIC ZOR_STEM
#include "zor/tables/spblas_stems.inc"
}
template <class T, class I>
constexpr auto bsr_skew_of() {
#define ROW_BSR_SKEW ZOR_STEM
#include "zor/tables/spblas_stems.inc"
}
template <class T, class I>
constexpr auto bsr_triangular_of() {
#define ROW_BSR_TRIANGULAR ZOR_STEM
#include "zor/tables/spblas_stems.inc"
}
template <class T, class I>
constexpr auto bsr_diagonal_of() {
#define ROW_BSR_DIAGONAL ZOR_STEM
#include "zor/tables/spblas_stems.inc"
}
template <class T, class I>
constexpr auto sky_triangular_of() {
#define ROW_SKY_TRIANGULAR(name, U, J) ZOR_STEM(name, U, J, true)
#include "zor/tables/spblas_stems.inc"
}
template <class T, class I>
constexpr auto sky_symmetric_of() {
#define ROW_SKY_SYMMETRIC(name, U, J) ZOR_STEM(name, U, J, true)
#include "zor/tables/spblas_stems.inc"
}
template <class T, class I>
constexpr auto sky_skew_of() {
#define ROW_SKY_SKEW(name, U, J) ZOR_STEM(name, U, J, true)
#include "zor/tables/spblas_stems.inc"
}
template <class T, class I>
constexpr auto sky_solve_of() {
#define ROW_SKY_SOLVE(name, U, J) ZOR_STEM(name, U, J, true)
#include "zor/tables/spblas_stems.inc"
}
#undef ZOR_STEM

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
