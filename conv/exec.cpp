// SPDX-License-Identifier: MIT
// Runs a task: defaults, checks, and the body of its dimensions, method, type and precisions.
#include "conv/task.h"

namespace zor::conv {
namespace {

int32_t check_range(const arguments& a, int d) {
  const zor_int first = is_correlation(a) ? 1 - a.x_shape[d] : 0;
  const zor_int end = is_correlation(a) ? a.y_shape[d] : full_length(a, d);
  if (a.start[d] < first || a.start[d] >= end) return ZOR_CONV_BAD_START;
  if (a.decimation[d] < 1 || (a.z_shape[d] - 1) * a.decimation[d] + a.start[d] >= end)
    return ZOR_CONV_BAD_DECIMATION;
  return ZOR_CONV_OK;
}

// Bodies by [type][precision of data and arithmetic]: real and complex; double, single, single widened.
constexpr body* direct_bodies[2][3] = {
    {direct_body<double, double>, direct_body<float, float>, direct_body<float, double>},
    {direct_body<c64, c64>, direct_body<c32, c32>, direct_body<c32, c64>}};
constexpr body* line_bodies[2][3] = {
    {line_transform_body<double, double>, line_transform_body<float, float>,
     line_transform_body<float, double>},
    {line_transform_body<c64, c64>, line_transform_body<c32, c32>, line_transform_body<c32, c64>}};
constexpr body* box_bodies[2][3] = {
    {box_transform_body<double, double>, box_transform_body<float, float>, box_transform_body<float, double>},
    {box_transform_body<c64, c64>, box_transform_body<c32, c32>, box_transform_body<c32, c64>}};

// Copies the values of up to seven dimensions; a null array gives `otherwise`.
void copy_values(int dims, const int32_t* from, zor_int otherwise, zor_int* to) {
  for (int d = 0; d < dims; ++d) to[d] = from != nullptr ? from[d] : otherwise;
}
void copy_strides(int dims, const int32_t* from, const zor_int* shape, zor_int* to) {
  if (from != nullptr)
    copy_values(dims, from, 0, to);
  else
    dense_strides(dims, shape, to);
}

int32_t run(const ZorConvTask& t, arguments* a) {
  const bool wide = t.internal_precision == ZOR_CONV_DOUBLE;
  const int type = t.type == ZOR_CONV_REAL ? 0 : 1;
  const bool direct = t.mode == ZOR_CONV_DIRECT;
  if (t.data_precision == ZOR_CONV_DOUBLE && !wide && t.dims == 1) return ZOR_CONV_NARROW_INTERNAL;
  const int precision = t.data_precision == ZOR_CONV_DOUBLE ? 0 : wide ? 2 : 1;
  if (const int32_t bad = t.dims == 1 ? check_line(*a) : check_box(*a)) return bad;
  const auto& bodies = direct ? direct_bodies : t.dims == 1 ? line_bodies : box_bodies;
  return bodies[type][precision](*a);
}

}  // namespace

int32_t check_line(const arguments& a) {
  if (a.x == nullptr) return ZOR_CONV_NULL_X;
  if (a.x_shape[0] < 1) return ZOR_CONV_BAD_X_SHAPE;
  if (a.y == nullptr) return ZOR_CONV_NULL_Y;
  if (a.y_shape[0] < 1) return ZOR_CONV_BAD_Y_SHAPE;
  if (a.z == nullptr) return ZOR_CONV_NULL_Z;
  if (a.z_shape[0] < 1) return ZOR_CONV_BAD_Z_SHAPE;
  if (a.z_stride[0] == 0) return ZOR_CONV_BAD_Z_STRIDE;
  return check_range(a, 0);
}

int32_t check_box(const arguments& a) {
  if (a.dims < 1 || a.dims > most_dims) return ZOR_CONV_BAD_DIMS;
  if (a.x == nullptr) return ZOR_CONV_NULL_X;
  if (a.y == nullptr) return ZOR_CONV_NULL_Y;
  if (a.z == nullptr) return ZOR_CONV_NULL_Z;
  for (int d = 0; d < a.dims; ++d) {
    if (a.x_shape[d] < 1) return ZOR_CONV_BAD_X_SHAPE;
    if (a.y_shape[d] < 1) return ZOR_CONV_BAD_Y_SHAPE;
    if (a.z_shape[d] < 1) return ZOR_CONV_BAD_Z_SHAPE;
    if (a.z_stride[d] == 0) return ZOR_CONV_BAD_Z_STRIDE;
    if (const int32_t bad = check_range(a, d)) return bad;
  }
  return ZOR_CONV_OK;
}

}  // namespace zor::conv

using namespace zor::conv;

extern "C" {

int32_t zor_conv_Exec(ZorConvTask* task, const void* x, const int32_t* x_stride, const void* y,
                      const int32_t* y_stride, void* z, const int32_t* z_stride) {
  if (task == nullptr) return ZOR_CONV_NULL_POINTER;
  if (task->status != ZOR_CONV_OK) return task->status;
  task->committed = 1;
  const int dims = task->dims < 0 ? 0 : task->dims < most_dims ? task->dims : most_dims;
  arguments a;
  a.job = task->job;
  a.dims = task->dims;
  a.x = x;
  a.y = y;
  a.z = z;
  // A shape that is not set counts as one below 1.
  copy_values(dims, task->x_shape, 0, a.x_shape);
  copy_values(dims, task->y_shape, 0, a.y_shape);
  copy_values(dims, task->z_shape, 0, a.z_shape);
  copy_strides(dims, x_stride, a.x_shape, a.x_stride);
  copy_strides(dims, y_stride, a.y_shape, a.y_stride);
  copy_strides(dims, z_stride, a.z_shape, a.z_stride);
  copy_values(dims, task->decimation, 1, a.decimation);
  copy_values(dims, task->start, 0, a.start);
  if (task->start == nullptr && is_correlation(a))
    for (int d = 0; d < dims; ++d) a.start[d] = 1 - a.x_shape[d];
  task->status = run(*task, &a);
  return task->status;
}

int32_t zor_conv_ExecX(ZorConvTask* task, const void* y, const int32_t* y_stride, void* z,
                       const int32_t* z_stride) {
  if (task == nullptr) return ZOR_CONV_NULL_POINTER;
  return zor_conv_Exec(task, task->fixed_x, task->x_stride, y, y_stride, z, z_stride);
}

}  // extern "C"
