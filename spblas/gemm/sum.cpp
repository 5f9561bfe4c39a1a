// SPDX-License-Identifier: MIT
// C := A + beta B and C := A + beta B^T. Each row of C is the merge of two sorted rows.
#include "spblas/gemm/three_arrays.h"
#include "spblas/panel.h"
#include "spblas/result_scratch.h"
#include "spblas/transpose.h"
#include "zor/signatures/spblas_matrix.h"

namespace zor::sparse {
namespace {

// Rows of the same columns.
template <class T>
void added_copy(const T* a, T beta, const T* b, zor_int count, T* c) {
  for_packs<T>(
      0, count, [&]<int N>(zor_int k) __attribute__((always_inline)) {
        store<T, N>(c + k, load<T, N>(a + k) + mul<T>(spread<T, N>(&beta), load<T, N>(b + k)));
      });
}

template <class I>
bool same_columns(const I* ja, zor_int na, const I* jb, zor_int nb) {
  return na == nb && na > 0 && ja[0] == jb[0] && ja[na - 1] == jb[na - 1] &&
         std::memcmp(ja, jb, size_t(na) * sizeof(I)) == 0;
}

// Entries of the merged row.
template <class I>
zor_int merged_count(const I* ja, zor_int na, const I* jb, zor_int nb) {
  if (same_columns(ja, na, jb, nb)) return na;
  const I *const end_a = ja + na, *const end_b = jb + nb;
  zor_int count = na + nb;
  while (ja != end_a && jb != end_b) {
    const I ca = *ja, cb = *jb;
    if (ca == cb)
      --count, ++ja, ++jb;
    else if (ca < cb)
      ++ja;
    else
      ++jb;
  }
  return count;
}

// The merged row. Returns its entries. Pointers that move on by themselves take two thirds of the time of
// three indices into the rows.
template <class T, class I>
zor_int merge_rows(const matrix_row<T, I>& a, T beta, const matrix_row<T, I>& b, I* jc, T* c) {
  if (same_columns(a.columns, a.count, b.columns, b.count)) {
    std::memcpy(jc, a.columns, size_t(a.count) * sizeof(I));
    added_copy(a.values, beta, b.values, a.count, c);
    return a.count;
  }
  const sparse::factor<T> scale(load<T, 1>(&beta));
  const I *ja = a.columns, *jb = b.columns;
  const I *const end_a = ja + a.count, *const end_b = jb + b.count;
  const T *va = a.values, *vb = b.values;
  const I* const start = jc;
  while (ja != end_a && jb != end_b) {
    const I ca = *ja, cb = *jb;
    if (ca == cb) {
      *jc++ = ca;
      store<T, 1>(c++, load<T, 1>(va++) + scale.template times<false>(vb++));
      ++ja, ++jb;
    } else if (ca < cb) {
      *jc++ = ca;
      *c++ = *va++;
      ++ja;
    } else {
      *jc++ = cb;
      store<T, 1>(c++, scale.template times<false>(vb++));
      ++jb;
    }
  }
  for (; ja != end_a; ++ja) {
    *jc++ = *ja;
    *c++ = *va++;
  }
  for (; jb != end_b; ++jb) {
    *jc++ = *jb;
    store<T, 1>(c++, scale.template times<false>(vb++));
  }
  return jc - start;
}

template <class T, class I>
struct sum_result {
  request wanted;
  T* c;
  I *jc, *ic;
  zor_int nzmax;
};

// Row r of C; false when it has no room.
template <class T, class I>
bool sum_row(const sum_result<T, I>& to, zor_int r, const matrix_row<T, I>& a, T beta,
             const matrix_row<T, I>& b) {
  const zor_int start = zor_int(to.ic[r]) - 1;
  if (to.wanted == request::counts) {
    to.ic[r + 1] = I(start + 1 + merged_count(a.columns, a.count, b.columns, b.count));
    return true;
  }
  const bool checked = to.wanted == request::all;
  // Only a row that may not fit is counted first.
  if (checked && a.count + b.count > to.nzmax - start &&
      merged_count(a.columns, a.count, b.columns, b.count) > to.nzmax - start)
    return false;
  const zor_int count = merge_rows(a, beta, b, to.jc + start, to.c + start);
  if (checked) to.ic[r + 1] = I(start + 1 + count);
  return true;
}

template <class T, class I>
I sum(zor_int first, zor_int last, I sort, T* a, I* ja, const I* ia, T beta, T* b, I* jb, const I* ib,
      const sum_result<T, I>& to) {
  if (first == 0 && to.wanted != request::values) to.ic[0] = 1;
  for (zor_int r = first; r < last; ++r) {
    const matrix_row<T, I> row_a = row_of(ia, ja, a, r), row_b = row_of(ib, jb, b, r);
    if (sort == 1 || sort == 3) sort_row(row_a);
    if (sort == 2 || sort == 3) sort_row(row_b);
    if (!sum_row(to, r, row_a, beta, row_b)) return I(r + 1);
  }
  return 0;
}

template <class T, class I>
I sum_transposed(zor_int m, zor_int n, I sort, T* a, I* ja, const I* ia, T beta, T* b, I* jb, const I* ib,
                 const sum_result<T, I>& to) {
  if (m < 1) return 0;
  if (sort == 2 || sort == 3)
    for (zor_int r = 0; r < n; ++r) sort_row(row_of(ib, jb, b, r));
  const zor_int before = n < 1 ? 0 : zor_int(ib[0]) - 1, entries = n < 1 ? 0 : zor_int(ib[n]) - 1 - before;
  const result_scratch<I> starts(m + 1), rows(entries);
  const result_scratch<T> values(to.wanted == request::counts ? 0 : entries);
  if (starts.data == nullptr || rows.data == nullptr || values.data == nullptr) return -1;
  const bool with_values = to.wanted != request::counts;
  transpose<T, I>({n < 1 ? 0 : n, m, ib, jb + before, with_values ? b + before : nullptr, 1, 1},
                  {starts.data, rows.data, with_values ? values.data : nullptr, 1});
  return sum<T, I>(0, m,
                   sort == 3   ? 1
                   : sort == 2 ? 0
                               : sort,
                   a, ja, ia, beta, values.data, rows.data, starts.data, to);
}

}  // namespace
}  // namespace zor::sparse

#define ROW_CSR_SUM(name, T, I)                                                             \
  extern "C" SIG_CSR_SUM(name, T, I) {                                                      \
    *info = zor::sparse::sum<T, I>(*first - 1, *last, *sort, a, ja, ia, *beta, b, jb, ib,   \
                                   {zor::sparse::request_of(*request), c, jc, ic, *nzmax}); \
  }
#define ROW_CSR_SUM_TR(name, T, I)                                                                     \
  extern "C" SIG_CSR_SUM_TR(name, T, I) {                                                              \
    *info = zor::sparse::sum_transposed<T, I>(*m, *n, *sort, a, ja, ia, *beta, b, jb, ib,              \
                                              {zor::sparse::request_of(*request), c, jc, ic, *nzmax}); \
  }
#include "zor/tables/spblas_gemm.inc"
