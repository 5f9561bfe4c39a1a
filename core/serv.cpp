// SPDX-License-Identifier: MIT
// Service operations that the kernel library calls back for.
#include "zor/serv.h"

#include <pthread.h>

#include <cstring>

#include "zor/dft.h"

namespace {

pthread_mutex_t library_lock = PTHREAD_MUTEX_INITIALIZER;

void take_lock() { pthread_mutex_lock(&library_lock); }
void release_lock() { pthread_mutex_unlock(&library_lock); }

// A fork waits until no thread is inside the lock, so a child never inherits a half-made table update.
[[gnu::constructor]] void guard_lock_over_fork() { pthread_atfork(take_lock, release_lock, release_lock); }

struct named_function {
  const char* name;
  void* address;
};

// The threaded layer.
const named_function threaded[] = {
#define ROW_OMP(name, ...) {#name, reinterpret_cast<void*>(name)},
#define ROW_PAR(name, ...) {#name, reinterpret_cast<void*>(name)},
#include "zor/tables/core_dft.inc"
};

}  // namespace

extern "C" {

void zor_serv_lock(void) { take_lock(); }

void zor_serv_unlock(void) { release_lock(); }

int32_t zor_serv_check_ptr(const void* pointer, const char*) { return pointer == nullptr; }

// One answer on every processor: the code decides sizes, and sizes decide bits.
int32_t zor_serv_cpu_detect(void) { return 1; }

void* zor_serv_load_thread_fun(const char* name) {
  for (const named_function& f : threaded)
    if (std::strcmp(f.name, name) == 0) return f.address;
  return nullptr;
}

}  // extern "C"
