// SPDX-License-Identifier: MIT
// Memory that runs short: each allocation of a task and of every kind of body fails in turn. The call answers
// with its status, or does without; nothing leaks, and nothing is written behind a refused allocation. The
// program's own malloc counts.
#include <atomic>
#include <cstdlib>

#include "tests/conv/problems.h"

namespace {
std::atomic<long> fail_at{-1};  // allocations to go before one fails; below 0: none
std::atomic<long> live{0};
std::atomic<bool> counting{false};

[[gnu::constructor]] void switch_pool_off() { setenv("ZOR_MM_DISABLE", "1", 1); }

bool refuse() { return counting && fail_at.load() >= 0 && fail_at.fetch_sub(1) == 0; }
}  // namespace

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void __libc_free(void*);

void* malloc(size_t n) {
  if (refuse()) return nullptr;
  if (counting) ++live;
  return __libc_malloc(n);
}
void* calloc(size_t n, size_t size) {
  if (refuse()) return nullptr;
  if (counting) ++live;
  return __libc_calloc(n, size);
}
void free(void* p) {
  if (counting && p != nullptr) --live;
  __libc_free(p);
}
}

namespace {

using namespace conv_test;

struct memory_case {
  shape x, y;
  int32_t mode, step;
  bool strided;
};
const memory_case cases[] = {{{300}, {40}, ZOR_CONV_DIRECT, 1, true},
                             {{300}, {40}, ZOR_CONV_DIRECT, 4, false},
                             {{900}, {80}, ZOR_CONV_TRANSFORM, 1, true},
                             {{300}, {280}, ZOR_CONV_TRANSFORM, 2, false},
                             {{30, 20}, {6, 5}, ZOR_CONV_DIRECT, 1, true},
                             {{30, 20}, {6, 5}, ZOR_CONV_TRANSFORM, 1, true},
                             {{6, 5, 4}, {3, 2, 2}, ZOR_CONV_TRANSFORM, 1, false}};

template <class T>
void check(const memory_case& c, int32_t internal) {
  random_bits random(7);
  conv_problem p = whole(false, c.x, c.y);
  p.decimation[0] = c.step;
  p.z_shape[0] = (p.z_shape[0] - 1) / c.step + 1;
  p.z_stride = dense(p.z_shape);
  if (c.strided)
    for (size_t d = 0; d < p.dims(); ++d) p.x_stride[d] *= 2;
  operands<T> o(p, random, true);
  std::vector<real<T>> expected;
  int refused = 0;
  for (long n = -1; n < 60; ++n) {
    ZorConvTask* task = task_of<T>(p, c.mode, internal);
    // The first run makes tables that live on.
    if (n < 0) {
      ASSERT_EQ(o.exec(task, p), 0);
      expected = o.outputs();
      zor_conv_DeleteTask(&task);
      continue;
    }
    live = 0;
    fail_at = n;
    counting = true;
    const int32_t status = o.exec(task, p);
    counting = false;
    const bool happened = fail_at < 0;
    fail_at = -1;
    EXPECT_EQ(live, 0) << "allocation " << n;
    if (status == 0) {
      const std::vector<real<T>> actual = o.outputs();
      EXPECT_TRUE(same_bits(expected.data(), actual.data(), actual.size())) << "allocation " << n;
    } else {
      ++refused;
      EXPECT_TRUE(happened);
      EXPECT_TRUE(status == ZOR_CONV_NO_MEMORY || status == ZOR_CONV_TRANSFORM_FAILED) << status;
      // The first request of a strided operand's body is its own.
      if (n == 0 && c.strided) {
        EXPECT_EQ(status, ZOR_CONV_NO_MEMORY);
      }
      EXPECT_EQ(task->status, status);
      for (T& e : o.z) e = operands<T>::pattern();
    }
    EXPECT_EQ(zor_conv_DeleteTask(&task), 0);
    if (!happened) break;
  }
  if (c.strided || c.mode == ZOR_CONV_TRANSFORM) {
    EXPECT_GT(refused, 0);
  }
}

TEST(ConvMemory, EveryAllocationFails) {
  for (const memory_case& c : cases) {
    SCOPED_TRACE(text(c.x) + text(c.y) + (c.mode == ZOR_CONV_DIRECT ? " direct" : " transform"));
    check<double>(c, ZOR_CONV_DOUBLE);
    check<float>(c, ZOR_CONV_DOUBLE);
    check<zor_c32>(c, ZOR_CONV_SINGLE);
  }
}

TEST(ConvMemory, TasksWithoutMemory) {
  const shape one = {1};
  ZorConvTask *task = nullptr, *copy = nullptr;
  const auto create = [&] {
    return zor_conv_NewTask(&task, 1, 0, 1, 1, 2, 1, one.data(), one.data(), one.data());
  };
  counting = true;
  fail_at = 0;
  const int32_t refused = create();
  counting = false;
  EXPECT_EQ(refused, ZOR_CONV_NO_TASK_MEMORY);
  EXPECT_EQ(task, nullptr);
  ASSERT_EQ(create(), 0);
  counting = true;
  fail_at = 0;
  const int32_t copied = zor_conv_CopyTask(&copy, task);
  counting = false;
  EXPECT_EQ(copied, ZOR_CONV_NO_TASK_MEMORY);
  EXPECT_EQ(copy, nullptr);
  EXPECT_EQ(task->status, 0);
  zor_conv_DeleteTask(&task);
}

}  // namespace
