// SPDX-License-Identifier: MIT
// Load and unload of the library. The steps take their state and the system's services as arguments, so that
// they run without a loader; the shared object's constructor and destructor call them with the process's own.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zor {

using frame_fn = void();

struct frame {
  int32_t load_count = 0;            // loads not yet matched by an unload
  frame_fn** exit_table = nullptr;   // functions to call at unload, the last registered first
  frame_fn** exit_cursor = nullptr;  // one past the last slot of exit_table in use
};

struct runtime {
  void* (*malloc)(size_t size);
  void (*free)(void* block);
  void (*sleep_ms)(uint32_t delay);
};

enum class start_reason : uint32_t { unload = 0, load = 1, thread_attach = 2, thread_detach = 3 };

inline constexpr size_t exit_table_bytes = 256;

// Waits out a shortage of memory: 61 attempts, 0, 1, 2, ... 60 seconds apart. Null after that.
void* patient_malloc(const runtime& system, size_t size);

// Calls the functions of a table in ascending order, null slots skipped.
void run_init_table(frame_fn* const* first, frame_fn* const* last);

// The start routine. Load fails (0) when the exit table cannot be had, unload when no load is left to match;
// otherwise 1. Attach and detach of threads do nothing.
int32_t frame_start(frame& state, const runtime& system, start_reason reason);

}  // namespace zor
