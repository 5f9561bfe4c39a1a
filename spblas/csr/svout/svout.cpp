// SPDX-License-Identifier: MIT
// The names of solves with a CSR matrix and one right-hand side.
#include "spblas/csr/svout/svout.h"

#include "zor/signatures/spblas.h"

#define ROW_csr_svout_seq(name, T, I, base, op, shape, tri, diag)                                           \
  extern "C" SIG_csr_svout_seq(name, T, I) {                                                                \
    if (*m < 1) return;                                                                                     \
    constexpr auto v = ZOR_VIEW(op, shape, tri, diag);                                                      \
    zor::sparse::solve_one<T, I>(v, {val, indx, pntrb, pntre, base}, *m, v.structure == 'd' ? *alpha : T{}, \
                                 y);                                                                        \
  }
#include "zor/tables/spblas_csr.inc"
