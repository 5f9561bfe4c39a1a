// SPDX-License-Identifier: MIT
// Service operations that the kernel library calls back for.
#include "zor/serv.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cstring>

namespace {

pthread_mutex_t library_lock = PTHREAD_MUTEX_INITIALIZER;

void take_lock() { pthread_mutex_lock(&library_lock); }
void release_lock() { pthread_mutex_unlock(&library_lock); }

// A fork waits until no thread is inside the lock, so a child never inherits a half-made table update.
[[gnu::constructor]] void guard_lock_over_fork() { pthread_atfork(take_lock, release_lock, release_lock); }

bool ends_with(const char* text, const char* suffix) {
  const size_t length = std::strlen(text), tail = std::strlen(suffix);
  return length >= tail && std::strcmp(text + length - tail, suffix) == 0;
}

// This library's own definition of a name, null when there is none: a search by handle goes on into the
// libraries this one depends on, so the address found must lie in this file.
void* own_symbol(const char* name) {
  Dl_info self;
  if (dladdr(&library_lock, &self) == 0) return nullptr;
  void* handle = dlopen(self.dli_fname, RTLD_NOW | RTLD_NOLOAD);
  if (handle == nullptr) return nullptr;
  void* address = dlsym(handle, name);
  dlclose(handle);
  Dl_info found;
  if (address == nullptr || dladdr(address, &found) == 0) return nullptr;
  return found.dli_fbase == self.dli_fbase ? address : nullptr;
}

}  // namespace

extern "C" {

void zor_serv_lock(void) { take_lock(); }

void zor_serv_unlock(void) { release_lock(); }

int32_t zor_serv_check_ptr(const void* pointer, const char*) { return pointer == nullptr; }

// One answer on every processor: the code decides sizes, and sizes decide bits.
int32_t zor_serv_cpu_detect(void) { return 1; }

void* zor_serv_load_thread_fun(const char* name) {
  const bool threaded = ends_with(name, "_par") || ends_with(name, "_omp");
  return threaded ? own_symbol(name) : nullptr;
}

}  // extern "C"
