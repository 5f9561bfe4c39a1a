// SPDX-License-Identifier: MIT
// Sums, products, conversions and sweeps of sparse matrices by others, in shared objects of their own. Type
// double, 32-bit indices from 0, rows with ascending columns.
#pragma once

#include <cstdint>

namespace zor_bench {

struct matrix_arrays {
  int32_t m, n;
  const int32_t *start, *column;
  const double* value;
};

// A library that adds and multiplies. A result is made anew by each call and freed; the call returns its
// entries and, where total is not null, the sum of their values.
struct matrix_peer {
  void* (*make)(const matrix_arrays& a);
  void (*release)(void* a);
  int64_t (*multiply)(void* a, void* b, double* total);
  int64_t (*add)(void* a, void* b, double* total);
};

// Plain loops. Diagonals and blocks are those that ours finds; blocks stand in the order in which rows meet
// them, elements by columns.
struct matrix_loops {
  matrix_peer arithmetic;
  void (*to_csc)(const matrix_arrays& a, double* value, int32_t* row, int32_t* start);
  void (*to_coo)(const matrix_arrays& a, double* value, int32_t* row, int32_t* column);
  void (*to_dia)(const matrix_arrays& a, int32_t ndiag, const int32_t* distance, double* value);
  void (*to_bsr)(const matrix_arrays& a, int32_t lb, double* value, int32_t* column, int32_t* start);
  // y := the solution of T y = y, T the lower triangle of the blocks, whose elements stand by columns.
  void (*sweep)(int32_t mb, int32_t lb, const int32_t* start, const int32_t* column, const double* value,
                double* y);
};

}  // namespace zor_bench
