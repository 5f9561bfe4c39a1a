// SPDX-License-Identifier: MIT
// The scratch pool, seen from outside: what it asks of the allocator, which block it hands out, how often it
// takes the lock. This program supplies the allocator library, and its own lock and thread-local keys to
// watch them.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <barrier>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/zalloc.h"
#include "zor/serv.h"

namespace {

std::mutex lock;
std::atomic<int> locks_taken{0};
std::atomic<int> keys_created{0};
std::atomic<bool> keys_fail{false};
std::atomic<uintptr_t> index_error{0};  // added to what the pool's thread-local slot holds
std::atomic<uint32_t> pool_key{UINT32_MAX};

template <class F>
F* next(const char* name) {
  return reinterpret_cast<F*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

void zor_serv_lock() {
  lock.lock();
  ++locks_taken;
}
void zor_serv_unlock() { lock.unlock(); }

// Of all in this program, the pool alone asks for a key without a destructor.
int pthread_key_create(pthread_key_t* key, void (*destructor)(void*)) noexcept {
  static auto* real = next<int(pthread_key_t*, void (*)(void*))>("pthread_key_create");
  if (destructor != nullptr) return real(key, destructor);
  ++keys_created;
  if (keys_fail) return EAGAIN;
  const int status = real(key, destructor);
  pool_key = *key;
  return status;
}
void* pthread_getspecific(pthread_key_t key) noexcept {
  static auto* real = next<void*(pthread_key_t)>("pthread_getspecific");
  void* value = real(key);
  if (key != pool_key || index_error == 0) return value;
  return reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(value) + index_error);
}
}

namespace {

constexpr uint64_t limit = 0x2800000;
constexpr int record_bytes = 208;

uint64_t pooled_bytes() {
  int32_t count;
  return zor_serv_zor_memstat(&count);
}

int pooled_count() {
  int32_t count;
  zor_serv_zor_memstat(&count);
  return count;
}

std::string take_log() {
  std::string log = zalloc_log();
  zalloc_clear_log();
  return log;
}

// The calling thread registered, nothing cached, nothing logged, blocks on boundaries of 64 KiB.
void start_afresh() {
  zalloc_reset();
  zalloc_place(0);
  zor_serv_deallocate(zor_serv_allocate(8, 0));
  zor_serv_zor_thread_free_buffers();
  ASSERT_EQ(pooled_count(), 0);
  zalloc_clear_log();
}

// A line of a scenario: actions, the calls of the allocator that they must make, and what memstat says after
// them.
//   "A+100@64"    allocate 100 bytes on a boundary of 64 and call the block A
//   "A+100@64=B"  the address must be the last one of B; "A+100@64=0": the result must be null
//   "A-"          give A back                            "trim"   zor_serv_zor_thread_free_buffers
//   "fail"        the allocator's next request fails     "free"   zor_serv_freebuffers
//   "reuse"       the allocator hands out again what was freed last
struct line {
  const char* actions;
  const char* calls;
  int count;
  uint64_t bytes;
};

struct scenario {
  const char* name;
  std::vector<line> lines;
};

void act(const std::string& action, std::map<char, void*>& blocks) {
  if (action == "trim") return zor_serv_zor_thread_free_buffers();
  if (action == "free") return zor_serv_freebuffers();
  if (action == "fail") return zalloc_fail(1, false);
  if (action == "reuse") return zalloc_reuse_freed(true);
  char name, expected = 0;
  uint64_t size;
  int alignment;
  if (std::sscanf(action.c_str(), "%c+%lu@%d=%c", &name, &size, &alignment, &expected) < 3) {
    ASSERT_EQ(action.substr(1), "-") << "unknown action";
    return zor_serv_deallocate(blocks[action[0]]);
  }
  void* block = zor_serv_allocate(size, alignment);
  EXPECT_EQ(block == nullptr, expected == '0');
  if (expected > '0') {
    EXPECT_EQ(block, blocks[expected]);
  }
  blocks[name] = block;
}

void run(const scenario& s) {
  start_afresh();
  std::map<char, void*> blocks;
  int number = 0;
  for (const line& l : s.lines) {
    SCOPED_TRACE(std::string(s.name) + ", line " + std::to_string(++number) + ": " + l.actions);
    std::istringstream actions(l.actions);
    for (std::string action; actions >> action;) act(action, blocks);
    EXPECT_EQ(take_log(), l.calls);
    EXPECT_EQ(pooled_count(), l.count);
    EXPECT_EQ(pooled_bytes(), l.bytes);
  }
  zor_serv_freebuffers();
  EXPECT_EQ(zalloc_live_blocks(), 0) << s.name;
}

const scenario scenarios[] = {
    {"a repeated request is served from the cache",
     {{"A+1000@128 A-", "m1128", 1, 1128}, {"B+1000@128=A B-", "", 1, 1128}}},
    {"no bytes, no block", {{"A+0@128=0 A-", "", 0, 0}}},
    {"a larger block is reused and keeps its size",
     {{"A+1000@0 A-", "m1000", 1, 1000}, {"B+100@0=A B-", "", 1, 1000}, {"C+1000@0=A C-", "", 1, 1000}}},
    {"an exact block beats the first larger, the first larger beats a closer one",
     {{"A+3000@0 B+2000@0 C+1000@0 A- B- C-", "m3000 m2000 m1000", 3, 6000},
      {"D+1000@0=C D-", "", 3, 6000},
      {"D+999@0=A", "", 3, 6000},
      {"E+999@0=B D- E-", "", 3, 6000}}},
    {"a larger block beats a smaller one that stands before it",
     {{"A+100@0 B+3000@0 A- B-", "m100 m3000", 2, 3100}, {"C+101@0=B C-", "", 2, 3100}}},
    {"new memory comes before a smaller block is replaced",
     {{"A+100@0 A-", "m100", 1, 100}, {"B+200@0 B-", "m200", 2, 300}}},
    {"one block serves several alignments, each with its reserve",
     {{"A+1000@64 A-", "m1064", 1, 1064},
      {"B+936@128=A B-", "", 1, 1064},
      {"C+937@128 C-", "m1065", 2, 2129}}},
    {"of five idle smaller blocks the first is replaced",
     {{"A+100@0 B+101@0 C+102@0 D+103@0 E+104@0 A- B- C- D- E-", "m100 m101 m102 m103 m104", 5, 510},
      {"F+200@0", "f100 m200", 5, 610},
      {"G+300@0 F- G-", "f101 m300", 5, 809}}},
    {"a busy smaller block is passed by",
     {{"A+100@0 B+101@0 C+102@0 D+103@0 E+104@0 B- D-", "m100 m101 m102 m103 m104", 5, 510},
      {"F+200@0 A- C- E- F-", "f101 m200", 5, 609}}},
    {"with five busy blocks the sixth is unpooled and unaligned",
     {{"A+100@64 B+100@64 C+100@64 D+100@64 E+100@64 F+100@64", "m164 m164 m164 m164 m164 m100", 5, 820},
      {"F- A- B- C- D- E-", "f100", 5, 820}}},
    {"the largest pooled request, and one byte more",
     {{"A+41943040@64 B+41943041@64", "m41943104 m41943041", 1, limit + 64},
      {"B- A-", "f41943041", 1, limit + 64}}},
    {"a block given back twice is idle once",
     {{"A+100@0 A- A-", "m100", 1, 100}, {"B+100@0=A", "", 1, 100}, {"C+100@0 B- C-", "m100", 2, 200}}},
    {"a failed request loses its slot until nothing is busy",
     {{"fail", "", 0, 0},
      {"A+100@64=0 A-", "m164!", 1, 0},
      {"B+100@64", "m164", 2, 164},
      {"trim B-", "", 2, 164},
      {"C+100@64=B C-", "", 2, 164},
      {"trim", "f164", 0, 0},
      {"D+100@64 D-", "m164", 1, 164}}},
    {"a failed replacement loses its slot too",
     {{"A+100@0 B+100@0 C+100@0 D+100@0 E+100@0 A-", "m100 m100 m100 m100 m100", 5, 500},
      {"fail", "", 5, 500},
      {"F+200@0=0", "f100 m200!", 5, 400},
      {"G+10@0", "m10", 5, 400},
      {"G- B- C- D- E-", "f10", 5, 400},
      {"free", "f100 f100 f100 f100 f208", 0, 0}}},
    {"a failed unpooled request is null", {{"fail", "", 0, 0}, {"A+41943041@64=0", "m41943041!", 0, 0}}},
    {"trimming beside a busy block leaves holes, which count and are filled last",
     {{"A+100@0 B+200@0 A-", "m100 m200", 2, 300},
      {"trim", "f100", 2, 200},
      {"trim", "", 2, 200},
      {"C+50@0 D+50@0 E+50@0 F+70@0 G+70@0", "m50 m50 m50 m70 m70", 5, 420},
      {"G- B- C- D- E- F-", "f70", 5, 420},
      {"trim", "f70 f200 f50 f50 f50", 0, 0}}},
    {"a hole forgets its address, which the allocator may hand out again",
     {{"A+100@0 B+200@0 A-", "m100 m200", 2, 300},
      {"reuse", "", 2, 300},
      {"trim", "f100", 2, 200},
      {"C+100@0=A C-", "m100", 3, 300},
      {"D+100@0=C D- B-", "", 3, 300}}},
    {"freebuffers keeps the tables while a block is busy",
     {{"A+100@0 B+200@0 A-", "m100 m200", 2, 300},
      {"free B-", "f100", 2, 200},
      {"free", "f200 f208", 0, 0},
      {"C+100@0 C-", "m208 m100", 1, 100}}},
    {"without a record a request is unpooled",
     {{"free", "f208", 0, 0},
      {"fail", "", 0, 0},
      {"A+100@64", "m208! m100", 0, 0},
      {"A-", "f100", 0, 0},
      {"B+100@64 B-", "m208 m164", 1, 164}}},
};

TEST(Pool, Scenarios) {
  for (const scenario& s : scenarios) run(s);
}

// Bytes asked for a request of 1000, and the distance from the allocator's block to the address handed out.
struct placement {
  int32_t alignment;
  int64_t base_offset;
  uint64_t asked;
  int64_t distance;
};

const placement placements[] = {
    {INT32_MIN, 8, 1000, 0}, {-64, 8, 1000, 0},        {0, 8, 1000, 0},     {1, 8, 1000, 0},
    {3, 8, 1000, 0},         {4, 8, 1004, 0},          {5, 8, 1064, 56},    {8, 16, 1008, 0},
    {16, 8, 1016, 8},        {48, 16, 1064, 48},       {64, 0, 1064, 0},    {64, 64, 1064, 0},
    {64, 8, 1064, 56},       {100, 56, 1064, 8},       {128, 64, 1128, 64}, {4096, 16, 5096, 4080},
    {4097, 16, 1064, 48},    {16384, 8, 17384, 16376},
};

TEST(Pool, Alignment) {
  for (const placement& p : placements) {
    SCOPED_TRACE("alignment " + std::to_string(p.alignment) + ", base at " + std::to_string(p.base_offset));
    start_afresh();
    zalloc_place(p.base_offset);
    auto* block = static_cast<char*>(zor_serv_allocate(1000, p.alignment));
    EXPECT_EQ(take_log(), std::string("m").append(std::to_string(p.asked)));
    EXPECT_EQ(block - static_cast<char*>(zalloc_last()), p.distance);
    zor_serv_deallocate(block);
    zor_serv_freebuffers();
  }
}

TEST(Pool, AlignmentOfAReusedBlock) {
  start_afresh();
  zalloc_place(8);
  auto* block = static_cast<char*>(zor_serv_allocate(1000, 0));
  zor_serv_deallocate(block);
  const struct {
    int32_t alignment;
    int distance;
  } uses[] = {{128, 120}, {4, 0}, {64, 56}, {16, 8}};
  for (const auto& use : uses) {
    void* again = zor_serv_allocate(500, use.alignment);
    EXPECT_EQ(again, block + use.distance) << use.alignment;
    zor_serv_deallocate(again);
  }
  EXPECT_EQ(pooled_bytes(), 1000u);
  zor_serv_freebuffers();
}

TEST(Pool, ARepeatTakesNoLockAndCallsNoAllocator) {
  start_afresh();
  void* others[4];
  for (void*& block : others) block = zor_serv_allocate(64, 64);
  zor_serv_deallocate(zor_serv_allocate(5000, 128));
  const int locks = locks_taken;
  const uint64_t calls = zalloc_calls();
  for (int i = 0; i < 1000; ++i) zor_serv_deallocate(zor_serv_allocate(5000, 128));
  for (void* block : others) zor_serv_deallocate(block);
  EXPECT_EQ(locks_taken - locks, 0);
  EXPECT_EQ(zalloc_calls() - calls, 0u);
  zor_serv_freebuffers();
}

TEST(Pool, ABlockMayBeGivenBackByAnotherThread) {
  start_afresh();
  void* block = zor_serv_allocate(1000, 64);
  void* unpooled = zor_serv_allocate(limit + 1, 64);
  zalloc_clear_log();
  int locks = 0;
  std::thread([&] {
    const int before = locks_taken;
    zor_serv_deallocate(block);
    locks = locks_taken - before;
    zor_serv_deallocate(unpooled);
  }).join();
  EXPECT_EQ(locks, 1);
  EXPECT_EQ(take_log(), "f41943041");
  EXPECT_EQ(pooled_count(), 1);
  EXPECT_EQ(zor_serv_allocate(1000, 64), block) << "the block stays with the thread that took it";
  EXPECT_EQ(take_log(), "");
  zor_serv_deallocate(block);
  zor_serv_freebuffers();
}

TEST(Pool, FreebuffersReachesAllThreadsAndTrimmingOne) {
  start_afresh();
  std::barrier step(2);
  void* held = nullptr;
  std::thread other([&] {
    held = zor_serv_allocate(300, 0);
    zor_serv_deallocate(zor_serv_allocate(400, 0));
    step.arrive_and_wait();
    step.arrive_and_wait();
  });
  step.arrive_and_wait();
  zalloc_clear_log();
  zor_serv_zor_thread_free_buffers();
  EXPECT_EQ(take_log(), "");
  zor_serv_freebuffers();
  EXPECT_EQ(take_log(), "f400");
  EXPECT_EQ(pooled_bytes(), 300u);
  step.arrive_and_wait();
  other.join();
  zor_serv_deallocate(held);
  EXPECT_EQ(take_log(), "") << "the record of a thread that has ended still holds its block";
  zor_serv_freebuffers();
  EXPECT_EQ(take_log(), "f300 f208 f208");
}

// 1,200 threads alive at once: 1,024 are registered, the others are served without the pool.
TEST(Pool, MoreThreadsThanRecords) {
  zor_serv_freebuffers();
  zalloc_reset();
  constexpr int threads = 1200;
  std::barrier all_have(threads + 1);
  std::barrier checked(threads + 1);
  std::atomic<int> null_results{0};
  std::vector<std::thread> crowd;
  for (int i = 0; i < threads; ++i) {
    crowd.emplace_back([&] {
      void* block = zor_serv_allocate(100, 64);
      null_results += block == nullptr;
      all_have.arrive_and_wait();
      checked.arrive_and_wait();
      zor_serv_deallocate(block);
    });
  }
  all_have.arrive_and_wait();
  EXPECT_EQ(null_results, 0);
  EXPECT_EQ(pooled_count(), 1024);
  EXPECT_EQ(pooled_bytes(), 1024u * 164);
  EXPECT_EQ(zalloc_live_bytes(), 1024 * (record_bytes + 164) + (threads - 1024) * 100);
  checked.arrive_and_wait();
  for (std::thread& t : crowd) t.join();
  EXPECT_EQ(zalloc_live_bytes(), 1024 * (record_bytes + 164));
  zor_serv_freebuffers();
  EXPECT_EQ(pooled_count(), 0);
  EXPECT_EQ(zalloc_live_blocks(), 0);
}

// Threads one after the other: as many records as the system gave them identifiers.
TEST(Pool, AThreadTakesOverTheRecordOfItsIdentifier) {
  start_afresh();
  std::set<pthread_t> identifiers;
  std::string expected;
  for (int i = 0; i < 10; ++i) {
    std::thread([&] {
      if (identifiers.insert(pthread_self()).second)
        expected += expected.empty() ? "m208 m100" : " m208 m100";
      zor_serv_deallocate(zor_serv_allocate(100, 0));
    }).join();
  }
  EXPECT_LT(identifiers.size(), 10u) << "this system gives no identifier twice: nothing was tested";
  EXPECT_EQ(take_log(), expected);
  zor_serv_freebuffers();
}

// An index under which another identifier stands leads to a new record, not to that other's.
TEST(Pool, AStaleIndexIsForgotten) {
  zor_serv_freebuffers();
  start_afresh();
  void* block = zor_serv_allocate(100, 0);
  std::thread([] { zor_serv_deallocate(zor_serv_allocate(100, 0)); }).join();
  zalloc_clear_log();
  index_error = 1;
  void* second = zor_serv_allocate(100, 0);
  index_error = 0;
  EXPECT_EQ(take_log(), "m208 m100");
  zor_serv_deallocate(block);
  zor_serv_deallocate(second);
  EXPECT_EQ(take_log(), "");
  EXPECT_EQ(pooled_count(), 3);
  zor_serv_freebuffers();
  EXPECT_EQ(zalloc_live_blocks(), 0);
}

// What depends on a process that has not used the pool yet runs in a process of its own, which ends with
// status 0 when all its conditions held.
#define REQUIRE(condition)                                                                      \
  do {                                                                                          \
    if (!(condition)) {                                                                         \
      std::fprintf(stderr, "line %d: %s; allocator: %s\n", __LINE__, #condition, zalloc_log()); \
      std::_Exit(1);                                                                            \
    }                                                                                           \
  } while (false)

// Whether the allocator saw just these calls since the last time.
bool logged(const char* calls) {
  const bool same = std::string(zalloc_log()) == calls;
  if (same) zalloc_clear_log();
  return same;
}

class FreshProcess : public testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

void first_calls() {
  REQUIRE(keys_created == 0);
  REQUIRE(zor_serv_allocate(0, 128) == nullptr);
  REQUIRE(keys_created == 1 && logged(""));
  zor_serv_zor_thread_free_buffers();
  REQUIRE(zor_serv_allocate(100, 0) != nullptr);
  REQUIRE(keys_created == 1 && logged("m208 m100"));
  std::_Exit(0);
}

void release_comes_first() {
  REQUIRE(pooled_count() == 0 && pooled_bytes() == 0);
  zor_serv_freebuffers();
  zor_serv_zor_thread_free_buffers();
  REQUIRE(keys_created == 0 && logged(""));
  zor_serv_deallocate((*static_cast<void* (**)(size_t)>(dlsym(RTLD_DEFAULT, "z_malloc_dll")))(32));
  REQUIRE(logged("m32 f32"));
  std::_Exit(0);
}

void no_key_to_be_had() {
  keys_fail = true;
  void* block = zor_serv_allocate(100, 64);
  REQUIRE(block != nullptr && logged("m100") && pooled_count() == 0);
  zor_serv_deallocate(block);
  REQUIRE(logged("f100"));
  keys_fail = false;
  REQUIRE(zor_serv_allocate(100, 64) != nullptr && logged("m208 m164") && pooled_count() == 1);
  std::_Exit(0);
}

void key_goes_with_the_tables() {
  zor_serv_deallocate(zor_serv_allocate(100, 0));
  zor_serv_freebuffers();
  zor_serv_freebuffers();
  zor_serv_deallocate(zor_serv_allocate(100, 0));
  REQUIRE(keys_created == 2 && logged("m208 m100 f100 f208 m208 m100"));
  std::_Exit(0);
}

TEST_F(FreshProcess, FirstCallsAndTheKey) {
  for (void (*steps)() : {first_calls, release_comes_first, no_key_to_be_had, key_goes_with_the_tables})
    EXPECT_EXIT(steps(), testing::ExitedWithCode(0), "");
}

// A pool that is on or off stays so, whatever becomes of the environment.
void expect_pool(bool on) {
  int32_t count = 7;
  void* block = zor_serv_allocate(100, 64);
  REQUIRE(logged(on ? "m208 m164" : "m100"));
  const uint64_t bytes = zor_serv_zor_memstat(&count);
  REQUIRE(count == (on ? 1 : -1) && bytes == (on ? 164u : 0u));
  unsetenv("ZOR_MM_DISABLE");
  setenv("ZOR_DISABLE_FAST_MM", on ? "1" : "", 1);
  zor_serv_deallocate(block);
  REQUIRE(logged(on ? "" : "f100"));
  block = zor_serv_allocate(100, 64);
  zor_serv_zor_thread_free_buffers();
  zor_serv_freebuffers();
  REQUIRE(logged(on ? "" : "m100"));
  zor_serv_deallocate(block);
  REQUIRE(logged(on ? "" : "f100"));
  std::_Exit(0);
}

TEST_F(FreshProcess, TheEnvironmentSwitchesThePool) {
  const std::string long_text(200, 'x');
  const char* unset = nullptr;
  const struct {
    const char* fast_mm;  // ZOR_DISABLE_FAST_MM
    const char* mm;       // ZOR_MM_DISABLE
    bool on;
  } cases[] = {{unset, unset, true}, {"1", unset, false}, {unset, "1", false},
               {"", unset, true},    {"", "", true},      {"", "yes", false},
               {"0", unset, false},  {unset, " ", false}, {long_text.c_str(), unset, false},
               {"no", "", false},    {"x", "x", false},   {unset, long_text.c_str(), false}};
  const auto set = [](const char* name, const char* value) {
    value != nullptr ? setenv(name, value, 1) : unsetenv(name);
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.fast_mm != unset ? c.fast_mm : "unset") + " / " +
                 (c.mm != unset ? c.mm : "unset"));
    set("ZOR_DISABLE_FAST_MM", c.fast_mm);
    set("ZOR_MM_DISABLE", c.mm);
    EXPECT_EXIT(expect_pool(c.on), testing::ExitedWithCode(0), "");
  }
}

}  // namespace
