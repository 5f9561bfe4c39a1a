// SPDX-License-Identifier: MIT
// Eigen as a peer of sums and products of sparse matrices, compiled for the processor at hand.
#include <Eigen/SparseCore>

#include "bench/matrices.h"

namespace zor_bench {
namespace {

using matrix = Eigen::SparseMatrix<double, Eigen::RowMajor, int32_t>;

void* make(const matrix_arrays& a) {
  return new matrix(Eigen::Map<const matrix>(a.m, a.n, a.start[a.m], a.start, a.column, a.value));
}
void release(void* a) { delete static_cast<matrix*>(a); }

int64_t finish(const matrix& c, double* total) {
  if (total != nullptr) *total = c.sum();
  return c.nonZeros();
}
int64_t multiply(void* a, void* b, double* total) {
  const matrix c = *static_cast<matrix*>(a) * *static_cast<matrix*>(b);
  return finish(c, total);
}
int64_t add(void* a, void* b, double* total) {
  const matrix c = *static_cast<matrix*>(a) + *static_cast<matrix*>(b);
  return finish(c, total);
}

}  // namespace

extern "C" [[gnu::visibility("default")]] const matrix_peer zor_matrix_peer;
const matrix_peer zor_matrix_peer = {make, release, multiply, add};

}  // namespace zor_bench
