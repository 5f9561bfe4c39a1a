// SPDX-License-Identifier: MIT
// Mixed-radix transforms in place and without work: forward leaves its values in digit-reversed order,
// backward reads that order. Instances: float and double.
#pragma once

#include "dft/engine/passes/pass.h"

namespace zor::dft {

inline constexpr int32_t most_rows = 26;

// One pass: blocks of radix * span values, terms of a butterfly `span` apart.
template <class R>
struct row_pass {
  void (*forward)(const row_pass& row, const R* x, R* y, R scale);
  void (*backward)(const row_pass& row, const R* x, R* y, R sign, R scale);
  ptrdiff_t blocks, span;
  const R* twiddles;  // by s from 1: span real parts, span imaginary ones
  const R* cosines;   // radix above 16: cos and sin of 2 pi k / r
  int32_t radix;
};

template <class R>
struct unordered_chain {
  int32_t n, count;
  R* tables;
  row_pass<R> rows[most_rows];
};

template <class R>
bool unordered_build(unordered_chain<R>* c, int32_t n);
template <class R>
void unordered_free(unordered_chain<R>* c);
template <class R>
void unordered_forward(const unordered_chain<R>& c, const R* x, R* y, R scale);
template <class R>
void unordered_backward(const unordered_chain<R>& c, const R* x, R* y, R scale);

}  // namespace zor::dft
