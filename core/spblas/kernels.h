// SPDX-License-Identifier: MIT
// The kernel for op(A), from the one table of names.
#pragma once

#include <type_traits>

#include "core/spblas/matrix.h"
#include "zor/signatures/spblas.h"

namespace zor_core {

// The fields of a kernel's name that a call chooses, '_' where the name has no letter.
struct kernel_name {
  int32_t base;
  char op, structure, triangle, diagonal;

  bool operator==(const kernel_name&) const = default;
};

constexpr bool is_transposed(int32_t op) {
  return op == ZOR_SPARSE_TRANSPOSE || op == ZOR_SPARSE_CONJUGATE_TRANSPOSE;
}
template <class T>
inline constexpr bool is_complex = type_letter<T> == 'c' || type_letter<T> == 'z';
template <class T>
constexpr bool is_conjugated(int32_t op) {
  return is_complex<T> && (op == ZOR_SPARSE_CONJUGATE || op == ZOR_SPARSE_CONJUGATE_TRANSPOSE);
}

// Views that are their own transpose, up to conjugation or sign, have kernels for one of the two. For the
// transpose of a skew view the caller negates alpha.
template <class T>
kernel_name name_of(const sparse_matrix& a, int32_t op, int32_t base) {
  const bool transposed = is_transposed(op), conjugated = is_conjugated<T>(op);
  kernel_name k{base, 'n', a.structure, a.triangle, a.diagonal};
  if (a.structure == 'g' || a.structure == 't')
    k.op = transposed ? (conjugated ? 'c' : 't') : (conjugated ? 's' : 'n');
  else if (a.structure == 'h')
    k.op = transposed != conjugated ? 't' : 'n';
  else
    k.op = conjugated && !a.identity() ? 'c' : 'n';
  return k;
}

// find_K<T, I>(name): the kernel of kind K, null when there is none.
#define ZOR_FIND(name, U, J, base, op, structure, triangle, diagonal) \
  if constexpr (std::is_same_v<T, U> && std::is_same_v<I, J>)         \
    if (wanted == kernel_name{base, #op[0], #structure[0], #triangle[0], #diagonal[0]}) return name;

template <class T, class I>
zor::csr_mvout_par_fn<T, I>* find_mvout_par(const kernel_name& wanted) {
#define ROW_csr_mvout_par ZOR_FIND
#include "zor/tables/spblas_csr.inc"
  return nullptr;
}

template <class T, class I>
zor::csr_mvout_seq_fn<T, I>* find_mvout_seq(const kernel_name& wanted) {
#define ROW_csr_mvout_seq ZOR_FIND
#include "zor/tables/spblas_csr.inc"
  return nullptr;
}

template <class T, class I>
zor::csr_mmout_par_fn<T, I>* find_mmout_par(const kernel_name& wanted) {
#define ROW_csr_mmout_par ZOR_FIND
#include "zor/tables/spblas_csr.inc"
  return nullptr;
}

template <class T, class I>
zor::csr_mmout_seq_fn<T, I>* find_mmout_seq(const kernel_name& wanted) {
#define ROW_csr_mmout_seq ZOR_FIND
#include "zor/tables/spblas_csr.inc"
  return nullptr;
}

template <class T, class I>
zor::csr_svout_seq_fn<T, I>* find_svout_seq(const kernel_name& wanted) {
#define ROW_csr_svout_seq ZOR_FIND
#include "zor/tables/spblas_csr.inc"
  return nullptr;
}

template <class T, class I>
zor::csr_smout_par_fn<T, I>* find_smout_par(const kernel_name& wanted) {
#define ROW_csr_smout_par ZOR_FIND
#include "zor/tables/spblas_csr.inc"
  return nullptr;
}

#undef ZOR_FIND

// The merges of private results, as they are and packed as a triangle.
template <class T, class I>
constexpr auto merge_of() {
#define ROW_MERGE(name, U, J) \
  if constexpr (std::is_same_v<T, U> && std::is_same_v<I, J>) return &name;
#include "zor/tables/spblas_service.inc"
}
template <class T, class I>
constexpr auto packed_merge_of() {
#define ROW_MERGE_SYM(name, U, J) \
  if constexpr (std::is_same_v<T, U> && std::is_same_v<I, J>) return &name;
#include "zor/tables/spblas_service.inc"
}

}  // namespace zor_core
