// SPDX-License-Identifier: MIT
// A sparse matrix in another storage format: what the format stores, and the matrix read back from it.
#include <fmt/format.h>

#include <algorithm>
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

// Elements and integers that a description stores.
struct footprint {
  double elements, integers;
};
template <class I>
footprint footprint_of(const sparse_description<I>& d) {
  const double rows = double(d.rows), nnz = double(d.nnz);
  switch (d.format) {
    case ZOR_SPARSE_COO:
      return {nnz, 2 * nnz};
    case ZOR_SPARSE_DIA:
      return {nnz * double(d.lval), nnz};
    case ZOR_SPARSE_BSR:
      return {nnz * double(d.lb) * double(d.lb), nnz + double((d.rows + d.lb - 1) / d.lb + 1)};
    case ZOR_SPARSE_SKY:
      return {nnz, rows + 1};
    default:
      return {nnz, nnz + rows + 1};
  }
}

template <class I>
std::string shape_of(const sparse_description<I>& d) {
  if (d.format == ZOR_SPARSE_DIA) return fmt::format(", {} diagonals", d.nnz);
  if (d.format == ZOR_SPARSE_BSR) return fmt::format(", {} blocks of order {}", d.nnz, d.lb);
  return "";
}

template <class T, class I>
void convert_to(mm_matrix a, const convert_options& options, output_file* output) {
  const mm_symmetry symmetry = a.symmetry;
  const csr<T, I> stored = csr_of<T, I>(std::move(a));
  const sparse_view view(stored, structure_of(symmetry));
  sparse_made made, back;
  const auto start = std::chrono::steady_clock::now();
  expect_sparse_done(
      zor_sparse_convert(made.place(), view.get(), format_named(options.format), options.block));
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const sparse_description<I> d = description_of<I>(made.get());
  const footprint of = footprint_of<I>(d);
  expect_sparse_done(zor_sparse_convert(back.place(), made.get(), ZOR_SPARSE_CSR, 0));
  const sparse_description<I> entries = description_of<I>(back.get());
  if (output != nullptr) write_coordinates<T, I>(*output, entries, symmetry);
  digest sum;
  sum.add(static_cast<const T*>(d.val), size_t(of.elements));
  fmt::print("A           {} by {}, {} entries stored, {}, {}\n", stored.rows, stored.cols, stored.val.size(),
             field_name<T>(), symmetry_name(symmetry));
  fmt::print("format      {}{}, {:.0f} elements, {:.3f} for each entry\n", options.format, shape_of<I>(d),
             of.elements, of.elements / double(std::max<size_t>(stored.val.size(), 1)));
  fmt::print("memory      {:.3f} MB, {} bits an index\n",
             (of.elements * double(sizeof(T)) + of.integers * double(sizeof(I))) * 1e-6, 8 * sizeof(I));
  fmt::print("time        {:.6f} s\n", seconds);
  print_digest(sum);
}

}  // namespace

int convert(const convert_options& options) {
  zor_core_set_num_threads(options.threads);
  mm_matrix a = mm_read(options.a);
  std::optional<output_file> output;
  if (!options.output.empty()) output.emplace(options.output);
  const bool complex = a.field == mm_field::complex, narrow = !options.wide && fits_32_bits(a);
  const auto run = complex ? (narrow ? convert_to<zor_c64, int32_t> : convert_to<zor_c64, int64_t>)
                           : (narrow ? convert_to<double, int32_t> : convert_to<double, int64_t>);
  run(std::move(a), options, output ? &*output : nullptr);
  return 0;
}

}  // namespace zor_tools
