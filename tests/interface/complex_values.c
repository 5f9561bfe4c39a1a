/* SPDX-License-Identifier: MIT
 * T complex* of C without a cast. */
#include <complex.h>

typedef float complex complex32;
typedef double complex complex64;
#define value32(re, im) CMPLXF(re, im)
#define value64(re, im) CMPLX(re, im)

#include "tests/interface/complex_values.h"
