/* SPDX-License-Identifier: MIT
 * Control of libzor_core: threads, the kernel library in use, reports of bad arguments. */
#ifndef ZOR_CORE_H
#define ZOR_CORE_H

#include "zor/types.h"

ZOR_BEGIN_C

/* Told of a bad argument: the routine as the caller named it ("zor_blas_dgemm"), the 1-based position of the
 * first bad argument and its name ("lda"). The call that found it has read no operand, writes nothing and
 * returns (a dot product returns 0) once the handler returns. A handler may run on several threads at once.
 */
typedef void (*zor_core_error_handler)(const char* routine, int32_t position, const char* argument);

/* zor_core_set_num_threads: threads a call may use at most; 0 or less means what OpenMP gives by itself. No
 * number of threads changes a bit of any result. Calls made inside a parallel region of the caller, and in a
 * process forked from one that had several threads, run on the calling thread alone.
 * zor_core_num_threads: the number in force for the calling thread.
 * zor_core_kern_path: the file of the kernel library in use, every link resolved.
 * zor_core_kern_build: "baseline", "x86-64-v3" or "x86-64-v4" by the folder that file stands in, else
 * "unknown".
 * zor_core_set_error_handler: installs a handler and returns the previous one; null installs the one in force
 * at the start, which prints one line to the standard error stream. */
#define ROW_CONTROL(result, name, params) result name params;
#include "zor/tables/core_control.inc"

/* Generic routines behind the names that libzor_kern forwards. Every argument is a pointer; nothing is
 * checked, sizes at or below zero do nothing: block sizes and bytes are 0 then, a scratch block is null. */

/* _htn: alpha op(A), m by k, or op(B), k by n, packed into a panel; the same arguments, the same format and
 * the same bits as the copy routine of zor/blas.h without the suffix. */
#define ROW_COPYA(name, T, copy) \
  void name(const zor_int* m, const zor_int* k, const T* a, const zor_int* lda, T* panel, const T* alpha);
#define ROW_COPYB(name, T, copy) \
  void name(const zor_int* k, const zor_int* n, const T* b, const zor_int* ldb, T* panel);
/* _ext: the same panels, the copy routine chosen by the option letter: N, C (complex), anything else T. */
#define ROW_COPYA_EXT(name, T)                                                                      \
  void name(const char* transa, const zor_int* m, const zor_int* k, const T* a, const zor_int* lda, \
            T* panel, const T* alpha);
#define ROW_COPYB_EXT(name, T) \
  void name(const char* transb, const zor_int* k, const zor_int* n, const T* b, const zor_int* ldb, T* panel);
/* The block sizes of a matrix product of m by n with depth k: rows *mb, columns *nb, depth *kb. */
#define ROW_BLKS_SIZE(name, T) \
  void name(const zor_int* m, const zor_int* n, const zor_int* k, zor_int* mb, zor_int* nb, zor_int* kb);
/* *bytes := the scratch that such a product takes when it packs op(B). */
#define ROW_BUFS_SIZE(name, T) \
  void name(const zor_int* m, const zor_int* n, const zor_int* k, zor_int* bytes);
/* *block := scratch of that size from the calling thread's pool, on 128 bytes, null when memory is short.
 * freebufs gives it back and sets *block to null. */
#define ROW_GETBUFS(name, T) void name(const zor_int* m, const zor_int* n, const zor_int* k, void** block);
#define ROW_FREEBUFS(name, T) void name(void** block);
/* B := alpha op(A) B (side L) or alpha B op(A), B m by n, A the upper (uplo U) or lower triangle, with a unit
 * diagonal that is not read (diag U) or its own. transa other than N means transposed. An alpha of 0 clears
 * B. */
#define ROW_TRMM(name, T)                                                                               \
  void name(const char* side, const char* uplo, const char* transa, const char* diag, const zor_int* m, \
            const zor_int* n, const T* alpha, const T* a, const zor_int* lda, T* b, const zor_int* ldb);
#include "zor/tables/core_generic.inc"

/* zor_gmp___gmp_fprintf, zor_gmp___gmpz_inp_raw, zor_gmp___gmpz_inp_str, zor_gmp___gmpz_out_raw and
 * zor_gmp___gmpz_out_str are GMP's own routines behind a prefix: declare them as gmp.h declares the names
 * without it. */

ZOR_END_C

#endif
