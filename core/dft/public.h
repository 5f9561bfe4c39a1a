// SPDX-License-Identifier: MIT
// What the public calls of the transforms share: checks, texts of failures, layouts.
#pragma once

#include "zor/dft.h"

namespace zor_core {

inline bool is_transform(zor_fft d) { return d != nullptr && d->magic == ZOR_DFT_MAGIC; }

// Keeps the text for zor_fft_failure_text; returns the status.
[[gnu::cold, gnu::format(printf, 2, 3)]] int32_t fft_failure(int32_t status, const char* format, ...);
// ... of a handle that is no transform.
[[gnu::cold]] int32_t bad_handle(zor_fft d);
// ... of a status of the kernel library, in its own words.
int32_t with_text(int32_t status);

// The fields that lay out one side of a transform, and the parameters that set them.
struct side_fields {
  zor_int ZorDftDescriptor::*offset;
  zor_int ZorDftDescriptor::*stride;
  zor_int ZorDftDescriptor::*distance;
  const char *strides_name, *distance_name;
};
inline constexpr side_fields input_side{&ZorDftDescriptor::input_offset, &ZorDftDescriptor::input_stride,
                                        &ZorDftDescriptor::input_distance, "ZOR_DFT_INPUT_STRIDES",
                                        "ZOR_DFT_INPUT_DISTANCE"};
inline constexpr side_fields output_side{&ZorDftDescriptor::output_offset, &ZorDftDescriptor::output_stride,
                                         &ZorDftDescriptor::output_distance, "ZOR_DFT_OUTPUT_STRIDES",
                                         "ZOR_DFT_OUTPUT_DISTANCE"};

// Layouts that the caller has set, kept in reserved_b of the head. The others follow the defaults at commit.
enum chosen_layout : int32_t {
  chosen_input_strides = 1,
  chosen_output_strides = 2,
  chosen_input_distance = 4,
  chosen_output_distance = 8
};

// What check_layout finds, kept in reserved_c of the head: directions in which elements of the output would
// share a place.
enum overlapping_output : int32_t { overlapping_forward = 1, overlapping_backward = 2 };
// Above those bits: how many blocks of so many bytes the pointers of input and output must differ by so that
// no element of either can stand in the other, or 0 where that is not known.
inline constexpr int safe_distance_bit = 2;
inline constexpr zor_int safe_block = 64;

inline bool is_real(const ZorDftDescriptor* d) { return d->forward_domain == ZOR_DFT_REAL; }
inline bool is_packed(const ZorDftDescriptor* d) {
  return is_real(d) && d->conjugate_even_storage == ZOR_DFT_COMPLEX_REAL;
}
// Real data whose spectrum is an array of complex values.
inline bool is_mixed(const ZorDftDescriptor* d) { return is_real(d) && !is_packed(d); }
inline bool is_in_place(const ZorDftDescriptor* d) { return d->placement == ZOR_DFT_INPLACE; }
// In place the output has a layout of its own only where it is complex and the input real.
inline bool has_output_layout(const ZorDftDescriptor* d) { return !is_in_place(d) || is_mixed(d); }

// Fills in the layouts that were not chosen, for a forward transform.
void set_default_layout(ZorDftDescriptor* d);
// True when both sides follow the defaults and differ, so that a backward transform needs them exchanged.
bool needs_exchanged_layout(const ZorDftDescriptor* d);
// Input and output layouts change places.
void exchange_layouts(ZorDftDescriptor* d);
// ZOR_FFT_OK, or ZOR_FFT_BAD_VALUE with the text of the first contradiction: a step that cannot be, or an
// output without a place for every element in either direction.
int32_t check_layout(ZorDftDescriptor* d);
// Whether no input can share memory with an output: a look at the pointers, for every call.
inline bool far_apart(const ZorDftDescriptor* d, void* const* data) {
  const zor_int safe = (d->reserved_c >> safe_distance_bit) * safe_block;
  const int32_t arrays = d->nio_args / 2;
  for (int32_t i = 0; i < arrays; ++i)
    for (int32_t o = arrays; o < d->nio_args; ++o) {
      const char *in = static_cast<char*>(data[i]), *out = static_cast<char*>(data[o]);
      if (safe == 0 || (in < out ? out - in : in - out) < safe) return false;
    }
  return true;
}
// ZOR_FFT_OK unless input and output, out of place, share memory: all ranges and steps.
int32_t check_overlap(const ZorDftDescriptor* d, bool backward, void* const* data);

// What a committed real transform owns beside the kernel library's plans, kept in private_data of the head.
struct real_nd;
struct attachment {
  zor_fft exchanged;  // for backward: the same with the layouts exchanged; or null
  real_nd* nd;        // parts of a transform of four or more dimensions; or null
};
// The attachment of d, made when there is none; null when memory is short.
attachment* attach(ZorDftDescriptor* d);
void release_real_nd(real_nd* r);

// Real data of more dimensions than the kernel library takes: commits the parts and installs the compute
// functions.
int32_t commit_real_nd(ZorDftDescriptor* d);

}  // namespace zor_core
