// SPDX-License-Identifier: MIT
// The check of a matrix in CSR format: row pointers that ascend within nnz, columns that are there, and
// whether the rows of a triangular or diagonal view can be solved with.
#include <algorithm>
#include <atomic>

#include "core/spblas/arguments.h"
#include "serv/scalar.h"
#include "zor/serv.h"

namespace zor_core {
namespace {

// Rows follow one another, do not end before they begin, and end within nnz. `previous` is the end of the row
// before.
template <class I>
int32_t bad_row(const sparse_matrix& a, const I* pntrb, const I* pntre, zor_int r, zor_int previous) {
  const long long row = r + a.base, begin = pntrb[r], end = pntre[r];
  if (r == 0 && begin < 0)
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "pntrb: row %lld begins at %lld, below 0", row, begin);
  zor_int from, to;
  if (__builtin_sub_overflow(zor_int(pntrb[r]), zor_int(pntrb[0]), &from) || from < previous)
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "pntrb: row %lld begins at %lld, inside the rows before it",
                          row, begin);
  if (__builtin_sub_overflow(zor_int(pntre[r]), zor_int(pntrb[0]), &to) || to < from)
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "pntre: row %lld ends at %lld, before its begin %lld", row,
                          end, begin);
  if (to > a.nnz)
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX,
                          "pntre: row %lld ends at %lld, behind the last of %lld entries", row, end,
                          (long long)a.nnz);
  return ZOR_SPARSE_OK;
}

void note_unsolvable(sparse_matrix& a, zor_sparse_matrix::fault what, zor_int row) {
  a.unsolvable = what;
  a.unsolvable_row = row;
}

template <class I>
bool ascends(const I* first, const I* end) {
  bool up = true;
  for (const I* k = first + 1; k < end; ++k) up &= k[-1] < k[0];
  return up;
}

template <class I>
int32_t bad_column(const sparse_matrix& a, const I* first, const I* k, zor_int r) {
  return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "indx: entry %lld of row %lld has column %lld, not %d to %lld",
                        (long long)(k - first + a.base), (long long)(r + a.base), (long long)*k, a.base,
                        (long long)(a.cols - 1 + a.base));
}

// Whether a solve wants an entry on the diagonal.
bool wants_pivots(const sparse_matrix& a) {
  return a.diagonal == 'n' || (a.structure == 'g' && a.rows == a.cols);
}

// What is the matter with the pivot of a row that ascends.
template <class T, class I>
sparse_matrix::fault pivot_fault(const sparse_matrix& a, const csr_arrays<T, I>& m, zor_int r) {
  const I *const first = m.indx + m.begin(r), *const end = m.indx + m.end(r);
  const zor_int diagonal = r + a.base;
  const I* const pivot = std::lower_bound(first, end, diagonal);
  if (pivot == end || zor_int(*pivot) != diagonal) return sparse_matrix::no_pivot;
  return zor::is_zero(m.val[pivot - m.indx]) ? sparse_matrix::zero_pivot : sparse_matrix::none;
}

// Columns lie within the matrix; in a row that ascends the first and the last one tell. What hinders a solve
// is no fault, but the first row of it is kept.
template <class T, class I>
int32_t check_entries(sparse_matrix& a, const csr_arrays<T, I>& m, zor_int r) {
  const I *const first = m.indx + m.begin(r), *const end = m.indx + m.end(r);
  const auto inside = [&](I c) { return uint64_t(c) - uint64_t(a.base) < uint64_t(a.cols); };
  const bool sorted = ascends(first, end);
  if (!sorted || (first < end && !(inside(*first) && inside(end[-1])))) {
    const I* const bad = std::find_if_not(first, end, inside);
    if (bad != end) return bad_column(a, first, bad, r);
  }
  a.ascending = a.ascending && sorted;
  if (a.unsolvable != sparse_matrix::none) return ZOR_SPARSE_OK;
  const auto fault = !sorted           ? sparse_matrix::unsorted
                     : wants_pivots(a) ? pivot_fault(a, m, r)
                                       : sparse_matrix::none;
  if (fault != sparse_matrix::none) note_unsolvable(a, fault, r);
  return ZOR_SPARSE_OK;
}

template <class T, class I>
int32_t check_rows(sparse_matrix& a) {
  const csr_arrays<T, I> m(a);
  for (zor_int r = 0; r < a.rows; ++r) {
    if (const int32_t status = bad_row(a, m.pntrb, m.pntre, r, a.used)) return status;
    if (const int32_t status = check_entries(a, m, r)) return status;
    a.used = m.end(r);
  }
  return ZOR_SPARSE_OK;
}

// The first pivot that a solve with a result cannot take.
template <class T, class I>
sparse_matrix::fault look_for_pivots(const sparse_matrix& a, zor_int& row) {
  const csr_arrays<T, I> m(a);
  for (row = 0; wants_pivots(a) && row < a.rows; ++row)
    if (const auto fault = pivot_fault(a, m, row); fault != sparse_matrix::none) return fault;
  return sparse_matrix::none;
}

// A lower triangle that is solved for many right-hand sides gets row pointers that begin at 0: without
// workspace the kernels take the pointers for positions.
template <class I>
int32_t own_pointers_from_zero(sparse_matrix& a) {
  const csr_arrays<char, I> m(a);
  if (a.rows == 0 || a.structure != 't' || a.triangle != 'l' || m.pntrb[0] == 0) return ZOR_SPARSE_OK;
  if (a.own_pointers == nullptr) a.own_pointers = zor_serv_zor_malloc(2 * uint64_t(a.rows) * sizeof(I), 64);
  if (a.own_pointers == nullptr)
    return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the row pointers is short");
  I* const own = static_cast<I*>(a.own_pointers);
  for (zor_int r = 0; r < a.rows; ++r) {
    own[r] = I(m.begin(r));
    own[a.rows + r] = I(m.end(r));
  }
  a.pntrb = own;
  a.pntre = own + a.rows;
  return ZOR_SPARSE_OK;
}

}  // namespace

template <class I>
int32_t check_csr(sparse_matrix& a) {
  a.val = a.given_val;
  a.indx = a.given_indx;
  a.pntrb = a.given_pntrb;
  a.pntre = a.given_pntre;
  a.ascending = true;
  const auto rows = a.type == 's'   ? check_rows<float, I>
                    : a.type == 'd' ? check_rows<double, I>
                    : a.type == 'c' ? check_rows<zor_c32, I>
                                    : check_rows<zor_c64, I>;
  if (const int32_t status = rows(a)) return status;
  return own_pointers_from_zero<I>(a);
}
template int32_t check_csr<int32_t>(sparse_matrix&);
template int32_t check_csr<int64_t>(sparse_matrix&);

// Calls that look at the same time find the same.
sparse_matrix::fault solve_fault(const sparse_matrix& a) {
  auto& known = const_cast<sparse_matrix&>(a);
  const std::atomic_ref<sparse_matrix::fault> fault(known.unsolvable);
  auto found = fault.load(std::memory_order_acquire);
  if (found != sparse_matrix::not_looked_for) return found;
#define ZOR_LOOK(T) (a.wide ? look_for_pivots<T, int64_t> : look_for_pivots<T, int32_t>)
  const auto look = a.type == 's'   ? ZOR_LOOK(float)
                    : a.type == 'd' ? ZOR_LOOK(double)
                    : a.type == 'c' ? ZOR_LOOK(zor_c32)
                                    : ZOR_LOOK(zor_c64);
#undef ZOR_LOOK
  zor_int row = 0;
  found = look(a, row);
  std::atomic_ref(known.unsolvable_row).store(row, std::memory_order_relaxed);
  fault.store(found, std::memory_order_release);
  return found;
}

}  // namespace zor_core
