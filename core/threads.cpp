// SPDX-License-Identifier: MIT
#include "core/threads.h"

#include <omp.h>
#include <pthread.h>
#include <sys/single_threaded.h>
#include <xmmintrin.h>

#include <algorithm>

#include "zor/core.h"

namespace zor_core {
namespace {

std::atomic<int32_t> wanted_threads{0};

// A child of fork has the calling thread only, while OpenMP's records still count the team of the parent: the
// next parallel region would wait for it for ever. So a child of a process with several threads stays serial.
bool parent_was_threaded = false;
std::atomic<bool> serial_process{false};

[[gnu::constructor]] void watch_forks() {
  pthread_atfork([] { parent_was_threaded = !__libc_single_threaded; }, nullptr,
                 [] {
                   if (parent_was_threaded) serial_process.store(true, std::memory_order_relaxed);
                 });
}

constexpr unsigned exception_flags = 0x3F;

// The members are written before `opened` and read behind it; `closed` counts the threads whose work the
// caller may see. The two order memory for real, beside OpenMP's own fork and join.
struct team {
  zor_int pieces;
  piece_fn* fn;
  const void* context;
  unsigned control;
  std::atomic<bool> opened{false};
  std::atomic<zor_int> next{0};
  std::atomic<unsigned> raised{0};
  std::atomic<int32_t> closed{0};
};

[[gnu::noinline]] void work(team& t) {
  if (!t.opened.load(std::memory_order_acquire)) return;
  const unsigned own = _mm_getcsr();
  _mm_setcsr(t.control);
  for (;;) {
    const zor_int piece = t.next.fetch_add(1, std::memory_order_relaxed);
    if (piece >= t.pieces) break;
    t.fn(t.context, piece);
  }
  t.raised.fetch_or(_mm_getcsr() & exception_flags, std::memory_order_relaxed);
  _mm_setcsr(own);
  t.closed.fetch_add(1, std::memory_order_release);
}

// The compiler's record of shared variables passes through OpenMP, whose fork the thread sanitizer does not
// see; everything else is ordered by the team's own atomics.
__attribute__((noinline, no_sanitize("thread"))) void fork_join(team& t, int32_t threads) {
#pragma omp parallel num_threads(threads)
  work(t);
}

}  // namespace

int32_t usable_threads() {
  if (serial_process.load(std::memory_order_relaxed) || omp_get_level() > 0) return 1;
  const int32_t wanted = wanted_threads.load(std::memory_order_relaxed);
  return wanted > 0 ? wanted : omp_get_max_threads();
}

void run_pieces(int32_t threads, zor_int pieces, piece_fn* fn, const void* context) {
  threads = int32_t(std::min<zor_int>(threads, pieces));
  if (threads <= 1) {
    for (zor_int piece = 0; piece < pieces; ++piece) fn(context, piece);
    return;
  }
  const unsigned before = _mm_getcsr();
  team t;
  t.pieces = pieces;
  t.fn = fn;
  t.context = context;
  t.control = before & ~exception_flags;
  t.opened.store(true, std::memory_order_release);
  fork_join(t, threads);
  (void)t.closed.load(std::memory_order_acquire);
  _mm_setcsr(before | t.raised.load(std::memory_order_relaxed));
}

}  // namespace zor_core

extern "C" void zor_core_set_num_threads(int32_t count) {
  zor_core::wanted_threads.store(std::max(count, 0), std::memory_order_relaxed);
}

extern "C" int32_t zor_core_num_threads(void) { return zor_core::usable_threads(); }
