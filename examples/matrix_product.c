/* SPDX-License-Identifier: MIT
 * A matrix product, the library's answer to a wrong argument, and the same bits for any number of threads. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zor/blas.h"
#include "zor/core.h"

static void tell(const char* routine, int32_t position, const char* argument) {
  printf("%s: look at argument %d, %s\n", routine, position, argument);
}

int main(void) {
  const zor_int n = 400, too_small = n - 1;
  const double alpha = 1, beta = 0;
  const size_t bytes = (size_t)(n * n) * sizeof(double);
  double *a = malloc(bytes), *one = malloc(bytes), *many = malloc(bytes);
  if (a == NULL || one == NULL || many == NULL) return 1;
  for (zor_int j = 0; j < n; ++j)
    for (zor_int i = 0; i < n; ++i) a[i + j * n] = 1.0 / (double)(i + j + 1);

  printf("kernels: %s\n", zor_core_kern_build());
  zor_core_set_num_threads(1);
  zor_blas_dgemm("N", "T", &n, &n, &n, &alpha, a, &n, a, &n, &beta, one, &n);
  zor_core_set_num_threads(0);
  zor_blas_dgemm("N", "T", &n, &n, &n, &alpha, a, &n, a, &n, &beta, many, &n);
  printf("element (0,0): %.17g\n", one[0]);
  printf("one thread or %d: %s\n", zor_core_num_threads(),
         memcmp(one, many, bytes) == 0 ? "the same bits" : "different bits");

  zor_core_set_error_handler(tell);
  zor_blas_dgemm("N", "T", &n, &n, &n, &alpha, a, &too_small, a, &n, &beta, many, &n);

  const int same = memcmp(one, many, bytes) == 0;
  free(a);
  free(one);
  free(many);
  return same ? 0 : 1;
}
