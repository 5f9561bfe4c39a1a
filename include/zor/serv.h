/* SPDX-License-Identifier: MIT
 * Frame and memory service of libzor_kern, and the service operations of libzor_core. */
#ifndef ZOR_SERV_H
#define ZOR_SERV_H

#include "zor/types.h"

ZOR_BEGIN_C

/* The processor generation a kernel library is built for: 1. */
int32_t dll_cpu_version(void);

/* Nonzero when the first bytes of a and b are equal, ASCII letters compared without regard to case. */
int32_t zor_serv_lsame(const char* a, const char* b);

/* Scratch memory from the calling thread's pool of five blocks. Alignment in bytes: below 4 none; not a power
 * of two: 64. Null when size is 0 or memory is short. Unaligned and straight from the allocator come:
 * requests above 40 MiB (0x2800000 bytes), a sixth block, threads beyond the 1,024th, and everything when
 * ZOR_DISABLE_FAST_MM or ZOR_MM_DISABLE was set before the first use. All is given back with
 * zor_serv_deallocate, on any thread. */
void* zor_serv_allocate(uint64_t size, int32_t alignment);
void zor_serv_deallocate(void* pointer);

/* Releases every idle pool block of all threads, or of the calling thread. For quiet moments: no other thread
 * may be inside the pool. */
void zor_serv_freebuffers(void);
void zor_serv_zor_thread_free_buffers(void);

/* Bytes of the pool's blocks, in use or idle; their number goes to *count, -1 when the pool is switched off.
 */
uint64_t zor_serv_zor_memstat(int32_t* count);

/* Aligned memory for long-lived objects. An alignment that is no power of two gives 64, a power of two below
 * 8 none. Null for 0 bytes or when memory is short. calloc does not guard count * element_size against
 * overflow. realloc keeps contents but not alignment, leaves the old block when it fails, and with size 0
 * shrinks a block without releasing it; from null it allocates on a boundary of 64. */
void* zor_serv_zor_malloc(uint64_t size, int32_t alignment);
void* zor_serv_zor_calloc(uint64_t count, uint64_t element_size, int32_t alignment);
void* zor_serv_zor_realloc(void* pointer, uint64_t size);
void zor_serv_zor_free(void* pointer);

/* Service operations of libzor_core. */
#define ROW_SERVICE(result, name, params) result name params;
#include "zor/tables/core_serv.inc"

ZOR_END_C

#endif
