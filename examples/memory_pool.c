/* SPDX-License-Identifier: MIT
 * Scratch memory from the pool, and a long-lived aligned array that grows. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include "zor/serv.h"

enum { columns = 100, rows = 1000 };

/* The sum of one column of a row-major matrix, by way of a contiguous, aligned copy. */
static int column_sum(const double* matrix, int column, double* sum) {
  double* copy = zor_serv_allocate(rows * sizeof(double), 64);
  if (copy == NULL) return 1;
  for (int i = 0; i < rows; ++i) copy[i] = matrix[i * columns + column];
  *sum = 0.0;
  for (int i = 0; i < rows; ++i) *sum += copy[i];
  zor_serv_deallocate(copy); /* the block stays with this thread for the next column */
  return 0;
}

static void report(const char* when) {
  int32_t blocks;
  const uint64_t bytes = zor_serv_zor_memstat(&blocks);
  printf("%-24s %d block(s), %llu bytes in the pool\n", when, (int)blocks, (unsigned long long)bytes);
}

int main(void) {
  double* matrix = zor_serv_zor_malloc(rows * columns * sizeof(double), 64);
  if (matrix == NULL) return EXIT_FAILURE;
  for (int i = 0; i < rows * columns; ++i) matrix[i] = i % columns;

  double total = 0.0;
  for (int j = 0; j < columns; ++j) {
    double sum;
    if (column_sum(matrix, j, &sum) != 0) return EXIT_FAILURE;
    total += sum;
  }
  report("after 100 columns:");
  zor_serv_freebuffers();
  report("after freebuffers:");

  /* Growing keeps the contents. On failure the old array would still stand. */
  double* larger = zor_serv_zor_realloc(matrix, 2 * rows * columns * sizeof(double));
  if (larger == NULL) {
    zor_serv_zor_free(matrix);
    return EXIT_FAILURE;
  }
  printf("total %.1f, last element %.1f\n", total, larger[rows * columns - 1]);
  zor_serv_zor_free(larger);
  return total == 4950000.0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
