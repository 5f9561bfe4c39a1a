// SPDX-License-Identifier: MIT
// The steps of loading and unloading, and the constructor and destructor that run them.
#include "serv/frame.h"

#include <time.h>

#include <cerrno>
#include <cstdlib>

#include "zor/serv.h"

namespace zor {
namespace {

constexpr uint32_t delay_step_ms = 1000;
constexpr uint32_t longest_delay_ms = 60000;

frame_fn* const init_table[] = {nullptr};

int32_t load(frame& state, const runtime& system) {
  auto** table = static_cast<frame_fn**>(patient_malloc(system, exit_table_bytes));
  if (table == nullptr) return 0;
  state.exit_table = table;
  state.exit_table[0] = nullptr;
  state.exit_cursor = table;
  run_init_table(init_table, init_table + sizeof init_table / sizeof *init_table);
  ++state.load_count;
  return 1;
}

int32_t unload(frame& state, const runtime& system) {
  if (state.load_count < 1) return 0;
  --state.load_count;
  if (state.exit_table == nullptr) return 1;
  // An exit function may register others: both pointers are read afresh after each call.
  while (state.exit_cursor > state.exit_table) {
    frame_fn* f = *--state.exit_cursor;
    if (f != nullptr) f();
  }
  system.free(state.exit_table);
  state.exit_table = nullptr;
  return 1;
}

}  // namespace

void* patient_malloc(const runtime& system, size_t size) {
  for (uint32_t delay = 0; delay <= longest_delay_ms; delay += delay_step_ms) {
    void* block = system.malloc(size);
    if (block != nullptr) return block;
    system.sleep_ms(delay);
  }
  return nullptr;
}

void run_init_table(frame_fn* const* first, frame_fn* const* last) {
  for (; first != last; ++first) {
    if (*first != nullptr) (*first)();
  }
}

int32_t frame_start(frame& state, const runtime& system, start_reason reason) {
  switch (reason) {
    case start_reason::load:
      return load(state, system);
    case start_reason::unload:
      return unload(state, system);
    default:
      return 1;
  }
}

namespace {

void sleep_ms(uint32_t delay) {
  timespec left = {time_t(delay / 1000), long(delay % 1000) * 1000000};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

constexpr runtime c_runtime = {std::malloc, std::free, sleep_ms};
constinit frame process_frame;

// The system sends no notice of threads to a shared object, so there is none to turn off, and it has no way
// to refuse a load here: a load that failed leaves load_count at 0, and the kernels, which need no set-up,
// work.
[[gnu::constructor]] void on_load() { frame_start(process_frame, c_runtime, start_reason::load); }
[[gnu::destructor]] void on_unload() { frame_start(process_frame, c_runtime, start_reason::unload); }

}  // namespace
}  // namespace zor

extern "C" int32_t dll_cpu_version() { return 1; }
