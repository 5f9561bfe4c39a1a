// SPDX-License-Identifier: MIT
// Long powers of two, cache by cache: the data are a grid of side x middle x side values (middle 1 or 2).
// Tiles of columns are transformed in work along the slowest index, turned and stored as rows; then tiles of
// columns along the other indices. Out of place the data cross memory twice; in place the first sweep also
// moves the blocks it displaces.
#pragma once

#include "dft/engine/columns/columns.h"

namespace zor::dft {

template <class R>
struct grid {
  int32_t side, middle, columns;
  form outer;
  void* memory;
  column_plan<R>* first;   // length side
  column_plan<R>* second;  // length side * middle
  // The last radix of a first column, then the grid's twiddles.
  void (*turned)(const column_call<R>& c, const R* coarse, const R* fine);
  column_run<R> rows_out;  // a tile turned to rows
  // The twiddle of column c + j (c the tile's first) and frequency f is u + u v, u = w(c f), v = w(j f) - 1.
  // Both in the order of the tile's rows: u by tile, as real and imaginary parts and what they miss; v by
  // groups of lanes.
  const R* coarse;
  const R* fine;
};

// Plans 2^order, order from 15 on, for tiles that fit into work_bytes. False when memory is short.
template <class R>
bool grid_build(grid<R>* g, int32_t order, int64_t work_bytes, form outer);
template <class R>
void grid_free(grid<R>* g);
template <class R>
void grid_run(const grid<R>& g, const pass_data<R>& ends, R* work);

}  // namespace zor::dft
