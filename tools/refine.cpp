// SPDX-License-Identifier: MIT
// Systems of equations solved to the last digit, with bounds of the error before and after refinement.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <vector>

#include "tools/closing_lines.h"
#include "tools/commands.h"
#include "tools/digest.h"
#include "tools/operand.h"
#include "tools/output_file.h"
#include "tools/sparse_file.h"
#include "zor/core.h"
#include "zor/lapack.h"

namespace zor_tools {
namespace {

struct system_arguments {
  char kind;
  zor_int n, nrhs;
};
zor_int solve(system_arguments s, const double* a, const double* b, double* x, zor_refinement* reports) {
  return zor_dsolve_refined(s.kind, s.n, s.nrhs, a, s.n, b, s.n, x, s.n, nullptr, reports);
}
zor_int solve(system_arguments s, const zor_c64* a, const zor_c64* b, zor_c64* x, zor_refinement* reports) {
  return zor_zsolve_refined(s.kind, s.n, s.nrhs, a, s.n, b, s.n, x, s.n, nullptr, reports);
}

// Decimal digits that are right when the relative error is no larger.
int digits(double error) { return error > 0 ? std::max(0, int(std::floor(-std::log10(error)))) : 17; }
std::string error_text(const char* how, double error) {
  if (!std::isfinite(error)) return "nothing is known of the error";
  return fmt::format("relative error {} {:.1e}, {} digits", how, error, digits(error));
}

bool may_be_definite(const mm_matrix& a) {
  return a.symmetry == mm_symmetry::hermitian ||
         (a.symmetry == mm_symmetry::symmetric && a.field != mm_field::complex);
}

template <class T>
bool refine_with(const mm_matrix& a, const mm_matrix& b, output_file* output) {
  const zor_int n = a.rows, nrhs = b.cols;
  const operand<T> matrix = dense<T>(a), rhs = dense<T>(b), x = allocate<T>(n * nrhs);
  std::vector<zor_refinement> reports(static_cast<size_t>(nrhs));
  const auto start = std::chrono::steady_clock::now();
  bool definite = may_be_definite(a);
  zor_int failed = -1;
  if (definite) failed = solve({'L', n, nrhs}, matrix.get(), rhs.get(), x.get(), reports.data());
  if (!definite || failed > 0) {
    definite = false;
    failed = solve({'G', n, nrhs}, matrix.get(), rhs.get(), x.get(), reports.data());
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (failed == ZOR_LAPACK_MEMORY) throw std::bad_alloc();
  if (failed > 0) throw std::runtime_error(fmt::format("{}: singular: pivot {} is 0", a.file, failed));

  fmt::print("A           {} by {}, {}, {}\n", n, n, field_name<T>(), symmetry_name(a.symmetry));
  fmt::print("b           {}, {} column{}\n", b.file, nrhs, nrhs == 1 ? "" : "s");
  fmt::print("factors     {}\n", definite ? "L L', positive definite" : "L U, rows interchanged");
  bool all = true;
  for (zor_int k = 0; k < nrhs; ++k) {
    const zor_refinement& r = reports[size_t(k)];
    if (nrhs > 1) fmt::print("column      {}\n", k + 1);
    fmt::print("unrefined   {}\n", error_text("about", r.unrefined_error));
    fmt::print("refined     {}, {} correction{}{}\n", error_text("at most", r.error_bound), r.steps,
               r.steps == 1 ? "" : "s", r.converged ? "" : ", no convergence");
    fmt::print("residual    |b - A x| is at most {:.1e} (|A| |x| + |b|)\n", r.backward_error);
    all = all && r.converged == 1;
  }
  if (output != nullptr) output->commit(mm_array_text(n, nrhs, x.get()));
  digest sum;
  sum.add(x.get(), size_t(n * nrhs));
  print_time(seconds, flops_of_term<T> * double(n) * double(n) * double(n) / (definite ? 6 : 3));
  print_digest(sum);
  return all;
}

}  // namespace

int refine(const refine_options& options) {
  zor_core_set_num_threads(options.threads);
  const mm_matrix a = mm_read(options.a), b = mm_read(options.b);
  if (a.rows != a.cols)
    throw input_error(a.file, a.size_line, fmt::format("{} by {} is not square", a.rows, a.cols));
  if (b.rows != a.rows)
    throw input_error(b.file, b.size_line,
                      fmt::format("{} rows do not fit the {} rows of {}", b.rows, a.rows, a.file));
  if (b.cols == 0) throw input_error(b.file, b.size_line, "no right-hand side");
  std::optional<output_file> output;
  if (!options.output.empty()) output.emplace(options.output);
  output_file* const target = output ? &*output : nullptr;
  const bool is_complex = a.field == mm_field::complex || b.field == mm_field::complex;
  return (is_complex ? refine_with<zor_c64>(a, b, target) : refine_with<double>(a, b, target)) ? 0 : 1;
}

}  // namespace zor_tools
