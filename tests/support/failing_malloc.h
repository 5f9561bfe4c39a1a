// SPDX-License-Identifier: MIT
// A test program's own allocator, of which a chosen request fails. Included by one source of the program; its
// definitions stand before those of the C library, for the libraries of the program too.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstdlib>

namespace zor_test {

inline std::atomic<bool> counting_requests{false};
inline std::atomic<long> requests_to_failure{-1}, live_blocks{0};

// What a call met: whether its request number n came and failed, and how many blocks it left behind.
struct short_memory {
  bool happened;
  long left;
};

// Request n from now fails, counted from 0, and with `onwards` all behind it.
inline bool failures_go_on = false;
template <class Call>
short_memory with_failure(long n, bool onwards, const Call& call) {
  failures_go_on = onwards;
  live_blocks = 0;
  requests_to_failure = n;
  counting_requests = true;
  call();
  counting_requests = false;
  return {requests_to_failure.exchange(-1) < 0, live_blocks};
}

inline bool refuses_request() {
  if (!counting_requests) return false;
  const long left = requests_to_failure.fetch_sub(1);
  const bool refused = left == 0 || (left < 0 && failures_go_on);
  if (refused)
    errno = ENOMEM;
  else
    ++live_blocks;
  return refused;
}

}  // namespace zor_test

extern "C" {

void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);

void* malloc(size_t size) { return zor_test::refuses_request() ? nullptr : __libc_malloc(size); }
void* calloc(size_t count, size_t size) {
  return zor_test::refuses_request() ? nullptr : __libc_calloc(count, size);
}
void* aligned_alloc(size_t alignment, size_t size) {
  return zor_test::refuses_request() ? nullptr : __libc_memalign(alignment, size);
}
void free(void* block) {
  if (zor_test::counting_requests && block != nullptr) --zor_test::live_blocks;
  __libc_free(block);
}

}  // extern "C"
