// SPDX-License-Identifier: MIT
// Matrices are created, checked again and freed.
#include <new>

#include "core/spblas/arguments.h"
#include "zor/serv.h"

namespace zor_core {
namespace {

template <class I>
int32_t check(sparse_matrix& a) {
  a.checked = false;
  a.unsolvable = zor_sparse_matrix::none;
  a.used = 0;
  a.parts = 1;
  a.alternating = true;
  a.first[1] = a.rows;
  if (!a.identity()) {
    if (a.format != ZOR_SPARSE_CSR)
      if (const int32_t status = expand<I>(a)) return status;
    if (const int32_t status = check_csr<I>(a)) return status;
    cut_into_parts<I>(a);
  }
  a.checked = true;
  return ZOR_SPARSE_OK;
}

template <class I, class Description>
int32_t create(zor_sparse* handle, const Description* d) {
  if (handle == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "a is null");
  *handle = nullptr;
  if (d == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "description is null");
  sparse_matrix a{};
  a.wide = sizeof(I) == 8;
  if (const int32_t status = read_description(a, *d)) return status;
  return make_handle<I>(a, handle);
}

// The description of a matrix, with the arrays that it was given or that the call which made it has filled.
template <class I, class Description>
int32_t describe(zor_sparse a, Description* d) {
  if (const int32_t status = bad_handle(a)) return status;
  if (d == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "description is null");
  if (a->wide != (sizeof(I) == 8))
    return sparse_failure(ZOR_SPARSE_BAD_HANDLE, "a: its indices have %d bits, the call takes %d",
                          a->wide ? 64 : 32, int(8 * sizeof(I)));
  const auto letter = [](char c) { return c == '_' ? 0 : int32_t(c); };
  *d = {.format = a->format,
        .type = a->type,
        .base = a->base,
        .structure = a->structure,
        .triangle = letter(a->triangle),
        .diagonal = letter(a->diagonal),
        .rows = I(a->rows),
        .cols = I(a->cols),
        .nnz = I(a->nnz),
        .val = a->given_val,
        .indx = static_cast<const I*>(a->given_indx),
        .pntrb = static_cast<const I*>(a->given_pntrb),
        .pntre = static_cast<const I*>(a->given_pntre),
        .rowind = static_cast<const I*>(a->given_rowind),
        .lb = I(a->lb),
        .lval = I(a->lval)};
  return ZOR_SPARSE_OK;
}

}  // namespace

template <class I>
int32_t make_handle(sparse_matrix& a, zor_sparse* handle) {
  a.magic = sparse_magic;
  void* const place = zor_serv_zor_malloc(sizeof a, 64);
  const int32_t status =
      place == nullptr ? sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the record is short") : check<I>(a);
  if (status == ZOR_SPARSE_OK) {
    *handle = new (place) sparse_matrix(a);
    return status;
  }
  a.expanded.release();
  a.own.release();
  zor_serv_zor_free(place);
  return status;
}
template int32_t make_handle<int32_t>(sparse_matrix&, zor_sparse*);
template int32_t make_handle<int64_t>(sparse_matrix&, zor_sparse*);

}  // namespace zor_core

using namespace zor_core;

extern "C" {

int32_t zor_sparse_create(zor_sparse* a, const zor_sparse_desc* description) {
  return create<int64_t>(a, description);
}

int32_t zor_sparse_create_lp64(zor_sparse* a, const zor_sparse_desc_lp64* description) {
  return create<int32_t>(a, description);
}

int32_t zor_sparse_check(zor_sparse a) {
  if (const int32_t status = bad_handle(a)) return status;
  return a->wide ? check<int64_t>(*a) : check<int32_t>(*a);
}

int32_t zor_sparse_describe(zor_sparse a, zor_sparse_desc* description) {
  return describe<int64_t>(a, description);
}

int32_t zor_sparse_describe_lp64(zor_sparse a, zor_sparse_desc_lp64* description) {
  return describe<int32_t>(a, description);
}

int32_t zor_sparse_free(zor_sparse* a) {
  if (const int32_t status = bad_handle(a == nullptr ? nullptr : *a)) return status;
  (*a)->magic = 0;
  (*a)->expanded.release();
  (*a)->own.release();
  zor_serv_zor_free((*a)->own_pointers);
  zor_serv_zor_free(*a);
  *a = nullptr;
  return ZOR_SPARSE_OK;
}

}  // extern "C"
