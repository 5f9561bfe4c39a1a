// SPDX-License-Identifier: MIT
// Transforms of neighbouring columns of memory at once, through a tile that fits into cache: decimation in
// frequency where the values stand, lanes over columns. A column meets the operations that the passes of the
// same radices do on a line, so its bits are those of the line.
#pragma once

#include "dft/engine/passes/pass.h"

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
  // Where the tile is filled from, `start` being row 0 and column 0: row i stands low(i) * row_low_step +
  // high(i) * row_high_step behind it; a mask of -1 leaves row_low_step alone.
  const R *x_re, *x_im;
  ptrdiff_t start;
  ptrdiff_t row_low_mask, row_low_step, row_shift, row_high_step;
  ptrdiff_t moved_rows, moved_start, moved_low_step,
      moved_high_step;  // rows below moved_rows stand elsewhere
  // Where results go, row 0 and column 0, and the step from one row to the next.
  R *y_re, *y_im;
  ptrdiff_t out_start, out_step;
  R sign, scale_re, scale_im;
};

template <class R>
using column_run = void (*)(const column_call<R>&);

// The passes of a radix: from memory to the tile as it is, the same transformed, within it, from it to
// memory; and, where the radix is the whole length, from memory to memory. Null where the combination does
// not exist.
template <class R>
struct column_set {
  column_run<R> copy, gather, middle, scatter, whole;
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

// Bytes that make_columns takes, 64-byte aligned and filled with zero, from *memory.
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
inline constexpr ptrdiff_t columns_together = ptrdiff_t(64 / sizeof(R));
// Longest line that has a column form: its tile is half a megabyte.
inline constexpr int32_t longest_column = 4096;

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

// Room of one kind after another in a plan's memory.
template <class T>
T* take(char** memory, int64_t count) {
  T* p = reinterpret_cast<T*>(*memory);
  *memory += (count * int64_t{sizeof(T)} + 63) / 64 * 64;
  return p;
}

// A radix of 16 as often as needed to save a pass, else 8: how powers of two are taken apart. Returns how
// many there are.
int32_t radices_of_order(int32_t order, int32_t* radix);

}  // namespace zor::dft
