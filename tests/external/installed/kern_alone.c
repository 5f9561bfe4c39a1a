/* SPDX-License-Identifier: MIT
 * A program of the kernel library alone. */
#include <stdio.h>
#include <zor/blas.h>

int main(void) {
  const zor_int n = 3, one = 1;
  const double x[3] = {1, 2, 3}, y[3] = {4, 5, 6};
  const double sum = zor_blas_xddot(&n, x, &one, y, &one);
  printf("dot %g\n", sum);
  return sum != 32;
}
