// SPDX-License-Identifier: MIT
// A sparse matrix times a sparse matrix.
#include <fmt/format.h>

#include <chrono>
#include <optional>

#include "tools/closing_lines.h"
#include "tools/commands.h"
#include "tools/digest.h"
#include "tools/operand.h"
#include "tools/sparse_result.h"
#include "zor/core.h"

namespace zor_tools {
namespace {

// Products of two elements that make up C.
template <class T, class I>
double terms(const csr<T, I>& a, const csr<T, I>& b) {
  double count = 0;
  for (const I column : a.indx) count += double(b.pntr[size_t(column)] - b.pntr[size_t(column) - 1]);
  return count;
}

template <class T, class I>
void multiply(mm_matrix a, mm_matrix b, output_file* output) {
  const csr<T, I> left = csr_of<T, I>(std::move(a)), right = csr_of<T, I>(std::move(b));
  const sparse_view view_a(left, ZOR_SPARSE_GENERAL), view_b(right, ZOR_SPARSE_GENERAL);
  sparse_made c;
  const auto start = std::chrono::steady_clock::now();
  expect_sparse_done(zor_sparse_multiply(c.place(), ZOR_SPARSE_PLAIN, view_a.get(), view_b.get()));
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const sparse_description<I> d = description_of<I>(c.get());
  if (output != nullptr) write_coordinates<T, I>(*output, d, mm_symmetry::general);
  // The same for indices of either width.
  digest sum;
  for (I r = 0; r < d.rows; ++r) {
    const int64_t end = d.pntre[r];
    sum.add(&end, 1);
  }
  for (I k = 0; k < d.nnz; ++k) {
    const int64_t column = d.indx[k];
    sum.add(&column, 1);
  }
  sum.add(static_cast<const T*>(d.val), size_t(d.nnz));
  fmt::print("A           {} by {}, {} entries, {}\n", left.rows, left.cols, left.val.size(),
             field_name<T>());
  fmt::print("B           {} by {}, {} entries\n", right.rows, right.cols, right.val.size());
  fmt::print("C           {} by {}, {} entries\n", d.rows, d.cols, d.nnz);
  print_time(seconds, flops_of_term<T> * terms(left, right));
  print_digest(sum);
}

}  // namespace

int spmm(const spmm_options& options) {
  zor_core_set_num_threads(options.threads);
  mm_matrix a = whole_matrix(mm_read(options.a)), b = whole_matrix(mm_read(options.b));
  if (a.cols != b.rows)
    throw input_error(b.file, b.size_line,
                      fmt::format("{} rows do not fit the {} columns of {}", b.rows, a.cols, a.file));
  std::optional<output_file> output;
  if (!options.output.empty()) output.emplace(options.output);
  const bool complex = a.field == mm_field::complex || b.field == mm_field::complex;
  const bool narrow = !options.wide && fits_32_bits(a) && fits_32_bits(b);
  const auto run = complex ? (narrow ? multiply<zor_c64, int32_t> : multiply<zor_c64, int64_t>)
                           : (narrow ? multiply<double, int32_t> : multiply<double, int64_t>);
  run(std::move(a), std::move(b), output ? &*output : nullptr);
  return 0;
}

}  // namespace zor_tools
