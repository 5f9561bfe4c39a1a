// SPDX-License-Identifier: MIT
// The public side of the transforms: the kernel library's descriptor behind checked calls.
#include <cstdarg>
#include <cstring>
#include <limits>

#include "zor/dft.h"
#include "zor/serv.h"

namespace zor_core {
namespace {

constexpr zor_int max_rank = 7;

bool valid(zor_fft d) { return d != nullptr && d->magic == ZOR_DFT_MAGIC; }

// True when the elements of both sides, in bytes, can be counted.
bool size_fits(zor_int rank, const zor_int* lengths) {
  zor_int size = 4 * zor_int(sizeof(zor_c64));
  for (zor_int i = 0; i < rank; ++i)
    if (__builtin_mul_overflow(size, lengths[i] / 2 + 1, &size)) return false;
  size = 2 * zor_int(sizeof(zor_c64));
  for (zor_int i = 0; i < rank; ++i)
    if (__builtin_mul_overflow(size, lengths[i], &size)) return false;
  return true;
}

// Settings by the type of their value.
enum value_type { no_value, int_value, wide_value, double_value, stride_values, text_value };
value_type type_of(int32_t parameter) {
  switch (parameter) {
    case ZOR_DFT_FORWARD_SCALE:
    case ZOR_DFT_BACKWARD_SCALE:
      return double_value;
    case ZOR_DFT_NUMBER_OF_TRANSFORMS:
    case ZOR_DFT_INPUT_DISTANCE:
    case ZOR_DFT_OUTPUT_DISTANCE:
    case ZOR_DFT_NUMBER_OF_USER_THREADS:
      return wide_value;
    case ZOR_DFT_COMPLEX_STORAGE:
    case ZOR_DFT_REAL_STORAGE:
    case ZOR_DFT_CONJUGATE_EVEN_STORAGE:
    case ZOR_DFT_PLACEMENT:
    case ZOR_DFT_ORDERING:
    case ZOR_DFT_PACKED_FORMAT:
      return int_value;
    case ZOR_DFT_INPUT_STRIDES:
    case ZOR_DFT_OUTPUT_STRIDES:
      return stride_values;
    case ZOR_DFT_DESCRIPTOR_NAME:
      return text_value;
    default:
      return no_value;
  }
}

int32_t set_wide(zor_fft d, int32_t parameter, zor_int value) {
  const bool count = parameter == ZOR_DFT_NUMBER_OF_TRANSFORMS || parameter == ZOR_DFT_NUMBER_OF_USER_THREADS;
  const bool threads = parameter == ZOR_DFT_NUMBER_OF_USER_THREADS;
  const bool refused = (count && value < 1) || (threads && value > std::numeric_limits<int32_t>::max());
  // A refused value uncommits like every other; a number that the kernel library does not know does just
  // that.
  if (refused) {
    zor_dft_set_value(d, -1);
    return ZOR_DFT_BAD_VALUE;
  }
  return zor_dft_set_value(d, parameter, value);
}

// The settings agree with each other. In place the output has strides of its own only where it is complex and
// the input real.
bool consistent(const ZorDftDescriptor* d) {
  const bool output_counts =
      d->placement == ZOR_DFT_NOT_INPLACE ||
      (d->forward_domain == ZOR_DFT_REAL && d->conjugate_even_storage == ZOR_DFT_COMPLEX_COMPLEX);
  if (d->number_of_transforms > 1 && (d->input_distance == 0 || (output_counts && d->output_distance == 0)))
    return false;
  for (const ZorDftDescriptor* r = d; r != d + d->rank; ++r)
    if (r->length > 1 && (r->input_stride == 0 || (output_counts && r->output_stride == 0))) return false;
  return true;
}

using commit_fn = int32_t (*)(ZorDftDescriptor**);
// By rank (one first), precision (double first), domain (complex first).
constexpr commit_fn commits[2][2][2] = {
    {{zor_dft_commit_descriptor_d_c2c_1d_omp, zor_dft_commit_descriptor_d_r2c_1d_omp},
     {zor_dft_commit_descriptor_s_c2c_1d_omp, zor_dft_commit_descriptor_s_r2c_1d_omp}},
    {{zor_dft_commit_descriptor_d_c2c_md_omp, zor_dft_commit_descriptor_d_r2c_md_omp},
     {zor_dft_commit_descriptor_s_c2c_md_omp, zor_dft_commit_descriptor_s_r2c_md_omp}}};

void get_strides(const ZorDftDescriptor* d, zor_int offset, zor_int ZorDftDescriptor::*stride, zor_int* out) {
  out[0] = offset;
  for (zor_int k = 0; k < d->rank; ++k) out[d->rank - k] = d[k].*stride;
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
  return ZOR_DFT_OK;
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
    case ZOR_DFT_GET_LENGTHS: {
      for (zor_int k = 0; k < d->rank; ++k) static_cast<zor_int*>(value)[d->rank - 1 - k] = d[k].length;
      return ZOR_DFT_OK;
    }
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
      get_strides(d, d->input_offset, &D::input_stride, static_cast<zor_int*>(value));
      return ZOR_DFT_OK;
    case ZOR_DFT_OUTPUT_STRIDES:
      get_strides(d, d->output_offset, &D::output_stride, static_cast<zor_int*>(value));
      return ZOR_DFT_OK;
    case ZOR_DFT_DESCRIPTOR_NAME:
      std::memcpy(value, d->name, sizeof d->name);
      return ZOR_DFT_OK;
    default:
      return ZOR_DFT_BAD_VALUE;
  }
}

int32_t compute(zor_fft d, zor_dft_compute ZorDftDescriptor::*direction, void* data, va_list args) {
  if (!valid(d)) return ZOR_DFT_BAD_DESCRIPTOR;
  if (d->*direction == nullptr) return ZOR_DFT_BAD_ARGUMENT;
  void* p[4] = {data, nullptr, nullptr, nullptr};
  for (int32_t i = 1; i < d->nio_args; ++i) p[i] = va_arg(args, void*);
  for (int32_t i = 0; i < d->nio_args; ++i)
    if (p[i] == nullptr) return ZOR_DFT_BAD_VALUE;
  return (d->*direction)(d, p[0], p[1], p[2], p[3]);
}

}  // namespace
}  // namespace zor_core

using namespace zor_core;

extern "C" {

int32_t zor_fft_create(zor_fft* fft, int32_t precision, int32_t domain, zor_int rank,
                       const zor_int* lengths) {
  if (fft == nullptr) return ZOR_DFT_BAD_VALUE;
  *fft = nullptr;
  if ((precision != ZOR_DFT_SINGLE && precision != ZOR_DFT_DOUBLE) ||
      (domain != ZOR_DFT_COMPLEX && domain != ZOR_DFT_REAL) || rank < 1 || rank > max_rank ||
      lengths == nullptr)
    return ZOR_DFT_BAD_ARGUMENT;
  for (zor_int i = 0; i < rank; ++i)
    if (lengths[i] < 1) return ZOR_DFT_BAD_ARGUMENT;
  if (!size_fits(rank, lengths)) return ZOR_DFT_LENGTH_TOO_LARGE;
  return precision == ZOR_DFT_DOUBLE ? zor_dft_create_nd_d(fft, domain, rank, lengths)
                                     : zor_dft_create_nd_s(fft, domain, rank, lengths);
}

int32_t zor_fft_set(zor_fft d, int32_t parameter, ...) {
  if (!valid(d)) return ZOR_DFT_BAD_DESCRIPTOR;
  va_list args;
  va_start(args, parameter);
  int32_t status;
  switch (type_of(parameter)) {
    case int_value:
      status = zor_dft_set_value(d, parameter, va_arg(args, int));
      break;
    case wide_value:
      status = set_wide(d, parameter, va_arg(args, zor_int));
      break;
    case double_value:
      status = zor_dft_set_value(d, parameter, va_arg(args, double));
      break;
    case stride_values:
      status = zor_dft_set_value(d, parameter, va_arg(args, const zor_int*));
      break;
    case text_value:
      status = zor_dft_set_value(d, parameter, va_arg(args, const char*));
      break;
    default:
      status = zor_dft_set_value(d, parameter);
      break;
  }
  va_end(args);
  return status;
}

int32_t zor_fft_get(zor_fft d, int32_t parameter, void* value) {
  if (!valid(d)) return ZOR_DFT_BAD_DESCRIPTOR;
  return value == nullptr ? int32_t(ZOR_DFT_BAD_VALUE) : get(d, parameter, value);
}

int32_t zor_fft_commit(zor_fft d) {
  if (!valid(d)) return ZOR_DFT_BAD_DESCRIPTOR;
  if (!consistent(d)) return ZOR_DFT_BAD_VALUE;
  return commits[d->rank > 1][d->precision == ZOR_DFT_SINGLE][d->forward_domain == ZOR_DFT_REAL](&d);
}

int32_t zor_fft_forward(zor_fft d, void* data, ...) {
  va_list args;
  va_start(args, data);
  const int32_t status = compute(d, &ZorDftDescriptor::compute_forward, data, args);
  va_end(args);
  return status;
}

int32_t zor_fft_backward(zor_fft d, void* data, ...) {
  va_list args;
  va_start(args, data);
  const int32_t status = compute(d, &ZorDftDescriptor::compute_backward, data, args);
  va_end(args);
  return status;
}

int32_t zor_fft_free(zor_fft* fft) { return zor_dft_free(fft); }

const char* zor_fft_error_text(int32_t status) {
  return zor_serv_zor_get_msg(status >= 0 && status <= 9 ? 761 + status : 771, 0);
}

}  // extern "C"
