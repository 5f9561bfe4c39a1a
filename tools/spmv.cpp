// SPDX-License-Identifier: MIT
// A sparse matrix times one or several vectors.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>

#include "tools/closing_lines.h"
#include "tools/commands.h"
#include "tools/digest.h"
#include "tools/operand.h"
#include "tools/output_file.h"
#include "tools/sparse_result.h"
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
  for (int64_t i = 0; i < x.rows; ++i) x.rowind.push_back(i), x.colind.push_back(0);
  x.re.assign(size_t(x.rows), 1.0);
  return x;
}

struct format_choice {
  const char* name;
  int64_t block;
};
constexpr format_choice choices[] = {{"csr", 0}, {"coo", 0}, {"dia", 0}, {"bsr", 2},
                                     {"bsr", 3}, {"bsr", 4}, {"bsr", 8}, {"sky", 0}};

template <class T>
struct operands {
  zor_int n, ldx, ldy;
  const T* x;
  T* y;
};

template <class T>
double timed_product(zor_sparse a, const operands<T>& with) {
  const auto start = std::chrono::steady_clock::now();
  expect_sparse_done(product(a, with.n, with.x, with.ldx, with.y, with.ldy));
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The best of several products within a share of a second, after one that warms up.
template <class T>
double best_time(zor_sparse a, const operands<T>& with) {
  double best = timed_product(a, with), spent = 0;
  for (int count = 0; count < 3 || (spent < 0.2 && count < 1000); ++count) {
    const double seconds = timed_product(a, with);
    best = std::min(best, seconds);
    spent += seconds;
  }
  return best;
}

// Times the product in every format that can hold the matrix.
template <class T>
void tune(zor_sparse a, const operands<T>& with) {
  std::string fastest;
  double least = HUGE_VAL;
  for (const format_choice& choice : choices) {
    const std::string options = fmt::format("--format {}{}", choice.name,
                                            choice.block > 0 ? fmt::format(" --block {}", choice.block) : "");
    sparse_made made;
    if (zor_sparse_convert(made.place(), a, format_named(choice.name), choice.block) != ZOR_SPARSE_OK) {
      fmt::print("tune        {:<24} {}\n", options, zor_sparse_error_text());
      continue;
    }
    const double seconds = best_time(made.get(), with);
    fmt::print("tune        {:<24} {:.6f} s\n", options, seconds);
    if (seconds < least) least = seconds, fastest = options;
  }
  fmt::print("fastest     {}\n", fastest);
}

template <class T, class I>
void multiply(mm_matrix a, const mm_matrix& x, const spmv_options& options, output_file* output) {
  const int64_t m = a.rows, n = x.cols, terms = whole_entries(a);
  const mm_symmetry symmetry = a.symmetry;
  mm_header result = a;
  result.cols = n;
  mm_check_dense_size(result, sizeof(T));
  const csr<T, I> stored = csr_of<T, I>(std::move(a));
  const sparse_view view(stored, structure_of(symmetry));
  const operand<T> right = dense<T>(x), y = allocate<T>(m * n);
  const operands<T> with = {n, std::max<int64_t>(x.rows, 1), std::max<int64_t>(m, 1), right.get(), y.get()};

  sparse_made made;
  const bool as_read = options.format == "csr";
  if (!as_read)
    expect_sparse_done(
        zor_sparse_convert(made.place(), view.get(), format_named(options.format), options.block));
  const double seconds = timed_product(as_read ? view.get() : made.get(), with);

  digest sum;
  sum.add(y.get(), size_t(m * n));
  if (output != nullptr) output->commit(mm_array_text(m, n, y.get()));
  fmt::print("A           {} by {}, {} entries stored, {}, {}\n", m, stored.cols, stored.val.size(),
             field_name<T>(), symmetry_name(symmetry));
  fmt::print("x           {} column{}\n", n, n == 1 ? "" : "s");
  if (!as_read) fmt::print("format      {}\n", options.format);
  print_time(seconds, flops_of_term<T> * double(terms) * double(n));
  print_digest(sum);
  if (options.tune) tune(view.get(), with);
}

}  // namespace

int spmv(const spmv_options& options) {
  zor_core_set_num_threads(options.threads);
  mm_matrix a = mm_read(options.a);
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
  run(std::move(a), x, options, output ? &*output : nullptr);
  return 0;
}

}  // namespace zor_tools
