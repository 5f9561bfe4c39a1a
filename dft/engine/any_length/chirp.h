// SPDX-License-Identifier: MIT
// Transforms of any length as a convolution with a chirp (Bluestein). Instances: float and double.
#pragma once

#include "dft/engine/passes/pass.h"

namespace zor::dft {

template <class R>
struct transform;

// With c(k) = exp(-pi i k^2 / n) the transform of x is y(k) = c(k) sum over j of (c(j) x(j)) conj(c(k-j)): a
// convolution, done by transforms of a padded length M.
template <class R>
struct chirp {
  int32_t padded;
  R* memory;
  const R *chirp_re, *chirp_im;        // c, n values each
  const R *spectrum_re, *spectrum_im;  // the transform of conj(c), divided by M, in the order of blocks
  const R* twiddles;                   // of the first radix where M is taken apart into blocks, else null
  bool aside;                          // the work has room for a block beside the inner transform's work
  transform<R>* inner;                 // of M, or of a block
};

// False when memory is short.
template <class R>
bool chirp_build(chirp<R>* c, int32_t n, int32_t padded);
template <class R>
void chirp_free(chirp<R>* c);
template <class R>
void chirp_run(const chirp<R>& c, int32_t n, form outer, const pass_data<R>& ends, R* work);

}  // namespace zor::dft
