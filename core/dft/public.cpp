// SPDX-License-Identifier: MIT
// The public side of the transforms: the kernel library's descriptor behind checked calls.
#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "core/threads.h"
#include "dft/thresholds.h"
#include "serv/scratch.h"
#include "zor/dft.h"
#include "zor/serv.h"

namespace zor_core {
namespace {

using zor::dft::most_bytes, zor::dft::most_dimensions, zor::dft::most_user_threads, zor::dft::work_boundary;

bool valid(zor_fft d) { return d != nullptr && d->magic == ZOR_DFT_MAGIC; }

// True when complex doubles of these lengths, each with the padding of a packed spectrum, can be addressed.
bool size_fits(zor_int rank, const zor_int* lengths) {
  zor_int size = sizeof(zor_c64);
  for (zor_int i = 0; i < rank; ++i)
    if (__builtin_mul_overflow(size, lengths[i] / 2 + 1, &size)) return false;
  size = sizeof(zor_c64);
  for (zor_int i = 0; i < rank; ++i)
    if (__builtin_mul_overflow(size, lengths[i], &size)) return false;
  return size <= most_bytes;
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
  const bool refused = (count && value < 1) || (threads && value > most_user_threads);
  // A refused value uncommits like every other; a number that the kernel library does not know does just
  // that.
  if (refused) {
    zor_dft_set_value(d, -1);
    return ZOR_DFT_BAD_VALUE;
  }
  return zor_dft_set_value(d, parameter, value);
}

// The fields that lay out one side of a transform.
struct side_layout {
  zor_int ZorDftDescriptor::*offset;
  zor_int ZorDftDescriptor::*stride;
  zor_int ZorDftDescriptor::*distance;
};
constexpr side_layout input_layout{&ZorDftDescriptor::input_offset, &ZorDftDescriptor::input_stride,
                                   &ZorDftDescriptor::input_distance};
constexpr side_layout output_layout{&ZorDftDescriptor::output_offset, &ZorDftDescriptor::output_stride,
                                    &ZorDftDescriptor::output_distance};

// True when no two elements of a side stand in one place for want of a step, and the steps lead nowhere that
// cannot be addressed.
bool is_consistent(const ZorDftDescriptor* d, const side_layout& side) {
  const zor_int element =
      (d->precision == ZOR_DFT_DOUBLE ? 8 : 4) * (d->forward_domain == ZOR_DFT_COMPLEX ? 2 : 1);
  const zor_int most = most_bytes / element;
  __int128 reach = 0;
  const auto add = [&](zor_int count, zor_int step) {
    if (step > most || step < -most || (count > 1 && step == 0)) return false;
    reach += __int128(count - 1) * std::abs(step);
    return true;
  };
  const zor_int offset = d->*side.offset;
  bool fits = offset <= most && offset >= -most && add(d->number_of_transforms, d->*side.distance);
  for (const ZorDftDescriptor* r = d; r != d + d->rank; ++r) fits = fits && add(r->length, r->*side.stride);
  return fits && reach + std::abs(offset) <= most;
}

// The settings agree with each other. In place the output has a layout of its own only where it is complex
// and the input real.
bool consistent(const ZorDftDescriptor* d) {
  const bool output_counts =
      d->placement == ZOR_DFT_NOT_INPLACE ||
      (d->forward_domain == ZOR_DFT_REAL && d->conjugate_even_storage == ZOR_DFT_COMPLEX_COMPLEX);
  return is_consistent(d, input_layout) && (!output_counts || is_consistent(d, output_layout));
}

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

using pointers = void* [4];
int32_t call(zor_fft d, zor_dft_compute ZorDftDescriptor::*direction, const pointers& p) {
  return (d->*direction)(d, p[0], p[1], p[2], p[3]);
}

// Set in reserved_a of a head while a caller computes in its work buffer.
enum : int32_t { work_free = 0, work_taken = 1 };

// All of a head but that mark, which other callers change meanwhile.
void copy_head(const ZorDftDescriptor* d, ZorDftDescriptor* copy) {
  constexpr size_t mark = offsetof(ZorDftDescriptor, reserved_a), behind = mark + sizeof d->reserved_a;
  std::memcpy(static_cast<void*>(copy), d, mark);
  std::memcpy(reinterpret_cast<char*>(copy) + behind, reinterpret_cast<const char*>(d) + behind,
              sizeof *d - behind);
}

// While another caller computes in the descriptor's work buffer: the same on a copy of the head, with work
// from the pool for as many threads as may help here.
int32_t call_with_own_work(zor_fft d, zor_dft_compute ZorDftDescriptor::*direction, const pointers& p) {
  ZorDftDescriptor own;
  copy_head(d, &own);
  own.thread_limit = std::max(1, std::min(d->thread_limit, usable_threads()));
  // With room to align: the pool may be switched off, and then aligns nothing.
  const zor::scratch<char> work(d->max_work_size * own.thread_limit + work_boundary, work_boundary);
  if (work.data == nullptr) return ZOR_DFT_MEMORY_ERROR;
  own.work_buffer = zor::align_up<char>(work.data, work_boundary);
  return call(&own, direction, p);
}

// Any number of callers at once, unless the descriptor limits them itself.
int32_t call_shared(zor_fft d, zor_dft_compute ZorDftDescriptor::*direction, const pointers& p) {
  if (d->work_buffer == nullptr || d->user_threads > 1) return call(d, direction, p);
  std::atomic_ref<int32_t> mark(d->reserved_a);
  if (mark.exchange(work_taken, std::memory_order_acquire) == work_taken)
    return call_with_own_work(d, direction, p);
  const int32_t status = call(d, direction, p);
  mark.store(work_free, std::memory_order_release);
  return status;
}

// A side's steps with the elements along them: true when none of the positions coincide, as each step passes
// what the smaller ones cover.
struct step_count {
  zor_int step, count;
};
bool is_nested(step_count (&steps)[3]) {
  for (step_count& s : steps) s.step = std::abs(s.step);
  std::sort(std::begin(steps), std::end(steps),
            [](const step_count& a, const step_count& b) { return a.step < b.step; });
  zor_int covered = 0;
  for (const step_count& s : steps) {
    if (s.count > 1 && s.step <= covered) return false;
    covered += (s.count - 1) * s.step;
  }
  return true;
}

// The padded spectrum of one row: the kernel library leaves dimension 1 out, so the zeros that pad the packed
// columns of frequency 0 and n/2 are written here, where the layout has room for the row they stand in.
template <class R>
void pad_columns(const ZorDftDescriptor* d, void* data) {
  const bool in_place = d->placement == ZOR_DFT_INPLACE;
  const side_layout& side = in_place ? input_layout : output_layout;
  const zor_int n = d->length, s0 = d->*side.stride, s1 = d[1].*side.stride, distance = d->*side.distance;
  step_count steps[] = {{s0, n % 2 == 0 ? n + 2 : n + 1}, {s1, 2}, {distance, d->number_of_transforms}};
  if (!is_nested(steps)) return;
  R* pad = static_cast<R*>(data) + d->*side.offset + s1;
  for (zor_int i = 0; i < d->number_of_transforms; ++i, pad += distance) {
    pad[0] = R(0);
    if (n % 2 == 0) pad[n * s0] = R(0);
  }
}

bool has_one_padded_row(const ZorDftDescriptor* d) {
  return d->rank == 2 && d->forward_domain == ZOR_DFT_REAL &&
         d->conjugate_even_storage == ZOR_DFT_COMPLEX_REAL && d->packed_format == ZOR_DFT_FORMAT_PADDED &&
         d[1].length == 1;
}

int32_t compute(zor_fft d, zor_dft_compute ZorDftDescriptor::*direction, void* data, va_list args) {
  if (!valid(d)) return ZOR_DFT_BAD_DESCRIPTOR;
  if (d->*direction == nullptr) return ZOR_DFT_BAD_ARGUMENT;
  pointers p = {data, nullptr, nullptr, nullptr};
  for (int32_t i = 1; i < d->nio_args; ++i) p[i] = va_arg(args, void*);
  for (int32_t i = 0; i < d->nio_args; ++i)
    if (p[i] == nullptr) return ZOR_DFT_BAD_VALUE;
  const int32_t status = call_shared(d, direction, p);
  if (status == ZOR_DFT_OK && direction == &ZorDftDescriptor::compute_forward && has_one_padded_row(d)) {
    void* const result = p[d->nio_args - 1];
    d->precision == ZOR_DFT_DOUBLE ? pad_columns<double>(d, result) : pad_columns<float>(d, result);
  }
  return status;
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
      (domain != ZOR_DFT_COMPLEX && domain != ZOR_DFT_REAL) || rank < 1 || rank > most_dimensions ||
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
  return zor_dft_commit(&d);
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
