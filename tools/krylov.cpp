// SPDX-License-Identifier: MIT
// Iterations of BiCGSTAB and GMRES with their stops and diagnoses.
#include "tools/krylov.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "zor/blas.h"

namespace zor_tools {
namespace {

constexpr zor_int step = 1;

// Below this part of the product of the norms a dot product is nothing but rounding.
constexpr double breakdown = 1e-30;
// A cycle of gmres that leaves more than this part of the residual makes no progress; so many in a row end
// it.
constexpr double least_progress = 0.999;
constexpr int idle_cycles = 3;

[[noreturn]] void give_up(const linear_system& s, int64_t iteration, const char* why, const char* hint = "") {
  throw std::runtime_error(fmt::format("{}: {} in iteration {}{}", s.file, why, iteration, hint));
}
constexpr const char* other_method = "; try --method gmres";

// M^-1 x, or x.
void precondition(const linear_system& s, const double* x, double* y) {
  if (s.precondition)
    s.precondition(x, y);
  else
    std::copy_n(x, s.n, y);
}

double size_of(const linear_system& s) {
  const double size = norm(s.n, s.b);
  if (!std::isfinite(size)) throw std::runtime_error("the norm of the right-hand side is not finite");
  return size;
}

void expect_finite(const linear_system& s, int64_t iteration, double residual) {
  if (!std::isfinite(residual)) give_up(s, iteration, "the residual is not finite");
}

using vector = std::vector<double>;

// One cycle of gmres: an orthonormal basis, and the triangle to which rotations bring its Hessenberg matrix.
class gmres_cycle {
 public:
  gmres_cycle(const linear_system& s, int64_t most)
      : s_(s), basis_(size_t(most + 1), vector(size_t(s.n))), z_(size_t(s.n)) {}

  // Starts from the residual r.
  void start(const vector& r, double size) {
    for (zor_int i = 0; i < s_.n; ++i) basis_[0][size_t(i)] = r[size_t(i)] / size;
    right_.assign(1, size);
    columns_.clear();
    rotations_.clear();
  }
  // Takes one direction more. Returns the norm of the residual.
  double advance() {
    const size_t j = columns_.size();
    vector& next = basis_[j + 1];
    precondition(s_, basis_[j].data(), z_.data());
    s_.times(z_.data(), next.data());
    vector column;
    for (size_t i = 0; i <= j; ++i) {
      column.push_back(dot(s_.n, basis_[i].data(), next.data()));
      axpy(s_.n, -column[i], basis_[i].data(), next.data());
    }
    const double left = norm(s_.n, next.data());
    for (double& e : next) e = left > 0 ? e / left : 0;
    for (size_t i = 0; i < j; ++i) rotate(rotations_[i], column[i], column[i + 1]);
    const double length = std::hypot(column[j], left);
    rotations_.push_back(length > 0 ? rotation{column[j] / length, left / length} : rotation{1, 0});
    column[j] = length;
    right_.push_back(0);
    rotate(rotations_[j], right_[j], right_[j + 1]);
    columns_.push_back(column);
    return std::abs(right_[j + 1]);
  }
  // Adds what the directions so far give to x.
  void finish(double* x) {
    vector y = right_;
    vector sum(size_t(s_.n));
    for (size_t j = columns_.size(); j-- > 0;) {
      if (columns_[j][j] == 0) continue;
      y[j] /= columns_[j][j];
      for (size_t i = 0; i < j; ++i) y[i] -= columns_[j][i] * y[j];
      axpy(s_.n, y[j], basis_[j].data(), sum.data());
    }
    precondition(s_, sum.data(), z_.data());
    axpy(s_.n, 1, z_.data(), x);
  }

 private:
  struct rotation {
    double c, s;
  };
  static void rotate(const rotation& by, double& x, double& y) {
    const double first = by.c * x + by.s * y;
    y = by.c * y - by.s * x;
    x = first;
  }

  const linear_system& s_;
  std::vector<vector> basis_, columns_;
  std::vector<rotation> rotations_;
  vector z_, right_;
};

}  // namespace

double dot(zor_int n, const double* x, const double* y) { return zor_blas_ddot(&n, x, &step, y, &step); }
double norm(zor_int n, const double* x) { return std::sqrt(dot(n, x, x)); }
void axpy(zor_int n, double alpha, const double* x, double* y) {
  zor_blas_daxpy(&n, &alpha, x, &step, y, &step);
}

bool bicgstab(const linear_system& s, double* x) {
  const size_t n = size_t(s.n);
  vector r(s.b, s.b + n), p(n), v(n), t(n), p_hat(n), s_hat(n);
  std::fill_n(x, n, 0.0);
  const double size = size_of(s);
  s.tell(0, size == 0 ? 0 : 1);
  if (size == 0) return true;
  const vector shadow = r;
  double rho = 1, alpha = 1, omega = 1;
  for (int64_t iteration = 1; iteration <= s.most; ++iteration) {
    const double previous = rho;
    rho = dot(s.n, shadow.data(), r.data());
    if (std::abs(rho) <= breakdown * size * norm(s.n, r.data()))
      give_up(s, iteration, "bicgstab breaks down (the residual is orthogonal to b)", other_method);
    const double beta = iteration == 1 ? 0 : rho / previous * (alpha / omega);
    for (size_t i = 0; i < n; ++i) p[i] = r[i] + beta * (p[i] - omega * v[i]);
    precondition(s, p.data(), p_hat.data());
    s.times(p_hat.data(), v.data());
    const double projection = dot(s.n, shadow.data(), v.data());
    if (projection == 0) give_up(s, iteration, "bicgstab breaks down (A p is orthogonal to b)", other_method);
    alpha = rho / projection;
    axpy(s.n, -alpha, v.data(), r.data());
    precondition(s, r.data(), s_hat.data());
    s.times(s_hat.data(), t.data());
    const double length = dot(s.n, t.data(), t.data());
    omega = length > 0 ? dot(s.n, t.data(), r.data()) / length : 0;
    axpy(s.n, alpha, p_hat.data(), x);
    axpy(s.n, omega, s_hat.data(), x);
    axpy(s.n, -omega, t.data(), r.data());
    const double residual = norm(s.n, r.data()) / size;
    s.tell(iteration, residual);
    expect_finite(s, iteration, residual);
    if (residual <= s.tolerance) return true;
    if (omega == 0) give_up(s, iteration, "bicgstab stagnates (A s is orthogonal to s)", other_method);
  }
  return false;
}

bool gmres(const linear_system& s, int64_t restart, double* x) {
  const int64_t kept = std::min<int64_t>(restart, std::max<zor_int>(s.n, 1));
  vector r(s.b, s.b + s.n);
  std::fill_n(x, s.n, 0.0);
  const double size = size_of(s);
  s.tell(0, size == 0 ? 0 : 1);
  if (size == 0) return true;
  gmres_cycle cycle(s, kept);
  double residual = 1;
  int idle = 0;
  for (int64_t iteration = 0; iteration < s.most;) {
    const double before = residual;
    cycle.start(r, norm(s.n, r.data()));
    for (int64_t j = 0; j < kept && iteration < s.most && residual > s.tolerance; ++j) {
      residual = cycle.advance() / size;
      s.tell(++iteration, residual);
      expect_finite(s, iteration, residual);
    }
    cycle.finish(x);
    s.times(x, r.data());
    for (zor_int i = 0; i < s.n; ++i) r[size_t(i)] = s.b[i] - r[size_t(i)];
    residual = norm(s.n, r.data()) / size;
    if (residual <= s.tolerance) return true;
    idle = residual > least_progress * before ? idle + 1 : 0;
    if (idle == idle_cycles)
      throw std::runtime_error(fmt::format(
          "{}: gmres stagnates at a residual of {:.3g} after iteration {}; the matrix may be singular, or "
          "wants a larger --restart or a --preconditioner",
          s.file, residual, iteration));
  }
  return false;
}

}  // namespace zor_tools
