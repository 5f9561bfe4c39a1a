// SPDX-License-Identifier: MIT
// What the parts of the transform code share about the descriptor.
#pragma once

#include <cmath>

#include "zor/dft_kern.h"
#include "zor/serv.h"

// A way to run a descriptor that bypasses commit. `test` scores a descriptor, 0.0 for no; `apply` installs
// the compute pair and returns 0, or leaves the descriptor uncommitted; `release` gives back breakdown_data.
struct ZorDftBreakdown {
  double (*test)(const ZorDftDescriptor* d);
  int32_t (*apply)(ZorDftDescriptor* d);
  void (*release)(ZorDftDescriptor* d);
  void* unused;
};

namespace zor::dft {

using descriptor = ZorDftDescriptor;

inline bool valid(const descriptor* d) { return d != nullptr && d->magic == ZOR_DFT_MAGIC; }
inline bool valid(descriptor* const* handle) { return handle != nullptr && valid(*handle); }

inline bool in_place(const descriptor* d) { return d->placement == ZOR_DFT_INPLACE; }
inline bool is_split(const descriptor* d) {
  return d->forward_domain == ZOR_DFT_COMPLEX && d->complex_storage == ZOR_DFT_REAL_REAL;
}
inline bool is_double(const descriptor* d) { return d->precision == ZOR_DFT_DOUBLE; }
inline bool is_power_of_two(zor_int n) { return n > 0 && (n & (n - 1)) == 0; }

// Lines of dimension 0 are contiguous. In place only the input's stride counts, except that a real transform
// with complex output has a stride of its own on each side.
inline bool unit_strides(const descriptor* d) {
  const bool one_side = in_place(d) && !(d->forward_domain == ZOR_DFT_REAL &&
                                         d->conjugate_even_storage == ZOR_DFT_COMPLEX_COMPLEX);
  return d->input_stride == 1 && (one_side || d->output_stride == 1);
}

// Back to the configured state: not committed, nothing to compute with.
inline void uncommit(descriptor* d) {
  d->commit_status = ZOR_DFT_UNCOMMITTED;
  d->compute_forward = nullptr;
  d->compute_backward = nullptr;
}

// Gives up a breakdown's hold on the descriptor.
inline void release_breakdown(descriptor* d) {
  if (d->breakdown != nullptr && d->breakdown->release != nullptr) d->breakdown->release(d);
  d->breakdown = nullptr;
  d->breakdown_data = nullptr;
}

// The engine's code as a status.
inline int32_t status_of(int32_t engine_code) {
  if (engine_code == 0) return ZOR_DFT_OK;
  return engine_code == -9 ? ZOR_DFT_MEMORY_ERROR : ZOR_DFT_ENGINE_ERROR;
}

// Chains the records of a descriptor again; a failed commit cuts the chain at the record it could not build.
void link_records(descriptor* head);

}  // namespace zor::dft
