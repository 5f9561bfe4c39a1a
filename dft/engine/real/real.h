// SPDX-License-Identifier: MIT
// Real transforms, spectrum in second format: R0 R(n/2) R1 I1 ... for even n, R0 R1 I1 ... for odd n. Even
// lengths run a complex transform of half the length and recombine; odd ones have passes on half spectra, the
// direct or the chirp transform. Instances: float and double.
#pragma once

#include "dft/engine/plan/transform.h"

namespace zor::dft {

// Odd n = radix * m. A real pass does m transforms of `radix` reals and keeps the first (radix + 1) / 2
// values of each; a batch of that many complex transforms of length m then finishes half of the spectrum.
template <class R>
struct odd_chain {
  int32_t radix, kept;
  ptrdiff_t m;
  int32_t lanes;
  R* tables;
  const R* twiddles;
  const R* cosines;  // cos and sin of 2 pi k / radix, for the generic pass
  void (*forward)(const odd_chain& c, const R* x, R* re, R* im);
  void (*backward)(const odd_chain& c, const R* re, const R* im, R* y, R scale);
  chain<R> rest;
};

template <class R>
struct real_transform {
  method how;
  int32_t n;
  void (*straight_forward)(const R* x, R* y, R scale);  // n up to 16, and 32, 64, 128
  void (*straight_backward)(const R* x, R end, R* y, R scale);
  transform<R> inner;   // complex: of n / 2 for even n, of n for an odd chirp
  R* table;             // even n: w(k) = exp(-2 pi i k / n) for k <= n / 4, the real parts of all first
  ptrdiff_t table_row;  // reals from the real parts to the imaginary ones
  odd_chain<R> odd;
  direct_table<R> direct;
};

template <class R>
bool real_build(real_transform<R>* t, int32_t n, const selection& s);
template <class R>
void real_free(real_transform<R>* t);
// y may be x.
template <class R>
void real_forward(const real_transform<R>& t, const R* x, R* y, R scale, R* work);
// For even n the value R(n/2) is `end`; x[1] is not read.
template <class R>
void real_backward(const real_transform<R>& t, const R* x, R end, R* y, R scale, R* work);

// Lengths of 32, 64 and 128, that need no work; null for others.
template <class R>
void find_short_real(int32_t n, void (**forward)(const R* x, R* y, R scale),
                     void (**backward)(const R* x, R end, R* y, R scale));

template <class R>
bool odd_build(odd_chain<R>* c, int32_t n);
template <class R>
void odd_free(odd_chain<R>* c);
template <class R>
void odd_forward(const odd_chain<R>& c, const R* x, R* y, R scale, R* work);
template <class R>
void odd_backward(const odd_chain<R>& c, const R* x, R* y, R scale, R* work);

}  // namespace zor::dft
