// SPDX-License-Identifier: MIT
// Long powers of two, cache by cache (Bailey's four-step transform): the data are a grid of side x middle x
// side values, middle being 1 or 2. The first sweep transforms tiles of columns along the slowest index in
// work, multiplies them by the grid's twiddles and stores them transposed, as rows; the second transforms
// tiles of columns along the other indices. Out of place the data cross memory twice; in place the first
// sweep also moves the blocks that its rows displace.
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
  // The last radix of the first columns and the grid's twiddles, within the tile.
  void (*twiddled)(const column_call<R>& c, const R* coarse, const R* fine);
  column_run<R> rows_out;  // columns of the tile to rows of memory
  // Column c + j of a tile whose first column is c has the twiddle w((c + j) f) = u + u v at frequency f,
  // with u = w(c f) and v = w(j f) - 1. `coarse` holds u tile by tile, each as real part, imaginary part, and
  // what the two miss of the exact values; `fine` holds v by groups of lanes. Both follow the order of the
  // tile's rows.
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
