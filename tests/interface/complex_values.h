/* SPDX-License-Identifier: MIT
 * Calls with the language's own complex values, by pointer and by value, on numbers whose results are exact.
 * The includer says what a complex value is: complex32, complex64, value32(re, im) and value64(re, im). */
#include <stdio.h>
#include <string.h>
#include <zor/blas.h>
#include <zor/sparse.h>

static int failures = 0;
static void expect(int good, const char* what) {
  if (good) return;
  printf("wrong: %s\n", what);
  failures++;
}

/* (1+2i) (3+4i) + 5i = -5+15i */
static void products(void) {
  const zor_int one = 1, two = 2;
  const complex64 a[2] = {value64(1, 2), value64(2, -1)}, b[2] = {value64(3, 4), value64(1, 1)};
  const complex64 alpha = value64(1, 0), beta = value64(1, 0);
  complex64 c = value64(0, 5), dot;
  zor_blas_zgemm("N", "N", &one, &one, &one, &alpha, a, &one, b, &one, &beta, &c, &one);
  expect(c == value64(-5, 15), "zgemm");
  zor_blas_zdotu(&dot, &two, a, &one, b, &one);
  expect(dot == value64(-2, 11), "zdotu");
}

/* y := alpha A x + beta y with A = diag(2, i); scalars go by value. */
static void sparse_products(void) {
  const complex64 val[2] = {value64(2, 0), value64(0, 1)}, x[2] = {value64(1, 1), value64(3, 0)};
  const complex32 val32[2] = {value32(2, 0), value32(0, 1)}, x32[2] = {value32(1, 1), value32(3, 0)};
  const zor_int indx[2] = {0, 1}, rowptr[3] = {0, 1, 2};
  complex64 y[2] = {value64(1, 0), value64(1, 0)};
  complex32 y32[2] = {value32(1, 0), value32(1, 0)};
  zor_sparse_desc what;
  zor_sparse a;
  memset(&what, 0, sizeof what);
  what.type = ZOR_SPARSE_DOUBLE_COMPLEX;
  what.structure = ZOR_SPARSE_GENERAL;
  what.rows = what.cols = what.nnz = 2;
  what.val = val;
  what.indx = indx;
  what.pntrb = rowptr;
  expect(zor_sparse_create(&a, &what) == ZOR_SPARSE_OK, "create");
  expect(zor_sparse_zmv(a, ZOR_SPARSE_PLAIN, value64(1, 1), x, value64(2, -3), y) == ZOR_SPARSE_OK, "zmv");
  expect(y[0] == value64(2, 1) && y[1] == value64(-1, 0), "zmv's values");
  expect(zor_sparse_free(&a) == ZOR_SPARSE_OK, "free");
  what.type = ZOR_SPARSE_COMPLEX;
  what.val = val32;
  expect(zor_sparse_create(&a, &what) == ZOR_SPARSE_OK, "create");
  expect(zor_sparse_cmv(a, ZOR_SPARSE_PLAIN, value32(1, 1), x32, value32(2, -3), y32) == ZOR_SPARSE_OK,
         "cmv");
  expect(y32[0] == value32(2, 1) && y32[1] == value32(-1, 0), "cmv's values");
  expect(zor_sparse_free(&a) == ZOR_SPARSE_OK, "free");
}

int main(void) {
  products();
  sparse_products();
  if (failures == 0) puts("complex values arrive");
  return failures != 0;
}
