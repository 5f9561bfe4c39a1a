// SPDX-License-Identifier: MIT
// A worker belongs to the idle list or to the call that borrowed it, and that owner alone hands it a job or
// takes it back. Owner and worker meet in one word, which is also what either sleeps on:
//
//   idle -> called          by the owner, with a job
//   called -> busy -> idle  by the worker, around the job
//   called -> idle          by the owner, who no longer waits for a worker that has not begun
//   idle -> asleep          by the worker, when no job comes for a while
//   busy -> awaited         by the owner, when the job takes a while
#include "core/workers.h"

#include <linux/futex.h>
#include <omp.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

namespace zor_core {
namespace {

enum worker_state : uint32_t { idle, asleep, called, busy, awaited };

}  // namespace

struct alignas(64) worker {
  std::atomic<uint32_t> state;
  void (*fn)(void* job);
  void* job;
  worker* next;
};

namespace {

// The limit of threads before a program sets one, and the threads of the library that there are at most.
constexpr int32_t least_limit = 64, record_count = 1024;
// Kernels need 64 KiB; the rest is for what else the system keeps on a stack.
constexpr size_t stack_bytes = size_t(1) << 20;
// Yields of the processor before a thread sleeps: about 0.1 ms on a processor that nobody else wants.
constexpr int patience = 200;
// Milliseconds without a further attempt after the system has refused a thread.
constexpr int64_t retry_after = 1000;

constinit worker workers[record_count];
constinit int32_t thread_limit = least_limit;

constinit struct {
  pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
  worker* idle = nullptr;
  int32_t started = 0;
  int64_t refused_until = 0;
} pool;

[[gnu::constructor]] void find_limit() {
  const long processors = sysconf(_SC_NPROCESSORS_ONLN);
  thread_limit = int32_t(std::clamp<long>(2 * processors, least_limit, record_count));
}

void sleep_while(std::atomic<uint32_t>& state, uint32_t value) {
  while (state.load(std::memory_order_acquire) == value)
    syscall(SYS_futex, &state, FUTEX_WAIT_PRIVATE, value, nullptr, nullptr, 0);
}

void wake(std::atomic<uint32_t>& state) {
  syscall(SYS_futex, &state, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void await_call(worker& w) {
  for (int i = 0; i < patience; ++i) {
    if (w.state.load(std::memory_order_relaxed) == called) return;
    sched_yield();
  }
  uint32_t expected = idle;
  if (w.state.compare_exchange_strong(expected, asleep)) sleep_while(w.state, asleep);
}

// Workers run wherever the first thread of the process may, since the caller that starts them can be bound to
// one processor; when OpenMP binds threads to places, on all of these.
bool find_processors(cpu_set_t& set) {
  CPU_ZERO(&set);
  if (omp_get_num_places() == 0) return sched_getaffinity(getpid(), sizeof set, &set) == 0;
  for (int place = 0; place < omp_get_num_places(); ++place) {
    int processors[CPU_SETSIZE];
    const int count = omp_get_place_num_procs(place);
    if (count > CPU_SETSIZE) return false;
    omp_get_place_proc_ids(place, processors);
    for (int i = 0; i < count; ++i) CPU_SET(size_t(processors[i]), &set);
  }
  return true;
}

void* serve(void* record) {
  worker& w = *static_cast<worker*>(record);
  cpu_set_t processors;
  if (find_processors(processors)) sched_setaffinity(0, sizeof processors, &processors);
  for (;;) {
    await_call(w);
    uint32_t expected = called;
    if (!w.state.compare_exchange_strong(expected, busy)) continue;
    w.fn(w.job);
    if (w.state.exchange(idle) == awaited) wake(w.state);
  }
}

// Signals are for the program's own threads, but for those that a worker's own instructions cause.
sigset_t signals_of_others() {
  sigset_t set;
  sigfillset(&set);
  for (int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGPROF}) sigdelset(&set, own);
  return set;
}

// A system that finds the size of the stack invalid, because the program's thread-local data are larger,
// chooses it for itself.
bool start_thread(worker& w) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setstacksize(&attributes, stack_bytes);
  pthread_t thread;
  int status = pthread_create(&thread, &attributes, serve, &w);
  if (status == EINVAL) status = pthread_create(&thread, nullptr, serve, &w);
  pthread_attr_destroy(&attributes);
  if (status == 0) pthread_detach(thread);
  return status == 0;
}

int64_t now_in_ms() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return int64_t(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Starts up to `count` workers on their first job and puts them before `list`. The lock is held.
worker* start_workers(int32_t count, void (*fn)(void* job), void* job, worker* list) {
  count = std::min(count, thread_limit - 1 - pool.started);
  if (count <= 0 || now_in_ms() < pool.refused_until) return list;
  const sigset_t blocked = signals_of_others();
  sigset_t before;
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  for (; count > 0; --count) {
    worker& w = workers[pool.started];
    w.fn = fn;
    w.job = job;
    w.next = list;
    w.state.store(called);
    if (!start_thread(w)) {
      pool.refused_until = now_in_ms() + retry_after;
      break;
    }
    ++pool.started;
    list = &w;
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return list;
}

void await_end(worker& w) {
  const auto working = [&] { return w.state.load(std::memory_order_acquire) == busy; };
  for (int i = 0; i < patience && working(); ++i) sched_yield();
  uint32_t expected = busy;
  if (w.state.compare_exchange_strong(expected, awaited)) sleep_while(w.state, awaited);
}

}  // namespace

int32_t most_threads() { return thread_limit; }

worker* send_workers(int32_t count, void (*fn)(void* job), void* job) {
  worker *found = nullptr, *all = nullptr;
  pthread_mutex_lock(&pool.lock);
  for (; count > 0 && pool.idle != nullptr; --count) {
    worker* const w = pool.idle;
    pool.idle = w->next;
    w->next = found;
    found = w;
  }
  all = start_workers(count, fn, job, found);
  pthread_mutex_unlock(&pool.lock);
  for (worker* w = found; w != nullptr; w = w->next) {
    w->fn = fn;
    w->job = job;
    if (w->state.exchange(called) == asleep) wake(w->state);
  }
  return all;
}

void recall_workers(worker* list) {
  if (list == nullptr) return;
  worker* last = list;
  for (worker* w = list; w != nullptr; w = w->next) {
    uint32_t expected = called;
    if (!w->state.compare_exchange_strong(expected, idle)) await_end(*w);
    last = w;
  }
  pthread_mutex_lock(&pool.lock);
  last->next = pool.idle;
  pool.idle = list;
  pthread_mutex_unlock(&pool.lock);
}

}  // namespace zor_core
