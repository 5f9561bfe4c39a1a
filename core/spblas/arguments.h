// SPDX-License-Identifier: MIT
// What a call looks at before it computes. Each check gives ZOR_SPARSE_OK or the status to return.
#pragma once

#include <limits>

#include "core/spblas/error.h"
#include "core/spblas/matrix.h"

namespace zor_core {

// Marks a record as a matrix, until it is freed.
inline constexpr uint64_t sparse_magic = 0x7a6f725f73706172u;

int32_t bad_handle(zor_sparse a);

// The handle is a checked matrix of the type, and the operation is known.
int32_t bad_matrix(zor_sparse a, char type, int32_t op);

// The handle, which the call names so, is a checked matrix.
int32_t bad_operand(const char* name, zor_sparse a);

// The matrix can be solved with, and its rows can be.
int32_t bad_solve(const sparse_matrix& a);
int32_t bad_rows_to_solve(const sparse_matrix& a);

// The layout is known, and the kernels can count n right-hand sides.
template <class I>
int32_t bad_columns(int32_t layout, zor_int n) {
  if (layout != ZOR_SPARSE_ROW_MAJOR && layout != ZOR_SPARSE_COLUMN_MAJOR)
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "layout: %d is no value of it", layout);
  if (n < 0 || n > std::numeric_limits<I>::max())
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "n: %lld is not in 0 to %lld", (long long)n,
                          (long long)std::numeric_limits<I>::max());
  return ZOR_SPARSE_OK;
}

// A dense operand of so many rows, n columns and elements of `element` bytes can be addressed with the
// leading dimension ld, which is called `name`.
template <class I>
int32_t bad_dense(const char* name, int32_t layout, zor_int rows, zor_int n, zor_int ld, size_t element);

// A dense operand in memory: `lines` runs of `run` elements of `element` bytes, ld elements apart.
struct dense_run {
  const char* name;
  const void* data;
  zor_int run, lines, ld;
  size_t element;
};
// The rows and right-hand sides of an operand in its layout.
inline dense_run dense_operand(const char* name, const void* data, int32_t layout, zor_int rows, zor_int n,
                               zor_int ld, size_t element) {
  return layout == ZOR_SPARSE_ROW_MAJOR ? dense_run{name, data, n, rows, ld, element}
                                        : dense_run{name, data, rows, n, ld, element};
}

// What is written shares no memory with what is read.
int32_t bad_overlap(const dense_run& written, const dense_run& read);

// Whether the letter is one of a list.
constexpr bool one_of(int32_t letter, const char* letters) {
  for (; *letters != '\0'; ++letters)
    if (letter == *letters) return true;
  return false;
}

}  // namespace zor_core
