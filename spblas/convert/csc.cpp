// SPDX-License-Identifier: MIT
// CSR to compressed columns and back, a transposition either way.
#include "spblas/convert/job.h"
#include "spblas/transpose.h"
#include "zor/signatures/spblas_matrix.h"

namespace zor::sparse {
namespace {

template <class I>
void transpose_square(zor_int n, bool with_values, const double* a, const I* ja, const I* ia, zor_int base,
                      double* t, I* jt, I* it, zor_int new_base) {
  const zor_int rows = n > 0 ? n : 0;
  transpose<double, I>({rows, rows, ia, ja, with_values ? a : nullptr, base, new_base},
                       {it, jt, t, new_base});
}

}  // namespace
}  // namespace zor::sparse

#define ROW_CSR_CSC(name, I)                                                                        \
  extern "C" SIG_CSR_CSC(name, I) {                                                                 \
    const auto wanted = zor::sparse::read_job(job);                                                 \
    const bool values = wanted.fill != 0;                                                           \
    if (wanted.from_csr)                                                                            \
      zor::sparse::transpose_square<I>(*n, values, acsr, ja, ia, wanted.csr_base, acsc, ja1, ia1,   \
                                       wanted.other_base);                                          \
    else                                                                                            \
      zor::sparse::transpose_square<I>(*n, values, acsc, ja1, ia1, wanted.other_base, acsr, ja, ia, \
                                       wanted.csr_base);                                            \
  }
#include "zor/tables/spblas_conv.inc"
