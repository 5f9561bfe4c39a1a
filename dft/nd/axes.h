// SPDX-License-Identifier: MIT
// The geometry of a transform in several dimensions, and lines along one of them.
#pragma once

#include "dft/descriptor/fields.h"
#include "dft/run/batch.h"

namespace zor::dft {

struct axis {
  descriptor* record;
  zor_dft_kernel kernel;
  zor_int length, stride;
};

// The dimensions of one side of a transform. Behind dimension 1 those of length 1 are left out: they neither
// move data nor scale it. So 64 axes are more than any array in memory has.
struct axes {
  int rank;
  axis of[64];
};

// Strides and lengths by field: half_length for the complex side of a real transform. k0 is the kernel of
// dimension 0, `others` the field that holds those of the other dimensions.
axes axes_of(descriptor* head, zor_int descriptor::*stride, zor_int descriptor::*length, zor_dft_kernel k0,
             zor_dft_kernel descriptor::*others);
// Rank 2 with all of it given.
axes axes_of_plane(descriptor* head, zor_int descriptor::*length, zor_int s0, zor_int s1, zor_dft_kernel k0,
                   zor_dft_kernel k1);
// The same lengths packed without gaps.
axes packed_axes(const axes& a);
// Elements, and lines along axis k.
zor_int total_of(const axes& a);
inline zor_int lines_of(const axes& a, int k) { return total_of(a) / a.of[k].length; }

// Lines along one axis in runs: neighbours of a run lie `step` apart on the two sides.
struct line_runs {
  int first_axis, last_axis;  // the axes a run covers, first to last - 1
  zor_int length;
};
line_runs runs_along(const axes& in, const axes& out, int k);
// Where run `index` starts.
zor_int run_offset(const axes& a, int k, const line_runs& runs, zor_int index);

// Lines `first` to `last` - 1 along axis k from one side to the other, through the output axis's kernel.
template <class In, class Out>
int32_t lines_along(const In* in, const axes& ia, Out* out, const axes& oa, int k, zor_int first,
                    zor_int last, void* work, tile_mode mode) {
  const line_kernel kernel{oa.of[k].kernel, oa.of[k].record, work};
  const line_runs runs = runs_along(ia, oa, k);
  const zor_int in_step = ia.of[runs.first_axis].stride, out_step = oa.of[runs.first_axis].stride;
  const axis& from = ia.of[k];
  const axis& to = oa.of[k];
  for (zor_int line = first; line < last;) {
    const zor_int index = line / runs.length, within = line % runs.length;
    const zor_int left = runs.length - within;
    const zor_int lines = left < last - line ? left : last - line;
    const In* x = in + run_offset(ia, k, runs, index) + within * in_step;
    Out* y = out + run_offset(oa, k, runs, index) + within * out_step;
    const int32_t status = run_lines<In, Out>(kernel, {x, from.stride, in_step, from.length},
                                              {y, to.stride, out_step, to.length}, lines, mode);
    if (status != ZOR_DFT_OK) return status;
    line += lines;
  }
  return ZOR_DFT_OK;
}

}  // namespace zor::dft
