// SPDX-License-Identifier: MIT
// A sparse matrix times one or several vectors.
#include <fmt/format.h>

#include <chrono>
#include <optional>

#include "tools/closing_lines.h"
#include "tools/commands.h"
#include "tools/digest.h"
#include "tools/operand.h"
#include "tools/output_file.h"
#include "tools/sparse_file.h"
#include "zor/core.h"

namespace zor_tools {
namespace {

int32_t product(zor_sparse a, zor_int n, const double* x, zor_int ldx, double* y, zor_int ldy) {
  if (n == 1) return zor_sparse_dmv(a, ZOR_SPARSE_PLAIN, 1, x, 0, y);
  return zor_sparse_dmm(a, ZOR_SPARSE_PLAIN, ZOR_SPARSE_COLUMN_MAJOR, n, 1, x, ldx, 0, y, ldy);
}
int32_t product(zor_sparse a, zor_int n, const zor_c64* x, zor_int ldx, zor_c64* y, zor_int ldy) {
  const zor_c64 one = {1, 0}, zero = {0, 0};
  if (n == 1) return zor_sparse_zmv(a, ZOR_SPARSE_PLAIN, one, x, zero, y);
  return zor_sparse_zmm(a, ZOR_SPARSE_PLAIN, ZOR_SPARSE_COLUMN_MAJOR, n, one, x, ldx, zero, y, ldy);
}

// An array file of one column of ones, as long as A has columns.
mm_matrix ones_for(const mm_matrix& a) {
  mm_matrix x{};
  x.file = a.file;
  x.size_line = a.size_line;
  x.rows = a.cols;
  x.cols = 1;
  mm_check_dense_size(x, 3 * sizeof(double));
  x.rowind.resize(size_t(x.rows));
  for (int64_t i = 0; i < x.rows; ++i) x.rowind[size_t(i)] = i;
  x.colind.assign(size_t(x.rows), 0);
  x.re.assign(size_t(x.rows), 1.0);
  return x;
}

template <class T, class I>
void multiply(const mm_matrix& a, const mm_matrix& x, output_file* output) {
  const int64_t m = a.rows, n = x.cols;
  mm_matrix result = a;
  result.cols = n;
  mm_check_dense_size(result, sizeof(T));
  const csr<T, I> stored = csr_of<T, I>(a);
  const sparse_view view(stored, structure_of(a.symmetry));
  const operand<T> right = dense<T>(x), y = allocate<T>(m * n);

  const auto start = std::chrono::steady_clock::now();
  expect_sparse_done(
      product(view.get(), n, right.get(), std::max<int64_t>(x.rows, 1), y.get(), std::max<int64_t>(m, 1)));
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

  digest sum;
  sum.add(y.get(), size_t(m * n));
  if (output != nullptr) output->commit(mm_array_text(m, n, y.get()));
  fmt::print("A           {} by {}, {} entries stored, {}, {}\n", m, a.cols, stored.val.size(),
             field_name<T>(), symmetry_name(a.symmetry));
  fmt::print("x           {} column{}\n", n, n == 1 ? "" : "s");
  print_time(seconds, flops_of_term<T> * double(whole_entries(a)) * double(n));
  print_digest(sum);
}

}  // namespace

int spmv(const spmv_options& options) {
  zor_core_set_num_threads(options.threads);
  const mm_matrix a = mm_read(options.a);
  const mm_matrix x = options.x.empty() ? ones_for(a) : mm_read(options.x);
  if (a.cols != x.rows)
    throw input_error(x.file, x.size_line,
                      fmt::format("{} rows do not fit the {} columns of {}", x.rows, a.cols, a.file));
  std::optional<output_file> output;
  if (!options.output.empty()) output.emplace(options.output);
  const bool complex = a.field == mm_field::complex || x.field == mm_field::complex,
             narrow = !options.wide && fits_32_bits(a);
  const auto run = complex ? (narrow ? multiply<zor_c64, int32_t> : multiply<zor_c64, int64_t>)
                           : (narrow ? multiply<double, int32_t> : multiply<double, int64_t>);
  run(a, x, output ? &*output : nullptr);
  return 0;
}

}  // namespace zor_tools
