// SPDX-License-Identifier: MIT
// The loops that a user would write for the sparse formats besides CSR, left to the compiler.
#include "bench/formats.h"

#include <algorithm>

namespace zor_bench {
namespace {

void coo_product(int64_t nnz, const int32_t* row, const int32_t* column, const double* value, const double* x,
                 double* y) {
  for (int64_t e = 0; e < nnz; ++e) y[row[e]] += value[e] * x[column[e]];
}

void coo_solve(int64_t m, int64_t nnz, const int32_t* row, const int32_t* column, const double* value,
               int32_t* start, int32_t* sorted_column, double* sorted_value, double* y) {
  std::fill_n(start, m + 1, 0);
  for (int64_t e = 0; e < nnz; ++e) ++start[row[e] + 1];
  for (int64_t r = 0; r < m; ++r) start[r + 1] += start[r];
  for (int64_t e = 0; e < nnz; ++e) {
    const int32_t at = start[row[e]]++;
    sorted_column[at] = column[e];
    sorted_value[at] = value[e];
  }
  for (int64_t r = 0, k = 0; r < m; ++r) {
    double sum = y[r], pivot = 1;
    for (; k < start[r]; ++k) {
      if (sorted_column[k] == r)
        pivot = sorted_value[k];
      else
        sum -= sorted_value[k] * y[sorted_column[k]];
    }
    y[r] = sum / pivot;
  }
}

void dia_product(int64_t m, int64_t ndiag, const int32_t* distance, const double* value, const double* x,
                 double* y) {
  for (int64_t d = 0; d < ndiag; ++d) {
    const int64_t q = distance[d];
    const double* __restrict a = value + d * m, * __restrict xs = x + q;
    double* __restrict ys = y;
    const int64_t last = std::min(m, m - q);
    for (int64_t i = std::max<int64_t>(0, -q); i < last; ++i) ys[i] += a[i] * xs[i];
  }
}

void dia_solve(int64_t m, int64_t ndiag, const int32_t* distance, const double* value, double* y) {
  for (int64_t r = 0; r < m; ++r) {
    double sum = y[r];
    for (int64_t d = 0; d + 1 < ndiag; ++d)
      if (const int64_t from = r + distance[d]; from >= 0) sum -= value[d * m + r] * y[from];
    y[r] = sum / value[(ndiag - 1) * m + r];
  }
}

template <int LB>
void blocks(int64_t mb, const int32_t* start, const int32_t* column, const double* value, const double* x,
            double* y) {
  for (int64_t r = 0; r < mb; ++r)
    for (int32_t k = start[r]; k < start[r + 1]; ++k)
      for (int i = 0; i < LB; ++i) {
        double sum = y[r * LB + i];
        for (int j = 0; j < LB; ++j)
          sum += value[(int64_t(k) * LB + i) * LB + j] * x[int64_t(column[k]) * LB + j];
        y[r * LB + i] = sum;
      }
}
void bsr_product(int64_t mb, int64_t lb, int64_t n, const int32_t* start, const int32_t* column,
                 const double* value, const double* x, double* y) {
  if (n == 1 && lb == 2) return blocks<2>(mb, start, column, value, x, y);
  if (n == 1 && lb == 3) return blocks<3>(mb, start, column, value, x, y);
  if (n == 1 && lb == 4) return blocks<4>(mb, start, column, value, x, y);
  if (n == 1 && lb == 8) return blocks<8>(mb, start, column, value, x, y);
  for (int64_t r = 0; r < mb; ++r)
    for (int32_t k = start[r]; k < start[r + 1]; ++k)
      for (int64_t i = 0; i < lb; ++i)
        for (int64_t j = 0; j < lb; ++j) {
          const double a = value[(k * lb + i) * lb + j];
          const double* __restrict b = x + (column[k] * lb + j) * n;
          double* __restrict c = y + (r * lb + i) * n;
          for (int64_t s = 0; s < n; ++s) c[s] += a * b[s];
        }
}

void sky_product(int64_t m, const int32_t* start, const double* value, const double* x, double* y) {
  for (int64_t r = 0; r < m; ++r) {
    const int64_t length = start[r + 1] - start[r];
    const double *a = value + start[r], *xs = x + r + 1 - length;
    double sum = 0;
    for (int64_t i = 0; i < length; ++i) sum += a[i] * xs[i];
    y[r] += sum;
  }
}

void sky_solve(int64_t m, const int32_t* start, const double* value, double* y) {
  for (int64_t r = 0; r < m; ++r) {
    const int64_t strict = start[r + 1] - start[r] - 1;
    const double *a = value + start[r], *ys = y + r - strict;
    double sum = y[r];
    for (int64_t i = 0; i < strict; ++i) sum -= a[i] * ys[i];
    y[r] = sum / a[strict];
  }
}

}  // namespace

extern "C" __attribute__((visibility("default"))) const format_loops zor_format_loops = {
    coo_product, coo_solve, dia_product, dia_solve, bsr_product, sky_product, sky_solve};

}  // namespace zor_bench
