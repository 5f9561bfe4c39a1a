// SPDX-License-Identifier: MIT
// The solve with a factor L D L^T whose D has blocks of order 1 and 2, and the symmetric product.
#include "spblas/result_thresholds.h"
#include "spblas/row_dot.h"
#include "zor/signatures/spblas_sweep.h"

namespace zor::sparse {
namespace {

// The strict factor by rows; positions and columns count from 0.
template <class Index>
struct ldlt_factor {
  zor_int n;
  const double* val;
  const Index *ia, *ja;
  const double *d, *e;
  const uint32_t* piv;

  bool in_pair(zor_int i) const { return (piv[i / 32] >> (i % 32) & 1) != 0; }
};

// b := L^-1 b; returns whether D has a block of order 2.
bool forward_with_pairs(const ldlt_factor<int32_t>& f, double* b) {
  bool pairs = false;
  for (zor_int i = 0; i < f.n; ++i) {
    const int32_t end = f.ia[i + 1];
    if (!f.in_pair(i)) {
      for (int32_t p = f.ia[i]; p < end; ++p) b[f.ja[p]] = b[f.ja[p]] - f.val[p] * b[i];
      continue;
    }
    for (int32_t p = f.ia[i]; p < end; p += 2)
      b[f.ja[p]] = b[f.ja[p]] - f.val[p] * b[i] - f.val[p + 1] * b[i + 1];
    ++i;
    pairs = true;
  }
  return pairs;
}

// x := (D L^T)^-1 b.
void backward_with_pairs(const ldlt_factor<int32_t>& f, const double* b, double* x) {
  for (zor_int k = f.n - 1; k >= 0; --k) {
    if (!f.in_pair(k)) {
      x[k] = b[k] / f.d[k];
      for (int32_t p = f.ia[k]; p < f.ia[k + 1]; ++p) x[k] = x[k] - f.val[p] * x[f.ja[p]];
      continue;
    }
    const zor_int j = k - 1;
    const double u = f.d[k] / f.e[j], v = f.d[j] / f.e[j], w = 1 / (u * v - 1) / f.e[j];
    x[j] = (u * b[j] - b[k]) * w;
    x[k] = w * (v * b[k] - b[j]);
    for (int32_t p = f.ia[j]; p < f.ia[k]; p += 2) {
      x[j] = x[j] - f.val[p] * x[f.ja[p]];
      x[k] = x[k] - f.val[p + 1] * x[f.ja[p]];
    }
    --k;
  }
}

// The solve with blocks of order 1 alone. The element of b is read again after its row was subtracted, so
// that an entry of a row in its own column counts.
template <class Index>
void solve_simple(const ldlt_factor<Index>& f, double* b, double* x) {
  for (zor_int i = 0; i < f.n; ++i) {
    const double u = 0 - b[i];
    for (zor_int p = f.ia[i], end = f.ia[i + 1]; p < end; ++p) b[f.ja[p]] = b[f.ja[p]] + f.val[p] * u;
    x[i] = b[i] / f.d[i];
  }
  if (f.n < thresholds::least_for_backward) return;
  for (zor_int i = f.n - 1; i >= 0; --i) {
    const zor_int start = f.ia[i], count = zor_int(f.ia[i + 1]) - start;
    x[i] =
        x[i] - row_dot<double, false>(stored_entries<double, Index>{f.val + start, f.ja + start}, count, x);
  }
}

template <class I>
void solve_ldlt(zor_int n, const double* val, const void* ia, const void* ja, const double* d,
                const double* e, const uint32_t* piv, double* b, double* x, I* mode) {
  if (*mode == 1) return;
  if (*mode != 0) {
    solve_simple<I>({n, val, static_cast<const I*>(ia), static_cast<const I*>(ja), d, e, piv}, b, x);
    return;
  }
  const ldlt_factor<int32_t> f{n, val, static_cast<const int32_t*>(ia), static_cast<const int32_t*>(ja), d,
                               e, piv};
  if (!forward_with_pairs(f, b)) *mode = 2;
  backward_with_pairs(f, b, x);
}

// y := y + A x, row by row: the diagonal entry alone, then the others, each for its row and for its column.
// The sum of a row has four accumulators in groups of four entries, as in row_dot.
template <class I>
void multiply_symmetric(bool first, zor_int n, const double* val, const I* indx, const I* ia, const double* x,
                        double* y, zor_int base) {
  constexpr int group = thresholds::accumulators;
  for (zor_int i = 0; i < n; ++i) {
    zor_int k = ia[i], end = ia[i + 1];
    const double xi = x[i];
    const zor_int edge = first ? k : end - 1;
    if (k < end && zor_int(indx[edge]) - base == i) {
      y[i] = y[i] + val[edge] * xi;
      k += first;
      end -= !first;
    }
    double s[group] = {}, sum = 0;
    const auto take = [&](zor_int at, double& of) {
      const zor_int c = zor_int(indx[at]) - base;
      of = of + x[c] * val[at];
      y[c] = y[c] + val[at] * xi;
    };
    if (end - k >= group) {
      for (; k + group <= end; k += group)
        for (int g = 0; g < group; ++g) take(k + g, s[g]);
      sum = s[0] + s[1] + s[2] + s[3];
    }
    for (; k < end; ++k) take(k, sum);
    y[i] = y[i] + sum;
  }
}

}  // namespace
}  // namespace zor::sparse

#define ROW_LDLT_SOLVE(name, I)                                         \
  extern "C" SIG_LDLT_SOLVE(name, I) {                                  \
    (void)unread;                                                       \
    zor::sparse::solve_ldlt<I>(*n, val, ia, ja, d, e, piv, b, x, mode); \
  }
#define ROW_SYMMETRIC_PRODUCT(name, I)                                               \
  extern "C" SIG_SYMMETRIC_PRODUCT(name, I) {                                        \
    (void)unread;                                                                    \
    zor::sparse::multiply_symmetric<I>(*where == 0, *n, val, indx, ia, x, y, *base); \
  }
#include "zor/tables/spblas_sweep.inc"
