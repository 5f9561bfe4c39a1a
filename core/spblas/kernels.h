// SPDX-License-Identifier: MIT
// The kernel for op(A), from the tables of names.
#pragma once

#include <cstddef>

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

// The kinds of kernels that the grammar names.
#define ZOR_KERNEL_KINDS(kind)                                                                            \
  kind(csr_mvout_par) kind(csr_mvout_seq) kind(csr_mmout_par) kind(csr_mmout_seq) kind(csr_svout_seq)     \
      kind(csr_smout_par) kind(coo_mvout_par) kind(coo_mvout_seq) kind(coo_mmout_par) kind(coo_smout_par) \
          kind(dia_mvout_par) kind(dia_mmout_par) kind(dia_smout_par) kind(dia_smout_unit_par)            \
              kind(dia_smout_diag_seq)
#define ZOR_KIND(kind) kind,
enum class kernel_kind : uint8_t { ZOR_KERNEL_KINDS(ZOR_KIND) };
#undef ZOR_KIND

// The kernel of a kind for elements of a type and integers of so many bytes; null when there is none.
using any_kernel = void();
any_kernel* find_kernel(kernel_kind kind, char type, size_t index_bytes, const kernel_name& name);

// find_K<T, I>(name): the kernel of kind K.
#define ZOR_FINDER(kind)                                                  \
  template <class T, class I>                                             \
  zor::kind##_fn<T, I>* find_##kind(const kernel_name& name) {            \
    return reinterpret_cast<zor::kind##_fn<T, I>*>(                       \
        find_kernel(kernel_kind::kind, type_letter<T>, sizeof(I), name)); \
  }
ZOR_KERNEL_KINDS(ZOR_FINDER)
#undef ZOR_FINDER

// A kind of kernels with one for each pair of types, and the row of one: of<T, I> is the kernel.
#define ZOR_ONE_KERNEL(of)    \
  template <class T, class I> \
  inline constexpr std::nullptr_t of = nullptr;
#define ZOR_ONE(of, name, T, I) \
  template <>                   \
  inline constexpr auto of<T, I> = &name;

// The merges of private results, as they are and packed as a triangle.
ZOR_ONE_KERNEL(merge_of)
ZOR_ONE_KERNEL(packed_merge_of)
#define ROW_MERGE(...) ZOR_ONE(merge_of, __VA_ARGS__)
#define ROW_MERGE_SYM(...) ZOR_ONE(packed_merge_of, __VA_ARGS__)
#include "zor/tables/spblas_service.inc"

}  // namespace zor_core
