// SPDX-License-Identifier: MIT
// The task object: its fields, every status, and that a failure stays.
#include <cstring>

#include "tests/conv/problems.h"
#include "zor/serv.h"

namespace {

using namespace conv_test;

// A task of one dimension, convolution of 3 by 2 doubles unless said.
struct held_task {
  ZorConvTask* task = nullptr;
  explicit held_task(int32_t job = ZOR_CONV_CONVOLUTION, shape x = {3}, shape y = {2}, shape z = {4},
                     int32_t mode = ZOR_CONV_DIRECT, int32_t type = ZOR_CONV_REAL,
                     int32_t precision = ZOR_CONV_DOUBLE) {
    EXPECT_EQ(zor_conv_NewTask(&task, job, 5, mode, type, precision, int32_t(x.size()), x.data(), y.data(),
                               z.data()),
              0);
  }
  ~held_task() { zor_conv_DeleteTask(&task); }
  ZorConvTask* operator->() const { return task; }
  int32_t edit(int32_t parameter, const shape& values) {
    return zor_conv_EditTask(task, parameter, values.data());
  }
};

const double x3[] = {1, 2, 3}, y2[] = {10, 100};

TEST(ConvTask, NewTaskKeepsItsSettings) {
  const shape x = {1, 2, 3, 4, 5, 6, 7}, y = {7, 6, 5, 4, 3, 2, 1}, z = {1, 1, 1, 1, 1, 1, 1},
              stride = {1, 2, 4, 8, 16, 32, -64};
  ZorConvTask* t = nullptr;
  ASSERT_EQ(zor_conv_NewTaskX(&t, 2, 11, 1, 2, 1, 7, x.data(), y.data(), z.data(), x3, stride.data()), 0);
  EXPECT_EQ(t->internal_precision, 1);
  EXPECT_EQ(t->fixed_x, x3);
  EXPECT_EQ(t->committed, 0);
  const struct {
    int32_t *pointer, *values;
    const shape& expected;
  } arrays[] = {{t->x_shape, t->x_shape_values, x},
                {t->y_shape, t->y_shape_values, y},
                {t->z_shape, t->z_shape_values, z},
                {t->x_stride, t->x_stride_values, stride}};
  for (const auto& a : arrays) {
    EXPECT_EQ(a.pointer, a.values);
    EXPECT_EQ(shape(a.values, a.values + 7), a.expected);
  }
  EXPECT_EQ(zor_conv_DeleteTask(&t), 0);
  EXPECT_EQ(t, nullptr);
  ASSERT_EQ(zor_conv_NewTask(&t, 9, 9, 9, 9, 9, -3, nullptr, y.data(), nullptr), 0);
  EXPECT_EQ(t->x_shape, nullptr);
  EXPECT_EQ(t->z_shape, nullptr);
  EXPECT_EQ(t->x_stride, nullptr);
  EXPECT_EQ(zor_conv_DeleteTask(&t), 0);
  // More values than a task has room for are not kept.
  const shape eight(8, 3);
  ASSERT_EQ(zor_conv_NewTask(&t, 1, 0, 1, 1, 2, 8, eight.data(), eight.data(), eight.data()), 0);
  EXPECT_EQ(zor_conv_EditTask(t, ZOR_CONV_EDIT_DECIMATION, eight.data()), 0);
  EXPECT_EQ(t->y_shape_values[0], 3);
  EXPECT_EQ(t->committed, 0);
  double out[1];
  EXPECT_EQ(zor_conv_Exec(t, x3, nullptr, y2, nullptr, out, nullptr), ZOR_CONV_BAD_DIMS);
  EXPECT_EQ(zor_conv_DeleteTask(&t), 0);
}

TEST(ConvTask, EditTaskByParameter) {
  for (int32_t parameter = -1; parameter <= 21; ++parameter) {
    const held_task t(ZOR_CONV_CONVOLUTION, {3, 3}, {2, 2}, {4, 4});
    ZorConvTask before = *t.task;
    t->committed = 1;
    const shape values = {2, 7};
    const bool inside = parameter >= 1 && parameter <= 19;
    int32_t expected = inside ? ZOR_CONV_FIXED_PARAMETER : ZOR_CONV_BAD_PARAMETER;
    if (parameter == 3) before.mode = 2, expected = 0;
    if (parameter == 4) before.reserved_setting = 2, expected = 0;
    if (parameter == 9) before.internal_precision = 2, expected = 0;
    if (parameter == 5) {
      before.start = t->start_values;
      std::memcpy(before.start_values, values.data(), 8);
      expected = 0;
    }
    if (parameter == 6) {
      before.decimation = t->decimation_values;
      std::memcpy(before.decimation_values, values.data(), 8);
      expected = 0;
    }
    EXPECT_EQ(zor_conv_EditTask(t.task, parameter, values.data()), expected) << parameter;
    EXPECT_EQ(std::memcmp(&before, t.task, sizeof before), 0) << parameter;
    t->committed = 1;
    EXPECT_EQ(zor_conv_EditTask(t.task, parameter, nullptr), ZOR_CONV_NULL_POINTER);
    EXPECT_EQ(t->committed, 0);
  }
  EXPECT_EQ(zor_conv_EditTask(nullptr, 3, x3 ? reinterpret_cast<const int32_t*>(x3) : nullptr),
            ZOR_CONV_NULL_POINTER);
}

TEST(ConvTask, DefaultsOfExec) {
  const held_task convolution, correlation(ZOR_CONV_CORRELATION);
  double z[4];
  EXPECT_EQ(zor_conv_Exec(convolution.task, x3, nullptr, y2, nullptr, z, nullptr), 0);
  EXPECT_EQ(std::vector<double>(z, z + 4), (std::vector<double>{10, 120, 230, 300}));
  EXPECT_EQ(convolution->committed, 1);
  EXPECT_EQ(zor_conv_Exec(correlation.task, x3, nullptr, y2, nullptr, z, nullptr), 0);
  EXPECT_EQ(std::vector<double>(z, z + 4), (std::vector<double>{30, 320, 210, 100}));
}

// x held by the task, forward and backward, for several y and shapes of z.
TEST(ConvTask, ExecXTakesTheFixedX) {
  const shape m = {3}, n = {2}, four = {4}, back = {-1};
  ZorConvTask *t = nullptr, *copy = nullptr;
  ASSERT_EQ(zor_conv_NewTaskX(&t, 1, 0, 1, 1, 2, 1, m.data(), n.data(), four.data(), x3, back.data()), 0);
  double z[4];
  EXPECT_EQ(zor_conv_ExecX(t, y2, nullptr, z, nullptr), 0);
  EXPECT_EQ(std::vector<double>(z, z + 4), (std::vector<double>{30, 320, 210, 100}));
  EXPECT_EQ(zor_conv_ExecX(t, y2, back.data(), z, back.data()), 0);
  EXPECT_EQ(std::vector<double>(z, z + 4), (std::vector<double>{10, 120, 230, 300}));
  const shape first = {1};
  ASSERT_EQ(zor_conv_EditTask(t, ZOR_CONV_EDIT_START, first.data()), 0);
  t->z_shape_values[0] = 2;
  ASSERT_EQ(zor_conv_CopyTask(&copy, t), 0);
  ASSERT_EQ(zor_conv_DeleteTask(&t), 0);
  EXPECT_EQ(zor_conv_ExecX(copy, y2, nullptr, z, nullptr), 0);
  EXPECT_EQ(z[0], 320);
  EXPECT_EQ(z[1], 210);
  ASSERT_EQ(zor_conv_DeleteTask(&copy), 0);
  EXPECT_EQ(zor_conv_ExecX(nullptr, y2, nullptr, z, nullptr), ZOR_CONV_NULL_POINTER);
}

// The order of the checks: each call spoils one thing more than the one before and fails earlier.
TEST(ConvTask, OrderOfChecks) {
  const shape none = {0}, zero_stride = {0};
  for (const int32_t mode : {0, 1, 2, 3})
    for (const int32_t type : {ZOR_CONV_REAL, ZOR_CONV_COMPLEX}) {
      const double data[8] = {};
      double z[8];
      const void *x = data, *y = data;
      void* out = z;
      const int32_t* z_stride = nullptr;
      shape xs = {3}, ys = {2}, zs = {4}, start = {0}, decimation = {1};
      int32_t internal = ZOR_CONV_DOUBLE;
      const auto expect = [&](int32_t status) {
        held_task t(ZOR_CONV_CONVOLUTION, xs, ys, zs, mode, type);
        EXPECT_EQ(t.edit(ZOR_CONV_EDIT_START, start), 0);
        EXPECT_EQ(t.edit(ZOR_CONV_EDIT_DECIMATION, decimation), 0);
        EXPECT_EQ(t.edit(ZOR_CONV_EDIT_INTERNAL_PRECISION, {internal}), 0);
        EXPECT_EQ(zor_conv_Exec(t.task, x, nullptr, y, nullptr, out, z_stride), status) << mode;
        EXPECT_EQ(t->status, status);
      };
      expect(0);
      decimation = {2}, expect(ZOR_CONV_BAD_DECIMATION);
      decimation = {0}, expect(ZOR_CONV_BAD_DECIMATION);
      start = {4}, expect(ZOR_CONV_BAD_START);
      start = {-1}, expect(ZOR_CONV_BAD_START);
      z_stride = zero_stride.data(), expect(ZOR_CONV_BAD_Z_STRIDE);
      zs = none, expect(ZOR_CONV_BAD_Z_SHAPE);
      out = nullptr, expect(ZOR_CONV_NULL_Z);
      ys = none, expect(ZOR_CONV_BAD_Y_SHAPE);
      y = nullptr, expect(ZOR_CONV_NULL_Y);
      xs = {-1}, expect(ZOR_CONV_BAD_X_SHAPE);
      x = nullptr, expect(ZOR_CONV_NULL_X);
      internal = ZOR_CONV_SINGLE, expect(ZOR_CONV_NARROW_INTERNAL);
    }
}

TEST(ConvTask, OrderOfChecksInSeveralDimensions) {
  const shape zero_stride = {1, 0}, first_zero = {0, 4};
  for (const int32_t mode : {0, 1, 2})
    for (const int32_t job : {ZOR_CONV_CONVOLUTION, ZOR_CONV_CORRELATION}) {
      const double data[32] = {};
      double z[32];
      const void *x = data, *y = data;
      void* out = z;
      const int32_t* z_stride = nullptr;
      const int32_t low = job == ZOR_CONV_CORRELATION ? -2 : 0;
      shape xs = {3, 3}, ys = {2, 2}, zs = {4, 4}, start = {low, low}, decimation = {1, 1};
      const auto expect = [&](int32_t status) {
        held_task t(job, xs, ys, zs, mode);
        EXPECT_EQ(t.edit(ZOR_CONV_EDIT_START, start), 0);
        EXPECT_EQ(t.edit(ZOR_CONV_EDIT_DECIMATION, decimation), 0);
        // Double data with single arithmetic runs in double here.
        EXPECT_EQ(t.edit(ZOR_CONV_EDIT_INTERNAL_PRECISION, {ZOR_CONV_SINGLE}), 0);
        EXPECT_EQ(zor_conv_Exec(t.task, x, nullptr, y, nullptr, out, z_stride), status) << mode;
      };
      expect(0);
      decimation[1] = 2, expect(ZOR_CONV_BAD_DECIMATION);
      start[1] = low + 4, expect(ZOR_CONV_BAD_START);
      z_stride = zero_stride.data(), expect(ZOR_CONV_BAD_Z_STRIDE);
      zs[1] = 0, expect(ZOR_CONV_BAD_Z_SHAPE);
      ys[1] = 0, expect(ZOR_CONV_BAD_Y_SHAPE);
      xs[1] = 0, expect(ZOR_CONV_BAD_X_SHAPE);
      decimation[0] = 0, expect(ZOR_CONV_BAD_DECIMATION);
      start[0] = low - 1, expect(ZOR_CONV_BAD_START);
      z_stride = first_zero.data(), expect(ZOR_CONV_BAD_Z_STRIDE);
      zs[0] = 0, expect(ZOR_CONV_BAD_Z_SHAPE);
      ys[0] = 0, expect(ZOR_CONV_BAD_Y_SHAPE);
      xs[0] = 0, expect(ZOR_CONV_BAD_X_SHAPE);
      out = nullptr, expect(ZOR_CONV_NULL_Z);
      y = nullptr, expect(ZOR_CONV_NULL_Y);
      x = nullptr, expect(ZOR_CONV_NULL_X);
      xs = ys = zs = start = decimation = {}, expect(ZOR_CONV_BAD_DIMS);
    }
}

// Double data with single arithmetic: the bits of double arithmetic, from two dimensions up.
TEST(ConvTask, NarrowArithmeticOfPlanesIsDouble) {
  random_bits random(9);
  for (const int32_t mode : {ZOR_CONV_DIRECT, ZOR_CONV_TRANSFORM}) {
    const conv_problem p = whole(false, {9, 8}, {4, 5});
    operands<double> o(p, random, true);
    std::vector<double> results[2];
    for (const int32_t internal : {ZOR_CONV_SINGLE, ZOR_CONV_DOUBLE}) {
      ZorConvTask* t = task_of<double>(p, mode, internal);
      ASSERT_EQ(o.exec(t, p), 0);
      results[internal - 1] = o.outputs();
      zor_conv_DeleteTask(&t);
    }
    EXPECT_TRUE(same_bits(results[0].data(), results[1].data(), results[0].size()));
  }
}

TEST(ConvTask, FailureStays) {
  held_task t;
  double z[4];
  ZorConvTask* copy = nullptr;
  EXPECT_EQ(zor_conv_Exec(t.task, nullptr, nullptr, y2, nullptr, z, nullptr), ZOR_CONV_NULL_X);
  const ZorConvTask before = *t.task;
  EXPECT_EQ(zor_conv_Exec(t.task, x3, nullptr, y2, nullptr, z, nullptr), ZOR_CONV_NULL_X);
  EXPECT_EQ(zor_conv_ExecX(t.task, y2, nullptr, z, nullptr), ZOR_CONV_NULL_X);
  EXPECT_EQ(t.edit(ZOR_CONV_EDIT_MODE, {2}), ZOR_CONV_NULL_X);
  EXPECT_EQ(zor_conv_EditTask(t.task, 77, nullptr), ZOR_CONV_NULL_X);
  EXPECT_EQ(zor_conv_CopyTask(&copy, t.task), ZOR_CONV_NULL_X);
  EXPECT_EQ(copy, nullptr);
  EXPECT_EQ(std::memcmp(&before, t.task, sizeof before), 0);
  EXPECT_EQ(zor_conv_DeleteTask(&t.task), 0);
}

TEST(ConvTask, NullPointers) {
  held_task t;
  ZorConvTask* null = nullptr;
  double z[4];
  EXPECT_EQ(zor_conv_NewTask(nullptr, 1, 0, 1, 1, 2, 1, nullptr, nullptr, nullptr), ZOR_CONV_NULL_POINTER);
  EXPECT_EQ(zor_conv_Exec(nullptr, x3, nullptr, y2, nullptr, z, nullptr), ZOR_CONV_NULL_POINTER);
  EXPECT_EQ(zor_conv_CopyTask(nullptr, t.task), ZOR_CONV_NULL_POINTER);
  EXPECT_EQ(zor_conv_CopyTask(&null, nullptr), ZOR_CONV_NULL_POINTER);
  EXPECT_EQ(zor_conv_DeleteTask(nullptr), ZOR_CONV_NULL_POINTER);
  EXPECT_EQ(zor_conv_DeleteTask(&null), 0);
}

// Plans, which other code attaches.
int released = 0, release_answer = 0;
int32_t release_plan(void* plan) {
  released += *static_cast<int*>(plan);
  return release_answer;
}
int32_t copy_plan(ZorConvTask* copy, void** plan) {
  if (*plan != copy->plan) return 2;
  void* const fresh = zor_serv_zor_malloc(sizeof(int), 16);
  *static_cast<int*>(fresh) = 10 + *static_cast<int*>(*plan);
  *plan = fresh;
  return 0;
}
int32_t refuse_plan(ZorConvTask*, void**) { return 1; }

TEST(ConvTask, CopyAndDeleteWithPlans) {
  held_task t;
  EXPECT_EQ(t.edit(ZOR_CONV_EDIT_START, {1}), 0);
  t->committed = 1;
  t->plan = zor_serv_zor_malloc(sizeof(int), 16);
  *static_cast<int*>(t->plan) = 1;
  t->plan_copy = refuse_plan;
  ZorConvTask* copy = nullptr;
  EXPECT_EQ(zor_conv_CopyTask(&copy, t.task), ZOR_CONV_PLAN_COPY_FAILED);
  EXPECT_EQ(copy, nullptr);
  t->plan_copy = copy_plan;
  ASSERT_EQ(zor_conv_CopyTask(&copy, t.task), 0);
  EXPECT_EQ(copy->committed, 1);
  EXPECT_EQ(copy->kind, 5);
  EXPECT_EQ(copy->start, copy->start_values);
  EXPECT_EQ(copy->start_values[0], 1);
  EXPECT_EQ(copy->x_shape, copy->x_shape_values);
  EXPECT_EQ(copy->decimation, nullptr);
  EXPECT_EQ(copy->plan_copy, copy_plan);
  EXPECT_NE(copy->plan, t->plan);
  // Without a release function, with one that fails, with one that succeeds.
  EXPECT_EQ(zor_conv_DeleteTask(&t.task), ZOR_CONV_PLAN_RELEASE_FAILED);
  EXPECT_EQ(t.task, nullptr);
  ZorConvTask* second = nullptr;
  copy->plan_release = release_plan;
  ASSERT_EQ(zor_conv_CopyTask(&second, copy), 0);
  EXPECT_EQ(zor_conv_DeleteTask(&copy), 0);
  EXPECT_EQ(released, 11);
  release_answer = 3;
  EXPECT_EQ(zor_conv_DeleteTask(&second), ZOR_CONV_PLAN_RELEASE_FAILED);
  EXPECT_EQ(released, 32);
  EXPECT_EQ(second, nullptr);
}

}  // namespace
