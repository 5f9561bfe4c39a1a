// SPDX-License-Identifier: MIT
// Real transforms, spectrum in second format: R0 R(n/2) R1 I1 ... for even n, R0 R1 I1 ... for odd n. Even
// lengths run a complex transform of half the length and recombine; odd ones have passes on half spectra, the
// direct or the chirp transform. Instances: float and double.
#pragma once

#include "dft/engine/plan/transform.h"

namespace zor::dft {

// Odd n = radix m: a real pass of the radix leaves (radix + 1) / 2 complex values of each of its m
// transforms, and a batch of that many complex transforms of length m finishes half the spectrum.
template <class R>
struct odd_chain {
  int32_t radix, kept;
  ptrdiff_t m;
  int32_t lanes;
  R* tables;
  const R* twiddles;
  const R* cosines;
  void (*forward)(const odd_chain& c, const R* x, R* re, R* im);
  void (*backward)(const odd_chain& c, const R* re, const R* im, R* y, R scale);
  chain<R> rest;
};

template <class R>
struct real_transform {
  method how;
  int32_t n;
  void (*straight_forward)(const R* x, R* y, R scale);  // up to 16, and 32, 64, 128
  void (*straight_backward)(const R* x, R end, R* y, R scale);
  transform<R> inner;   // even n: half the length; chirp: n
  R* table;             // even n: w(k) = exp(-2 pi i k / n) for k <= n / 4, real parts, then imaginary parts
  ptrdiff_t table_row;  // behind this many
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
// Even n: R(n/2) is `end`, whatever x[1] holds.
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
