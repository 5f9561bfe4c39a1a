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
  a.magic = sparse_magic;
  a.wide = sizeof(I) == 8;
  if (const int32_t status = read_description(a, *d)) return status;
  void* const place = zor_serv_zor_malloc(sizeof a, 64);
  if (place == nullptr) return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the record is short");
  const int32_t status = check<I>(a);
  if (status == ZOR_SPARSE_OK)
    *handle = new (place) sparse_matrix(a);
  else
    zor_serv_zor_free(place);
  return status;
}

}  // namespace
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

int32_t zor_sparse_free(zor_sparse* a) {
  if (const int32_t status = bad_handle(a == nullptr ? nullptr : *a)) return status;
  (*a)->magic = 0;
  zor_serv_zor_free((*a)->own_pointers);
  zor_serv_zor_free(*a);
  *a = nullptr;
  return ZOR_SPARSE_OK;
}

}  // extern "C"
