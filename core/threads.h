// SPDX-License-Identifier: MIT
// Division of a call over threads. A call is cut into pieces that share no sum, so that the number of
// threads, and which thread takes which piece, never shows in a result.
#pragma once

#include <cstdint>

#include "zor/types.h"

namespace zor_core {

// Threads a call may use here and now: 1 within a piece of another call, inside a parallel region, one of a
// single thread included, and in a child of a threaded process.
int32_t usable_threads();

using piece_fn = void(const void* context, zor_int piece);

// Runs fn(context, 0) to fn(context, pieces - 1), each once, on at most `threads` threads. Pieces are handed
// out in order as threads come free; when the system has no other thread to give, the caller takes them all.
// The threads take the caller's floating-point control (rounding, masks) and the caller receives the
// exception flags that any of them raised.
void run_pieces(int32_t threads, zor_int pieces, piece_fn* fn, const void* context);

template <class Body>
void for_each_piece(int32_t threads, zor_int pieces, const Body& body) {
  run_pieces(
      threads, pieces,
      [](const void* context, zor_int piece) { (*static_cast<const Body*>(context))(piece); }, &body);
}

}  // namespace zor_core
