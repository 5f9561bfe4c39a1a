// SPDX-License-Identifier: MIT
// Memory that runs short: each allocation of a task, of every kind of body and of the public entries fails in
// turn. The call answers with its status, or does without; nothing leaks, and nothing is written behind a
// refused allocation.
#include <cstdlib>

#include "tests/conv/problems.h"
#include "tests/support/failing_malloc.h"
#include "zor/core.h"

namespace {

using namespace conv_test;

[[gnu::constructor]] void switch_pool_off() { setenv("ZOR_MM_DISABLE", "1", 1); }

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
    int32_t status = 0;
    const short_memory met = with_failure(n, false, [&] { status = o.exec(task, p); });
    EXPECT_EQ(met.left, 0) << "allocation " << n;
    if (status == 0) {
      const std::vector<real<T>> actual = o.outputs();
      EXPECT_TRUE(same_bits(expected.data(), actual.data(), actual.size())) << "allocation " << n;
    } else {
      ++refused;
      EXPECT_TRUE(met.happened);
      EXPECT_TRUE(status == ZOR_CONV_NO_MEMORY || status == ZOR_CONV_TRANSFORM_FAILED) << status;
      // The first request of a strided operand's body is its own.
      if (n == 0 && c.strided) {
        EXPECT_EQ(status, ZOR_CONV_NO_MEMORY);
      }
      EXPECT_EQ(task->status, status);
      for (T& e : o.z) e = operands<T>::pattern();
    }
    EXPECT_EQ(zor_conv_DeleteTask(&task), 0);
    if (!met.happened) break;
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
  int32_t status = 0;
  const auto create = [&] {
    status = zor_conv_NewTask(&task, 1, 0, 1, 1, 2, 1, one.data(), one.data(), one.data());
  };
  with_failure(0, false, create);
  EXPECT_EQ(status, ZOR_CONV_NO_TASK_MEMORY);
  EXPECT_EQ(task, nullptr);
  create();
  ASSERT_EQ(status, 0);
  with_failure(0, false, [&] { status = zor_conv_CopyTask(&copy, task); });
  EXPECT_EQ(status, ZOR_CONV_NO_TASK_MEMORY);
  EXPECT_EQ(copy, nullptr);
  EXPECT_EQ(task->status, 0);
  zor_conv_DeleteTask(&task);
}

// Lengths of its own for each call: plans that stay in the library are made anew.
TEST(ConvMemory, PublicEntries) {
  random_bits random(8);
  zor_int iteration = 0;
  for (const int32_t threads : {1, 3})
    for (const int32_t method : {ZOR_CONV_DIRECT, ZOR_CONV_TRANSFORM})
      for (const bool onwards : {false, true}) {
        zor_core_set_num_threads(threads);
        bool done = false;
        for (long n = 0; n < 400 && !done; ++n) {
          const zor_int m = 9000 + 2048 * (iteration % 9), taps = iteration++ % 2 == 0 ? 300 : 600,
                        full = m + taps - 1;
          std::vector<double> x(static_cast<size_t>(m)), y(static_cast<size_t>(taps)),
              z(static_cast<size_t>(full));
          for (double& e : x) e = double(random.between(-3, 3));
          for (double& e : y) e = double(random.between(-3, 3));
          zor_conv_options options = {};
          options.method = method;
          int32_t status = 0;
          const short_memory met = with_failure(n, onwards, [&] {
            status = zor_convolve_d(1, &m, x.data(), &taps, y.data(), &full, z.data(), &options);
          });
          done = !met.happened;
          if (done) {
            EXPECT_EQ(status, 0);
          }
          if (status != 0) {
            EXPECT_TRUE(status == ZOR_CONV_NO_MEMORY || status == ZOR_CONV_TRANSFORM_FAILED) << status;
            continue;
          }
          for (zor_int k : {zor_int(0), m / 2, full - 1}) {
            double sum = 0;
            for (zor_int i = std::max<zor_int>(0, k - taps + 1); i <= std::min(m - 1, k); ++i)
              sum += x[size_t(i)] * y[size_t(k - i)];
            EXPECT_NEAR(z[size_t(k)], sum, 1e-9) << "allocation " << n;
          }
        }
        EXPECT_TRUE(done);
      }
  zor_core_set_num_threads(0);
}

}  // namespace
