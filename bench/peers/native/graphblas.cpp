// SPDX-License-Identifier: MIT
// SuiteSparse:GraphBLAS on one thread.
#include <cmath>
#include <complex>
// The header declares its functions without regard to C++.
extern "C" {
#include <GraphBLAS.h>
}

#include <vector>

#include "bench/matrices.h"

namespace zor_bench {
namespace {

void* make(const matrix_arrays& a) {
  static const bool ready = GrB_init(GrB_NONBLOCKING) == GrB_SUCCESS &&
                            GxB_Global_Option_set_INT32(GxB_GLOBAL_NTHREADS, 1) == GrB_SUCCESS;
  if (!ready) return nullptr;
  const size_t entries = size_t(a.start[a.m]);
  std::vector<GrB_Index> row, column(a.column, a.column + entries);
  for (int32_t r = 0; r < a.m; ++r) row.resize(size_t(a.start[r + 1]), GrB_Index(r));
  GrB_Matrix made = nullptr;
  GrB_Matrix_new(&made, GrB_FP64, GrB_Index(a.m), GrB_Index(a.n));
  GrB_Matrix_build_FP64(made, row.data(), column.data(), a.value, entries, GrB_PLUS_FP64);
  GrB_Matrix_wait(made, GrB_MATERIALIZE);
  return made;
}
void release(void* a) {
  GrB_Matrix made = static_cast<GrB_Matrix>(a);
  GrB_Matrix_free(&made);
}

int64_t finish(GrB_Matrix c, double* total) {
  GrB_Index entries = 0;
  GrB_Matrix_wait(c, GrB_MATERIALIZE);
  GrB_Matrix_nvals(&entries, c);
  if (total != nullptr) GrB_Matrix_reduce_FP64(total, nullptr, GrB_PLUS_MONOID_FP64, c, nullptr);
  GrB_Matrix_free(&c);
  return int64_t(entries);
}
GrB_Matrix result_of(GrB_Matrix a, GrB_Matrix b) {
  GrB_Index rows = 0, columns = 0;
  GrB_Matrix_nrows(&rows, a);
  GrB_Matrix_ncols(&columns, b);
  GrB_Matrix c = nullptr;
  GrB_Matrix_new(&c, GrB_FP64, rows, columns);
  return c;
}
int64_t multiply(void* left, void* right, double* total) {
  GrB_Matrix a = static_cast<GrB_Matrix>(left), b = static_cast<GrB_Matrix>(right), c = result_of(a, b);
  GrB_mxm(c, nullptr, nullptr, GrB_PLUS_TIMES_SEMIRING_FP64, a, b, nullptr);
  return finish(c, total);
}
int64_t add(void* left, void* right, double* total) {
  GrB_Matrix a = static_cast<GrB_Matrix>(left), b = static_cast<GrB_Matrix>(right), c = result_of(a, b);
  GrB_Matrix_eWiseAdd_BinaryOp(c, nullptr, nullptr, GrB_PLUS_FP64, a, b, nullptr);
  return finish(c, total);
}

}  // namespace

extern "C" [[gnu::visibility("default")]] const matrix_peer zor_matrix_peer;
const matrix_peer zor_matrix_peer = {make, release, multiply, add};

}  // namespace zor_bench
