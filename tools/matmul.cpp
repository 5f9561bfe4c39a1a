// SPDX-License-Identifier: MIT
// zor matmul: the product of two matrices in Matrix Market files.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>

#include "tools/closing_lines.h"
#include "tools/commands.h"
#include "tools/digest.h"
#include "tools/mmio.h"
#include "tools/operand.h"
#include "tools/output_file.h"
#include "zor/blas.h"
#include "zor/core.h"

namespace zor_tools {
namespace {

void gemm(zor_int m, zor_int n, zor_int k, const double* a, const double* b, double* c) {
  const double one = 1, zero = 0;
  const zor_int lda = std::max<zor_int>(m, 1), ldb = std::max<zor_int>(k, 1);
  zor_blas_dgemm("N", "N", &m, &n, &k, &one, a, &lda, b, &ldb, &zero, c, &lda);
}
void gemm(zor_int m, zor_int n, zor_int k, const zor_c64* a, const zor_c64* b, zor_c64* c) {
  const zor_c64 one = {1, 0}, zero = {0, 0};
  const zor_int lda = std::max<zor_int>(m, 1), ldb = std::max<zor_int>(k, 1);
  zor_blas_zgemm("N", "N", &m, &n, &k, &one, a, &lda, b, &ldb, &zero, c, &lda);
}

template <class T>
void multiply(const mm_matrix& a, const mm_matrix& b, output_file* output) {
  const int64_t m = a.rows, n = b.cols, k = a.cols;
  const operand<T> left = dense<T>(a), right = dense<T>(b);
  mm_matrix product = a;
  product.cols = n;
  mm_check_dense_size(product, sizeof(T));
  const operand<T> c = allocate<T>(m * n);

  const auto start = std::chrono::steady_clock::now();
  gemm(m, n, k, left.get(), right.get(), c.get());
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

  const double flops = flops_of_term<T> * double(m) * double(n) * double(k);
  digest sum;
  sum.add(c.get(), size_t(m * n));
  if (output != nullptr) output->commit(mm_array_text(m, n, c.get()));
  fmt::print("C = A B     {} by {}, depth {}, {}\n", m, n, k, field_name<T>());
  print_time(seconds, flops);
  print_digest(sum);
}

}  // namespace

int matmul(const matmul_options& options) {
  zor_core_set_num_threads(options.threads);
  const mm_matrix a = mm_read(options.a);
  const mm_matrix b = mm_read(options.b);
  if (a.cols != b.rows)
    throw input_error(b.file, b.size_line,
                      fmt::format("{} rows do not fit the {} columns of {}", b.rows, a.cols, a.file));
  std::optional<output_file> output;
  if (!options.output.empty()) output.emplace(options.output);
  output_file* const target = output ? &*output : nullptr;
  if (a.field == mm_field::complex || b.field == mm_field::complex)
    multiply<zor_c64>(a, b, target);
  else
    multiply<double>(a, b, target);
  return 0;
}

}  // namespace zor_tools
