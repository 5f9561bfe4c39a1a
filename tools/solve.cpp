// SPDX-License-Identifier: MIT
// Iterative solves of real matrices: conjugate gradients for symmetric positive definite ones, BiCGSTAB and
// GMRES for others, plain or with one symmetric Gauss-Seidel sweep.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <limits>
#include <optional>
#include <stdexcept>

#include "bench/report.h"
#include "tools/closing_lines.h"
#include "tools/commands.h"
#include "tools/digest.h"
#include "tools/krylov.h"
#include "tools/operand.h"
#include "tools/output_file.h"
#include "tools/plot.h"
#include "tools/sparse_result.h"
#include "zor/core.h"

namespace zor_tools {
namespace {

// The lower triangle of a general file whose entries are those of a symmetric matrix.
template <class I>
csr<double, I> lower_half(const std::string& file, const csr<double, I>& a) {
  csr<double, I> lower{a.rows, a.cols, {}, {}, {1}};
  for (size_t r = 0; r < size_t(a.rows); ++r) {
    for (size_t k = size_t(a.pntr[r]) - 1; k < size_t(a.pntr[r + 1]) - 1; ++k) {
      const size_t c = size_t(a.indx[k]) - 1;
      const auto begin = a.indx.begin() + (a.pntr[c] - 1), end = a.indx.begin() + (a.pntr[c + 1] - 1);
      const auto mirror = std::lower_bound(begin, end, I(r + 1));
      const double value = mirror == end || *mirror != I(r + 1) ? 0 : a.val[size_t(mirror - a.indx.begin())];
      if (value != a.val[k])
        throw input_error(
            file, fmt::format("not symmetric: row {}, column {} holds {}, row {}, column {} holds {}; try "
                              "--method gmres",
                              r + 1, c + 1, a.val[k], c + 1, r + 1, value));
      if (c > r) continue;
      lower.val.push_back(a.val[k]);
      lower.indx.push_back(a.indx[k]);
    }
    lower.pntr.push_back(I(lower.val.size() + 1));
  }
  return lower;
}

template <class I>
csr<double, I> lower_triangle(const mm_matrix& a) {
  if (a.field == mm_field::complex || a.symmetry == mm_symmetry::skew)
    throw input_error(a.file, 1, "conjugate gradients need a real symmetric matrix; try --method gmres");
  if (a.rows != a.cols)
    throw input_error(a.file, a.size_line, fmt::format("{} by {} is not square", a.rows, a.cols));
  csr<double, I> stored = csr_of<double, I>(a);
  return a.symmetry == mm_symmetry::general ? lower_half(a.file, stored) : stored;
}

[[noreturn]] void not_positive(const std::string& file, const std::string& why) {
  throw std::runtime_error(fmt::format("{}: not positive definite: {}; try --method gmres", file, why));
}

template <class I>
void expect_positive_diagonal(const std::string& file, const csr<double, I>& lower) {
  for (size_t r = 0; r < size_t(lower.rows); ++r) {
    const size_t last = size_t(lower.pntr[r + 1]) - 1;  // one behind the row's last entry
    const bool there = lower.pntr[r] != lower.pntr[r + 1] && lower.indx[last - 1] == I(r + 1);
    const double diagonal = there ? lower.val[last - 1] : 0;
    if (!(diagonal > 0)) not_positive(file, fmt::format("the diagonal of row {} is {}", r + 1, diagonal));
  }
}

void times(const sparse_view& a, const double* x, double* y) {
  expect_sparse_done(zor_sparse_dmv(a.get(), ZOR_SPARSE_PLAIN, 1, x, 0, y));
}

// z := M^-1 r with M = (D + L) D^-1 (D + L)^T.
struct gauss_seidel {
  template <class I>
  explicit gauss_seidel(const csr<double, I>& lower)
      : n(lower.rows), triangle(lower, ZOR_SPARSE_TRIANGULAR), diagonal(allocate<double>(n)) {
    for (zor_int i = 0; i < n; ++i) diagonal[size_t(i)] = lower.val[size_t(lower.pntr[size_t(i + 1)]) - 2];
  }

  void apply(const double* r, double* z) const {
    expect_sparse_done(zor_sparse_dsv(triangle.get(), ZOR_SPARSE_PLAIN, 1, r, z));
    for (zor_int i = 0; i < n; ++i) z[i] *= diagonal[size_t(i)];
    expect_sparse_done(zor_sparse_dsv(triangle.get(), ZOR_SPARSE_TRANSPOSE, 1, z, z));
  }

  zor_int n;
  sparse_view triangle;
  operand<double> diagonal;
};

// The power of two of the largest element. Scaled by it, b has squares that neither overflow nor vanish, and
// bits are those of the unscaled run where that stays in range.
int exponent_of(zor_int n, const double* b) {
  double largest = 0;
  for (zor_int i = 0; i < n; ++i) largest = std::max(largest, std::abs(b[i]));
  return largest > 0 && std::isfinite(largest) ? std::ilogb(largest) : 0;
}
void scale_by(zor_int n, int exponent, double* x) {
  for (zor_int i = 0; i < n; ++i) x[i] = std::ldexp(x[i], exponent);
}

// Solves A x = b from x = 0 until the residual is at most the tolerance. False when it is not after `most`
// iterations.
bool conjugate_gradients(const std::string& file, zor_int n, const sparse_view& a, const gauss_seidel* m,
                         const double* b, double* x, double tolerance, int64_t most, const observer& tell) {
  const operand<double> r = allocate<double>(n), z = allocate<double>(n), p = allocate<double>(n),
                        q = allocate<double>(n);
  std::fill_n(x, n, 0.0);
  std::copy_n(b, n, r.get());
  const double size = norm(n, b);
  if (!std::isfinite(size)) throw std::runtime_error("the norm of the right-hand side is not finite");
  tell(0, size == 0 ? 0 : 1);
  if (size == 0) return true;
  double rho = 0;
  for (int64_t iteration = 1; iteration <= most; ++iteration) {
    if (m != nullptr) m->apply(r.get(), z.get());
    const double* const direction = m != nullptr ? z.get() : r.get();
    const double previous = rho;
    rho = dot(n, r.get(), direction);
    const double beta = iteration == 1 ? 0 : rho / previous;
    for (zor_int i = 0; i < n; ++i)
      p[size_t(i)] = iteration == 1 ? direction[i] : direction[i] + beta * p[size_t(i)];
    times(a, p.get(), q.get());
    const double curvature = dot(n, p.get(), q.get());
    if (curvature <= 0)
      not_positive(file, fmt::format("p'Ap / p'p is {:.3g} in iteration {}",
                                     curvature / dot(n, p.get(), p.get()), iteration));
    axpy(n, rho / curvature, p.get(), x);
    axpy(n, -rho / curvature, q.get(), r.get());
    const double residual = norm(n, r.get()) / size;
    tell(iteration, residual);
    if (!std::isfinite(residual))
      throw std::runtime_error(
          fmt::format("{}: the residual of iteration {} is not finite", file, iteration));
    if (residual <= tolerance) return true;
  }
  return false;
}

double true_residual(zor_int n, const sparse_view& a, const double* x, const double* b) {
  const operand<double> r = allocate<double>(n);
  times(a, x, r.get());
  for (zor_int i = 0; i < n; ++i) r[size_t(i)] = b[i] - r[size_t(i)];
  const double size = norm(n, b);
  return size == 0 ? 0 : norm(n, r.get()) / size;
}

using history = std::vector<double>;

void draw(const std::vector<history>& all, log_plot& plot) {
  const auto text = std::back_inserter(plot.text());
  for (size_t j = 0; j < all.size(); ++j) fmt::format_to(text, "{} '-' with lines", j == 0 ? "plot" : ",");
  for (const history& h : all) {
    plot.text() += &h == &all[0] ? "\n" : "e\n";
    for (size_t i = 0; i < h.size(); ++i) fmt::format_to(text, "{} {}\n", i, std::max(h[i], 1e-300));
  }
  plot.text() += "e\n";
  plot.draw();
}

// Lines of the table, and on a terminal how far the logarithm of the residual has come.
observer report_to(history& residuals, const solve_options& options) {
  const double goal = std::clamp(options.tolerance, 1e-300, 0.999);
  return [&residuals, &options, goal](int64_t iteration, double residual) {
    residuals.push_back(residual);
    zor_bench::clear_progress();
    if (iteration % options.every == 0)
      fmt::print("iteration   {:>6}  residual {:.6e}\n", iteration, residual);
    const double done = std::log(std::max(residual, goal)) / std::log(goal);
    zor_bench::show_progress(size_t(std::max(0.0, std::min(100 * done, 100.0))), 100,
                             fmt::format("% at iteration {}", iteration));
  };
}

// What a method works on: the matrix as it multiplies, how one right-hand side is solved, and what is told.
struct prepared_system {
  zor_int n;
  int64_t entries;  // of the whole matrix
  const sparse_view* matrix;
  std::string kind, method;
  double flops_of_iteration;
  std::function<bool(const double* b, double* x, int64_t most, const observer& tell)> run;
};

void solve_columns(const mm_matrix& a, const mm_matrix* b, const prepared_system& system,
                   const solve_options& options, output_file* output, log_plot* plot) {
  const zor_int n = system.n, columns = b != nullptr ? b->cols : 1;
  const operand<double> rhs = b != nullptr ? dense<double>(*b) : allocate<double>(n),
                        x = allocate<double>(n * columns);
  if (b == nullptr) {
    std::fill_n(x.get(), n, 1.0);
    times(*system.matrix, x.get(), rhs.get());
  }
  const int64_t most = options.iterations > 0 ? options.iterations : 2 * n + 100;
  fmt::print("A           {} by {}, {} entries, {}\n", n, n, system.entries, system.kind);
  fmt::print("b           {}, {} column{}\n", b != nullptr ? b->file : "A times ones", columns,
             columns == 1 ? "" : "s");
  fmt::print("method      {}\n", system.method);

  std::vector<history> residuals(static_cast<size_t>(columns));
  double seconds = 0, worst = 0;
  int64_t iterations = 0;
  for (zor_int j = 0; j < columns; ++j) {
    if (columns > 1) fmt::print("column      {:>6}\n", j + 1);
    history& own = residuals[size_t(j)];
    double *const b_j = rhs.get() + j * n, *const x_j = x.get() + j * n;
    const auto finite = [](double v) { return std::isfinite(v); };
    if (b != nullptr && !std::all_of(b_j, b_j + n, finite)) {
      std::fill_n(x_j, n, std::numeric_limits<double>::quiet_NaN());
      fmt::print("not finite  right-hand side {}: its solution is nan\n", j + 1);
      continue;
    }
    const int exponent = exponent_of(n, b_j);
    scale_by(n, -exponent, b_j);
    const auto start = std::chrono::steady_clock::now();
    const bool solved = system.run(b_j, x_j, most, report_to(own, options));
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    zor_bench::clear_progress();
    if (!solved)
      throw std::runtime_error(fmt::format("{}: no convergence: the residual after iteration {} is {:.3g}",
                                           a.file, most, own.back()));
    iterations += int64_t(own.size()) - 1;
    worst = std::max(worst, true_residual(n, *system.matrix, x_j, b_j));
    scale_by(n, exponent, x_j);
    if (!std::all_of(x_j, x_j + n, finite))
      throw std::runtime_error(fmt::format("{}: the solution is beyond double precision", a.file));
    fmt::print("converged   {:>6}  residual {:.6e}\n", own.size() - 1, own.back());
  }
  if (output != nullptr) output->commit(mm_array_text(n, columns, x.get()));
  digest sum;
  sum.add(x.get(), size_t(n * columns));
  fmt::print("check       |b - A x| / |b| is {:.3e}\n", worst);
  if (b == nullptr) {
    double error = 0;
    for (zor_int i = 0; i < n; ++i) error = std::max(error, std::abs(x[size_t(i)] - 1));
    fmt::print("error       largest |x - 1| is {:.3e}\n", error);
  }
  print_time(seconds, double(iterations) * system.flops_of_iteration);
  print_digest(sum);
  if (plot != nullptr) draw(residuals, *plot);
}

template <class I>
void solve_symmetric(const mm_matrix& a, const mm_matrix* b, const solve_options& options,
                     output_file* output, log_plot* plot) {
  if (options.preconditioner == "block-gauss-seidel")
    throw std::invalid_argument("--preconditioner: block-gauss-seidel goes with bicgstab and gmres");
  const csr<double, I> lower = lower_triangle<I>(a);
  const zor_int n = lower.rows;
  expect_positive_diagonal(a.file, lower);
  const sparse_view matrix(lower, ZOR_SPARSE_SYMMETRIC);
  std::optional<gauss_seidel> preconditioner;
  if (options.preconditioner == "gauss-seidel") preconditioner.emplace(lower);
  const int64_t whole = 2 * int64_t(lower.val.size()) - n;
  const double sweep = preconditioner ? 2.0 * double(whole + n) : 0;
  const auto run = [&](const double* b_j, double* x, int64_t most, const observer& tell) {
    return conjugate_gradients(a.file, n, matrix, preconditioner ? &*preconditioner : nullptr, b_j, x,
                               options.tolerance, most, tell);
  };
  solve_columns(a, b,
                {n, whole, &matrix, symmetry_name(mm_symmetry::symmetric),
                 fmt::format("conjugate gradients{}", preconditioner ? ", symmetric Gauss-Seidel" : ""),
                 2.0 * double(whole) + sweep + 12.0 * double(n), run},
                options, output, plot);
}

template <class I>
void solve_general(const mm_matrix& a, const mm_matrix* b, const solve_options& options, output_file* output,
                   log_plot* plot) {
  if (a.field == mm_field::complex)
    throw input_error(a.file, 1, "the matrix is complex; a real one is wanted");
  if (a.rows != a.cols)
    throw input_error(a.file, a.size_line, fmt::format("{} by {} is not square", a.rows, a.cols));
  const csr<double, I> stored = csr_of<double, I>(whole_matrix(a));
  const sparse_view matrix(stored, ZOR_SPARSE_GENERAL);
  const zor_int n = stored.rows;
  sparse_made blocks;
  linear_system system{a.file, n,       [&](const double* x, double* y) { times(matrix, x, y); },
                       {},     nullptr, options.tolerance,
                       0,      {}};
  const bool by_blocks = options.preconditioner == "block-gauss-seidel";
  if (by_blocks)
    expect_sparse_done(zor_sparse_convert(blocks.place(), matrix.get(), ZOR_SPARSE_BSR, options.block));
  if (options.preconditioner != "none")
    system.precondition = [&](const double* x, double* y) {
      std::fill_n(y, n, 0.0);
      expect_sparse_done(zor_sparse_dgauss(by_blocks ? blocks.get() : matrix.get(), 's', x, y));
    };
  const auto run = [&](const double* b_j, double* x, int64_t most, const observer& tell) {
    system.b = b_j;
    system.most = most;
    system.tell = tell;
    return options.method == "gmres" ? gmres(system, options.restart, x) : bicgstab(system, x);
  };
  const double entries = double(stored.val.size()), sweeps = system.precondition ? 8 * entries : 0;
  const bool restarted = options.method == "gmres";
  const double vectors = restarted ? 2.0 * double(std::min<int64_t>(options.restart, n)) : 20.0;
  solve_columns(a, b,
                {n, int64_t(stored.val.size()), &matrix, symmetry_name(a.symmetry),
                 fmt::format("{}{}", restarted ? "gmres" : "bicgstab",
                             by_blocks ? fmt::format(", Gauss-Seidel by blocks of {}", options.block)
                             : system.precondition ? ", symmetric Gauss-Seidel"
                                                   : ""),
                 (restarted ? 1 : 2) * (2 * entries + sweeps) + vectors * double(n), run},
                options, output, plot);
}

}  // namespace

int solve(const solve_options& options) {
  zor_core_set_num_threads(options.threads);
  const mm_matrix a = mm_read(options.a);
  std::optional<mm_matrix> b;
  if (!options.b.empty()) {
    b = mm_read(options.b);
    if (b->field == mm_field::complex) throw input_error(b->file, 1, "the right-hand side is complex");
    if (b->cols == 0) throw input_error(b->file, b->size_line, "no right-hand side");
    if (b->rows != a.rows)
      throw input_error(b->file, b->size_line,
                        fmt::format("{} rows do not fit the {} rows of {}", b->rows, a.rows, a.file));
  }
  std::optional<output_file> output;
  if (!options.output.empty()) output.emplace(options.output);
  std::optional<log_plot> plot;
  if (!options.plot.empty()) plot.emplace(options.plot, "iteration", "relative residual");
  const bool narrow = !options.wide && fits_32_bits(a, INT32_MAX / 2);
  const auto run = options.method == "cg" ? (narrow ? solve_symmetric<int32_t> : solve_symmetric<int64_t>)
                                          : (narrow ? solve_general<int32_t> : solve_general<int64_t>);
  run(a, b ? &*b : nullptr, options, output ? &*output : nullptr, plot ? &*plot : nullptr);
  return 0;
}

}  // namespace zor_tools
