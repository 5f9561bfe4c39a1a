// SPDX-License-Identifier: MIT
// A complex transform of any length by the method selected for it. Instances: float and double.
#pragma once

#include "dft/engine/core.h"
#include "dft/engine/grid.h"
#include "dft/engine/select.h"

namespace zor::dft {

// Odd length below 91: cos and sin of 2 pi j k / n by j, then k, in rows of whole vectors.
template <class R>
struct direct_table {
  R* memory;
  int32_t row;
};

template <class R>
struct transform;

// The chirp transform: with c(k) = exp(-pi i k^2 / n), y = c (c x * conj c), the convolution by a transform
// of the padded length.
template <class R>
struct chirp {
  int32_t padded;
  R* memory;
  const R *chirp_re, *chirp_im;  // n values each
  const R* spectrum;             // of conj c, over the padded length, divided by it; interleaved
  transform<R>* inner;
};

template <class R>
struct transform {
  method how;
  int32_t n;
  form outer;
  bool long_power;  // power of two served by the grid
  chain<R> passes;
  grid<R> blocks;
  direct_table<R> direct;
  chirp<R> convolution;
};

template <class R>
bool transform_build(transform<R>* t, int32_t n, const selection& s, form outer);
// Adds the column form of its chain, if there is one. False when memory is short.
template <class R>
bool transform_add_columns(transform<R>* t);
// That form, or null.
template <class R>
const column_plan<R>* transform_columns(const transform<R>& t);
template <class R>
void transform_free(transform<R>* t);
// Work as selected, at any alignment of R; y may be x.
template <class R>
void transform_run(const transform<R>& t, const pass_data<R>& ends, R* work);

// The chirp transform without its ends: `a`, padded length complex and interleaved, holds c x in its first n
// values and is replaced by what c times gives the result; the inner work stands behind it.
template <class R>
void convolve_with_chirp(const chirp<R>& c, int32_t n, R* a);

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
