// SPDX-License-Identifier: MIT
// The task object: creation, change, copy, release.
#include "conv/task.h"

#include "conv/tiles/tile.h"
#include "zor/serv.h"

namespace zor::conv {
namespace {

using task = ZorConvTask;

int values_of(const task* t) { return t->dims < 0 ? 0 : t->dims < most_dims ? t->dims : most_dims; }

void copy_values(const task* t, const int32_t* from, int32_t* to) {
  for (int d = 0; d < values_of(t); ++d) to[d] = from[d];
}

// The values of an array of the task and the pointer that tells that they are set.
struct setting {
  int32_t* task::*pointer;
  int32_t (task::*values)[most_dims];
};
constexpr setting start_setting = {&task::start, &task::start_values},
                  decimation_setting = {&task::decimation, &task::decimation_values},
                  x_shape_setting = {&task::x_shape, &task::x_shape_values},
                  y_shape_setting = {&task::y_shape, &task::y_shape_values},
                  z_shape_setting = {&task::z_shape, &task::z_shape_values},
                  x_stride_setting = {&task::x_stride, &task::x_stride_values};
constexpr setting settings[] = {start_setting,   decimation_setting, x_shape_setting,
                                y_shape_setting, z_shape_setting,    x_stride_setting};

void set_values(task* t, const setting& s, const int32_t* from) {
  if (from == nullptr) return;
  t->*s.pointer = t->*s.values;
  copy_values(t, from, t->*s.values);
}

task* new_record() {
  auto* const record = static_cast<task_record*>(zor_serv_zor_malloc(sizeof(task_record), 1));
  if (record != nullptr) record->tiles = &tiles;
  return record;
}

}  // namespace
}  // namespace zor::conv

using namespace zor::conv;

extern "C" {

int32_t zor_conv_NewTaskX(ZorConvTask** out, int32_t job, int32_t kind, int32_t mode, int32_t type,
                          int32_t precision, int32_t dims, const int32_t* x_shape, const int32_t* y_shape,
                          const int32_t* z_shape, const void* x, const int32_t* x_stride) {
  if (out == nullptr) return ZOR_CONV_NULL_POINTER;
  task* const t = new_record();
  if (t == nullptr) return ZOR_CONV_NO_TASK_MEMORY;
  *t = {};
  t->job = job;
  t->kind = kind;
  t->mode = mode;
  t->type = type;
  t->data_precision = t->internal_precision = precision;
  t->dims = dims;
  set_values(t, x_shape_setting, x_shape);
  set_values(t, y_shape_setting, y_shape);
  set_values(t, z_shape_setting, z_shape);
  set_values(t, x_stride_setting, x_stride);
  t->fixed_x = x;
  *out = t;
  return ZOR_CONV_OK;
}

int32_t zor_conv_NewTask(ZorConvTask** out, int32_t job, int32_t kind, int32_t mode, int32_t type,
                         int32_t precision, int32_t dims, const int32_t* x_shape, const int32_t* y_shape,
                         const int32_t* z_shape) {
  return zor_conv_NewTaskX(out, job, kind, mode, type, precision, dims, x_shape, y_shape, z_shape, nullptr,
                           nullptr);
}

int32_t zor_conv_EditTask(ZorConvTask* t, int32_t parameter, const int32_t* value) {
  if (t == nullptr) return ZOR_CONV_NULL_POINTER;
  if (t->status != ZOR_CONV_OK) return t->status;
  t->committed = 0;
  if (value == nullptr) return ZOR_CONV_NULL_POINTER;
  switch (parameter) {
    case ZOR_CONV_EDIT_MODE:
      t->mode = *value;
      break;
    case ZOR_CONV_EDIT_RESERVED:
      t->reserved_setting = *value;
      break;
    case ZOR_CONV_EDIT_START:
      set_values(t, start_setting, value);
      break;
    case ZOR_CONV_EDIT_DECIMATION:
      set_values(t, decimation_setting, value);
      break;
    case ZOR_CONV_EDIT_INTERNAL_PRECISION:
      t->internal_precision = *value;
      break;
    default:
      return parameter < 1 || parameter > 19 ? ZOR_CONV_BAD_PARAMETER : ZOR_CONV_FIXED_PARAMETER;
  }
  return ZOR_CONV_OK;
}

int32_t zor_conv_CopyTask(ZorConvTask** out, const ZorConvTask* source) {
  if (out == nullptr || source == nullptr) return ZOR_CONV_NULL_POINTER;
  if (source->status != ZOR_CONV_OK) return source->status;
  task* t = new_record();
  if (t == nullptr) return ZOR_CONV_NO_TASK_MEMORY;
  *t = *source;
  for (const setting& s : settings)
    if (source->*s.pointer != nullptr) t->*s.pointer = t->*s.values;
  if (t->plan != nullptr && (t->plan_copy == nullptr || t->plan_copy(t, &t->plan) != 0)) {
    zor_serv_zor_free(t);
    return ZOR_CONV_PLAN_COPY_FAILED;
  }
  *out = t;
  return ZOR_CONV_OK;
}

int32_t zor_conv_DeleteTask(ZorConvTask** handle) {
  if (handle == nullptr) return ZOR_CONV_NULL_POINTER;
  task* const t = *handle;
  if (t == nullptr) return ZOR_CONV_OK;
  int32_t released = 0;
  if (t->plan != nullptr) {
    released = t->plan_release != nullptr ? t->plan_release(t->plan) : ZOR_CONV_NO_PLAN_RELEASE;
    zor_serv_zor_free(t->plan);
  }
  zor_serv_zor_free(t);
  *handle = nullptr;
  return released == 0 ? ZOR_CONV_OK : ZOR_CONV_PLAN_RELEASE_FAILED;
}

}  // extern "C"
