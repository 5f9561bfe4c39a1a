// SPDX-License-Identifier: MIT
// Transforms of neighbouring columns of memory at once, through a tile that fits into cache. The passes
// decimate in frequency and work in place in the tile, with lanes over columns. A column meets the same
// operations as a line does in passes of the same radices, so its bits are those of the line.
#pragma once

#include "dft/engine/passes/pass.h"
#include "dft/thresholds.h"

namespace zor::dft {

inline constexpr int32_t most_column_passes = 12;

// One call of a column pass. The tile keeps a row of `columns` values as groups of W real parts and W
// imaginary ones.
template <class R>
struct column_call {
  R* tile;
  ptrdiff_t columns;
  ptrdiff_t rows;
  ptrdiff_t span;            // rows between the terms of a butterfly
  ptrdiff_t blocks;          // groups of radix * span rows
  const R* twiddles;         // by row of a block, s from 1: re, im
  const int32_t* frequency;  // last pass: output index of a block's first result
  // The data that fill the tile. Row i, column 0, stands at
  //   start + (i & row_low_mask) * row_low_step + (i >> row_shift) * row_high_step,
  // or, when row_low_mask is -1, at start + i * row_low_step. Rows below moved_rows stand elsewhere: the same
  // formula with moved_start, moved_low_step and moved_high_step.
  const R *x_re, *x_im;
  ptrdiff_t start;
  ptrdiff_t row_low_mask, row_low_step, row_shift, row_high_step;
  ptrdiff_t moved_rows, moved_start, moved_low_step, moved_high_step;
  // The data that results go to: row k, column 0, at out_start + k * out_step.
  R *y_re, *y_im;
  ptrdiff_t out_start, out_step;
  R sign, scale_re, scale_im;
};

template <class R>
using column_run = void (*)(const column_call<R>&);

// The column passes of a radix; null where the combination does not exist.
template <class R>
struct column_set {
  column_run<R> copy;     // memory to tile, nothing computed
  column_run<R> gather;   // a first pass: memory to tile
  column_run<R> middle;   // within the tile
  column_run<R> scatter;  // a last pass: tile to memory
  column_run<R> whole;    // the only pass of its length: memory to memory
};
template <class R>
column_set<R> find_column_set(form outer, int32_t radix, int32_t lanes);

template <class R>
struct column_plan {
  int32_t length, count;
  int32_t radix[most_column_passes];
  const R* twiddles[most_column_passes];
  column_set<R> passes[most_column_passes];
  const int32_t* frequency;  // of block b in the last pass
  const int32_t* place;      // tile row of output k
};

// Bytes that the record of a plan is given, in either precision.
inline constexpr int64_t column_record_bytes = 2048;
// Bytes, on a boundary of plan_boundary and filled with zero, that make_columns takes from *memory.
int64_t column_plan_bytes(int32_t length, int32_t real_bytes);
// The product of the radices divides the length of the roots.
struct root_table;
template <class R>
column_plan<R>* make_columns(char** memory, const int32_t* radix, int32_t count, form outer, int32_t lanes,
                             const root_table& roots);
// All radices but the last, on a tile being gathered.
template <class R>
void fill_tile(const column_plan<R>& p, column_call<R>* c);

// Columns that a plan of lines takes together: two cache lines of a row.
template <class R>
inline constexpr ptrdiff_t columns_together = ptrdiff_t(cache_line / sizeof(R));

// Interleaved data, value i of column j at i * stride + j; `blocks` blocks of columns. The tile takes
// columns_together values a row.
template <class R>
struct column_lines {
  const R* x;
  R* y;
  ptrdiff_t x_stride, y_stride, blocks;
  R sign, scale_re, scale_im;
};
template <class R>
void run_column_lines(const column_plan<R>& p, const column_lines<R>& d, R* tile);

// The radices of 2^order, order being 6 or more: as few as do, each 16 or 8, the sixteens first. Their
// number.
int32_t radices_of_order(int32_t order, int32_t* radix);

}  // namespace zor::dft
