// SPDX-License-Identifier: MIT
// The pool under many threads and over fork, with libzor_core's lock and the C runtime's allocator.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/support/operand.h"
#include "zor/serv.h"

namespace {

// A block that must keep what its owner wrote, wherever it is checked.
struct block {
  unsigned char* memory = nullptr;
  size_t size = 0;
  unsigned char mark = 0;
};

block take(zor_test::random_bits& random) {
  // Mostly sizes that repeat, some of them beyond the pool's five.
  const size_t sizes[] = {64, 100, 1000, 4096, 5000, 30000, 65536};
  block b;
  b.size = sizes[random.between(0, 6)];
  b.mark = static_cast<unsigned char>(random.next());
  const int32_t alignments[] = {0, 16, 64, 128};
  const int32_t alignment = alignments[random.between(0, 3)];
  b.memory = static_cast<unsigned char*>(zor_serv_allocate(b.size, alignment));
  if (b.memory != nullptr) std::memset(b.memory, b.mark, b.size);
  return b;
}

// False when the block was damaged, as far as a sample of its bytes tells.
bool give_back(const block& b) {
  bool intact = b.memory != nullptr && b.memory[b.size - 1] == b.mark;
  for (size_t i = 0; intact && i < b.size; i += 61) intact = b.memory[i] == b.mark;
  zor_serv_deallocate(b.memory);
  return intact;
}

// Blocks on their way between threads.
struct exchange {
  std::mutex mutex;
  std::array<block, 8> blocks;
};

// Takes and gives back blocks of mixed sizes; one in four goes through the exchange, so that it is given back
// by whichever thread finds it. Returns the number of damaged blocks.
int work(uint64_t seed, int rounds, exchange& shared) {
  zor_test::random_bits random(seed);
  int damaged = 0;
  std::array<block, 7> own;
  for (int i = 0; i < rounds; ++i) {
    block& b = own[size_t(random.between(0, 6))];
    if (b.memory == nullptr) b = take(random);
    if (random.between(0, 3) == 0) {
      std::lock_guard guard(shared.mutex);
      std::swap(b, shared.blocks[size_t(random.between(0, 7))]);
    }
    if (b.memory != nullptr && random.between(0, 1) == 0) {
      damaged += !give_back(b);
      b = {};
    }
    if (i % 64 == 0) {
      int32_t count;
      zor_serv_zor_memstat(&count);
    }
  }
  for (const block& b : own) {
    if (b.memory != nullptr) damaged += !give_back(b);
  }
  zor_serv_zor_thread_free_buffers();
  return damaged;
}

// Gives back what is left on its way; returns the number of damaged blocks.
int drain(exchange& shared) {
  int damaged = 0;
  for (block& b : shared.blocks) {
    if (b.memory != nullptr) damaged += !give_back(b);
    b = {};
  }
  return damaged;
}

TEST(PoolThreads, MixedSizesAndFreesAcrossThreads) {
  exchange shared;
  for (int wave = 0; wave < 3; ++wave) {
    std::atomic<int> damaged{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 16; ++t) {
      threads.emplace_back([&, t] { damaged += work(uint64_t(100 * wave + t), 800, shared); });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(damaged, 0);
  }
  EXPECT_EQ(drain(shared), 0);
  zor_serv_freebuffers();
  int32_t count;
  EXPECT_EQ(zor_serv_zor_memstat(&count), 0u);
  EXPECT_EQ(count, 0);
}

// The sanitizers' own allocators do not survive a fork beside running threads.
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)

// What a child of fork must still be able to do, on its only thread and on new ones.
int use_pool_in_child() {
  exchange shared;
  int damaged = work(1, 200, shared);
  std::vector<std::thread> threads;
  std::atomic<int> damaged_there{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] { damaged_there += work(uint64_t(t), 200, shared); });
  }
  for (std::thread& t : threads) t.join();
  zor_serv_freebuffers();
  return damaged + damaged_there + drain(shared);
}

// The process forks again and again while other threads are anywhere inside the pool.
TEST(PoolThreads, ForkWhileThreadsWork) {
  exchange shared;
  std::atomic<bool> stop{false};
  std::atomic<int> damaged{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&, t] {
      for (uint64_t seed = uint64_t(t); !stop; seed += 3) damaged += work(seed, 100, shared);
    });
  }
  for (int i = 0; i < 60; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(20);
      _exit(use_pool_in_child());
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0) << "fork " << i;
  }
  stop = true;
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(damaged, 0);
  EXPECT_EQ(drain(shared), 0);
}

#endif

}  // namespace
