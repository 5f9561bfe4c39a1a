// SPDX-License-Identifier: MIT
// Plain loops over the sparse formats besides CSR, compiled for this very processor in a shared object of its
// own. Type double, 32-bit indices from 0.
#pragma once

#include <cstdint>

namespace zor_bench {

struct format_loops {
  void (*coo_product)(int64_t nnz, const int32_t* row, const int32_t* column, const double* value,
                      const double* x, double* y);
  // y := the solution of T y = y, T the lower triangle: sorted into rows first, with room for m + 1 starts,
  // nnz columns and values.
  void (*coo_solve)(int64_t m, int64_t nnz, const int32_t* row, const int32_t* column, const double* value,
                    int32_t* start, int32_t* sorted_column, double* sorted_value, double* y);
  void (*dia_product)(int64_t m, int64_t ndiag, const int32_t* distance, const double* value, const double* x,
                      double* y);
  void (*dia_solve)(int64_t m, int64_t ndiag, const int32_t* distance, const double* value, double* y);
  // Blocks by rows; y := y + A x for n right-hand sides, row-major.
  void (*bsr_product)(int64_t mb, int64_t lb, int64_t n, const int32_t* start, const int32_t* column,
                      const double* value, const double* x, double* y);
  void (*sky_product)(int64_t m, const int32_t* start, const double* value, const double* x, double* y);
  void (*sky_solve)(int64_t m, const int32_t* start, const double* value, double* y);
};

}  // namespace zor_bench
