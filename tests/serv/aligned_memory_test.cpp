// SPDX-License-Identifier: MIT
// The aligned wrappers and the convolution blocks: bytes asked of the allocator, addresses, the word below a
// block.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "serv/memory.h"
#include "tests/support/zalloc.h"
#include "zor/serv.h"

namespace {

std::string take_log() {
  std::string log = zalloc_log();
  zalloc_clear_log();
  return log;
}

std::string one_call(char function, uint64_t size) {
  std::string text(1, function);
  return text.append(std::to_string(size));
}

char* last() { return static_cast<char*>(zalloc_last()); }

void* base_below(void* pointer) {
  void* base;
  std::memcpy(&base, static_cast<char*>(pointer) - sizeof base, sizeof base);
  return base;
}

enum class source { malloc, calloc, realloc, conv };

// A request of `size` bytes: bytes asked of the allocator and distance from its block to the address handed
// out, with the block at `base_offset` above a boundary.
struct placement {
  source from;
  uint64_t size;
  int32_t alignment;
  int64_t base_offset;
  uint64_t asked;
  int64_t distance;
};

const placement placements[] = {
    {source::malloc, 10, 0, 0, 18, 8},
    {source::malloc, 10, 1, 16, 18, 8},
    {source::malloc, 10, 4, 16, 18, 8},
    {source::malloc, 10, 7, 16, 82, 48},
    {source::malloc, 10, 8, 16, 26, 16},
    {source::malloc, 10, 16, 0, 34, 16},
    {source::malloc, 10, 16, 8, 34, 24},
    {source::malloc, 10, 48, 0, 82, 64},
    {source::malloc, 10, 64, 0, 82, 64},
    {source::malloc, 10, 64, 48, 82, 16},
    {source::malloc, 10, 64, 56, 82, 72},
    {source::malloc, 10, 4096, 0, 4114, 4096},
    {source::malloc, 10, 4096, 4080, 4114, 16},
    {source::malloc, 10, 4096, 4088, 4114, 4104},
    {source::malloc, 10, -1, 0, 82, 64},
    {source::malloc, 10, INT32_MIN, 16, 82, 48},
    {source::calloc, 10, 64, 48, 82, 16},
    {source::calloc, 10, 2, 48, 18, 8},
    {source::realloc, 10, 0, 0, 82, 64},
    {source::realloc, 10, 0, 48, 82, 16},
    {source::realloc, 10, 0, 56, 82, 72},
    {source::conv, 10, 0, 0, 50, 32},
    {source::conv, 10, 0, 16, 50, 16},
    {source::conv, 10, 0, 24, 50, 8},
    {source::conv, 1, 0, 8, 41, 24},
};

void* request(const placement& p) {
  switch (p.from) {
    case source::malloc:
      return zor_serv_zor_malloc(p.size, p.alignment);
    case source::calloc:
      return zor_serv_zor_calloc(2, p.size / 2, p.alignment);
    case source::realloc:
      return zor_serv_zor_realloc(nullptr, p.size);
    case source::conv:
      return zor::conv_allocate(int32_t(p.size));
  }
  return nullptr;
}

TEST(AlignedMemory, Placement) {
  for (const placement& p : placements) {
    SCOPED_TRACE("source " + std::to_string(int(p.from)) + ", alignment " + std::to_string(p.alignment) +
                 ", base at " + std::to_string(p.base_offset));
    zalloc_reset();
    zalloc_place(p.base_offset);
    void* block = request(p);
    EXPECT_EQ(take_log(), one_call('m', p.asked));
    ASSERT_EQ(static_cast<char*>(block) - last(), p.distance);
    EXPECT_EQ(base_below(block), last());
    p.from == source::conv ? zor::conv_release(block) : zor_serv_zor_free(block);
    EXPECT_EQ(take_log(), one_call('f', p.asked));

    zalloc_fail(1, false);
    EXPECT_EQ(request(p), nullptr);
    EXPECT_EQ(zalloc_live_blocks(), 0);
  }
}

TEST(AlignedMemory, RequestsWithoutABlock) {
  zalloc_reset();
  EXPECT_EQ(zor_serv_zor_malloc(0, 64), nullptr);
  EXPECT_EQ(zor_serv_zor_calloc(0, 8, 64), nullptr);
  EXPECT_EQ(zor_serv_zor_calloc(8, 0, 64), nullptr);
  EXPECT_EQ(zor_serv_zor_calloc(uint64_t(1) << 32, uint64_t(1) << 32, 64), nullptr)
      << "the product wraps to 0";
  EXPECT_EQ(zor_serv_zor_realloc(nullptr, 0), nullptr);
  EXPECT_EQ(zor_serv_zor_malloc(UINT64_MAX, 64), nullptr);
  EXPECT_EQ(zor_serv_zor_realloc(nullptr, UINT64_MAX - 8), nullptr);
  for (int32_t size : {0, -1, INT32_MIN}) EXPECT_EQ(zor::conv_allocate(size), nullptr);
  zor_serv_zor_free(nullptr);
  zor::conv_release(nullptr);
  EXPECT_EQ(zalloc_calls(), 0u);
}

// The product's bytes at the result are cleared and no others.
TEST(AlignedMemory, CallocClearsItsBytesOnly) {
  zalloc_reset();
  zalloc_place(0);
  auto* block = static_cast<unsigned char*>(zor_serv_zor_calloc(7, 30, 64));
  EXPECT_EQ(take_log(), "m282");
  for (int i = -64; i < 218; ++i) {
    if (i >= -8 && i < 0) continue;
    ASSERT_EQ(block[i], i >= 0 && i < 210 ? 0 : 0xA5) << i;
  }
  zor_serv_zor_free(block);
}

// A block whose header holds no base belongs to nobody.
TEST(AlignedMemory, AHeaderWithoutBase) {
  zalloc_reset();
  uint64_t words[2] = {0, 1};
  zor_serv_zor_free(&words[1]);
  EXPECT_EQ(zor_serv_zor_realloc(&words[1], 100), nullptr);
  EXPECT_EQ(zalloc_calls(), 0u);
}

// Bytes asked are the new size and the block's distance from its base; distance and contents are kept.
TEST(AlignedMemory, Realloc) {
  for (const bool in_place : {false, true}) {
    SCOPED_TRACE(in_place ? "in place" : "moved");
    zalloc_reset();
    zalloc_place(0);
    zalloc_resize_in_place(in_place);
    auto* old = static_cast<char*>(zor_serv_zor_malloc(10, 64));
    std::memcpy(old, "123456789", 10);
    take_log();
    zalloc_place(16);
    auto* grown = static_cast<char*>(zor_serv_zor_realloc(old, 1000));
    ASSERT_NE(grown, nullptr);
    EXPECT_EQ(take_log(), "r1064");
    EXPECT_EQ(grown == old, in_place);
    EXPECT_EQ(grown, last() + 64);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(grown) % 64, in_place ? 0u : 16u)
        << "the alignment is not restored";
    EXPECT_STREQ(grown, "123456789");
    EXPECT_EQ(base_below(grown), last());

    zalloc_fail(1, false);
    EXPECT_EQ(zor_serv_zor_realloc(grown, 5000), nullptr);
    EXPECT_EQ(take_log(), "r5064!");
    EXPECT_STREQ(grown, "123456789") << "the old block stands";
    EXPECT_EQ(zor_serv_zor_realloc(grown, UINT64_MAX - 8), nullptr);
    EXPECT_EQ(take_log(), "");

    void* shrunk = zor_serv_zor_realloc(grown, 0);
    ASSERT_NE(shrunk, nullptr);
    EXPECT_EQ(take_log(), "r64");
    zor_serv_zor_free(shrunk);
    EXPECT_EQ(zalloc_live_blocks(), 0);
  }
}

}  // namespace
