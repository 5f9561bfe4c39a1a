// SPDX-License-Identifier: MIT
// To be loaded before HPL (LD_PRELOAD): hashes what passes through its BLAS calls and belongs to the factors
// and the solution, and prints a line a rank when the process ends. Columns of L are the results of dscal,
// the rows of U beside its diagonal blocks those of dtrsm; the diagonal blocks are the matrices of the dtrsv
// that end with the solution. Elements are added up, so that the order in which HPL takes its blocks does not
// show.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static uint64_t sum, elements;

static void add(const double* x, int n, int inc) {
  for (int i = 0; i < n; ++i) {
    uint64_t bits;
    memcpy(&bits, x + (int64_t)i * inc, sizeof bits);
    bits = (bits ^ bits >> 31) * UINT64_C(0x9e3779b97f4a7c15);
    sum += (bits ^ bits >> 29) * UINT64_C(0xbf58476d1ce4e5b9);
  }
  elements += (uint64_t)n;
}

// Defines `real` as the function that this library stands before.
#define REAL(name)               \
  static __typeof__(name)* real; \
  if (real == NULL) *(void**)&real = dlsym(RTLD_NEXT, #name)

enum { by_rows = 101, upper = 121 };

void cblas_dscal(int n, double alpha, double* x, int incx) {
  REAL(cblas_dscal);
  real(n, alpha, x, incx);
  add(x, n, incx);
}

void cblas_dtrsm(int order, int side, int uplo, int trans, int diag, int m, int n, double alpha,
                 const double* a, int lda, double* b, int ldb) {
  REAL(cblas_dtrsm);
  real(order, side, uplo, trans, diag, m, n, alpha, a, lda, b, ldb);
  for (int j = 0; j < (order == by_rows ? m : n); ++j) add(b + (int64_t)j * ldb, order == by_rows ? n : m, 1);
}

void cblas_dtrsv(int order, int uplo, int trans, int diag, int n, const double* a, int lda, double* x,
                 int incx) {
  REAL(cblas_dtrsv);
  real(order, uplo, trans, diag, n, a, lda, x, incx);
  add(x, n, incx);
  for (int j = 0; j < n; ++j)
    if ((order == by_rows) == (uplo == upper))
      add(a + (int64_t)j * lda + j, n - j, 1);
    else
      add(a + (int64_t)j * lda, j + 1, 1);
}

__attribute__((destructor)) static void print(void) {
  const char* rank = getenv("OMPI_COMM_WORLD_RANK");
  if (elements > 0)
    fprintf(stderr, "factors %s %llu %016llx\n", rank != NULL ? rank : "0", (unsigned long long)elements,
            (unsigned long long)sum);
}
