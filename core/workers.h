// SPDX-License-Identifier: MIT
// Threads that work for the calls of this library. A call borrows idle ones, starts more where it finds too
// few, and gives them back before it returns. When the system refuses a thread, the call goes on with fewer:
// nothing here fails, and nothing ends the process.
#pragma once

#include <cstdint>

namespace zor_core {

struct worker;

// The most threads of a call, the calling one included: twice the processors of the machine, and never
// below 64. The process has no more workers than that either.
int32_t most_threads();

// Lets up to `count` workers run fn(job), each once. Returns their list, null when there is none.
worker* send_workers(int32_t count, void (*fn)(void* job), void* job);
// Returns when no worker of the list runs the job any more. Those that have not begun with it do not begin.
void recall_workers(worker* list);

}  // namespace zor_core
