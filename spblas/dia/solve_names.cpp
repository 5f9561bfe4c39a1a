// SPDX-License-Identifier: MIT
// The names of solves with a matrix in diagonals.
#include "spblas/dia/dia.h"
#include "zor/signatures/spblas.h"

#define SOLVE(T, view, m, from, to, ndiag, dfirst, dlast, dmain, ...)                      \
  if ((m) > 0 && (to) > (from))                                                            \
    zor::sparse::solve<T>(view, {{val, *lval, zor::sparse::stored_integers(idiag), ndiag}, \
                                 m,                                                        \
                                 from,                                                     \
                                 to,                                                       \
                                 dfirst,                                                   \
                                 dlast,                                                    \
                                 dmain,                                                    \
                                 {__VA_ARGS__}});

#define ROW_dia_svout_seq(name, T, I, base, op, shape, tri, diag)                        \
  extern "C" SIG_dia_svout_seq(name, T, I) {                                             \
    (void)unread;                                                                        \
    SOLVE(T, ZOR_VIEW(op, shape, tri, diag), *m, 0, 1, 0, *dfirst, *dlast, *dmain, y, 0) \
  }
#define ROW_dia_svout_unit_seq(name, T, I, base, op, shape, tri, diag)              \
  extern "C" SIG_dia_svout_unit_seq(name, T, I) {                                   \
    SOLVE(T, ZOR_VIEW(op, shape, tri, diag), *m, 0, 1, 0, *dfirst, *dlast, 0, y, 0) \
  }
#define ROW_dia_svout_diag_seq(name, T, I, base, op, shape, tri, diag)        \
  extern "C" SIG_dia_svout_diag_seq(name, T, I) {                             \
    SOLVE(T, ZOR_VIEW(op, shape, tri, diag), *m, 0, 1, *ndiag, 0, 0, 0, y, 0) \
  }
#define ROW_dia_smout_par(name, T, I, base, op, shape, tri, diag)                                        \
  extern "C" SIG_dia_smout_par(name, T, I) {                                                             \
    (void)unread1, (void)unread2;                                                                        \
    SOLVE(T, ZOR_VIEW(op, shape, tri, diag), *m, *first - 1, *last, 0, *dfirst, *dlast, *dmain, c, *ldc) \
  }
#define ROW_dia_smout_unit_par(name, T, I, base, op, shape, tri, diag)                              \
  extern "C" SIG_dia_smout_unit_par(name, T, I) {                                                   \
    (void)unread;                                                                                   \
    SOLVE(T, ZOR_VIEW(op, shape, tri, diag), *m, *first - 1, *last, 0, *dfirst, *dlast, 0, c, *ldc) \
  }
#define ROW_dia_smout_diag_seq(name, T, I, base, op, shape, tri, diag)            \
  extern "C" SIG_dia_smout_diag_seq(name, T, I) {                                 \
    SOLVE(T, ZOR_VIEW(op, shape, tri, diag), *m, 0, *n, *ndiag, 0, 0, 0, c, *ldc) \
  }
#include "zor/tables/spblas_dia.inc"
