// SPDX-License-Identifier: MIT
// Dense to CSR and back, whole or one triangle.
#include <algorithm>

#include "spblas/convert/job.h"
#include "zor/signatures/spblas_matrix.h"

namespace zor::sparse {
namespace {

struct dense_part {
  zor_int m, n;
  double* a;
  zor_int row_step, column_step;
  zor_int triangle;

  // Columns of row r that belong to the part: first to last - 1.
  zor_int first(zor_int r) const { return triangle == 1 ? std::min(r, n) : 0; }
  zor_int last(zor_int r) const { return triangle == 0 ? std::min(r + 1, n) : n; }
  double& at(zor_int r, zor_int c) const { return a[r * row_step + c * column_step]; }
};

template <class I>
zor_int dense_to_csr(const conversion_job& job, const dense_part& from, double* acsr, I* ja, I* ia) {
  const bool stored = job.fill != 0;
  zor_int count = 0, overfull = 0;
  ia[0] = I(job.other_base);
  for (zor_int r = 0; r < from.m; ++r) {
    for (zor_int c = from.first(r); c < from.last(r); ++c) {
      const double value = from.at(r, c);
      if (!(value != 0)) continue;
      if (count >= job.room) overfull = r + 1;
      if (overfull != 0 && stored) return overfull;
      if (stored) {
        acsr[count] = value;
        ja[count] = I(c + job.other_base);
      }
      ++count;
    }
    ia[r + 1] = I(count + job.other_base);
  }
  return overfull;
}

template <class I>
void csr_to_dense(const conversion_job& job, const double* acsr, const I* ja, const I* ia,
                  const dense_part& to) {
  for (zor_int r = 0; r < to.m; ++r) {
    const zor_int first = to.first(r), last = to.last(r);
    for (zor_int c = first; c < last; ++c) to.at(r, c) = 0;
    for (zor_int k = zor_int(ia[r]) - zor_int(ia[0]); k < zor_int(ia[r + 1]) - zor_int(ia[0]); ++k) {
      const zor_int c = zor_int(ja[k]) - job.other_base;
      if (c >= first && c < last) to.at(r, c) = acsr[k];
    }
  }
}

}  // namespace
}  // namespace zor::sparse

#define ROW_DENSE_CSR(name, I)                                                                          \
  extern "C" SIG_DENSE_CSR(name, I) {                                                                   \
    const auto wanted = zor::sparse::read_job(job);                                                     \
    const bool by_columns = job[1] != 0;                                                                \
    const zor::sparse::dense_part dense{                                                                \
        *m, *n, adns, by_columns ? 1 : zor_int(*lda), by_columns ? zor_int(*lda) : 1, wanted.triangle}; \
    *info = 0;                                                                                          \
    if (wanted.from_csr)                                                                                \
      *info = I(zor::sparse::dense_to_csr(wanted, dense, acsr, ja, ia));                                \
    else                                                                                                \
      zor::sparse::csr_to_dense(wanted, acsr, ja, ia, dense);                                           \
  }
#include "zor/tables/spblas_conv.inc"
