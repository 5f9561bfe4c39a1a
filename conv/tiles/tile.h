// SPDX-License-Identifier: MIT
// Tiles: cyclic convolutions of boxes of one shape with an operand that is kept as its spectrum, for
// libzor_core to run on its threads. Every task carries a table of them, in the build that is loaded:
// tiles_of.
//
// A box of N reals is taken as N / 2 complex values, those of its second half being the imaginary parts, so
// that a sum which wraps around the slowest dimension is subtracted instead of added; sums that wrap are of
// no use to the caller. Transforms leave their values in the order of the passes, the product of spectra and
// the way back take them from there, and nothing is ever sorted.
#pragma once

#include <cstdint>

#include "zor/conv.h"

namespace zor::conv {

// Lengths of a box, dimension 0 being contiguous.
struct tile_shape {
  bool complex;
  bool in_place;  // boxes are their own work, as those of several dimensions must be
  int dims;
  zor_int lengths[7];

  // Complex values.
  zor_int points() const {
    zor_int product = 1;
    for (int d = 0; d < dims; ++d) product *= lengths[d];
    return complex ? product : product / 2;
  }
};
// The last radix, and the values that whole vectors of it take in any build.
inline constexpr int32_t leaf_radix = 16;
inline constexpr zor_int leaf_group = 256;
// Whether there is such a tile; lengths have no prime factors but 2, 3 and 5.
inline bool is_tile(const tile_shape& s) {
  return (s.complex || s.lengths[s.dims - 1] % 2 == 0) && s.lengths[0] % leaf_radix == 0 &&
         s.points() % leaf_group == 0;
}

template <class R>
struct tile_pass;
// Blocks of a pass, and the columns of each, from begin to end, both multiples of leaf_radix.
template <class R>
struct tile_range {
  const R *x_re, *x_im;
  R *y_re, *y_im;
  zor_int first, count, begin, end;
};
template <class R>
using tile_run = void (*)(const tile_pass<R>& pass, const tile_range<R>& range);

// A pass of radix r takes blocks of r span values modulo X^(r span) - w to r blocks modulo X^span - v of the
// r roots v of w: values `span` apart are multiplied by powers of one root, and transformed. The way back
// undoes both. Multipliers of block b are those of b modulo `blocks`, none where all are 1.
template <class R>
struct tile_pass {
  int32_t radix;
  zor_int span, blocks;
  R* twiddles;  // by block, then power from 1: re, im
  tile_run<R> forward, backward;
};

inline constexpr int most_tile_passes = 40;

// Immutable: any number of threads may run it at once.
template <class R>
struct tile_plan {
  zor_int points;
  zor_int gap;   // reals between the two parts of work
  zor_int line;  // values along dimension 0
  // What may be divided over threads: columns of the first pass by leaf_radix, and pieces behind it.
  zor_int columns, pieces;
  bool in_place, paired;  // boxes that are their own work; that are interleaved complex values
  int count;
  tile_pass<R> passes[most_tile_passes];
  tile_run<R> spread, join;  // the first pass from a box, the last one to it
  R* leaf;                   // multipliers of the last radix, by groups of lanes, which repeat after so many
  zor_int leaf_groups;
  R* memory;
};

// The most reals between the two parts of work, so that these do not share cache sets.
template <class R>
inline constexpr zor_int work_gap = 256 / sizeof(R);
// Complex boxes in place have their real parts before the imaginary ones, with the gap between them.
inline bool has_gap(const tile_shape& s) { return s.complex || !s.in_place; }

// Complex values from one form to another; an array that is interleaved has no second part.
template <class R>
using tile_copy = void (*)(zor_int count, const R* x_re, const R* x_im, R* y_re, R* y_im);

// A box has `points` complex values or twice as many reals, as work and spectra do, work and its gap; these
// stand on boundaries of 64 bytes. A tile is spread, multiplied and joined, each in any number of pieces; the
// operand that stays is spread, and transformed to its spectrum, with the scale of all. Of a box in place,
// the columns of dimension 0 from `width` on, a multiple of leaf_radix, may be known to be zero.
template <class R>
struct tile_kernels {
  tile_plan<R>* (*make)(const tile_shape& shape);  // null when memory is short
  void (*release)(tile_plan<R>* plan);
  void (*spread)(const tile_plan<R>& plan, zor_int begin, zor_int end, zor_int width, const R* box, R* work);
  void (*transform)(const tile_plan<R>& plan, zor_int begin, zor_int end, zor_int width, R* work,
                    R* spectrum);
  void (*multiply)(const tile_plan<R>& plan, zor_int begin, zor_int end, zor_int width, const R* spectrum,
                   R* work);
  void (*join)(const tile_plan<R>& plan, zor_int begin, zor_int end, const R* work, R* box);
  tile_copy<R> to_parts, to_pairs;
};
struct tile_table {
  tile_kernels<float> s;
  tile_kernels<double> d;
};
extern const tile_table tiles;

// What a task is in memory.
struct task_record : ZorConvTask {
  const tile_table* tiles;
};
inline const tile_table* tiles_of(const ZorConvTask* task) {
  return static_cast<const task_record*>(task)->tiles;
}

}  // namespace zor::conv
