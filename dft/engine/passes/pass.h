// SPDX-License-Identifier: MIT
// The passes of a self-sorting transform (Stockham). With n = l r m and w(e) = exp(-2 pi i e / (l r)), a pass
// of radix r takes x to
//   y(q + m (r p + s)) = w(p s) sum over t of x(q + m (p + l t)) exp(-2 pi i t s / r)
// for all p < l, q < m. The first pass has m = 1, the last has l = 1 and no twiddles. Lanes run over p in the
// first pass and over q in the others, so every element meets the same operations at any width; where the
// lanes do not divide the range, the last vector overlaps its neighbour and computes the same values again.
#pragma once

#include <cstddef>
#include <cstdint>

#include "dft/engine/passes/butterfly.h"
#include "dft/engine/passes/radices.h"

namespace zor::dft {

// How complex values stand in memory: re, im alternating; two arrays; or blocks of lanes_of<R> real parts
// followed by as many imaginary ones.
enum class form : int32_t { interleaved, split, blocked };
enum class position : int32_t { first, middle, last };

// Lanes that a pass exists for, by index: the build's own width, half of it where that is at least 32 bytes,
// one real.
inline constexpr int pass_widths = 3;
template <class R>
constexpr int pass_lanes(int index) {
  return index == 0 ? lanes_of<R> : index == 1 && width >= 64 ? lanes_of<R> / 2 : 1;
}

// Data of a pass; for interleaved and blocked data re alone is read. A backward transform is a forward one of
// data with real and imaginary parts exchanged, and its results are exchanged again. Split data do that by
// exchanging pointers, and are scaled behind the last pass. Other data are conjugated instead: a first pass
// gives imaginary parts of its input the sign (1 or -1), a last pass multiplies its output by the scales.
template <class R>
struct pass_data {
  const R *x_re, *x_im;
  R *y_re, *y_im;
  R sign, scale_re, scale_im;
};

template <class R>
struct pass {
  void (*run)(const pass_data<R>& data, const pass& self);
  const R* twiddles;  // first: by vector of p, s, re lanes, im lanes; middle: by p, s, re, im; s from 1
  const R* cosines;   // radix above 16: cos and sin of 2 pi k / r for k < r
  ptrdiff_t l, m;
  int32_t radix, lanes;
};

template <class R>
using pass_run = decltype(pass<R>::run);

// The pass of a radix at a position, reading and writing the outer form at the transform's ends and the inner
// form between its passes; null when that combination does not exist. A radix without a row in the table gets
// the generic pass of odd radices.
template <class R>
pass_run<R> find_first(form outer, form inner, int32_t radix, int width_index);
template <class R>
pass_run<R> find_middle(form inner, int32_t radix, int width_index);
template <class R>
pass_run<R> find_last(form inner, form outer, int32_t radix, int width_index);

}  // namespace zor::dft
