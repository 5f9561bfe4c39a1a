// SPDX-License-Identifier: MIT
// Settings of the transforms: one row each, set by type and read back; and the texts of failures.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "core/dft/public.h"
#include "core/failure_text.h"
#include "dft/thresholds.h"
#include "zor/serv.h"

namespace zor_core {
namespace {

using zor::dft::most_user_threads;

enum class value_type { choice, count, step, real, strides, text };
const char* setter_of(value_type type) {
  switch (type) {
    case value_type::real:
      return "zor_fft_set_real";
    case value_type::strides:
      return "zor_fft_set_strides";
    case value_type::text:
      return "zor_fft_set_name";
    default:
      return "zor_fft_set_int";
  }
}

struct setting {
  int32_t parameter;
  value_type type;
  const char* name;
  int32_t chosen = 0;  // a bit of chosen_layout
};
constexpr setting settings[] = {
    {ZOR_DFT_FORWARD_SCALE, value_type::real, "ZOR_DFT_FORWARD_SCALE"},
    {ZOR_DFT_BACKWARD_SCALE, value_type::real, "ZOR_DFT_BACKWARD_SCALE"},
    {ZOR_DFT_NUMBER_OF_TRANSFORMS, value_type::count, "ZOR_DFT_NUMBER_OF_TRANSFORMS"},
    {ZOR_DFT_COMPLEX_STORAGE, value_type::choice, "ZOR_DFT_COMPLEX_STORAGE"},
    {ZOR_DFT_REAL_STORAGE, value_type::choice, "ZOR_DFT_REAL_STORAGE"},
    {ZOR_DFT_CONJUGATE_EVEN_STORAGE, value_type::choice, "ZOR_DFT_CONJUGATE_EVEN_STORAGE"},
    {ZOR_DFT_PLACEMENT, value_type::choice, "ZOR_DFT_PLACEMENT"},
    {ZOR_DFT_INPUT_STRIDES, value_type::strides, "ZOR_DFT_INPUT_STRIDES", chosen_input_strides},
    {ZOR_DFT_OUTPUT_STRIDES, value_type::strides, "ZOR_DFT_OUTPUT_STRIDES", chosen_output_strides},
    {ZOR_DFT_INPUT_DISTANCE, value_type::step, "ZOR_DFT_INPUT_DISTANCE", chosen_input_distance},
    {ZOR_DFT_OUTPUT_DISTANCE, value_type::step, "ZOR_DFT_OUTPUT_DISTANCE", chosen_output_distance},
    {ZOR_DFT_ORDERING, value_type::choice, "ZOR_DFT_ORDERING"},
    {ZOR_DFT_DESCRIPTOR_NAME, value_type::text, "ZOR_DFT_DESCRIPTOR_NAME"},
    {ZOR_DFT_PACKED_FORMAT, value_type::choice, "ZOR_DFT_PACKED_FORMAT"},
    {ZOR_DFT_NUMBER_OF_USER_THREADS, value_type::count, "ZOR_DFT_NUMBER_OF_USER_THREADS"},
};

const setting* find(int32_t parameter) {
  for (const setting& s : settings)
    if (s.parameter == parameter) return &s;
  return nullptr;
}

// Refused values take the transform back to uncommitted like every other; a number that the kernel library
// does not know does just that.
int32_t uncommit(zor_fft d, int32_t status) {
  zor_dft_set_value(d, -1);
  return status;
}

int32_t refused_value(zor_fft d, const setting& s, zor_int value) {
  return uncommit(d, fft_failure(ZOR_FFT_BAD_VALUE, "%s: %lld is no value of it", s.name, (long long)value));
}

int32_t other_parameter(zor_fft d, int32_t parameter, const char* setter) {
  if (const setting* s = find(parameter)) {
    const int32_t status =
        fft_failure(ZOR_FFT_BAD_VALUE, "%s: is set by %s, not %s", s->name, setter_of(s->type), setter);
    return s->type == value_type::text ? status : uncommit(d, status);
  }
  const int32_t status = zor_dft_set_value(d, parameter);
  return fft_failure(status, "parameter %d: %s", parameter,
                     status == ZOR_FFT_NOT_IMPLEMENTED ? "not implemented" : "no such setting");
}

// Remembers a layout that the caller has set; the kernel library copies the mark to all dimensions at commit.
int32_t chosen(zor_fft d, const setting& s, int32_t status) {
  if (status == ZOR_FFT_OK) d->reserved_b |= s.chosen;
  return status;
}

int32_t set_choice(zor_fft d, const setting& s, zor_int value) {
  if (value != int32_t(value)) return refused_value(d, s, value);
  const int32_t status = zor_dft_set_value(d, s.parameter, int(value));
  if (status == ZOR_FFT_NOT_IMPLEMENTED)
    return fft_failure(status, "%s: %lld is not implemented for this domain", s.name, (long long)value);
  return status == ZOR_FFT_OK ? status : refused_value(d, s, value);
}

int32_t set_count(zor_fft d, const setting& s, zor_int value) {
  const bool threads = s.parameter == ZOR_DFT_NUMBER_OF_USER_THREADS;
  if (value < 1 || (threads && value > most_user_threads)) return refused_value(d, s, value);
  return zor_dft_set_value(d, s.parameter, value);
}

void get_strides(const ZorDftDescriptor* d, const side_fields& side, zor_int* out) {
  out[0] = d->*side.offset;
  for (zor_int k = 0; k < d->rank; ++k) out[d->rank - k] = d[k].*side.stride;
}

// The scale that is on the one dimension that carries it.
double get_scale(const ZorDftDescriptor* d, double ZorDftDescriptor::*scale) {
  for (const ZorDftDescriptor* r = d; r != d + d->rank; ++r)
    if (r->length > 1) return r->*scale;
  return d->*scale;
}

template <class T>
int32_t put(void* value, T x) {
  std::memcpy(value, &x, sizeof x);
  return ZOR_FFT_OK;
}

int32_t get(const ZorDftDescriptor* d, int32_t parameter, void* value) {
  using D = ZorDftDescriptor;
  switch (parameter) {
    case ZOR_DFT_GET_DOMAIN:
      return put(value, d->forward_domain);
    case ZOR_DFT_GET_RANK:
      return put(value, d->rank);
    case ZOR_DFT_GET_PRECISION:
      return put(value, d->precision);
    case ZOR_DFT_GET_COMMIT_STATUS:
      return put(value, d->commit_status);
    case ZOR_DFT_GET_LENGTHS:
      for (zor_int k = 0; k < d->rank; ++k) static_cast<zor_int*>(value)[d->rank - 1 - k] = d[k].length;
      return ZOR_FFT_OK;
    case ZOR_DFT_FORWARD_SCALE:
      return put(value, get_scale(d, &D::forward_scale_d));
    case ZOR_DFT_BACKWARD_SCALE:
      return put(value, get_scale(d, &D::backward_scale_d));
    case ZOR_DFT_NUMBER_OF_TRANSFORMS:
      return put(value, d->number_of_transforms);
    case ZOR_DFT_INPUT_DISTANCE:
      return put(value, d->input_distance);
    case ZOR_DFT_OUTPUT_DISTANCE:
      return put(value, d->output_distance);
    case ZOR_DFT_NUMBER_OF_USER_THREADS:
      return put(value, zor_int(d->user_threads));
    case ZOR_DFT_COMPLEX_STORAGE:
      return put(value, d->complex_storage);
    case ZOR_DFT_REAL_STORAGE:
      return put(value, d->real_storage);
    case ZOR_DFT_CONJUGATE_EVEN_STORAGE:
      return put(value, d->conjugate_even_storage);
    case ZOR_DFT_PLACEMENT:
      return put(value, d->placement);
    case ZOR_DFT_ORDERING:
      return put(value, d->ordering);
    case ZOR_DFT_PACKED_FORMAT:
      return put(value, d->packed_format);
    case ZOR_DFT_INPUT_STRIDES:
      get_strides(d, input_side, static_cast<zor_int*>(value));
      return ZOR_FFT_OK;
    case ZOR_DFT_OUTPUT_STRIDES:
      get_strides(d, output_side, static_cast<zor_int*>(value));
      return ZOR_FFT_OK;
    case ZOR_DFT_DESCRIPTOR_NAME:
      std::memcpy(value, d->name, sizeof d->name);
      return ZOR_FFT_OK;
    default:
      return fft_failure(ZOR_FFT_BAD_VALUE, "parameter %d: no such setting", parameter);
  }
}

}  // namespace

int32_t fft_failure(int32_t status, const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::vsnprintf(failure_text(), longest_failure, format, args);
  va_end(args);
  return status;
}

int32_t bad_handle(zor_fft d) {
  return fft_failure(ZOR_FFT_BAD_HANDLE,
                     d == nullptr ? "fft: a null handle" : "fft: not a transform, or freed");
}

int32_t with_text(int32_t status) {
  return status == ZOR_FFT_OK ? status : fft_failure(status, "%s", zor_fft_error_text(status));
}

}  // namespace zor_core

using namespace zor_core;

extern "C" {

int32_t zor_fft_set_int(zor_fft d, int32_t parameter, zor_int value) {
  if (!is_transform(d)) return bad_handle(d);
  const setting* s = find(parameter);
  switch (s == nullptr ? value_type::text : s->type) {
    case value_type::choice:
      return set_choice(d, *s, value);
    case value_type::count:
      return set_count(d, *s, value);
    case value_type::step:
      return chosen(d, *s, zor_dft_set_value(d, parameter, value));
    default:
      return other_parameter(d, parameter, "zor_fft_set_int");
  }
}

int32_t zor_fft_set_real(zor_fft d, int32_t parameter, double value) {
  if (!is_transform(d)) return bad_handle(d);
  const setting* s = find(parameter);
  if (s == nullptr || s->type != value_type::real) return other_parameter(d, parameter, "zor_fft_set_real");
  return zor_dft_set_value(d, parameter, value);
}

int32_t zor_fft_set_strides(zor_fft d, int32_t parameter, const zor_int* strides) {
  if (!is_transform(d)) return bad_handle(d);
  const setting* s = find(parameter);
  if (s == nullptr || s->type != value_type::strides)
    return other_parameter(d, parameter, "zor_fft_set_strides");
  if (strides == nullptr) return uncommit(d, fft_failure(ZOR_FFT_BAD_VALUE, "%s: a null pointer", s->name));
  return chosen(d, *s, zor_dft_set_value(d, parameter, strides));
}

int32_t zor_fft_set_name(zor_fft d, const char* name) {
  if (!is_transform(d)) return bad_handle(d);
  if (name == nullptr) return fft_failure(ZOR_FFT_BAD_VALUE, "name: a null pointer");
  return zor_dft_set_value(d, ZOR_DFT_DESCRIPTOR_NAME, name);
}

int32_t zor_fft_get(zor_fft d, int32_t parameter, void* value) {
  if (!is_transform(d)) return bad_handle(d);
  if (value == nullptr) return fft_failure(ZOR_FFT_BAD_VALUE, "value: a null pointer");
  return get(d, parameter, value);
}

const char* zor_fft_failure_text(void) { return failure_text(); }

const char* zor_fft_error_text(int32_t status) {
  constexpr int32_t first_message = 761, known = 10;
  return zor_serv_zor_get_msg(first_message + (status >= 0 && status < known ? status : known), 0);
}

}  // extern "C"
