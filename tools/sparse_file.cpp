// SPDX-License-Identifier: MIT
#include "tools/sparse_file.h"

#include <numeric>
#include <stdexcept>
#include <type_traits>

namespace zor_tools {
namespace {

// Entry numbers in the order of their keys, those of equal keys as they were.
std::vector<int64_t> sorted_by(const std::vector<int64_t>& key, int64_t keys,
                               const std::vector<int64_t>& entries) {
  std::vector<int64_t> next(size_t(keys) + 1), sorted(entries.size());
  for (const int64_t e : entries) ++next[size_t(key[size_t(e)]) + 1];
  std::partial_sum(next.begin(), next.end(), next.begin());
  for (const int64_t e : entries) sorted[size_t(next[size_t(key[size_t(e)])]++)] = e;
  return sorted;
}

void put(double& x, const mm_matrix& m, size_t e) { x = m.re[e]; }
void put(zor_c64& x, const mm_matrix& m, size_t e) { x = {m.re[e], m.im.empty() ? 0 : m.im[e]}; }
void add(double& x, double y) { x += y; }
void add(zor_c64& x, zor_c64 y) { x = {x.re + y.re, x.im + y.im}; }

}  // namespace

template <class T, class I>
csr<T, I> csr_of(const mm_matrix& m) {
  mm_matrix pointers = m;
  pointers.cols = 1;
  mm_check_dense_size(pointers, 3 * sizeof(int64_t));
  pointers.rows = m.cols;
  mm_check_dense_size(pointers, 3 * sizeof(int64_t));
  std::vector<int64_t> entries(m.re.size());
  std::iota(entries.begin(), entries.end(), 0);
  entries = sorted_by(m.rowind, m.rows, sorted_by(m.colind, m.cols, entries));
  csr<T, I> a{m.rows, m.cols, {}, {}, std::vector<I>(size_t(m.rows) + 1, 1)};
  a.val.reserve(entries.size());
  a.indx.reserve(entries.size());
  int64_t row = -1, col = -1;
  for (const int64_t e : entries) {
    T value;
    put(value, m, size_t(e));
    if (m.rowind[size_t(e)] == row && m.colind[size_t(e)] == col) {
      add(a.val.back(), value);
      continue;
    }
    row = m.rowind[size_t(e)];
    col = m.colind[size_t(e)];
    a.val.push_back(value);
    a.indx.push_back(I(col + 1));
    ++a.pntr[size_t(row) + 1];
  }
  for (size_t r = 1; r < a.pntr.size(); ++r) a.pntr[r] += a.pntr[r - 1] - 1;
  return a;
}
template csr<double, int32_t> csr_of(const mm_matrix&);
template csr<double, int64_t> csr_of(const mm_matrix&);
template csr<zor_c64, int32_t> csr_of(const mm_matrix&);
template csr<zor_c64, int64_t> csr_of(const mm_matrix&);

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
