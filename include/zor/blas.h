/* SPDX-License-Identifier: MIT
 * Dense BLAS. All arguments are pointers, integers 64-bit signed, matrices column-major with a leading
 * dimension. An option letter is the first byte of its argument, in either case. */
#ifndef ZOR_BLAS_H
#define ZOR_BLAS_H

#include "zor/types.h"

ZOR_BEGIN_C

/* libzor_core: arguments checked, work divided over threads, the same bits for every number of threads. */

/* C := alpha op(A) op(B) + beta C; op(A) is m by k, op(B) k by n. */
#define ROW_GEMM(name, T)                                                                                  \
  void name(const char* transa, const char* transb, const zor_int* m, const zor_int* n, const zor_int* k,  \
            const T* alpha, const T* a, const zor_int* lda, const T* b, const zor_int* ldb, const T* beta, \
            T* c, const zor_int* ldc);
/* y := alpha op(A) x + beta y; A is m by n. */
#define ROW_GEMV(name, T)                                                                      \
  void name(const char* trans, const zor_int* m, const zor_int* n, const T* alpha, const T* a, \
            const zor_int* lda, const T* x, const zor_int* incx, const T* beta, T* y, const zor_int* incy);
/* y := alpha x + y. */
#define ROW_AXPY(name, T) \
  void name(const zor_int* n, const T* alpha, const T* x, const zor_int* incx, T* y, const zor_int* incy);
/* x and y exchanged. */
#define ROW_SWAP(name, T) void name(const zor_int* n, T* x, const zor_int* incx, T* y, const zor_int* incy);
/* The sum of x[i] y[i]. */
#define ROW_DOT(name, T) \
  T name(const zor_int* n, const T* x, const zor_int* incx, const T* y, const zor_int* incy);
/* *result := the sum of x[i] y[i], x conjugated when the name ends in c. */
#define ROW_CDOT(name, T) \
  void name(T* result, const zor_int* n, const T* x, const zor_int* incx, const T* y, const zor_int* incy);
/* One triangle of A := alpha x x^T + A. */
#define ROW_SYR(name, T)                                                                               \
  void name(const char* uplo, const zor_int* n, const T* alpha, const T* x, const zor_int* incx, T* a, \
            const zor_int* lda);
#include "zor/tables/core_blas.inc"

/* libzor_kern: the calling thread does the whole, arguments are trusted. Sizes at or below zero return at
 * once, except the depth of a product. */

/* Matrix-vector kernels, as zor_blas_?gemv and zor_blas_?syr; docs/numerics.md has the orders of sums. Any
 * letter but N and n means transposed, C and c conjugated too (complex); any uplo but U and u means the lower
 * triangle. m or n at or below 0 leaves y as it is. */
#define ROW_XGEMV(name, T)                                                                     \
  void name(const char* trans, const zor_int* m, const zor_int* n, const T* alpha, const T* a, \
            const zor_int* lda, const T* x, const zor_int* incx, const T* beta, T* y, const zor_int* incy);
#define ROW_XSYR(name, T)                                                                              \
  void name(const char* uplo, const zor_int* n, const T* alpha, const T* x, const zor_int* incx, T* a, \
            const zor_int* lda);
#include "zor/tables/blas_matvec.inc"

/* libzor_kern, vector kernels: the whole range on the calling thread, nothing checked, n of 0 or less does
 * nothing or gives 0. A vector is n elements, inc apart; "standard walk" means that a negative increment
 * starts at x + (1-n) inc. Elements need no alignment, but the sums of asum, snrm2, scnrm2 and dot are
 * grouped by the positions of x and y modulo 16 bytes, which are part of the input. The order of every sum
 * stands in docs/numerics.md. Nothing outside the elements is read or written. */

/* The sum of magnitudes, |re| + |im| for complex. A negative increment runs over the same elements as its
 * absolute value, 0 counts x[0] n times. */
#define ROW_ASUM(name, T, R) R name(const zor_int* n, const T* x, const zor_int* incx);
/* The Euclidean norm. An increment of 0 counts x[0] n times. Double precision scales, so nothing overflows
 * before the result does (two infinities give NaN); it walks from x[0] with the absolute increment. Single
 * precision sums in double, with the standard walk. */
#define ROW_NRM2(name, T, R) R name(const zor_int* n, const T* x, const zor_int* incx);
/* The 1-based index of the first largest (smallest) magnitude, |re| + |im| for complex; 0 if n or incx is 0
 * or less. A NaN is taken where it is met and the next element replaces it: 1, NaN, 0 gives 3. */
#define ROW_IAMAX(name, T) zor_int name(const zor_int* n, const T* x, const zor_int* incx);
#define ROW_IAMIN(name, T) zor_int name(const zor_int* n, const T* x, const zor_int* incx);
/* x := alpha x. alpha of exactly 1 leaves x alone, alpha of 0 multiplies. Increments as for asum. */
#define ROW_SCAL(name, T, A) void name(const zor_int* n, const A* alpha, T* x, const zor_int* incx);
/* y := alpha x + y, standard walk; alpha of 0 does nothing. */
#define ROW_AXPY(name, T) \
  void name(const zor_int* n, const T* alpha, const T* x, const zor_int* incx, T* y, const zor_int* incy);
/* y := x, standard walk. */
#define ROW_COPY(name, T) \
  void name(const zor_int* n, const T* x, const zor_int* incx, T* y, const zor_int* incy);
/* x and y exchanged, standard walk. */
#define ROW_SWAP(name, T) void name(const zor_int* n, T* x, const zor_int* incx, T* y, const zor_int* incy);
/* The sum of x[i] y[i], standard walk. */
#define ROW_DOT(name, T) \
  T name(const zor_int* n, const T* x, const zor_int* incx, const T* y, const zor_int* incy);
/* *result := the sum of x[i] y[i], x conjugated when the name ends in c; standard walk. */
#define ROW_CDOT(name, T, conj) \
  void name(T* result, const zor_int* n, const T* x, const zor_int* incx, const T* y, const zor_int* incy);
/* The sum of x[i] y[i] in double, standard walk. */
#define ROW_DSDOT(name) \
  double name(const zor_int* n, const float* x, const zor_int* incx, const float* y, const zor_int* incy);
/* sb plus the sum of x[i] y[i], in double, rounded once; sb if n is 0 or less. Standard walk. */
#define ROW_SDSDOT(name)                                                                             \
  float name(const zor_int* n, const float* sb, const float* x, const zor_int* incx, const float* y, \
             const zor_int* incy);
/* (x, y) := (c x + s y, c y - conj(s) x), standard walk. */
#define ROW_ROT(name, T, C, S) \
  void name(const zor_int* n, T* x, const zor_int* incx, T* y, const zor_int* incy, const C* c, const S* s);
/* The rotation that takes (a, b) to (r, 0): a := r, c and s are set. Real: b := z, from which c and s can be
 * had again (c = 0, s = 1 if z = 1; s = z if |z| < 1; c = 1/z else). Complex: b is left. */
#define ROW_ROTG(name, T, R) void name(T* a, T* b, R* c, T* s);
/* (x, y) := H (x, y), standard walk. param is flag, h11, h21, h12, h22. Flag -2: nothing to do; -1: the full
 * H; 0: unit diagonal; 1: h12 = 1, h21 = -1. */
#define ROW_ROTM(name, T) \
  void name(const zor_int* n, T* x, const zor_int* incx, T* y, const zor_int* incy, const T* param);
/* The modified rotation that clears y1 of (sqrt(d1) x1, sqrt(d2) y1): d1, d2, x1 and param are set, param
 * holding only the entries that its flag does not imply. */
#define ROW_ROTMG(name, T) void name(T* d1, T* d2, T* x1, const T* y1, T* param);
/* |re| + |im|. */
#define ROW_CABS1(name, T, R) R name(const T* z);

/* Compressed vectors: n values x and their 1-based positions indx in y, taken in order. */

/* y[indx[i]-1] := alpha x[i] + y[indx[i]-1]; alpha of 0 does nothing. */
#define ROW_AXPYI(name, T) void name(const zor_int* n, const T* alpha, const T* x, const zor_int* indx, T* y);
/* The sum of x[i] y[indx[i]-1]. */
#define ROW_DOTI(name, T) T name(const zor_int* n, const T* x, const zor_int* indx, const T* y);
/* *result := the sum of x[i] y[indx[i]-1], x conjugated when the name ends in ci. */
#define ROW_CDOTI(name, T, conj) \
  void name(T* result, const zor_int* n, const T* x, const zor_int* indx, const T* y);
/* x[i] := y[indx[i]-1]; gthrz then clears that element of y, so a repeated position reads 0. */
#define ROW_GTHR(name, T) void name(const zor_int* n, const T* y, T* x, const zor_int* indx);
#define ROW_GTHRZ(name, T) void name(const zor_int* n, T* y, T* x, const zor_int* indx);
/* y[indx[i]-1] := x[i]; a repeated position keeps the last. */
#define ROW_SCTR(name, T) void name(const zor_int* n, const T* x, const zor_int* indx, T* y);
/* (x[i], y[indx[i]-1]) := (c x + s y, c y - s x); c of 1 with s of 0 does nothing. */
#define ROW_ROTI(name, T) \
  void name(const zor_int* n, T* x, const zor_int* indx, T* y, const T* c, const T* s);
#include "zor/tables/blas_vector.inc"

/* libzor_kern, the matrix product on the calling thread. Nothing is checked and nothing reported: m or n at
 * or below zero returns at once, a letter that is neither N nor (complex) C counts as T. */

/* C := alpha op(A) op(B) + beta C, op(A) m by k, op(B) k by n; C := beta C when k is not positive or alpha is
 * 0. C is not read when beta is 0. Scratch is the pool's; without it the sums run in another order. */
#define ROW_XGEMM(name, T)                                                                                 \
  void name(const char* transa, const char* transb, const zor_int* m, const zor_int* n, const zor_int* k,  \
            const T* alpha, const T* a, const zor_int* lda, const T* b, const zor_int* ldb, const T* beta, \
            T* c, const zor_int* ldc);
/* C := beta C, C m by n. A beta of 0 stores zeros and reads nothing, any other multiplies. */
#define ROW_MSCALE(name, T) \
  void name(const zor_int* m, const zor_int* n, const T* beta, T* c, const zor_int* ldc);
/* Packs alpha op(A), m by k, into strips of 4 (double, single complex), 8 (single) or 2 (double complex)
 * rows. With kpad = k rounded up to a multiple of 4, a strip holds kpad groups, one a value of the depth, the
 * depth beyond k as zeros; a group is the strip's rows, for complex types their real parts and then their
 * imaginary parts. Rows after the last complete strip: in double precision 1 or 2 rows make a strip of 2, 3
 * rows one of 4, missing rows as zeros; in the other types they are left out. destination is 16-byte aligned.
 */
#define ROW_COPYA(name, T, form)                                                                \
  void name(const zor_int* m, const zor_int* k, const T* a, const zor_int* lda, T* destination, \
            const T* alpha);
/* Packs op(B), k by n, into strips of 4 columns: kpad groups of the strip's columns, the depth beyond k as
 * zeros. Columns after the last complete strip: in double precision a strip of their number, in the other
 * types left out. The c form conjugates: imaginary part 0 - im. destination is 16-byte aligned. */
#define ROW_COPYB(name, T, form) \
  void name(const zor_int* k, const zor_int* n, const T* b, const zor_int* ldb, T* destination);
#include "zor/tables/blas_gemm.inc"

ZOR_END_C

#endif
