/* SPDX-License-Identifier: MIT
 * Discrete Fourier transforms: one to seven dimensions, complex and real, single and double, batches, any
 * strides.
 *
 * Forward has exp(-2 pi i jk/n), backward exp(+2 pi i jk/n); neither divides by n: set a scale. The life of a
 * transform:
 *
 *   zor_fft fft;
 *   const zor_int lengths[2] = {rows, columns};            // the last dimension is contiguous
 *   zor_fft_create(&fft, ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, 2, lengths);
 *   zor_fft_set(fft, ZOR_DFT_BACKWARD_SCALE, 1.0 / (double)(rows * columns));
 *   zor_fft_commit(fft);                                   // plans; every setting above needs a new commit
 *   zor_fft_forward(fft, data);                            // in place; (fft, in, out) when set not in place
 *   zor_fft_backward(fft, data);
 *   zor_fft_free(&fft);
 *
 * Every function returns a status of zor/dft_kern.h, 0 for success; zor_fft_error_text says it in words.
 * examples/fourier.c has a complete program for each kind of transform. */
#ifndef ZOR_DFT_H
#define ZOR_DFT_H

#include "zor/dft_kern.h"

ZOR_BEGIN_C

typedef ZorDftDescriptor* zor_fft;

/* What zor_fft_get reads beside the parameters of zor_fft_set, with the type value points to. */
enum {
  ZOR_DFT_GET_DOMAIN = 0,        /* int32_t */
  ZOR_DFT_GET_RANK = 1,          /* zor_int */
  ZOR_DFT_GET_LENGTHS = 2,       /* zor_int[rank], as given to create */
  ZOR_DFT_GET_PRECISION = 3,     /* int32_t */
  ZOR_DFT_GET_COMMIT_STATUS = 22 /* int32_t */
};

/* zor_fft_create: precision ZOR_DFT_SINGLE or ZOR_DFT_DOUBLE; domain ZOR_DFT_COMPLEX or ZOR_DFT_REAL; rank 1
 * to 7, for real data 1 to 3; lengths from the slowest dimension to the contiguous one. 2 for a bad argument,
 * 3 for a null handle, 6 for a real transform of rank 4 or more, 9 for more elements than a process can
 * address. zor_fft_set: one value of the type listed with the parameter in zor/dft_kern.h. Strides are an
 * array of rank + 1: an offset, then the step along each dimension in the order of the lengths. Defaults: one
 * transform, in place, unit scale, interleaved complex data, a real transform's spectrum packed into reals
 * (padded format), strides of a dense array of the lengths. zor_fft_get: the same parameters and those above;
 * integers of zor_fft_set are read as they are set (int32_t where it takes an int), scales as double, strides
 * as rank + 1 zor_int, the name as char[10]. zor_fft_commit: also 3 for settings that contradict each other:
 * a stride of 0 along a dimension longer than 1, a distance of 0 between several transforms, steps that lead
 * beyond what a process can address. zor_fft_forward, zor_fft_backward: in place one data pointer, not in
 * place input and output; with split storage each is two pointers, real parts first. A backward real
 * transform reads the spectrum as a forward one writes it. Threads: up to zor_core_num_threads(), the same
 * bits for any number. Any number of callers may compute on one committed transform at once, each on data of
 * its own; ZOR_DFT_NUMBER_OF_USER_THREADS above 1 limits them, and a caller too many gets 8. zor_fft_free: 3
 * for a null handle; sets *fft to null. zor_fft_error_text: valid until the calling thread's next call. */
#define ROW_PUBLIC(result, name, params) result name params;
#include "zor/tables/core_dft.inc"

/* The threaded layer, which the kernel library looks up by name. */
#define ROW_OMP(name, apply, commit) int32_t name(ZorDftDescriptor** handle);
#define ROW_PAR(name, kind, type, direction, place) int32_t name(zor_dft_par_block* block);
#include "zor/tables/core_dft.inc"

ZOR_END_C

#endif
