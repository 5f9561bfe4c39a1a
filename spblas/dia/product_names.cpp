// SPDX-License-Identifier: MIT
// The names of products of a matrix in diagonals.
#include "spblas/dia/dia.h"
#include "zor/signatures/spblas.h"

#define ROW_dia_mvout_par(name, T, I, base, op, shape, tri, diag)                                           \
  extern "C" SIG_dia_mvout_par(name, T, I) {                                                                \
    (void)unread1, (void)unread2;                                                                           \
    zor::sparse::multiply<false, T>(                                                                        \
        ZOR_VIEW(op, shape, tri, diag),                                                                     \
        {{val, *lval, zor::sparse::stored_integers(idiag), *ndiag}, *m, *k, 0, 1, *alpha, {x, 0}, {y, 0}}); \
  }
#define ROW_dia_mmout_par(name, T, I, base, op, shape, tri, diag)                              \
  extern "C" SIG_dia_mmout_par(name, T, I) {                                                   \
    if (*last < *first) return;                                                                \
    zor::sparse::multiply<true, T>(ZOR_VIEW(op, shape, tri, diag),                             \
                                   {{val, *lval, zor::sparse::stored_integers(idiag), *ndiag}, \
                                    *m,                                                        \
                                    *k,                                                        \
                                    *first - 1,                                                \
                                    *last,                                                     \
                                    *alpha,                                                    \
                                    {b, *ldb},                                                 \
                                    {c, *ldc}});                                               \
  }
#include "zor/tables/spblas_dia.inc"
