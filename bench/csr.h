// SPDX-License-Identifier: MIT
// Sparse operations as the peers are given them, in plain types: two of the peers are shared objects of their
// own, compiled for this very processor.
#pragma once

#include <cstdint>

namespace zor_bench {

enum class csr_operation {
  product,           // y := y + A x
  symmetric,         // the same, `value` holding the lower triangle
  products_by_rows,  // C := C + A B for `rhs` right-hand sides, row-major
  products_by_columns,
  lower_solve,  // y := the solution of T y = x, T lower triangular with its diagonal
  upper_solve,
  transposed_solve,  // the same for the transpose of a lower T
  lower_solves_by_rows,
  upper_solves_by_rows,
  lower_solves_by_columns,
  upper_solves_by_columns,
  transposed,             // y := y + A' x
  triangular,             // the lower triangle of A alone, all of A stored
  transposed_triangular,  // its transpose
  skew,                   // the lower triangle and its image with a minus
  hermitian,              // the lower triangle and its conjugated image; type z
  diagonal,               // the diagonal of A alone
  rows_alone,             // y := A x; type d
  transposed_by_rows,     // as products_by_rows: the transpose of A
  triangular_by_rows,     // the lower triangle of A alone, all of A stored
  symmetric_by_rows       // the lower triangle, and its image
};

// A square matrix in three-array form, base 0, rows sorted.
struct csr_job {
  csr_operation what;
  char type;  // d or z
  int32_t index_bytes;
  int64_t rows, entries, rhs;
  const void *start, *column, *value;
  const void* x;
  void* y;
};

// open returns null for a job that the peer does not know.
struct csr_peer {
  const char* name;
  void* (*open)(const csr_job& job);
  void (*run)(void* opened);
  void (*close)(void* opened);
};

// librsb on one thread; null when it is not there.
const csr_peer* find_librsb();

}  // namespace zor_bench
