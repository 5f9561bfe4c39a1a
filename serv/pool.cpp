// SPDX-License-Identifier: MIT
// The scratch pool: five cached blocks a thread, so that a driver's repeated request costs neither a lock nor
// a call of the allocator. A block carries no header; its thread's record is the only bookkeeping, and a
// pointer given back is looked up by value.
//
// A record is written by its own thread, apart from an `in_use` word cleared by another thread that gives the
// block back, and from zor_serv_freebuffers. The lock guards registration, the search of other threads'
// records, the sums over all records and the teardown.
#include <pthread.h>

#include <cstdlib>
#include <new>

#include "serv/allocator.h"
#include "serv/imports.h"
#include "serv/memory.h"
#include "serv/shared_word.h"
#include "zor/serv.h"

namespace zor {
namespace {

constexpr int slots_per_thread = 5;
constexpr int max_threads = 1024;
constexpr uint64_t pooled_size_limit = 0x2800000;
constexpr int32_t least_alignment = 4;
constexpr uint32_t unset = UINT32_MAX;

struct thread_pool_record {
  shared_word<char*> base[slots_per_thread];           // from the allocator, null for an empty slot
  shared_word<char*> aligned[slots_per_thread];        // handed out for the current or last use
  shared_word<uint64_t> requested[slots_per_thread];   // bytes the caller asked for
  shared_word<uint64_t> block_size[slots_per_thread];  // bytes asked of the allocator
  shared_word<uint64_t> in_use[slots_per_thread];
  shared_word<int32_t> slot_count;
};

// The thread-local slot (a pthread key) holds the thread's index into the tables, 0 for unknown; index 0 of
// the tables is never used. An identifier may belong to a dead thread: a new thread that the system gives the
// same identifier takes over its record.
constinit shared_word<uint32_t> pool_tls_slot{unset};
constinit shared_word<uint32_t> pool_state_known{unset};
constinit shared_word<uint32_t> pool_disabled;
constinit shared_word<int32_t> thread_count;
constinit shared_word<pthread_t> thread_ids[max_threads + 1];
constinit shared_word<thread_pool_record*> thread_records[max_threads + 1];

struct core_lock {
  core_lock() { core::zor_serv_lock(); }
  ~core_lock() { core::zor_serv_unlock(); }
  core_lock(const core_lock&) = delete;
  void operator=(const core_lock&) = delete;
};

bool is_set(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

[[gnu::cold, gnu::noinline]] void read_environment() {
  core_lock guard;
  if (pool_state_known != unset) return;
  pool_disabled = is_set("ZOR_DISABLE_FAST_MM") || is_set("ZOR_MM_DISABLE");
  pool_state_known = 1;
}

// The environment is read once for the process, by whichever operation comes first.
bool pool_is_disabled() {
  if (pool_state_known == unset) read_environment();
  return pool_disabled != 0;
}

// A system that is out of keys leaves the slot unset: no thread registers, and requests are served unpooled.
[[gnu::cold, gnu::noinline]] void create_tls_slot() {
  core_lock guard;
  pthread_key_t key;
  if (pool_tls_slot == unset && pthread_key_create(&key, nullptr) == 0) pool_tls_slot = key;
}

// The value of pthread_self on this platform, without the call.
pthread_t thread_identifier() { return reinterpret_cast<pthread_t>(__builtin_thread_pointer()); }

void set_index(uint32_t key, uintptr_t index) { pthread_setspecific(key, reinterpret_cast<void*>(index)); }

// The record of a thread whose slot holds `known`, which does not lead to it. 0 may mean a record taken over
// from a dead thread; another index is stale and is forgotten.
[[gnu::cold, gnu::noinline]] thread_pool_record* search_record(uint32_t key, uintptr_t known,
                                                               pthread_t self) {
  if (known != 0) {
    set_index(key, 0);
    return nullptr;
  }
  for (int i = thread_count; i >= 1; --i) {
    if (thread_ids[i] != self) continue;
    set_index(key, uintptr_t(i));
    return thread_records[i];
  }
  return nullptr;
}

// The calling thread's record, or null.
[[gnu::always_inline]] inline thread_pool_record* find_record() {
  const uint32_t key = pool_tls_slot;
  if (key == unset) return nullptr;
  const pthread_t self = thread_identifier();
  const auto known = reinterpret_cast<uintptr_t>(pthread_getspecific(key));
  if (known != 0 && thread_ids[known] == self) return thread_records[known];
  return search_record(key, known, self);
}

// A new record for the calling thread; null when the tables are full or memory is short. The record is
// cleared before it is published, since searches by other threads read it at once.
[[gnu::cold, gnu::noinline]] thread_pool_record* register_thread() {
  core_lock guard;
  const uint32_t key = pool_tls_slot;
  if (key == unset || thread_count == max_threads) return nullptr;
  void* memory = alloc_malloc(sizeof(thread_pool_record));
  if (memory == nullptr) return nullptr;
  auto* record = new (memory) thread_pool_record{};
  const int index = thread_count + 1;
  thread_records[index] = record;
  thread_ids[index] = thread_identifier();
  thread_count = index;
  set_index(key, uintptr_t(index));
  return record;
}

// When the allocator fails, the slot stays in use with a null base, which every release passes by.
void fill_slot(thread_pool_record& record, int slot, uint64_t total) {
  record.in_use[slot] = 1;
  record.block_size[slot] = total;
  record.base[slot] = static_cast<char*>(alloc_malloc(total));
}

// Leaves an empty hole. The slot forgets its addresses before the block goes: the allocator may hand the same
// address to someone who gives it back to us, and a child forked meanwhile must not find it either.
void release_slot(thread_pool_record& record, int slot) {
  char* block = record.base[slot];
  record.aligned[slot] = nullptr;
  record.base[slot] = nullptr;
  record.requested[slot] = 0;
  record.block_size[slot] = 0;
  record.in_use[slot] = 0;
  if (block != nullptr) alloc_free(block);
}

// Hands out a slot's block for a request of `size` bytes. The address is worked out anew at each use, so one
// block serves several alignments. A base already aligned is used as it is, a null base gives null.
void* take_slot(thread_pool_record& record, int slot, uint64_t size, uint64_t reserve) {
  record.in_use[slot] = 1;
  record.requested[slot] = size;
  char* base = record.base[slot];
  const uint64_t excess = reserve != 0 ? reinterpret_cast<uintptr_t>(base) & (reserve - 1) : 0;
  char* address = excess != 0 ? base - excess + reserve : base;
  record.aligned[slot] = address;
  return address;
}

// An idle block of exactly `total` bytes, or -1.
int exact_slot(const thread_pool_record& record, uint64_t total) {
  const int count = record.slot_count;
  for (int i = 0; i < count; ++i) {
    if (record.block_size[i] == total && record.in_use[i] == 0) return i;
  }
  return -1;
}

// Without an exact block: the first larger idle one however large, then new memory, and only then the first
// smaller idle one, replaced. -1 when every slot is in use.
[[gnu::noinline]] int other_slot(thread_pool_record& record, uint64_t total) {
  int smaller = -1;
  const int count = record.slot_count;
  for (int i = 0; i < count; ++i) {
    if (record.in_use[i] != 0) continue;
    if (record.block_size[i] > total) return i;
    if (smaller < 0) smaller = i;
  }
  if (count < slots_per_thread) {
    fill_slot(record, count, total);
    record.slot_count = count + 1;
    return count;
  }
  if (smaller >= 0) {
    release_slot(record, smaller);
    fill_slot(record, smaller, total);
  }
  return smaller;
}

// Releases the idle blocks of one thread; true when one of its blocks is held by a caller.
bool release_idle(thread_pool_record& record) {
  bool busy = false;
  for (int i = 0; i < slots_per_thread; ++i) {
    if (record.base[i] == nullptr) continue;
    if (record.in_use[i] != 0) {
      busy = true;
    } else {
      release_slot(record, i);
    }
  }
  if (!busy) record.slot_count = 0;
  return busy;
}

// Back to the state at load, but for the environment.
void tear_down() {
  for (int i = thread_count; i >= 1; --i) {
    thread_pool_record* record = thread_records[i];
    thread_ids[i] = 0;
    thread_records[i] = nullptr;
    alloc_free(record);
  }
  thread_count = 0;
  if (pool_tls_slot == unset) return;
  pthread_key_delete(pool_tls_slot);
  pool_tls_slot = unset;
}

bool give_back_own(thread_pool_record& record, const char* pointer) {
  const int count = record.slot_count;
  for (int i = 0; i < count; ++i) {
    if (record.aligned[i] != pointer) continue;
    record.in_use[i] = 0;
    return true;
  }
  return false;
}

[[gnu::noinline]] bool give_back_foreign(const char* pointer) {
  core_lock guard;
  const int threads = thread_count;
  for (int t = 1; t <= threads; ++t) {
    thread_pool_record& record = *thread_records[t];
    for (int i = 0; i < slots_per_thread; ++i) {
      if (record.base[i] == nullptr || record.aligned[i] != pointer) continue;
      record.in_use[i] = 0;
      return true;
    }
  }
  return false;
}

[[gnu::always_inline]] inline borrowed_block borrow(uint64_t size, uint64_t reserve) {
  if (pool_tls_slot == unset) create_tls_slot();
  if (size == 0) return {nullptr, nullptr};
  if (pool_is_disabled() || size > pooled_size_limit) return {alloc_malloc(size), nullptr};
  thread_pool_record* record = find_record();
  if (record == nullptr) record = register_thread();
  if (record == nullptr) return {alloc_malloc(size), nullptr};
  int slot = exact_slot(*record, size + reserve);
  if (slot < 0) slot = other_slot(*record, size + reserve);
  if (slot < 0) return {alloc_malloc(size), nullptr};
  return {take_slot(*record, slot, size, reserve), &record->in_use[slot]};
}

}  // namespace

borrowed_block borrow_block(uint64_t size) { return borrow(size, scratch_boundary); }

}  // namespace zor

using namespace zor;

extern "C" void* zor_serv_allocate(uint64_t size, int32_t alignment) {
  return borrow(size, alignment >= least_alignment ? boundary_of(uint64_t(alignment)) : 0).data;
}

extern "C" void zor_serv_deallocate(void* pointer) {
  if (pointer == nullptr) return;
  if (pool_is_disabled()) return alloc_free(pointer);
  const auto* address = static_cast<const char*>(pointer);
  thread_pool_record* record = find_record();
  if (record != nullptr && give_back_own(*record, address)) return;
  if (give_back_foreign(address)) return;
  alloc_free(pointer);
}

extern "C" void zor_serv_freebuffers() {
  if (pool_is_disabled()) return;
  core_lock guard;
  int busy_threads = 0;
  for (int i = thread_count; i >= 1; --i) busy_threads += release_idle(*thread_records[i]);
  if (busy_threads == 0) tear_down();
}

extern "C" void zor_serv_zor_thread_free_buffers() {
  if (pool_is_disabled()) return;
  thread_pool_record* record = find_record();
  if (record != nullptr) release_idle(*record);
}

extern "C" uint64_t zor_serv_zor_memstat(int32_t* count) {
  if (pool_is_disabled()) {
    *count = -1;
    return 0;
  }
  core_lock guard;
  int32_t slots = 0;
  uint64_t bytes = 0;
  for (int t = 1; t <= thread_count; ++t) {
    const thread_pool_record& record = *thread_records[t];
    slots += record.slot_count;
    for (int i = 0; i < slots_per_thread; ++i) {
      if (record.base[i] != nullptr) bytes += record.block_size[i];
    }
  }
  *count = slots;
  return bytes;
}
