// SPDX-License-Identifier: MIT
// Matrices are created, checked again and freed.
#include <atomic>
#include <new>
#include <utility>

#include "core/spblas/arguments.h"
#include "zor/serv.h"

namespace zor_core {
namespace {

// Frees what belongs to a record, and the record itself where it is a handle's.
void release_arrays(sparse_matrix& a) {
  a.own.release();
  for (void* const array : {a.own_pointers, a.own_blocks})
    if (array != nullptr) zor_serv_zor_free(array);
}
void free_record(zor_sparse a) {
  if (a->rows_form != nullptr) free_record(a->rows_form);
  a->magic = 0;
  release_arrays(*a);
  zor_serv_zor_free(a);
}

template <class I, bool IndicesKnown = false>
int32_t check(sparse_matrix& a) {
  a.checked = false;
  a.unsolvable = zor_sparse_matrix::none;
  a.used = 0;
  a.parts = 1;
  a.alternating = true;
  a.first[1] = a.rows;
  if (a.rows_form != nullptr) free_record(std::exchange(a.rows_form, nullptr));
  if (!a.identity()) {
    const bool rows = a.format == ZOR_SPARSE_CSR;
    const auto check_it = rows ? check_csr<I> : IndicesKnown ? look_at_format<I> : check_format<I>;
    if (const int32_t status = check_it(a)) return status;
    if (rows)
      cut_into_parts<I>(a);
    else if (a.format == ZOR_SPARSE_COO)
      cut_entries_into_parts(a);
  }
  a.checked = true;
  return ZOR_SPARSE_OK;
}

// What the check would find in a result in compressed rows.
template <class I>
int32_t take_as_checked(sparse_matrix& a) {
  a.val = a.given_val, a.indx = a.given_indx, a.pntrb = a.given_pntrb, a.pntre = a.given_pntre;
  a.used = a.nnz;
  a.ascending = true;
  a.unsolvable = zor_sparse_matrix::not_looked_for;
  cut_into_parts<I>(a);
  a.checked = true;
  return ZOR_SPARSE_OK;
}

// A handle of a record that passes the check. On failure its arrays are released.
int32_t place_record(sparse_matrix& a, int32_t (*check)(sparse_matrix&), zor_sparse* handle) {
  a.magic = sparse_magic;
  void* const place = zor_serv_zor_malloc(sizeof a, 64);
  const int32_t status =
      place == nullptr ? sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the record is short") : check(a);
  if (status == ZOR_SPARSE_OK) {
    *handle = new (place) sparse_matrix(a);
    return status;
  }
  release_arrays(a);
  zor_serv_zor_free(place);
  return status;
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
  return place_record(a, check<I, false>, handle);
}
template <class I>
int32_t make_result_handle(sparse_matrix& a, zor_sparse* handle) {
  return place_record(a, a.format == ZOR_SPARSE_CSR ? take_as_checked<I> : check<I, true>, handle);
}
template int32_t make_handle<int32_t>(sparse_matrix&, zor_sparse*);
template int32_t make_handle<int64_t>(sparse_matrix&, zor_sparse*);
template int32_t make_result_handle<int32_t>(sparse_matrix&, zor_sparse*);
template int32_t make_result_handle<int64_t>(sparse_matrix&, zor_sparse*);

// Of several calls that make the form at the same time, the first one to finish keeps its own.
int32_t kept_rows_form(const sparse_matrix& a, const sparse_matrix** form) {
  *form = &a;
  if (a.format == ZOR_SPARSE_CSR || a.identity()) return ZOR_SPARSE_OK;
  const std::atomic_ref<zor_sparse> kept(const_cast<zor_sparse&>(a.rows_form));
  zor_sparse found = kept.load(std::memory_order_acquire), made = nullptr;
  if (found == nullptr) {
    const int32_t status = (a.wide ? make_rows_form<int64_t> : make_rows_form<int32_t>)(a, &made);
    if (status != ZOR_SPARSE_OK) return status;
    if (kept.compare_exchange_strong(found, made, std::memory_order_acq_rel))
      found = made;
    else
      free_record(made);
  }
  *form = found;
  return ZOR_SPARSE_OK;
}

scoped_rows_form::scoped_rows_form(const sparse_matrix& a) : data(&a) {
  if (a.format == ZOR_SPARSE_CSR || a.identity()) return;
  data = std::atomic_ref<zor_sparse>(const_cast<zor_sparse&>(a.rows_form)).load(std::memory_order_acquire);
  if (data != nullptr) return;
  status = (a.wide ? make_rows_form<int64_t> : make_rows_form<int32_t>)(a, &made_);
  data = made_;
}
scoped_rows_form::~scoped_rows_form() {
  if (made_ != nullptr) free_record(made_);
}

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
  free_record(*a);
  *a = nullptr;
  return ZOR_SPARSE_OK;
}

}  // extern "C"
