// SPDX-License-Identifier: MIT
// Kernels of a dimension: one line through the record's plan, then the record's scale.
#pragma once

#include "dft/descriptor/fields.h"
#include "dft/line.h"

namespace zor::dft {

// How a complex dimension is planned. A fixed kernel needs no work of its caller's up to 128 elements. It
// runs the same plan as an ordered one, so that the choice between the two, which depends on the number of
// threads, never shows in the result.
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

// The lines that a complex kernel transforms, for callers who have many of them: in direction `way`, every
// value times the factor, with the bits of the kernel. line.p is null for kernels that take one line at a
// time.
struct kernel_lines {
  line_transform line;
  direction way;
  double factor;
};
kernel_lines lines_of_kernel(zor_dft_kernel kernel, const descriptor* r);
// Contiguous lines; false when they need work and there is none.
bool run_contiguous(const kernel_lines& k, const line_data& data, void* work);

// True when the backward real kernel reads its spectrum in the second format whatever the record says: out of
// place in several dimensions, where an output row has no room for padding.
inline bool backward_reads_second(const descriptor* r) {
  return (r->rank == 2 || r->rank == 3) && !in_place(r) &&
         (r->packed_format == ZOR_DFT_FORMAT_PADDED || r->conjugate_even_storage == ZOR_DFT_COMPLEX_COMPLEX);
}

}  // namespace zor::dft
