// SPDX-License-Identifier: MIT
// Kernels of a dimension: one line through the record's plan, then the record's scale.
#pragma once

#include "dft/descriptor/fields.h"

namespace zor::dft {

// How a complex dimension is planned. A fixed kernel is one whose line needs no work of the caller's up to
// 128 elements; it runs the same plan as an ordered one, so that the choice between them, which depends on
// the number of threads, never shows in the result.
enum line_plan { plan_ordered, plan_unordered, plan_split, plan_fixed };

// The kernel pair of a kind, and its plan with work_size. Return a status.
template <class R>
void install_complex(descriptor* r, line_plan kind);
template <class R>
int32_t build_complex(descriptor* r, line_plan kind);

// The real kernel pair and the runners of the record's format; false when no runner serves the format.
template <class R>
bool install_real(descriptor* r);
template <class R>
int32_t build_real(descriptor* r);

// What a complex kernel does to lines, for many at a time and in the same bits: `block` columns together with
// `bytes` of tile, none when block is 0, and contiguous lines. runs is null for other kernels.
struct line_form {
  const engine* runs;
  const plan* p;
  direction way;
  double factor;
  zor_int block, bytes;
  bool needs_work;  // contiguous lines cannot do with null
};
line_form line_form_of(zor_dft_kernel kernel, const descriptor* r);
void run_contiguous(const line_form& form, const line_data& data, void* work);

// True when the backward real kernel reads its spectrum in the second format whatever the record says: out of
// place in several dimensions, where an output row has no room for padding.
inline bool backward_reads_second(const descriptor* r) {
  return (r->rank == 2 || r->rank == 3) && !in_place(r) &&
         (r->packed_format == ZOR_DFT_FORMAT_PADDED || r->conjugate_even_storage == ZOR_DFT_COMPLEX_COMPLEX);
}

}  // namespace zor::dft
