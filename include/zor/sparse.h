/* SPDX-License-Identifier: MIT
 * Sparse matrices: products and triangular solves, checked, divided over threads, the same bits for every
 * number of them.
 *
 *   zor_sparse_desc what = {.format = ZOR_SPARSE_CSR, .type = ZOR_SPARSE_DOUBLE,
 *                           .structure = ZOR_SPARSE_SYMMETRIC, .triangle = ZOR_SPARSE_LOWER,
 *                           .rows = n, .cols = n, .nnz = nnz, .val = val, .indx = indx, .pntrb = rowptr};
 *   zor_sparse a;
 *   if (zor_sparse_create(&a, &what) != ZOR_SPARSE_OK) puts(zor_sparse_error_text());
 *   zor_sparse_dmv(a, ZOR_SPARSE_PLAIN, 1.0, x, 0.0, y);                 // y := A x
 *   zor_sparse_free(&a);
 *
 * Every function but the last returns a status, and writes no operand unless it returns ZOR_SPARSE_OK.
 * examples/sparse_solve.c is a whole program; docs/sparse.md tells more. */
#ifndef ZOR_SPARSE_H
#define ZOR_SPARSE_H

#include "zor/types.h"

ZOR_BEGIN_C

enum {
  ZOR_SPARSE_OK = 0,
  ZOR_SPARSE_NO_MEMORY = 1,
  ZOR_SPARSE_BAD_HANDLE = 2,   /* null, freed, or of another element type than the call's */
  ZOR_SPARSE_BAD_ARGUMENT = 3, /* another argument of the call */
  ZOR_SPARSE_BAD_MATRIX = 4,   /* the description, or an array it names */
  ZOR_SPARSE_NOT_SOLVABLE =
      5, /* the view is no triangle or diagonal, a row is unsorted or its pivot is not there or 0 */
  ZOR_SPARSE_NOT_SUPPORTED = 6 /* a format that has no kernels yet */
};

/* Storage formats. CSR alone is supported. */
enum { ZOR_SPARSE_CSR = 0, ZOR_SPARSE_COO = 1, ZOR_SPARSE_DIA = 2, ZOR_SPARSE_BSR = 3, ZOR_SPARSE_SKY = 4 };

/* Element types. */
enum {
  ZOR_SPARSE_SINGLE = 's',
  ZOR_SPARSE_DOUBLE = 'd',
  ZOR_SPARSE_COMPLEX = 'c',       /* zor_c32 */
  ZOR_SPARSE_DOUBLE_COMPLEX = 'z' /* zor_c64 */
};

/* Views: what the stored entries stand for. All but the general view are square. An entry outside a view
 * does not count, but may show in the last bit: the products of a triangular, symmetric, Hermitian or
 * skew view add it and subtract it again. */
enum {
  ZOR_SPARSE_GENERAL = 'g',    /* every entry counts; entries of one place are added */
  ZOR_SPARSE_TRIANGULAR = 't', /* `triangle` counts, with `diagonal` */
  ZOR_SPARSE_SYMMETRIC = 's',  /* `triangle` stands for both, with `diagonal` */
  ZOR_SPARSE_HERMITIAN =
      'h', /* the same, the mirror image conjugated; complex types. The diagonal counts as stored */
  ZOR_SPARSE_SKEW = 'a',    /* the same, the mirror image negated; the diagonal does not count */
  ZOR_SPARSE_DIAGONAL = 'd' /* the main diagonal alone, with `diagonal` */
};
enum { ZOR_SPARSE_LOWER = 'l', ZOR_SPARSE_UPPER = 'u' };
enum {
  ZOR_SPARSE_STORED = 'n', /* the diagonal is what is stored */
  ZOR_SPARSE_UNIT = 'u'    /* the diagonal is 1, entries stored there do not count */
};

/* op(A). */
enum {
  ZOR_SPARSE_PLAIN = 'n',
  ZOR_SPARSE_TRANSPOSE = 't',
  ZOR_SPARSE_CONJUGATE_TRANSPOSE = 'c',
  ZOR_SPARSE_CONJUGATE = 's'
};

/* Dense operands: element (i, j) at i + j ld, or at i ld + j. */
enum { ZOR_SPARSE_COLUMN_MAJOR = 'f', ZOR_SPARSE_ROW_MAJOR = 'c' };

/* A matrix by its arrays, which stay the caller's. CSR: row r (from 0) holds the entries pntrb[r] - pntrb[0]
 * to pntre[r] - pntrb[0] - 1 of val and indx, in any order for products, by strictly ascending column for
 * solves. Rows may leave gaps but may not overlap. pntre null: pntrb has rows + 1 pointers and a row ends
 * where the next begins. indx holds columns from `base` on; pntrb may begin at any number from 0 on.
 * triangle 0 means lower, diagonal 0 means stored; views that have none do not look at them. The diagonal
 * view with a unit diagonal reads no array. */
typedef struct zor_sparse_desc {
  int32_t format;
  int32_t type;
  int32_t base; /* 0 or 1 */
  int32_t structure;
  int32_t triangle;
  int32_t diagonal;
  zor_int rows, cols;
  zor_int nnz; /* elements of val and of indx */
  const void* val;
  const zor_int* indx;
  const zor_int* pntrb;
  const zor_int* pntre;
} zor_sparse_desc;

/* The same with 32-bit indices. */
typedef struct zor_sparse_desc_lp64 {
  int32_t format;
  int32_t type;
  int32_t base;
  int32_t structure;
  int32_t triangle;
  int32_t diagonal;
  int32_t rows, cols;
  int32_t nnz;
  const void* val;
  const int32_t* indx;
  const int32_t* pntrb;
  const int32_t* pntre;
} zor_sparse_desc_lp64;

typedef struct zor_sparse_matrix* zor_sparse;

/* zor_sparse_create, zor_sparse_create_lp64: look at every row pointer and index, once. On failure *a is null
 * and the text names the first fault; rows, columns and entries in texts count from the matrix's base.
 * Unsorted rows and missing or zero pivots are no fault, but kept for the solves to refuse. The arrays must
 * live as long as *a; 1-based or shifted row pointers of a lower triangle are copied. zor_sparse_check: looks
 * again, after the caller changed an array. Values alone may change without it as long as no pivot becomes 0.
 * After a failure only this call and zor_sparse_free accept the matrix. Not beside another call on the same
 * matrix; all others may share one. zor_sparse_free: sets *a to null. zor_sparse_error_text: why the calling
 * thread's last failure failed; valid until its next. */
#define ROW_SPARSE(result, name, params) result name params;
/* y := alpha op(A) x + beta y. A beta of 0 does not read y, an alpha of 0 reads neither A nor x. x and y do
 * not overlap. */
#define ROW_SPARSE_MV(name, T) int32_t name(zor_sparse a, int32_t op, T alpha, const T* x, T beta, T* y);
/* C := alpha op(A) B + beta C for n right-hand sides. B and C do not overlap. */
#define ROW_SPARSE_MM(name, T)                                                                        \
  int32_t name(zor_sparse a, int32_t op, int32_t layout, zor_int n, T alpha, const T* b, zor_int ldb, \
               T beta, T* c, zor_int ldc);
/* x := alpha op(A)^-1 b, A triangular or diagonal. b may be x itself. */
#define ROW_SPARSE_SV(name, T) int32_t name(zor_sparse a, int32_t op, T alpha, const T* b, T* x);
/* X := alpha op(A)^-1 B for n right-hand sides. B may be X itself, with the same leading dimension. */
#define ROW_SPARSE_SM(name, T)                                                                              \
  int32_t name(zor_sparse a, int32_t op, int32_t layout, zor_int n, T alpha, const T* b, zor_int ldb, T* x, \
               zor_int ldx);
#include "zor/tables/core_spblas.inc"

ZOR_END_C

#endif
