/* SPDX-License-Identifier: MIT
 * Sparse BLAS kernels. Every name exists twice: zor_spblas_* with 64-bit integers and zor_spblas_lp64_* with
 * 32-bit ones. All arguments are pointers and none is checked; an empty range or a size at or below zero
 * returns at once. The grammar of the kernels' names stands in zor/tables/spblas_grammar.inc. */
#ifndef ZOR_SPBLAS_H
#define ZOR_SPBLAS_H

#include "zor/types.h"

ZOR_BEGIN_C

/* Service routines. The elements are of the type in the name. */

/* x[0 .. n-1] := zero bytes. */
#define ROW_ZEROS(name, T, I) void name(T* x, const I* n);
/* *x := 1. */
#define ROW_ONES(name, T, I) void name(T* x);
/* *x := 0 - *x, each part for itself, so that no zero comes out negative. */
#define ROW_NEONES(name, T, I) void name(T* x);
/* *flag := 0 if *x equals zero, otherwise 1, a NaN in either part included. */
#define ROW_ZEROCHECK(name, T, I) void name(const T* x, I* flag);
/* Merges private results. For i from first to last (1-based, inclusive), part p of y[i-1] is
 * work[i-1 + p stride], p from 0 to nparts - 1; they are added in pairs, part 1 + part 0 first, an odd last
 * one alone. */
#define ROW_MERGE(name, T, I) \
  void name(const I* first, const I* last, const I* nparts, const I* stride, const T* work, T* y);
/* Merges packed private results: for q from 1 to nparts, y[0 .. count-1] grows by the segment that starts at
 * work[s2 (q-1) + s1 (nparts - q - q(q-1)/2)]. */
#define ROW_MERGE_SYM(name, T, I) \
  void name(const I* count, const I* s1, const I* nparts, const I* s2, const T* work, T* y);
#include "zor/tables/spblas_service.inc"

/* CSR. Row r holds the entries pntrb[r] - pntrb[0] .. pntre[r] - pntrb[0] - 1 of val (values) and indx
 * (columns, in the base of the name), whatever pntrb[0] is; entries may stand in any order and repeat. A name
 * ending in f has its dense operands column-major, element (i, j) at i + j ld, one ending in c row-major, at
 * i ld + j. first and last count from 1 in both bases and are inclusive. Products add to y and C, which the
 * caller has scaled or cleared. x and y, B and C do not overlap.
 *
 * mvout: y := y + alpha op(A) x. par takes rows first to last, of which only those rows of y are written in
 * the general and triangular views; in the symmetric, Hermitian and antisymmetric views any row may be, so
 * that ranges run at once need a y of their own (zor_spblas_?split_par merges them). The members ns?n address
 * x and y relative to row first: the caller passes pointers advanced to it. An antisymmetric op c conjugates
 * A and does not change its sign. mmout: C := C + alpha op(A) B; par takes right-hand sides first to last of
 * n. gemvout: y := A x for rows first to last; row pointers ia of m + 1 entries.
 *
 * svout: y := op(T)^-1 y, T the triangle or the diagonal of A. smout: C := op(T)^-1 C for right-hand sides
 * first to last of n. Columns ascend in a row. Only the diagonal view reads alpha and applies it; for the
 * others the caller has. The pivot is looked for, not tested: it is the first entry of the row whose column
 * is not below the row, in a transposed lower solve the last whose column is not above it, and where the row
 * has none the entry next to the row, so that one entry before and behind the arrays may be read. A unit
 * diagonal reads no pivot. svout divides by the pivot, and so do transposed smout; others multiply by its
 * reciprocal, which may differ in the last bit. Lower smout, plain or conjugated, take n elements from the
 * pool; when memory is short they solve and divide like svout, those of base 1 with the row pointers as
 * positions from 0, whatever pntrb[0] is. */
#define ROW_csr_mvout_par(name, T, I, ...)                                                          \
  void name(const I* first, const I* last, const I* m, const T* alpha, const T* val, const I* indx, \
            const I* pntrb, const I* pntre, const T* x, T* y);
#define ROW_csr_mvout_seq(name, T, I, ...)                                                           \
  void name(const I* m, const T* alpha, const T* val, const I* indx, const I* pntrb, const I* pntre, \
            const T* x, T* y);
#define ROW_csr_mmout_par(name, T, I, ...)                                                       \
  void name(const I* first, const I* last, const I* m, const I* n, const T* alpha, const T* val, \
            const I* indx, const I* pntrb, const I* pntre, const T* b, const I* ldb, T* c, const I* ldc);
#define ROW_csr_mmout_seq(name, T, I, ...)                                                       \
  void name(const I* m, const I* n, const T* alpha, const T* val, const I* indx, const I* pntrb, \
            const I* pntre, const T* b, const I* ldb, T* c, const I* ldc);
#define ROW_csr_svout_seq(name, T, I, ...) \
  void name(const I* m, const T* alpha, const T* val, const I* indx, const I* pntrb, const I* pntre, T* y);
#define ROW_csr_smout_par(name, T, I, ...)                                                       \
  void name(const I* first, const I* last, const I* m, const I* n, const T* alpha, const T* val, \
            const I* indx, const I* pntrb, const I* pntre, T* c, const I* ldc);
#define ROW_csr_gemvout_par(name, T, I, ...)                                                       \
  void name(const I* first, const I* last, const void* unread1, const void* unread2, const T* val, \
            const I* indx, const I* ia, const void* unread3, const T* x, T* y);
#include "zor/tables/spblas_grammar.inc"

ZOR_END_C

#endif
