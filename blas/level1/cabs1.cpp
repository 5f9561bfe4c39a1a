// SPDX-License-Identifier: MIT
// |re| + |im| of one complex value.
#include "zor/signatures/blas.h"

#include "blas/level1/walk.h"

#define ROW_CABS1(name, T, R) \
  extern "C" SIG_CABS1(name, T, R) { return zor::magnitude(*z); }
#include "zor/tables/blas_vector.inc"
