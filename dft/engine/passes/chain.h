// SPDX-License-Identifier: MIT
// A complex transform of one length as a chain of passes: the choice of radices, the tables of all passes,
// and the runs. Instances: float and double.
#pragma once

#include "dft/engine/columns/columns.h"

namespace zor::dft {

inline constexpr int32_t longest_chain = 26;

template <class R>
struct chain {
  int32_t n, count;
  form outer, inner;
  R* tables;  // twiddles and angle tables of all passes
  column_plan<R>*
      columns;  // the same radices for columns; null where that was not asked for or does not exist
  pass<R> passes[longest_chain];
  pass_run<R> first_inner, last_inner;  // its first pass reading the inner form, its last one writing it
};

// Plans n, whose odd factors above 13 are at most 150; with the column form of the chain, if that is asked
// for and exists. False when memory is short.
template <class R>
bool chain_build(chain<R>* c, int32_t n, form outer, bool columns);
template <class R>
void chain_free(chain<R>* c);
// The transform with the sign and the scales of pass_data; y may be x. Work: 2 n reals, untouched by chains
// without passes, which are one straight-line run.
template <class R>
void chain_run(const chain<R>& c, const pass_data<R>& ends, R* work);

// A transform of real data joins its recombination to the passes: chain_to_inner ends, and chain_from_inner
// begins, with all values in the inner form. inner_place says where they stand: in y or in work. Split
// imaginary parts are n behind the real ones; blocked values stand in y, each block where its interleaved
// values would.
template <class R>
R* inner_place(const chain<R>& c, R* y, R* work, bool forward);
// Chains of two passes and more from interleaved x; nothing is scaled. y may be x where the form is blocked
// or the number of passes is odd.
template <class R>
void chain_to_inner(const chain<R>& c, const R* x, R* y, R* work);
// To interleaved y; the imaginary parts of the inner form have the sign of the direction already.
template <class R>
void chain_from_inner(const chain<R>& c, R* y, R scale_re, R scale_im, R* work);

// `batch` transforms of one length at once, value j of transform i at i + batch j, in split form. The run
// alternates between a and b, and ends in b when the number of passes (count) is odd, else in a.
template <class R>
bool chain_build_batch(chain<R>* c, int32_t length, int32_t batch);
template <class R>
void chain_run_batch(const chain<R>& c, R* a_re, R* a_im, R* b_re, R* b_im);

// Interleaved transforms of 16, 32, 64, 128 and 256 values over tables made by the compiler; null for other
// lengths.
template <class R>
pass_run<R> find_two_passes(int32_t n);
// Their first radix.
constexpr int32_t first_of_two(int32_t n) { return n == 16 ? 4 : n >= 128 ? 16 : 8; }

// Straight-line transforms of 1 to 16 and 32 values.
template <class R>
pass_run<R> find_straight(int32_t n, form outer);

}  // namespace zor::dft
