// SPDX-License-Identifier: MIT
// A complex transform of any length by the method selected for it. Instances: float and double.
#pragma once

#include "dft/engine/columns/grid.h"
#include "dft/engine/passes/chain.h"
#include "dft/engine/plan/select.h"

namespace zor::dft {

// Odd length below 91: cos and sin of 2 pi j k / n by j, then k, in rows of whole vectors.
template <class R>
struct direct_table {
  R* memory;
  int32_t row;
};

template <class R>
struct transform;

// The chirp transform of n values; see chirp.h.
template <class R>
struct chirp {
  int32_t padded;
  R* memory;
  const R *chirp_re, *chirp_im;  // n values each
  const R *spectrum_re,
      *spectrum_im;   // of conj c over the padded length, divided by it, in the order of blocks
  const R* twiddles;  // of the first radix where the length is taken apart, else null
  bool aside;         // the work has room for a block beside the inner transform's
  transform<R>* inner;
};

template <class R>
struct transform {
  method how;
  int32_t n;
  form outer;
  bool long_power;    // power of two served by the grid
  pass_run<R> whole;  // the chain's one run, when it is all there is to do
  chain<R> passes;
  grid<R> blocks;
  direct_table<R> direct;
  chirp<R> convolution;
};

// With the column form of its chain, if that is asked for and exists. False when memory is short.
template <class R>
bool transform_build(transform<R>* t, int32_t n, const selection& s, form outer, bool columns = false);
// That form, or null.
template <class R>
const column_plan<R>* transform_columns(const transform<R>& t);
// The passes of its chain; 0 where it is none, or one run without passes.
template <class R>
int32_t transform_passes(const transform<R>& t);
template <class R>
void transform_free(transform<R>* t);
// Work as selected, at any alignment of R; y may be x.
template <class R>
void transform_run_parts(const transform<R>& t, const pass_data<R>& ends, R* work);
template <class R>
inline void transform_run(const transform<R>& t, const pass_data<R>& ends, R* work) {
  if (t.whole != nullptr)
    t.whole(ends, t.passes.passes[0]);
  else
    transform_run_parts(t, ends, work);
}

template <class R>
bool direct_build(direct_table<R>* t, int32_t n);
template <class R>
void direct_free(direct_table<R>* t);
template <class R>
void direct_complex(const direct_table<R>& t, int32_t n, form outer, const pass_data<R>& ends);
// Real data of odd length, spectrum as R0 R1 I1 ...; y may be x.
template <class R>
void direct_real_forward(const direct_table<R>& t, int32_t n, const R* x, R* y, R scale);
template <class R>
void direct_real_backward(const direct_table<R>& t, int32_t n, const R* x, R* y, R scale);

}  // namespace zor::dft
