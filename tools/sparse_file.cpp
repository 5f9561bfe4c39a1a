// SPDX-License-Identifier: MIT
// Reads entries and compresses them to sorted rows.
#include "tools/sparse_file.h"

#include <algorithm>
#include <stdexcept>
#include <tuple>
#include <type_traits>
#include <utility>

namespace zor_tools {
namespace {

void put(double& x, const mm_matrix& m, size_t e) { x = m.re[e]; }
void put(zor_c64& x, const mm_matrix& m, size_t e) { x = {m.re[e], m.im.empty() ? 0 : m.im[e]}; }
void add(double& x, double y) { x += y; }
void add(zor_c64& x, zor_c64 y) { x = {x.re + y.re, x.im + y.im}; }

// Columns of a row in ascending order, those of one place as they were; places become their sum. `to` is
// where the row goes, at most where it stands.
template <class T, class I>
size_t close_row(csr<T, I>& a, size_t first, size_t last, size_t to, std::vector<std::pair<I, T>>& row) {
  if (!std::is_sorted(a.indx.begin() + ptrdiff_t(first), a.indx.begin() + ptrdiff_t(last))) {
    row.clear();
    for (size_t k = first; k < last; ++k) row.emplace_back(a.indx[k], a.val[k]);
    std::stable_sort(row.begin(), row.end(), [](const auto& x, const auto& y) { return x.first < y.first; });
    for (size_t k = first; k < last; ++k) std::tie(a.indx[k], a.val[k]) = row[k - first];
  }
  const size_t start = to;
  for (size_t k = first; k < last; ++k) {
    if (to > start && a.indx[to - 1] == a.indx[k]) {
      add(a.val[to - 1], a.val[k]);
    } else {
      a.indx[to] = a.indx[k];
      a.val[to++] = a.val[k];
    }
  }
  return to;
}

}  // namespace

// Arrays of the file are freed as soon as those of the result hold what they held, so that the two take at
// most half as much again as the larger one.
template <class T, class I>
csr<T, I> csr_of(mm_matrix m) {
  mm_header pointers = m;
  pointers.cols = 1;
  mm_check_dense_size(pointers, 3 * sizeof(int64_t));
  pointers.rows = m.cols;
  mm_check_dense_size(pointers, 3 * sizeof(int64_t));
  const size_t count = m.re.size(), rows = size_t(m.rows);
  csr<T, I> a{m.rows, m.cols, {}, {}, std::vector<I>(rows + 1)};
  for (size_t e = 0; e < count; ++e) ++a.pntr[size_t(m.rowind[e]) + 1];
  for (size_t r = 1; r <= rows; ++r) a.pntr[r] += a.pntr[r - 1];
  // The place of each entry takes the place of its row.
  for (size_t e = 0; e < count; ++e) m.rowind.set(e, a.pntr[size_t(m.rowind[e])]++);
  a.indx.resize(count);
  for (size_t e = 0; e < count; ++e) a.indx[size_t(m.rowind[e])] = I(m.colind[e] + 1);
  m.colind = {};
  a.val.resize(count);
  for (size_t e = 0; e < count; ++e) put(a.val[size_t(m.rowind[e])], m, e);
  m = {};
  std::vector<std::pair<I, T>> row;
  size_t first = 0, to = 0;
  for (size_t r = 0; r < rows; ++r) {
    const size_t last = size_t(a.pntr[r]);  // the pointers have moved on to the ends of the rows
    a.pntr[r] = I(to + 1);
    to = close_row(a, first, last, to, row);
    first = last;
  }
  a.pntr[rows] = I(to + 1);
  a.indx.resize(to);
  a.val.resize(to);
  return a;
}
template csr<double, int32_t> csr_of(mm_matrix);
template csr<double, int64_t> csr_of(mm_matrix);
template csr<zor_c64, int32_t> csr_of(mm_matrix);
template csr<zor_c64, int64_t> csr_of(mm_matrix);

int64_t whole_entries(const mm_matrix& m) {
  int64_t count = int64_t(m.re.size());
  if (m.symmetry == mm_symmetry::general) return count;
  for (size_t e = 0; e < m.re.size(); ++e) count += m.rowind[e] != m.colind[e];
  return count;
}

const char* symmetry_name(mm_symmetry s) {
  return s == mm_symmetry::general     ? "general"
         : s == mm_symmetry::symmetric ? "symmetric"
         : s == mm_symmetry::skew      ? "skew-symmetric"
                                       : "Hermitian";
}

int32_t structure_of(mm_symmetry s) {
  return s == mm_symmetry::general     ? ZOR_SPARSE_GENERAL
         : s == mm_symmetry::symmetric ? ZOR_SPARSE_SYMMETRIC
         : s == mm_symmetry::skew      ? ZOR_SPARSE_SKEW
                                       : ZOR_SPARSE_HERMITIAN;
}

void expect_sparse_done(int32_t sparse_status) {
  if (sparse_status != ZOR_SPARSE_OK) throw std::runtime_error(zor_sparse_error_text());
}

template <class T, class I>
sparse_view::sparse_view(const csr<T, I>& a, int32_t structure) {
  std::conditional_t<sizeof(I) == 8, zor_sparse_desc, zor_sparse_desc_lp64> d{};
  d.type = std::is_same_v<T, double> ? ZOR_SPARSE_DOUBLE : ZOR_SPARSE_DOUBLE_COMPLEX;
  d.base = 1;
  d.structure = structure;
  d.rows = I(a.rows);
  d.cols = I(a.cols);
  d.nnz = I(a.val.size());
  d.val = a.val.data();
  d.indx = a.indx.data();
  d.pntrb = a.pntr.data();
  if constexpr (sizeof(I) == 8)
    expect_sparse_done(zor_sparse_create(&handle_, &d));
  else
    expect_sparse_done(zor_sparse_create_lp64(&handle_, &d));
}
template sparse_view::sparse_view(const csr<double, int32_t>&, int32_t);
template sparse_view::sparse_view(const csr<double, int64_t>&, int32_t);
template sparse_view::sparse_view(const csr<zor_c64, int32_t>&, int32_t);
template sparse_view::sparse_view(const csr<zor_c64, int64_t>&, int32_t);

}  // namespace zor_tools
