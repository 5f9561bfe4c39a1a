// SPDX-License-Identifier: MIT
// The names of products of a matrix in coordinates.
#include "blas/level1/vector.h"
#include "spblas/coo/coo.h"
#include "zor/signatures/spblas.h"

// The triangular views and the 0-based general one read no range of entries: they take all. An empty range
// touches nothing, unless the matrix has no entries at all: its unit diagonal is added then.
#define ROW_coo_mvout_par(name, T, I, base, op, shape, tri, diag)                                         \
  extern "C" SIG_coo_mvout_par(name, T, I) {                                                              \
    (void)k, (void)first, (void)last, (void)nnz, (void)m;                                                 \
    constexpr auto v = ZOR_VIEW(op, shape, tri, diag);                                                    \
    constexpr bool ranged = v.mirrored() || (v.structure == 'g' && base == 1);                            \
    const zor_int from = ranged ? *first - 1 : 0, to = ranged ? *last : *nnz;                             \
    if (ranged && to <= from && !(v.unit() && *nnz < 1)) return;                                          \
    zor::sparse::multiply<T, false, I>(                                                                   \
        v, {{val, rowind, colind, to, base}, from, to, v.unit() ? *m : 0, 0, 1, *alpha, {x, 0}, {y, 0}}); \
  }
#define ROW_coo_mvout_seq(name, T, I, base, op, shape, tri, diag)                            \
  extern "C" SIG_coo_mvout_seq(name, T, I) {                                                 \
    (void)m, (void)unread, (void)val, (void)rowind, (void)colind, (void)nnz;                 \
    constexpr auto v = ZOR_VIEW(op, shape, tri, diag);                                       \
    if constexpr (v.unit())                                                                  \
      zor::axpy<T>(*m, *alpha, x, 1, y, 1);                                                  \
    else                                                                                     \
      zor::sparse::multiply<T, false, I>(                                                    \
          v, {{val, rowind, colind, *nnz, base}, 0, *nnz, 0, 0, 1, *alpha, {x, 0}, {y, 0}}); \
  }
#define ROW_coo_mmout_par(name, T, I, base, op, shape, tri, diag)                    \
  extern "C" SIG_coo_mmout_par(name, T, I) {                                         \
    (void)k, (void)m, (void)nnz;                                                     \
    constexpr auto v = ZOR_VIEW(op, shape, tri, diag);                               \
    constexpr bool identity = v.structure == 'd' && v.unit();                        \
    if (*last < *first) return;                                                      \
    const zor_int entries = identity ? 0 : *nnz;                                     \
    zor::sparse::multiply<T, base == 0, I>(v, {{val, rowind, colind, entries, base}, \
                                               0,                                    \
                                               entries,                              \
                                               v.unit() ? *m : 0,                    \
                                               *first - 1,                           \
                                               *last,                                \
                                               *alpha,                               \
                                               {b, *ldb},                            \
                                               {c, *ldc}});                          \
  }
#include "zor/tables/spblas_coo.inc"
