// SPDX-License-Identifier: MIT
// An allocator library for tests (libzalloc.so). The kernel library takes its memory from it when it is
// loaded, so a test sees every size asked and every release, and can place blocks or let requests fail.
#pragma once

#include <stdint.h>

extern "C" {

// Forgets the log and all settings below. Blocks still alive stay known.
void zalloc_reset();

// Calls since the last zalloc_clear_log, as text: "m100 f100 r64" for malloc, free and realloc with the size
// asked, or the size of the block freed; a request that failed ends in "!".
const char* zalloc_log();
void zalloc_clear_log();

// Calls of any kind since zalloc_reset, blocks and bytes not yet freed.
uint64_t zalloc_calls();
int64_t zalloc_live_blocks();
int64_t zalloc_live_bytes();
// The block that the last successful request returned.
void* zalloc_last();

// The nth request from now fails and no other (0: none). With `onwards`, all later ones fail too.
void zalloc_fail(uint64_t nth, bool onwards);
// Blocks stand `offset` bytes above a boundary of 64 KiB (a multiple of 8) and are filled with 0xA5; -1:
// where malloc puts them.
void zalloc_place(int64_t offset);
// While on, the placed block freed last is the next one handed out.
void zalloc_reuse_freed(bool reuse);
// Whether realloc moves a placed block (the default) or resizes it where it is.
void zalloc_resize_in_place(bool in_place);
}
