// SPDX-License-Identifier: MIT
// The geometry of lines: which axes a run of neighbouring lines covers, and where each run begins.
#include "dft/nd/axes.h"

namespace zor::dft {

axes axes_of(descriptor* head, zor_int descriptor::*stride, zor_int descriptor::*length, zor_dft_kernel k0,
             zor_dft_kernel descriptor::*others) {
  axes a;
  a.rank = 0;
  for (descriptor* r = head; r != nullptr; r = r->next_dim)
    if (r->dim_index < 2 || r->length > 1)
      a.of[a.rank++] = {r, r == head ? k0 : r->*others, r->*length, r->*stride};
  return a;
}

axes axes_of_plane(descriptor* head, zor_int descriptor::*length, zor_int s0, zor_int s1, zor_dft_kernel k0,
                   zor_dft_kernel k1) {
  axes a;
  a.rank = 2;
  a.of[0] = {head, k0, head->*length, s0};
  a.of[1] = {head->next_dim, k1, head->next_dim->length, s1};
  return a;
}

axes packed_axes(const axes& a) {
  axes packed = a;
  zor_int size = 1;
  for (int i = 0; i < a.rank; ++i) {
    packed.of[i].stride = size;
    size *= a.of[i].length;
  }
  return packed;
}

zor_int total_of(const axes& a) {
  zor_int total = 1;
  for (int i = 0; i < a.rank; ++i) total *= a.of[i].length;
  return total;
}

line_runs runs_along(const axes& in, const axes& out, int k) {
  if (in.rank == 1) return {0, 0, 1};
  int first = k == 0 ? 1 : 0;
  // The axis with the unit step makes the better runs.
  if (k > 1 && out.of[1].stride == 1 && out.of[0].stride != 1) first = 1;
  line_runs runs{first, first + 1, in.of[first].length};
  const auto dense = [&](const axes& a) {
    return a.of[runs.last_axis].stride == a.of[first].stride * runs.length;
  };
  while (runs.last_axis < k && dense(in) && dense(out)) runs.length *= in.of[runs.last_axis++].length;
  return runs;
}

zor_int run_offset(const axes& a, int k, const line_runs& runs, zor_int index) {
  zor_int offset = 0;
  for (int i = 0; i < a.rank; ++i) {
    if (i == k || (i >= runs.first_axis && i < runs.last_axis)) continue;
    offset += index % a.of[i].length * a.of[i].stride;
    index /= a.of[i].length;
  }
  return offset;
}

}  // namespace zor::dft
