/* SPDX-License-Identifier: MIT
 * Temperatures along a rod that is heated inside and kept at 0 at both ends: A x = b with A tridiagonal,
 * solved through its Cholesky factor by two triangular solves, for one and for three heatings; and what the
 * library answers to a wrong index. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include "zor/sparse.h"

enum { n = 1000, nnz = 2 * n - 1, heatings = 3 };

/* Lower bidiagonal matrices in CSR: row r holds its left neighbour, then its diagonal. */
static zor_int indx[nnz], rowptr[n + 1];
static double a_val[nnz], l_val[nnz];

static void fill(void) {
  zor_int k = 0;
  for (zor_int r = 0; r < n; ++r) {
    rowptr[r] = k;
    if (r > 0) {
      a_val[k] = -1;
      l_val[k] = -1 / l_val[k - 1];
      indx[k++] = r - 1;
    }
    a_val[k] = 2;
    l_val[k] = sqrt(2 - (r > 0 ? l_val[k - 1] * l_val[k - 1] : 0));
    indx[k++] = r;
  }
  rowptr[n] = k;
}

static zor_sparse_desc described(int32_t structure, const double* val) {
  zor_sparse_desc d = {.format = ZOR_SPARSE_CSR,
                       .type = ZOR_SPARSE_DOUBLE,
                       .structure = structure,
                       .triangle = ZOR_SPARSE_LOWER,
                       .diagonal = ZOR_SPARSE_STORED,
                       .rows = n,
                       .cols = n,
                       .nnz = nnz,
                       .val = val,
                       .indx = indx,
                       .pntrb = rowptr};
  return d;
}

/* Whether a call failed; tells why. */
static int failed(int32_t status) {
  if (status != ZOR_SPARSE_OK) printf("%s\n", zor_sparse_error_text());
  return status != ZOR_SPARSE_OK;
}

int main(void) {
  static double b[n * heatings], x[n * heatings], residual[n];
  fill();
  const zor_sparse_desc whole = described(ZOR_SPARSE_SYMMETRIC, a_val);
  const zor_sparse_desc factor = described(ZOR_SPARSE_TRIANGULAR, l_val);
  zor_sparse a, l;
  if (failed(zor_sparse_create(&a, &whole)) || failed(zor_sparse_create(&l, &factor))) return EXIT_FAILURE;

  /* One heating: L L^T x = b, then b - A x. */
  for (zor_int i = 0; i < n; ++i) b[i] = residual[i] = 1;
  if (failed(zor_sparse_dsv(l, ZOR_SPARSE_PLAIN, 1, b, x)) ||
      failed(zor_sparse_dsv(l, ZOR_SPARSE_TRANSPOSE, 1, x, x)) ||
      failed(zor_sparse_dmv(a, ZOR_SPARSE_PLAIN, -1, x, 1, residual)))
    return EXIT_FAILURE;
  double worst = 0;
  for (zor_int i = 0; i < n; ++i) worst = fmax(worst, fabs(residual[i]));
  printf("hottest: %.6f, exactly %.6f; largest residual %s\n", x[n / 2 - 1], (n / 2) * (n / 2 + 1) / 2.0,
         worst < 1e-9 ? "below 1e-9" : "too large");

  /* Three heatings at once, in columns. */
  for (zor_int i = 0; i < n * heatings; ++i) b[i] = 1 + i / n;
  if (failed(zor_sparse_dsm(l, ZOR_SPARSE_PLAIN, ZOR_SPARSE_COLUMN_MAJOR, heatings, 1, b, n, x, n)) ||
      failed(zor_sparse_dsm(l, ZOR_SPARSE_TRANSPOSE, ZOR_SPARSE_COLUMN_MAJOR, heatings, 1, x, n, x, n)))
    return EXIT_FAILURE;
  printf("three heatings: %.6f %.6f %.6f\n", x[n / 2 - 1], x[n + n / 2 - 1], x[2 * n + n / 2 - 1]);

  /* A wrong index is found when the library looks. */
  indx[5] = n;
  printf("status %d: ", zor_sparse_check(a));
  printf("%s\n", zor_sparse_error_text());
  zor_sparse_free(&a);
  zor_sparse_free(&l);
  return worst < 1e-9 ? EXIT_SUCCESS : EXIT_FAILURE;
}
