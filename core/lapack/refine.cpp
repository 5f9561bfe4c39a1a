// SPDX-License-Identifier: MIT
// Iterative refinement: the residual b - A x is formed in pairs of doubles and rounded once, the correction
// comes from the factors at hand, and x is kept as the sum of two vectors. Corrections shrink by a factor of
// about the condition number times the rounding error of the factors; the last one and that factor bound what
// is left.
#include <algorithm>
#include <limits>

#include "core/heap_array.h"
#include "core/lapack/checks.h"
#include "core/lapack/small.h"
#include "zor/signatures/lapack.h"
#include "zor/xblas.h"

namespace zor_core {
namespace {

using zor::is_complex;
using zor::real_t;

// Corrections that shrink by less than this are taken for noise.
constexpr double least_progress = 0.5;
constexpr zor_int most_steps = 30;

template <class T>
struct products;
#define PRODUCTS(letter, symmetric)                        \
  static constexpr auto* gemm = &zor_blas_##letter##gemm;  \
  static constexpr auto* general = &zor_##letter##gemv2_x; \
  static constexpr auto* definite = &zor_##letter##symmetric##2_x;
template <>
struct products<float> {
  PRODUCTS(s, symv)
};
template <>
struct products<double> {
  PRODUCTS(d, symv)
};
template <>
struct products<zor_c32> {
  PRODUCTS(c, hemv)
};
template <>
struct products<zor_c64> {
  PRODUCTS(z, hemv)
};
#undef PRODUCTS

// |re| + |im|.
template <class T>
double size_of(T v) {
  return double(zor::magnitude(v));
}
template <class T>
double largest(zor_int n, const T* x) {
  double most = 0;
  for (zor_int i = 0; i < n; ++i) {
    const double size = size_of(x[i]);
    if (!(size <= most)) most = size;
  }
  return most;
}

// ---- LU with partial pivoting, in panels.

constexpr zor_int panel_columns = 32;

template <class T>
void exchange_rows(zor_int columns, T* a, zor_int lda, zor_int i, zor_int j) {
  if (i == j) return;
  for (zor_int c = 0; c < columns; ++c) std::swap(a[i + c * lda], a[j + c * lda]);
}

// Columns first to end - 1, rows first to n - 1; interchanges reach over these columns alone.
template <class T>
zor_int factor_panel(zor_int n, zor_int first, zor_int end, T* a, zor_int lda, zor_int* ipiv) {
  for (zor_int j = first; j < end; ++j) {
    T* const column = a + j * lda;
    zor_int p = j;
    for (zor_int i = j + 1; i < n; ++i)
      if (size_of(column[i]) > size_of(column[p])) p = i;
    ipiv[j] = p;
    if (zor::is_zero(column[p])) return j + 1;
    exchange_rows(end - first, a + first * lda, lda, j, p);
    for (zor_int i = j + 1; i < n; ++i)
      column[i] = zor::quotient_by_reciprocal<long double>(column[i], column[j]);
    for (zor_int c = j + 1; c < end; ++c)
      for (zor_int i = j + 1; i < n; ++i)
        a[i + c * lda] = zor::sub(a[i + c * lda], zor::mul(column[i], a[j + c * lda]));
  }
  return 0;
}

template <class T>
zor_int factor_lu(zor_int n, T* a, zor_int lda, zor_int* ipiv) {
  const T one = zor::one_of<T>(), minus = zor::zero_minus(one);
  for (zor_int j = 0; j < n; j += panel_columns) {
    const zor_int end = std::min(n, j + panel_columns), width = end - j, right = n - end;
    if (const zor_int info = factor_panel(n, j, end, a, lda, ipiv)) return info;
    for (zor_int k = j; k < end; ++k) {
      exchange_rows(j, a, lda, k, ipiv[k]);
      exchange_rows(right, a + end * lda, lda, k, ipiv[k]);
    }
    if (right == 0) break;
    solve_triangle("L", "N", "U", width, right, a + j + j * lda, lda, a + j + end * lda, lda);
    products<T>::gemm("N", "N", &right, &right, &width, &minus, a + end + j * lda, &lda, a + j + end * lda,
                      &lda, &one, a + end + end * lda, &lda);
  }
  return 0;
}

template <class T>
void solve_lu(zor_int n, const T* a, zor_int lda, const zor_int* ipiv, T* b) {
  for (zor_int k = 0; k < n; ++k) std::swap(b[k], b[ipiv[k]]);
  solve_triangle("L", "N", "U", n, 1, a, lda, b, n);
  solve_triangle("U", "N", "N", n, 1, a, lda, b, n);
}

// ---- The system and its factors.

template <class T>
struct refined_system {
  char kind;
  zor_int n;
  const T* a;
  zor_int lda;
  const zor_factorisation* theirs;
  T* factors;
  zor_int* ipiv;

  bool general() const { return is_letter(&kind, 'G'); }
  bool upper() const { return is_letter(&kind, 'U'); }
  // Element (i, j) of the whole matrix.
  T element(zor_int i, zor_int j) const {
    const bool stored = general() || (upper() ? i <= j : i >= j);
    T e = stored ? a[i + j * lda] : zor::conj_by_sign(a[j + i * lda]);
    if constexpr (is_complex<T>)
      if (!general() && i == j) e.im = 0;
    return e;
  }
  zor_int factor() const {
    for (zor_int j = 0; j < n; ++j)
      for (zor_int i = 0; i < n; ++i) factors[i + j * n] = element(i, j);
    if (theirs != nullptr) return theirs->factor(theirs->context, n, factors, n);
    return general() ? factor_lu(n, factors, n, ipiv) : factor_cholesky(kind, n, factors, n);
  }
  void solve(T* b) const {
    if (theirs != nullptr) return theirs->solve(theirs->context, n, factors, n, b);
    if (general())
      solve_lu(n, factors, n, ipiv, b);
    else
      solve_cholesky(kind, n, 1, factors, n, b, n);
  }
  // r := b - A (head + tail).
  void residual(const T* b, const T* head, const T* tail, T* r) const {
    const T one = zor::one_of<T>(), minus = zor::zero_minus(one);
    std::copy_n(b, n, r);
    if (general())
      products<T>::general(ZOR_NO_TRANS, n, n, minus, a, lda, head, tail, 1, one, r, 1, ZOR_EXTRA);
    else
      products<T>::definite(upper() ? ZOR_UPPER : ZOR_LOWER, n, minus, a, lda, head, tail, 1, one, r, 1,
                            ZOR_EXTRA);
  }
};

// (head, tail) := (head, tail) + d, each part of its own.
template <class R>
void add_to_pair(R& head, R& tail, R d) {
  const R s = head + d, v = s - head, error = (head - (s - v)) + (d - v), rest = tail + error;
  head = s + rest;
  tail = rest - (head - s);
}

template <class T>
double backward_error(const refined_system<T>& s, const T* b, const T* x, const T* zeros, T* r,
                      double* scale) {
  s.residual(b, x, zeros, r);
  for (zor_int i = 0; i < s.n; ++i) scale[i] = size_of(b[i]);
  for (zor_int j = 0; j < s.n; ++j)
    for (zor_int i = 0; i < s.n; ++i) scale[i] += size_of(s.element(i, j)) * size_of(x[j]);
  double worst = 0;
  for (zor_int i = 0; i < s.n; ++i) {
    const double error = size_of(r[i]) == 0 ? 0 : size_of(r[i]) / scale[i];
    if (!(error <= worst)) worst = error;
  }
  return worst;
}

// Space for one right-hand side.
template <class T>
struct workspace {
  T *head, *tail, *d;
  double* scale;
};

template <class T>
zor_refinement refine(const refined_system<T>& s, const T* b, const workspace<T>& w) {
  constexpr double eps = std::numeric_limits<real_t<T>>::epsilon() / 2;
  constexpr double unknown = std::numeric_limits<double>::infinity();
  zor_refinement report = {0, 0, unknown, unknown, 0};
  std::copy_n(b, s.n, w.head);
  std::fill_n(w.tail, s.n, T{});
  s.solve(w.head);
  double previous = 0, slowest = 0;
  for (zor_int step = 0; step < most_steps; ++step) {
    s.residual(b, w.head, w.tail, w.d);
    s.solve(w.d);
    const double correction = largest(s.n, w.d), size = largest(s.n, w.head);
    const double relative = correction == 0 ? 0 : correction / size;
    if (step == 0) report.unrefined_error = relative;
    if (!(relative < 1)) {
      report.error_bound = unknown;
      break;
    }
    const double ratio = step == 0 || previous == 0 ? 0 : relative / previous;
    if (ratio > least_progress) {
      // Noise below the last digit of x is as good as none; above it what is left is several times what is
      // seen.
      const double left = ratio < 1 ? 10 * relative / (1 - ratio) : unknown;
      report.converged = relative <= eps;
      report.error_bound = report.converged ? 2 * eps : left < 1 ? left : unknown;
      break;
    }
    slowest = std::max(slowest, ratio);
    for (zor_int i = 0; i < s.n * zor::parts<T>; ++i)
      add_to_pair(zor::reals(w.head)[i], zor::reals(w.tail)[i], zor::reals(w.d)[i]);
    ++report.steps;
    report.error_bound = std::max(relative * std::max(slowest, relative) / (1 - slowest), eps);
    if (relative <= eps / 2) {
      report.converged = 1;
      break;
    }
    previous = relative;
  }
  std::fill_n(w.tail, s.n, T{});
  report.backward_error = backward_error(s, b, w.head, w.tail, w.d, w.scale);
  return report;
}

template <class T>
zor_int solve_refined(const char* routine, char kind, zor_int n, zor_int nrhs, const T* a, zor_int lda,
                      const T* b, zor_int ldb, T* x, zor_int ldx, const zor_factorisation* theirs,
                      zor_refinement* reports) {
  const bool complete = theirs == nullptr || (theirs->factor != nullptr && theirs->solve != nullptr);
  value_arguments arguments;
  arguments.letter("kind", kind, 'G', 'U', 'L').count("n", n).count("nrhs", nrhs);
  arguments.columns("a", a, "lda", lda, n, nrhs > 0 ? n : 0).columns("b", b, "ldb", ldb, n, nrhs);
  arguments.columns("x", x, "ldx", ldx, n, nrhs).next("factors", complete);
  if (arguments.reported(routine)) return ZOR_LAPACK_ARGUMENT;
  for (zor_int k = 0; reports != nullptr && k < nrhs; ++k) reports[k] = {0, 1, 0, 0, 0};
  if (n < 1 || nrhs < 1) return ZOR_LAPACK_OK;
  const heap_array<T> factors(saturating_product(n, n)), vectors(saturating_product(3, n));
  const heap_array<double> scale(n);
  const heap_array<zor_int> ipiv(n);
  if (factors.data() == nullptr || vectors.data() == nullptr || scale.data() == nullptr ||
      ipiv.data() == nullptr)
    return ZOR_LAPACK_MEMORY;
  const refined_system<T> system = {kind, n, a, lda, theirs, factors.data(), ipiv.data()};
  if (const zor_int failed = system.factor()) return failed;
  const workspace<T> w = {vectors.data(), vectors.data() + n, vectors.data() + 2 * n, scale.data()};
  for (zor_int k = 0; k < nrhs; ++k) {
    const zor_refinement report = refine(system, b + k * ldb, w);
    std::copy_n(w.head, n, x + k * ldx);
    if (reports != nullptr) reports[k] = report;
  }
  return ZOR_LAPACK_OK;
}

}  // namespace
}  // namespace zor_core

#define ROW_SOLVE_REFINED(name, T)                                                                     \
  extern "C" SIG_SOLVE_REFINED(name, T) {                                                              \
    return zor_core::solve_refined<T>(#name, kind, n, nrhs, a, lda, b, ldb, x, ldx, factors, reports); \
  }
#include "zor/tables/core_lapack.inc"
