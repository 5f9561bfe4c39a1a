// SPDX-License-Identifier: MIT
// The one place where the names of the grammar are looked up: a switch over what a name is made of, so that
// two names for one meaning do not compile.
#include "core/spblas/kernels.h"

namespace zor_core {
namespace {

constexpr uint64_t key(kernel_kind kind, char type, size_t index_bytes, const kernel_name& n) {
  uint64_t k = 0;
  for (const uint64_t part :
       {uint64_t(kind), uint64_t(type), uint64_t(index_bytes), uint64_t(n.base), uint64_t(n.op),
        uint64_t(n.structure), uint64_t(n.triangle), uint64_t(n.diagonal)})
    k = k << 8 | part;
  return k;
}

}  // namespace

#define ZOR_CASE(kind, name, T, I, base, op, structure, triangle, diagonal) \
  case key(kernel_kind::kind, type_letter<T>, sizeof(I),                    \
           {base, #op[0], #structure[0], #triangle[0], #diagonal[0]}):      \
    return reinterpret_cast<any_kernel*>(name);
#define ROW_csr_mvout_par(...) ZOR_CASE(csr_mvout_par, __VA_ARGS__)
#define ROW_csr_mvout_seq(...) ZOR_CASE(csr_mvout_seq, __VA_ARGS__)
#define ROW_csr_mmout_par(...) ZOR_CASE(csr_mmout_par, __VA_ARGS__)
#define ROW_csr_mmout_seq(...) ZOR_CASE(csr_mmout_seq, __VA_ARGS__)
#define ROW_csr_svout_seq(...) ZOR_CASE(csr_svout_seq, __VA_ARGS__)
#define ROW_csr_smout_par(...) ZOR_CASE(csr_smout_par, __VA_ARGS__)
#define ROW_coo_mvout_par(...) ZOR_CASE(coo_mvout_par, __VA_ARGS__)
#define ROW_coo_mvout_seq(...) ZOR_CASE(coo_mvout_seq, __VA_ARGS__)
#define ROW_coo_mmout_par(...) ZOR_CASE(coo_mmout_par, __VA_ARGS__)
#define ROW_coo_smout_par(...) ZOR_CASE(coo_smout_par, __VA_ARGS__)
#define ROW_dia_mvout_par(...) ZOR_CASE(dia_mvout_par, __VA_ARGS__)
#define ROW_dia_mmout_par(...) ZOR_CASE(dia_mmout_par, __VA_ARGS__)
#define ROW_dia_smout_par(...) ZOR_CASE(dia_smout_par, __VA_ARGS__)
#define ROW_dia_smout_unit_par(...) ZOR_CASE(dia_smout_unit_par, __VA_ARGS__)
#define ROW_dia_smout_diag_seq(...) ZOR_CASE(dia_smout_diag_seq, __VA_ARGS__)

any_kernel* find_kernel(kernel_kind kind, char type, size_t index_bytes, const kernel_name& name) {
  switch (key(kind, type, index_bytes, name)) {
#include "zor/tables/spblas_csr.inc"

#include "zor/tables/spblas_coo.inc"

#include "zor/tables/spblas_dia.inc"
    default:
      return nullptr;
  }
}

}  // namespace zor_core
