// SPDX-License-Identifier: MIT
// Decides how many threads a call gets, and cuts its work.
#include "core/threads.h"

#include <omp.h>
#include <pthread.h>
#include <sys/single_threaded.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <utility>

#include "core/workers.h"
#include "serv/control.h"
#include "zor/core.h"

namespace zor_core {
namespace {

// 0 stands for no wish.
std::atomic<int32_t> wanted_by_process{0};

// The initial-exec model takes no memory when a thread first asks for these.
struct thread_state {
  int32_t wanted;
  bool in_piece;
};
[[gnu::tls_model("initial-exec")]] constinit thread_local thread_state here{};

// The process whose workers these are. A child of fork has the calling thread only: when its parent had
// others it stays serial, and so does a child made without the handlers of fork.
std::atomic<pid_t> owner{0};
bool parent_was_threaded = false;

[[gnu::constructor]] void watch_forks() {
  owner.store(getpid());
  pthread_atfork([] { parent_was_threaded = !__libc_single_threaded; }, nullptr,
                 [] {
                   if (!parent_was_threaded) owner.store(getpid());
                 });
}

// Modes and flags of the x87 unit, which the MXCSR does not hold: complex quotients in double precision are
// worked there.
struct x87_environment {
  uint32_t control, status, rest[5];
};

x87_environment read_x87() {
  x87_environment e;
  asm volatile("fnstenv %0" : "=m"(e));
  return e;
}
void write_x87(const x87_environment& e) { asm volatile("fldenv %0" : : "m"(e)); }

struct team {
  zor_int pieces;
  piece_fn* fn;
  const void* context;
  zor::control_word control;
  x87_environment x87;
  std::atomic<zor_int> next{0};
  std::atomic<zor::control_word> raised{0};
};

void take_pieces(void* job) {
  team& t = *static_cast<team*>(job);
  const zor::control_word own = zor::read_control();
  const x87_environment own_x87 = read_x87();
  const bool outside = std::exchange(here.in_piece, true);
  zor::write_control(t.control);
  write_x87(t.x87);
  for (;;) {
    const zor_int piece = t.next.fetch_add(1, std::memory_order_relaxed);
    if (piece >= t.pieces) break;
    t.fn(t.context, piece);
  }
  const zor::control_word flags = (zor::read_control() | read_x87().status) & zor::exception_flags;
  t.raised.fetch_or(flags, std::memory_order_relaxed);
  zor::write_control(own);
  write_x87(own_x87);
  here.in_piece = outside;
}

int32_t wanted_threads() {
  if (here.wanted > 0) return here.wanted;
  const int32_t wanted = wanted_by_process.load(std::memory_order_relaxed);
  return wanted > 0 ? wanted : omp_get_max_threads();
}

}  // namespace

int32_t usable_threads() {
  const int32_t wanted = std::min(wanted_threads(), most_threads());
  if (wanted <= 1 || here.in_piece || omp_get_level() > 0) return 1;
  return owner.load(std::memory_order_relaxed) == getpid() ? wanted : 1;
}

void run_pieces(int32_t threads, zor_int pieces, piece_fn* fn, const void* context) {
  threads = int32_t(std::min<zor_int>(threads, pieces));
  if (threads <= 1) {
    for (zor_int piece = 0; piece < pieces; ++piece) fn(context, piece);
    return;
  }
  const zor::control_word before = zor::read_control();
  const x87_environment before_x87 = read_x87();
  x87_environment without_flags = before_x87;
  without_flags.status = 0;
  team t{pieces, fn, context, before & ~zor::exception_flags, without_flags};
  worker* const helpers = send_workers(threads - 1, take_pieces, &t);
  take_pieces(&t);
  recall_workers(helpers);
  write_x87(before_x87);
  zor::write_control(before | t.raised.load(std::memory_order_relaxed));
}

}  // namespace zor_core

using namespace zor_core;

extern "C" {

void zor_set_threads(int32_t count) {
  wanted_by_process.store(std::max(count, 0), std::memory_order_relaxed);
}

int32_t zor_set_threads_local(int32_t count) { return std::exchange(here.wanted, std::max(count, 0)); }

int32_t zor_get_threads(void) { return usable_threads(); }

void zor_core_set_num_threads(int32_t count) { zor_set_threads(count); }

int32_t zor_core_num_threads(void) { return usable_threads(); }

}  // extern "C"
