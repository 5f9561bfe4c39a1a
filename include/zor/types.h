/* SPDX-License-Identifier: MIT
 * Types shared by all families. Usable from C and C++. */
#ifndef ZOR_TYPES_H
#define ZOR_TYPES_H

#include <stddef.h>
#include <stdint.h>

/* Around the prototypes of exported functions: C linkage, and visible although the libraries are compiled
 * with hidden visibility. */
#ifdef __cplusplus
#define ZOR_BEGIN_C \
  extern "C" {      \
  _Pragma("GCC visibility push(default)")
#define ZOR_END_C               \
  _Pragma("GCC visibility pop") \
  }
#else
#define ZOR_BEGIN_C _Pragma("GCC visibility push(default)")
#define ZOR_END_C _Pragma("GCC visibility pop")
#endif

/* Sizes, increments and indices of every family but the 32-bit sparse twin. */
typedef int64_t zor_int;

/* Complex values are a real part followed by an imaginary part. */
typedef struct zor_c32 {
  float re, im;
} zor_c32;
typedef struct zor_c64 {
  double re, im;
} zor_c64;

#endif
