// SPDX-License-Identifier: MIT
// The names of solves with a matrix in coordinates.
#include "spblas/coo/coo.h"
#include "zor/signatures/spblas.h"

#define ROW_coo_svout_seq(name, T, I, base, op, shape, tri, diag)                           \
  extern "C" SIG_coo_svout_seq(name, T, I) {                                                \
    (void)unread1, (void)unread2, (void)unread3;                                            \
    if (*m < 1) return;                                                                     \
    zor::sparse::solve<T, false, I>(ZOR_VIEW(op, shape, tri, diag),                         \
                                    {{val, rowind, colind, *nnz, base}, *m, 0, 1, {y, 0}}); \
  }
#define ROW_coo_smout_par(name, T, I, base, op, shape, tri, diag)               \
  extern "C" SIG_coo_smout_par(name, T, I) {                                    \
    (void)unread1, (void)unread2;                                               \
    if (*m < 1 || *last < *first) return;                                       \
    zor::sparse::solve<T, base == 0, I>(                                        \
        ZOR_VIEW(op, shape, tri, diag),                                         \
        {{val, rowind, colind, *nnz, base}, *m, *first - 1, *last, {c, *ldc}}); \
  }
#include "zor/tables/spblas_coo.inc"
