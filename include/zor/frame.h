/* SPDX-License-Identifier: MIT
 * Exports of libzor_kern without arithmetic: extension points that this processor generation leaves empty (a
 * separately driven matrix-product engine, kernels of their own under threads, a post-processing step). They
 * ignore whatever arguments a caller's own prototype passes. The third group of the same table, jumps to
 * libzor_core, has the prototypes of libzor_core. */
#ifndef ZOR_FRAME_H
#define ZOR_FRAME_H

#include "zor/types.h"

ZOR_BEGIN_C

#define ROW_EMPTY(name) void name(void);
#define ROW_ZERO(name) zor_int name(void);
#include "zor/tables/frame.inc"

ZOR_END_C

#endif
