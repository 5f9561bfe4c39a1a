// SPDX-License-Identifier: MIT
// What the private copy of GMP holds beside the exported names.
#pragma once

#include "zor/gmp.h"

extern "C" {
extern zor_gmp_allocate_fn* zor_own___gmp_allocate_func;
extern zor_gmp_reallocate_fn* zor_own___gmp_reallocate_func;
extern zor_gmp_free_fn* zor_own___gmp_free_func;
size_t zor_own___gmpq_out_str(FILE* stream, int base, zor_mpq_srcptr a);
void zor_own___gmpn_sqr(zor_limb* r, const zor_limb* a, long n);
}
