// SPDX-License-Identifier: MIT
// The entries of libzor_core: solutions that satisfy their systems, batches as single calls, the same bits
// with any number of threads, bad arguments told and nothing written, memory refused, and error bounds that
// hold.
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "tests/ref/lapack.h"
#include "tests/support/threads.h"
#include "zor/core.h"
#include "zor/lapack.h"
#include "zor/signatures/lapack.h"

namespace {

using namespace zor_test;

double largest_part(const auto& v) {
  double most = 0;
  for (const auto& e : v)
    for (int h = 0; h < 2; ++h) most = std::max(most, std::fabs(double(part(e, h))));
  return most;
}

// ---- Tridiagonal systems.

// B - op(A) X by columns.
template <class T>
double worst_residual(char trans, zor_int n, zor_int nrhs, const std::vector<T>& dl, const std::vector<T>& d,
                      const std::vector<T>& du, const std::vector<T>& b, const std::vector<T>& x) {
  const auto op = [&](T v) { return trans == 'C' ? zor_ref::conj(v) : v; };
  const auto &below = trans == 'N' ? dl : du, &above = trans == 'N' ? du : dl;
  std::vector<T> r = b;
  for (zor_int k = 0; k < nrhs; ++k)
    for (zor_int i = 0; i < n; ++i) {
      T& e = r[size_t(i + k * n)];
      const T* xi = &x[size_t(i + k * n)];
      e = zor_ref::minus(e, zor_ref::times(op(d[size_t(i)]), *xi));
      if (i > 0) e = zor_ref::minus(e, zor_ref::times(op(below[size_t(i - 1)]), xi[-1]));
      if (i + 1 < n) e = zor_ref::minus(e, zor_ref::times(op(above[size_t(i)]), xi[1]));
    }
  return largest_part(r);
}

template <class T>
void check_tridiagonal(zor::value_dttrf_fn<T>* factor, zor::value_dttrs_fn<T>* solve,
                       zor::value_dtsv_fn<T>* both, zor::value_gtsv_fn<T>* pivoted) {
  random_bits random(31);
  const double eps = std::numeric_limits<real<T>>::epsilon();
  for (const zor_int n : {1, 2, 7, 4000})
    for (const zor_int nrhs : {1, 5, 40}) {
      const auto dl = random_elements<T>(n, random.next()), du = random_elements<T>(n, random.next()),
                 b = random_elements<T>(n * nrhs, random.next());
      std::vector<T> d(size_t(n), scalar<T>(4, 1));
      if (pivoted != nullptr && n > 1) std::fill(d.begin(), d.begin() + n / 2, scalar<T>(0.01, 0));
      const char transposed = "NTC"[n % 3];
      const auto x = with_any_threads(b, [&](T* result) {
        auto l = dl, p = d, u = du;
        if (pivoted != nullptr) {
          EXPECT_EQ(pivoted(n, nrhs, l.data(), p.data(), u.data(), result, n), 0);
        } else if (nrhs == 5) {
          EXPECT_EQ(factor(n, l.data(), p.data(), du.data()), 0);
          EXPECT_EQ(solve(transposed, n, nrhs, l.data(), p.data(), du.data(), result, n), 0);
        } else {
          EXPECT_EQ(both(n, nrhs, l.data(), p.data(), u.data(), result, n), 0);
        }
      });
      const char trans = pivoted == nullptr && nrhs == 5 ? transposed : 'N';
      EXPECT_LE(worst_residual(trans, n, nrhs, dl, d, du, b, x), 64 * eps * std::max(1.0, largest_part(x)))
          << "n " << n << " nrhs " << nrhs;
    }
}

TEST(PublicTridiagonal, SolutionsSatisfyTheirSystems) {
  check_tridiagonal<float>(zor_sdttrf, zor_sdttrs, zor_sdtsv, nullptr);
  check_tridiagonal<double>(zor_ddttrf, zor_ddttrs, zor_ddtsv, nullptr);
  check_tridiagonal<zor_c32>(zor_cdttrf, zor_cdttrs, zor_cdtsv, nullptr);
  check_tridiagonal<zor_c64>(zor_zdttrf, zor_zdttrs, zor_zdtsv, nullptr);
  check_tridiagonal<float>(nullptr, nullptr, nullptr, zor_sgtsv);
  check_tridiagonal<double>(nullptr, nullptr, nullptr, zor_dgtsv);
}

TEST(PublicTridiagonal, SingularMatricesAreTold) {
  double dl[] = {0, 1}, d[] = {0, 1, 1}, du[] = {1, 1}, b[] = {1, 2, 3};
  EXPECT_EQ(zor_ddtsv(3, 1, dl, d, du, b, 3), 1);
  EXPECT_EQ(zor_dgtsv(3, 1, dl, d, du, b, 3), 1);
}

// ---- Small matrices.

// Definite matrices one behind the other, with a gap; matrix `bad` is not.
template <class T>
struct many {
  many(zor_int n_, zor_int count_, zor_int bad) : n(n_), lda(n_ + 1), stride(lda * n_ + 3), count(count_) {
    random_bits random(32);
    a = random_elements<T>(stride * count, random.next());
    for (zor_int k = 0; k < count; ++k)
      for (zor_int j = 0; j < n; ++j)
        a[size_t(k * stride + j + j * lda)] = scalar<T>(k == bad ? -1 : 2.0 * double(n), 0);
  }
  // |A x - b| of matrix k with that triangle.
  double residual(char uplo, zor_int k, const T* x, const T* b) const {
    double worst = 0;
    for (zor_int i = 0; i < n; ++i) {
      T r = b[i];
      for (zor_int j = 0; j < n; ++j) {
        const bool stored = uplo == 'U' ? i <= j : i >= j;
        const T* m = a.data() + k * stride;
        r = zor_ref::minus(r, zor_ref::times(stored ? m[i + j * lda] : zor_ref::conj(m[j + i * lda]), x[j]));
      }
      for (int h = 0; h < 2; ++h) worst = std::max(worst, std::fabs(double(part(r, h))));
    }
    return worst;
  }
  const zor_int n, lda, stride, count;
  std::vector<T> a;
};

template <class T>
void check_cholesky(zor::value_potrf_fn<T>* factor, zor::value_potrs_fn<T>* solve,
                    zor::potrf_batch_fn<T>* factor_many, zor::potrs_batch_fn<T>* solve_many) {
  for (const zor_int n : {1, 5, 20, 33})
    for (const char uplo : {'U', 'L'}) {
      const zor_int count = 70, bad = 11, nrhs = 3, strideb = n * nrhs + 2;
      const many<T> m(n, count, bad);
      std::vector<zor_int> info(static_cast<size_t>(count));
      const auto factors = with_any_threads(
          m.a, [&](T* a) { EXPECT_EQ(factor_many(uplo, n, a, m.lda, m.stride, count, info.data()), 1); });
      random_bits random(33);
      const auto b = random_elements<T>(strideb * count, random.next());
      const auto x = with_any_threads(b, [&](T* result) {
        EXPECT_EQ(solve_many(uplo, n, nrhs, factors.data(), m.lda, m.stride, result, n, strideb, count,
                             info.data()),
                  1);
      });
      for (zor_int k = 0; k < count; ++k) {
        EXPECT_EQ(info[size_t(k)], k == bad ? 1 : 0);
        if (k == bad) continue;
        const T *own_x = x.data() + k * strideb, *own_b = b.data() + k * strideb;
        for (zor_int column = 0; column < nrhs; ++column)
          EXPECT_LE(m.residual(uplo, k, own_x + column * n, own_b + column * n),
                    32 * double(n) * std::numeric_limits<real<T>>::epsilon());
      }
      // One matrix is a batch of one.
      std::vector<T> single = m.a, one_b = b;
      EXPECT_EQ(factor(uplo, n, single.data(), m.lda), 0);
      EXPECT_TRUE(same_bits(reals(factors.data()), reals(single.data()), size_t(n * m.lda) * parts<T>));
      EXPECT_EQ(solve(uplo, n, nrhs, single.data(), m.lda, one_b.data(), n), 0);
      EXPECT_TRUE(same_bits(reals(x.data()), reals(one_b.data()), size_t(n * nrhs) * parts<T>));
    }
}

TEST(PublicSmall, CholeskySolves) {
  check_cholesky<float>(zor_spotrf, zor_spotrs, zor_spotrf_batch, zor_spotrs_batch);
  check_cholesky<double>(zor_dpotrf, zor_dpotrs, zor_dpotrf_batch, zor_dpotrs_batch);
  check_cholesky<zor_c32>(zor_cpotrf, zor_cpotrs, zor_cpotrf_batch, zor_cpotrs_batch);
  check_cholesky<zor_c64>(zor_zpotrf, zor_zpotrs, zor_zpotrf_batch, zor_zpotrs_batch);
}

template <class T>
void check_symmetric(zor::value_sytrf_fn<T>* factor, zor::value_sytrs_fn<T>* solve,
                     zor::sytrf_batch_fn<T>* factor_many, zor::sytrs_batch_fn<T>* solve_many) {
  for (const zor_int n : {1, 2, 3, 6, 21})
    for (const char uplo : {'U', 'L'}) {
      const zor_int count = 60, nrhs = 2, strideb = n * nrhs;
      many<T> m(n, count, -1);
      // Indefinite: with little on the diagonal blocks of two rows are taken, with much blocks of one.
      for (zor_int k = 0; k < count; ++k)
        for (zor_int j = 0; j < n; ++j)
          m.a[size_t(k * m.stride + j + j * m.lda)] =
              n == 1 ? T(2) : T((k + j) % 3 == 0 ? 4 * (j % 2 == 0 ? 1 : -1) : 0.125);
      std::vector<zor_int> info(size_t(count), -7), ipiv(size_t(n * count));
      const auto factors = with_any_threads(m.a, [&](T* a) {
        EXPECT_EQ(factor_many(uplo, n, a, m.lda, m.stride, ipiv.data(), count, info.data()), 0);
      });
      random_bits random(34);
      const auto b = random_elements<T>(strideb * count, random.next());
      const auto x = with_any_threads(b, [&](T* result) {
        EXPECT_EQ(solve_many(uplo, n, nrhs, factors.data(), m.lda, m.stride, ipiv.data(), result, n, strideb,
                             count, nullptr),
                  0);
      });
      for (zor_int k = 0; k < count * nrhs; ++k)
        EXPECT_LE(m.residual(uplo, k / nrhs, x.data() + k * n, b.data() + k * n),
                  256 * double(n) * std::numeric_limits<T>::epsilon() *
                      std::max(1.0, largest_part(std::vector<T>(x.begin() + k * n, x.begin() + (k + 1) * n))))
            << uplo << n << " matrix " << k / nrhs;
      std::vector<T> single = m.a, one_b = b;
      std::vector<zor_int> own(static_cast<size_t>(n));
      EXPECT_EQ(factor(uplo, n, single.data(), m.lda, own.data()), 0);
      EXPECT_TRUE(std::equal(own.begin(), own.end(), ipiv.begin()));
      EXPECT_EQ(solve(uplo, n, nrhs, single.data(), m.lda, own.data(), one_b.data(), n), 0);
      EXPECT_TRUE(same_bits(x.data(), one_b.data(), size_t(n * nrhs)));
    }
}

TEST(PublicSmall, BunchKaufmanSolves) {
  check_symmetric<float>(zor_ssytrf, zor_ssytrs, zor_ssytrf_batch, zor_ssytrs_batch);
  check_symmetric<double>(zor_dsytrf, zor_dsytrs, zor_dsytrf_batch, zor_dsytrs_batch);
}

// ---- Refined solutions.

// The Hilbert matrix times a common multiple of its denominators: integers, exact up to order 13, and so is
// the sum of a row, the right-hand side of the solution 1, 1, 1, ... Its condition number is about e^(3.5 n).
template <class T>
std::vector<T> hilbert(zor_int n, std::vector<T>& b) {
  double multiple = 1;
  for (zor_int i = 2; i < 2 * n; ++i) {
    double u = multiple, v = double(i);
    while (v != 0) std::swap(u = std::fmod(u, v), v);
    multiple = multiple / u * double(i);
  }
  std::vector<T> a(size_t(n * n));
  b.assign(size_t(n), T{});
  for (zor_int j = 0; j < n; ++j)
    for (zor_int i = 0; i < n; ++i) {
      a[size_t(i + j * n)] = scalar<T>(multiple / double(i + j + 1), 0);
      b[size_t(i)] = zor_ref::plus(b[size_t(i)], a[size_t(i + j * n)]);
    }
  return a;
}

template <class T>
void check_refined(zor::solve_refined_fn<T>* solve, zor_int well, zor_int most) {
  const double eps = std::numeric_limits<real<T>>::epsilon() / 2;
  for (zor_int n = 1; n <= most; ++n)
    for (const char kind : {'G', 'U', 'L'}) {
      std::vector<T> b, a = hilbert<T>(n, b), x(size_t(n), scalar<T>(-5, 5));
      zor_refinement report = {};
      const zor_int status = solve(kind, n, 1, a.data(), n, b.data(), n, x.data(), n, nullptr, &report);
      if (status > 0) {  // The rounded pivots may not be positive any more, and nothing is written then.
        EXPECT_GT(n, well);
        EXPECT_EQ(part(x[0], 0), real<T>(-5));
        continue;
      }
      double error = 0;
      for (const T& e : x)
        error = std::max(error, std::fabs(double(part(e, 0)) - 1) + std::fabs(double(part(e, 1))));
      EXPECT_LE(error, report.error_bound) << kind << n;
      EXPECT_LE(report.backward_error, 1.0);
      if (n <= well) {
        EXPECT_EQ(report.converged, 1) << kind << n;
        EXPECT_LE(error, eps) << kind << n;
        EXPECT_LE(report.error_bound, 2 * eps) << kind << n;
        EXPECT_LE(report.backward_error, 2 * eps) << kind << n;
      }
    }
}

TEST(SolveRefined, IllConditionedSystemsToTheLastDigit) {
  check_refined<double>(zor_dsolve_refined, 10, 13);
  check_refined<zor_c64>(zor_zsolve_refined, 10, 13);
  check_refined<float>(zor_ssolve_refined, 4, 5);
  check_refined<zor_c32>(zor_csolve_refined, 4, 5);
}

TEST(SolveRefined, ManyColumnsAnyThreadsSingularMatrices) {
  const zor_int n = 300, nrhs = 3;
  random_bits random(35);
  const auto a = random_elements<double>(n * n, random.next()),
             b = random_elements<double>(n * nrhs, random.next());
  std::vector<zor_refinement> reports(size_t(nrhs), zor_refinement{});
  const auto x = with_any_threads(b, [&](double* result) {
    EXPECT_EQ(zor_dsolve_refined('G', n, nrhs, a.data(), n, b.data(), n, result, n, nullptr, reports.data()),
              0);
  });
  for (const zor_refinement& r : reports)
    EXPECT_TRUE(r.converged == 1 && r.backward_error < 1e-15 && r.steps >= 1);
  std::vector<double> singular = a, untouched(size_t(n), 7.0);
  for (zor_int i = 0; i < n; ++i) singular[size_t(i + 40 * n)] = 0;
  EXPECT_EQ(
      zor_dsolve_refined('G', n, 1, singular.data(), n, b.data(), n, untouched.data(), n, nullptr, nullptr),
      41);
  EXPECT_EQ(untouched[0], 7.0);
}

// A caller's factorisation: here of a diagonal matrix, and a deliberately poor one, which refinement makes up
// for.
TEST(SolveRefined, TakesTheCallersFactors) {
  struct poor {
    int factored = 0, solved = 0;
  } state;
  const zor_factorisation theirs = {&state,
                                    [](void* context, zor_int, void*, zor_int) -> zor_int {
                                      return ++static_cast<poor*>(context)->factored, 0;
                                    },
                                    [](void* context, zor_int n, const void* factors, zor_int lda, void* b) {
                                      ++static_cast<poor*>(context)->solved;
                                      for (zor_int i = 0; i < n; ++i)
                                        static_cast<double*>(b)[i] *=
                                            1.01 / static_cast<const double*>(factors)[i + i * lda];
                                    }};
  const double a[] = {3, 0, 0, 7}, b[] = {1, 1};
  double x[2];
  zor_refinement report;
  EXPECT_EQ(zor_dsolve_refined('G', 2, 1, a, 2, b, 2, x, 2, &theirs, &report), 0);
  EXPECT_EQ(x[0], 1.0 / 3);
  EXPECT_EQ(x[1], 1.0 / 7);
  EXPECT_TRUE(report.converged == 1 && state.factored == 1 && state.solved == report.steps + 1);
}

// ---- Arguments; what is bad by itself stands in tests/core/arguments_test.cpp.

TEST(PublicLapack, OperandsBeyondAllMemoryAndNone) {
  const noted_reports reports;
  double a[9] = {4, 1, 1, 1, 4, 1, 1, 1, 4}, b[3] = {1, 2, 3}, x[3] = {9, 9, 9};
  zor_int info[2];
  const zor_int far = INT64_MAX / 4, vast = zor_int(1) << 24;
  EXPECT_EQ(zor_dsolve_refined('G', far, 1, a, far, b, far, x, far, nullptr, nullptr), ZOR_LAPACK_ARGUMENT);
  EXPECT_EQ(reports.take(), "zor_dsolve_refined 5 lda");
  EXPECT_EQ(zor_dpotrf_batch('U', 2, a, 2, far, 8, info), ZOR_LAPACK_ARGUMENT);
  EXPECT_EQ(reports.take(), "zor_dpotrf_batch 5 stride");
  // More memory than there is.
  EXPECT_EQ(zor_dsolve_refined('G', vast, 1, a, vast, b, vast, x, vast, nullptr, nullptr), ZOR_LAPACK_MEMORY);
  for (const double v : x) EXPECT_EQ(v, 9);
  // Nothing to do needs no operands.
  EXPECT_EQ(zor_dpotrf('U', 0, nullptr, 1), 0);
  EXPECT_EQ(zor_dpotrs_batch('U', 3, 1, nullptr, 3, 9, nullptr, 3, 3, 0, nullptr), 0);
  EXPECT_EQ(zor_dsolve_refined('G', 0, 4, nullptr, 1, nullptr, 1, nullptr, 1, nullptr, nullptr), 0);
}

}  // namespace
