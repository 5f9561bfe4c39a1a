// SPDX-License-Identifier: MIT
// The names of skyline kernels. Two flags tell the form of an operation by agreeing or not.
#include "spblas/sky/sky.h"
#include "zor/signatures/spblas.h"

#define PROFILES \
  { val, zor::sparse::stored_integers(pntr) }
#define DIFFER(flag1, flag2) ((*(flag1) != 0) != (*(flag2) != 0))
#define PRODUCT                                      \
  {                                                  \
    PROFILES, *m, *n, *alpha, {b, *ldb}, { c, *ldc } \
  }

#define ROW_SKY_TRIANGULAR(name, T, I)                                            \
  extern "C" SIG_SKY_TRIANGULAR(name, T, I) {                                     \
    (void)unread;                                                                 \
    zor::sparse::multiply_triangle<T>(DIFFER(flag1, flag2), *diag != 0, PRODUCT); \
  }
#define ROW_SKY_SYMMETRIC(name, T, I)                        \
  extern "C" SIG_SKY_SYMMETRIC(name, T, I) {                 \
    (void)unread;                                            \
    zor::sparse::multiply_symmetric<T>(*diag != 0, PRODUCT); \
  }
#define ROW_SKY_SKEW(name, T, I)                                  \
  extern "C" SIG_SKY_SKEW(name, T, I) {                           \
    (void)unread;                                                 \
    zor::sparse::multiply_skew<T>(DIFFER(flag1, flag2), PRODUCT); \
  }
#define ROW_SKY_SOLVE(name, T, I)                                                      \
  extern "C" SIG_SKY_SOLVE(name, T, I) {                                               \
    (void)unread;                                                                      \
    zor::sparse::solve_profiles<T>(DIFFER(flag1, flag2), *diag != 0, PROFILES, *m, y); \
  }
#include "zor/tables/spblas_stems.inc"
