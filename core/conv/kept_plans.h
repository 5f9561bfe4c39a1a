// SPDX-License-Identifier: MIT
// Committed transforms of recent lengths, kept between calls: a plan takes as long as several transforms.
#pragma once

#include "core/conv/problem.h"
#include "zor/dft.h"

namespace zor_core {

// What a transform is made of. Real data are transformed out of place to complex spectra, complex data in
// place or not; backward divides by the number of points. Lengths stand from the slowest dimension.
struct transform_key {
  int32_t precision, domain, placement;
  int dims;
  zor_int lengths[conv_most_dims];
};

// A committed transform, which any number of callers may hold at once; ZOR_FFT_OK or why there is none.
int32_t take_transform(const transform_key& key, zor_fft* fft);
// Gives it back. It is kept or freed.
void return_transform(zor_fft fft);

}  // namespace zor_core
