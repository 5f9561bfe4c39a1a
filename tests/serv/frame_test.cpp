// SPDX-License-Identifier: MIT
// Load and unload step by step, with a failing allocator and a sleep that only notes its delay.
#include "serv/frame.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

using zor::frame;
using zor::frame_start;
using zor::start_reason;

alignas(16) char table_memory[zor::exit_table_bytes];
std::vector<uint32_t> delays;
std::vector<size_t> sizes;
std::vector<void*> freed;
size_t failures;  // attempts to refuse before one is granted
std::string calls;
frame state;

void* scarce_malloc(size_t size) {
  sizes.push_back(size);
  std::memset(table_memory, 0xA5, sizeof table_memory);
  return sizes.size() > failures ? table_memory : nullptr;
}

const zor::runtime fake = {scarce_malloc, [](void* block) { freed.push_back(block); },
                           [](uint32_t delay) { delays.push_back(delay); }};

class Frame : public testing::Test {
 protected:
  void SetUp() override {
    delays.clear();
    sizes.clear();
    freed.clear();
    failures = 0;
    calls.clear();
    state = frame{};
  }
};

TEST_F(Frame, LoadWaitsForMemory) {
  const struct {
    size_t failures;
    int32_t status;
    size_t attempts;
    uint64_t total_wait;
  } cases[] = {{0, 1, 1, 0},         {1, 1, 2, 0},         {2, 1, 3, 1000},
               {60, 1, 61, 1770000}, {61, 0, 61, 1830000}, {1000, 0, 61, 1830000}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.failures);
    SetUp();
    failures = c.failures;
    EXPECT_EQ(frame_start(state, fake, start_reason::load), c.status);
    EXPECT_EQ(sizes, std::vector<size_t>(c.attempts, 256));
    uint64_t total = 0;
    for (size_t i = 0; i < delays.size(); ++i) {
      EXPECT_EQ(delays[i], 1000 * i);
      total += delays[i];
    }
    EXPECT_EQ(delays.size(), c.status == 1 ? c.failures : 61);
    EXPECT_EQ(total, c.total_wait);
    EXPECT_EQ(state.load_count, c.status);
    EXPECT_EQ(state.exit_table != nullptr, c.status == 1);
  }
}

TEST_F(Frame, LoadThenUnload) {
  ASSERT_EQ(frame_start(state, fake, start_reason::load), 1);
  EXPECT_EQ(static_cast<void*>(state.exit_table), table_memory);
  EXPECT_EQ(state.exit_table[0], nullptr);
  EXPECT_EQ(state.exit_cursor, state.exit_table);
  for (start_reason reason : {start_reason::thread_attach, start_reason::thread_detach}) {
    frame_start(state, fake, reason);
    EXPECT_EQ(state.load_count, 1);
  }
  EXPECT_EQ(frame_start(state, fake, start_reason::unload), 1);
  EXPECT_EQ(state.load_count, 0);
  EXPECT_EQ(state.exit_table, nullptr);
  EXPECT_EQ(freed, std::vector<void*>{table_memory});
}

TEST_F(Frame, UnloadWithoutLoad) {
  EXPECT_EQ(frame_start(state, fake, start_reason::unload), 0);
  EXPECT_EQ(state.load_count, 0);
  EXPECT_TRUE(freed.empty());
  state.load_count = 2;  // as after loads whose table is gone
  EXPECT_EQ(frame_start(state, fake, start_reason::unload), 1);
  EXPECT_EQ(state.load_count, 1);
  EXPECT_TRUE(freed.empty());
}

// The last registered comes first, empty slots are skipped, and a function may register another, which runs
// next.
TEST_F(Frame, UnloadRunsTheExitTable) {
  ASSERT_EQ(frame_start(state, fake, start_reason::load), 1);
  *state.exit_cursor++ = [] { calls += 'a'; };
  *state.exit_cursor++ = [] {
    calls += 'b';
    *state.exit_cursor++ = [] { calls += 'n'; };
  };
  *state.exit_cursor++ = nullptr;
  *state.exit_cursor++ = [] { calls += 'c'; };
  EXPECT_EQ(frame_start(state, fake, start_reason::unload), 1);
  EXPECT_EQ(calls, "cbna");
  EXPECT_EQ(freed.size(), 1u);
}

TEST_F(Frame, InitTableAscends) {
  zor::frame_fn* const table[] = {nullptr, [] { calls += 'a'; }, nullptr, [] { calls += 'b'; },
                                  [] { calls += 'c'; }};
  zor::run_init_table(table, table + 4);
  EXPECT_EQ(calls, "ab");
}

}  // namespace
