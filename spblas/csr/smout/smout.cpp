// SPDX-License-Identifier: MIT
// The names of solves with a CSR matrix and many right-hand sides.
#include "spblas/csr/smout/smout.h"

#include "zor/signatures/spblas.h"

#define ROW_csr_smout_par(name, T, I, base, op, shape, tri, diag)                   \
  extern "C" SIG_csr_smout_par(name, T, I) {                                        \
    if (*m < 1 || *last < *first) return;                                           \
    constexpr auto v = ZOR_VIEW(op, shape, tri, diag);                              \
    zor::sparse::solve_many<T, base == 0, I>(v, {{val, indx, pntrb, pntre, base},   \
                                                 *m,                                \
                                                 *n,                                \
                                                 *first - 1,                        \
                                                 *last,                             \
                                                 v.structure == 'd' ? *alpha : T{}, \
                                                 {c, *ldc}});                       \
  }
#include "zor/tables/spblas_csr.inc"
