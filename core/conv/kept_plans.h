// SPDX-License-Identifier: MIT
// Plans of recent lengths, kept between calls: a plan takes as long as several transforms.
#pragma once

#include "core/conv/problem.h"

namespace zor_core {

// What a plan is made for: a tile of the kernels (a tile_plan), or a committed transform (a zor_fft). Real
// data are transformed out of place to complex spectra, complex data in place or not; backward divides by the
// number of points. Lengths stand from the slowest dimension.
struct plan_key {
  bool tile;
  int32_t precision, domain, placement;
  int dims;
  zor_int lengths[conv_most_dims];
};

// A plan, which any number of callers may hold at once; a status.
int32_t take_plan(const plan_key& key, void** plan);
// Gives it back. It is kept or freed.
void return_plan(const plan_key& key, void* plan);

}  // namespace zor_core
