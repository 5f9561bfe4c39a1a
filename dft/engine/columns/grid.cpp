// SPDX-License-Identifier: MIT
// The grid: its two sweeps over tiles of columns, and the tables of its twiddles.
#include "dft/engine/columns/grid.h"

#include <cstring>

#include "dft/engine/columns/bodies.h"
#include "dft/engine/plan/memory.h"
#include "dft/engine/roots/root_table.h"

namespace zor::dft {

namespace {

// The last radix within the tile, each result times its grid twiddle u + u v. The twiddle is computed here
// because a table of all would be as long as the data: reading that costs more than these operations from
// 2^18 values on, and 4 to 9 % less at 2^15 and 2^16, which fit into the second cache together with it. The
// twiddle has the error of one rounding, since v is small and u comes with what its parts miss.
template <class R, int r, class V>
void twiddled_pass(const column_call<R>& c, const R* u, const R* v) {
  constexpr int W = lane_count<V>;
  for (ptrdiff_t b = 0; b < c.blocks; ++b, u += 4 * r) {
    for (ptrdiff_t j = 0; j < c.columns; j += W, v += 2 * W * r) {
      R* const p = c.tile + 2 * (b * r * c.columns + j);
      complex_lanes<V> x[r];
      unrolled<r>([&](auto t) __attribute__((always_inline)) { x[t] = load_tile<V>(p + 2 * c.columns * t); });
      dft<r>(x);
      unrolled<r>([&](auto s) __attribute__((always_inline)) {
        const complex_lanes<V> d = mul(load_tile<V>(v + 2 * W * s), u[4 * s], u[4 * s + 1]);
        store_tile(p + 2 * c.columns * s,
                   mul(x[s], u[4 * s] + (d.re + u[4 * s + 2]), u[4 * s + 1] + (d.im + u[4 * s + 3])));
      });
    }
  }
}

// Columns of the tile to rows of memory of `span` values each; frequency[k] is the tile row of value k.
template <class R, class V, form F>
void rows_out_pass(const column_call<R>& c) {
  constexpr int W = lane_count<V>;
  for (ptrdiff_t j = 0; j < c.columns; j += W) {
    for (ptrdiff_t k = 0; k < c.span; k += W) {
      V re[W], im[W];
      unrolled<W>([&](auto i) __attribute__((always_inline)) {
        const R* p = c.tile + 2 * (c.frequency[k + i] * c.columns + j);
        re[i] = load_lanes<V>(p);
        im[i] = load_lanes<V>(p + W);
      });
      if constexpr (W > 1) {
        transpose_units<1>(re);
        transpose_units<1>(im);
      }
      unrolled<W>([&](auto i) __attribute__((always_inline)) {
        store_complex<F>(c.y_re, c.y_im, c.out_start + (j + i) * c.out_step + k,
                         complex_lanes<V>{re[i], im[i]});
      });
    }
  }
}

template <class R, class V>
void set_passes(grid<R>* g, form outer) {
  const bool wide = g->first->radix[g->first->count - 1] == 16;
  g->twiddled = wide ? twiddled_pass<R, 16, V> : twiddled_pass<R, 8, V>;
  g->rows_out =
      outer == form::split ? rows_out_pass<R, V, form::split> : rows_out_pass<R, V, form::interleaved>;
}

// The widest lanes that divide a tile's columns.
template <class R>
int32_t lanes_for(int32_t columns) {
  for (int i = 0; i < pass_widths; ++i)
    if (columns % pass_lanes<R>(i) == 0) return pass_lanes<R>(i);
  return 1;
}

template <class R>
void set_lanes(grid<R>* g, form outer, int32_t lanes) {
  if (lanes == pass_lanes<R>(0))
    set_passes<R, lanes_or_real<R, pass_lanes<R>(0)>>(g, outer);
  else if (lanes == pass_lanes<R>(1))
    set_passes<R, lanes_or_real<R, pass_lanes<R>(1)>>(g, outer);
  else
    set_passes<R, R>(g, outer);
}

// u of every tile. `roots` holds the roots of the whole length over the columns of a tile.
template <class R>
void fill_coarse(const grid<R>& g, const root_table& roots, R* u) {
  for (int64_t tile = 0; tile < int64_t{g.side} * g.middle / g.columns; ++tile, u += 4 * g.side)
    walk_roots(
        roots, tile,
        g.side, [&](ptrdiff_t f, const root_view& view, int64_t k) __attribute__((always_inline)) {
          const zor_c64 head = view.head(k), tail = view.tail(k);
          R* const w = u + 4 * g.first->place[f];
          w[0] = R(head.re);
          w[1] = R(head.im);
          w[2] = R((head.re - double(w[0])) + tail.re);
          w[3] = R((head.im - double(w[1])) + tail.im);
        });
}

// v of the columns of a tile. `roots` holds the first roots of the whole length, as many as a tile has
// values.
template <class R>
void fill_fine(const grid<R>& g, const wide_root* roots, int32_t lanes, R* v) {
  const int32_t last = g.first->radix[g.first->count - 1];
  for (int32_t f = 0; f < g.side; ++f) {
    const int32_t row = g.first->place[f];
    R* const w = v + 2 * (ptrdiff_t{row / last} * last * g.columns + row % last * lanes);
    for (int32_t j = 0; j < g.columns; ++j) {
      const wide_root& root = roots[j * f];
      R* const to = w + 2 * last * (j / lanes * lanes) + j % lanes;
      to[0] = R((root.head.re - 1.0) + root.tail.re);
      to[lanes] = R(root.head.im);
    }
  }
}

template <class R>
void move_reals(R* y, ptrdiff_t count, ptrdiff_t from, ptrdiff_t to) {
  using V = vec<R>;
  if (count % lanes<V> != 0) {
    std::memcpy(y + to, y + from, sizeof(R) * size_t(count));
    return;
  }
  for (ptrdiff_t i = 0; i < count; i += lanes<V>) store(y + to + i, load<V>(y + from + i));
}

template <class R>
void move_values(const grid<R>& g, const pass_data<R>& ends, ptrdiff_t from, ptrdiff_t to) {
  if (g.outer == form::split) {
    move_reals(ends.y_re, g.columns, from, to);
    move_reals(ends.y_im, g.columns, from, to);
  } else {
    move_reals(ends.y_re, 2 * g.columns, 2 * from, 2 * to);
  }
}

// One tile of columns of `side` values: number `tile` along the fastest index, number d along the middle one.
// In place it writes rows that hold columns of tiles still to come. So each tile, once it is read, moves its
// blocks right of the diagonal across it, and finds those left of the diagonal where earlier tiles have moved
// them.
template <class R>
void first_sweep(const grid<R>& g, const pass_data<R>& ends, R* work, int32_t d, int32_t tile,
                 bool in_place) {
  const ptrdiff_t side = g.side, pitch = side * g.middle, w = g.columns;
  const ptrdiff_t column = tile * w;
  column_call<R> c{};
  c.tile = work;
  c.columns = w;
  c.x_re = ends.x_re;
  c.x_im = ends.x_im;
  c.start = d * side + column;
  c.row_low_mask = w - 1;
  c.row_shift = __builtin_ctzll(uint64_t(w));
  c.row_low_step = pitch;
  c.row_high_step = pitch * w;
  c.moved_rows = in_place ? column : 0;
  c.moved_start = column * pitch + d * side;
  c.moved_low_step = pitch;
  c.moved_high_step = w;
  c.sign = ends.sign;
  fill_tile(*g.first, &c);
  for (ptrdiff_t other = column + w; in_place && other < side; other += w)
    for (ptrdiff_t a = 0; a < w; ++a)
      move_values(g, ends, (column + a) * pitch + d * side + other, (other + a) * pitch + d * side + column);
  g.twiddled(c, g.coarse + 4 * side * (d * side / w + tile), g.fine);
  c.y_re = ends.y_re;
  c.y_im = ends.y_im;
  c.out_start = column * pitch + d * side;
  c.out_step = pitch;
  c.frequency = g.first->place;
  c.span = side;
  g.rows_out(c);
}

// One tile of columns of middle * side values, which are the rows of the grid: value d side + i of a column
// stands in row i middle + d, and rows are `side` apart.
template <class R>
void second_sweep(const grid<R>& g, const pass_data<R>& ends, R* work, int32_t tile) {
  const ptrdiff_t side = g.side;
  column_call<R> c{};
  c.tile = work;
  c.columns = g.columns;
  c.x_re = c.y_re = ends.y_re;
  c.x_im = c.y_im = ends.y_im;
  c.start = c.out_start = ptrdiff_t{tile} * g.columns;
  c.out_step = side;
  c.row_low_mask = side - 1;
  c.row_shift = __builtin_ctzll(uint64_t(side));
  c.row_low_step = side * g.middle;
  c.row_high_step = side;
  c.sign = 1;
  fill_tile(*g.second, &c);
  c.scale_re = ends.scale_re;
  c.scale_im = ends.scale_im;
  g.second->passes[g.second->count - 1].scatter(c);
}

}  // namespace

template <class R>
bool grid_build(grid<R>* g, int32_t order, int64_t work_bytes, form outer) {
  const int32_t side_order = order / 2;
  g->side = 1 << side_order;
  g->middle = 1 << (order - 2 * side_order);
  const int64_t room = work_bytes / (2 * int64_t{sizeof(R)} * g->side * g->middle);
  g->columns = int32_t(room < widest_grid_tile ? room : widest_grid_tile);
  g->outer = outer;
  const int32_t lanes = lanes_for<R>(g->columns);
  const int64_t values = int64_t{1} << order, tile_values = int64_t{g->side} * g->columns;
  const int64_t coarse_size = 4 * (values / g->columns), fine_size = 2 * tile_values;
  const int64_t plans =
      column_plan_bytes(g->side, sizeof(R)) + column_plan_bytes(g->side * g->middle, sizeof(R));
  g->memory =
      engine_allocate_unfilled(uint64_t(plans + (coarse_size + fine_size) * int64_t{sizeof(R)} + 128));
  auto* const near_one =
      static_cast<wide_root*>(engine_allocate_unfilled(uint64_t(tile_values) * sizeof(wide_root)));
  root_table roots{};
  const bool enough = g->memory != nullptr && near_one != nullptr && roots_build(&roots, values / g->columns);
  if (enough) {
    char* memory = static_cast<char*>(std::memset(g->memory, 0, size_t(plans)));
    int32_t radix[most_column_passes];
    int32_t count = radices_of_order(side_order, radix);
    g->first = make_columns<R>(&memory, radix, count, outer, lanes, roots);
    count = radices_of_order(order - side_order, radix);
    g->second = make_columns<R>(&memory, radix, count, outer, lanes, roots);
    set_lanes(g, outer, lanes);
    R* const coarse = take<R>(&memory, coarse_size);
    R* const fine = take<R>(&memory, fine_size);
    fill_coarse(*g, roots, coarse);
    wide_roots_of_unity(values, tile_values, near_one);
    fill_fine(*g, near_one, lanes, fine);
    g->coarse = coarse;
    g->fine = fine;
  }
  roots_free(&roots);
  engine_free(near_one);
  return enough;
}

template <class R>
void grid_free(grid<R>* g) {
  engine_free(g->memory);
  g->memory = nullptr;
}

template <class R>
void grid_run(const grid<R>& g, const pass_data<R>& ends, R* work) {
  const bool in_place = ends.x_re == ends.y_re;
  for (int32_t d = 0; d < g.middle; ++d)
    for (int32_t tile = 0; tile < g.side / g.columns; ++tile) first_sweep(g, ends, work, d, tile, in_place);
  for (int32_t tile = 0; tile < g.side / g.columns; ++tile) second_sweep(g, ends, work, tile);
}

#define ZOR_INSTANCES(R)                                         \
  template bool grid_build<R>(grid<R>*, int32_t, int64_t, form); \
  template void grid_free<R>(grid<R>*);                          \
  template void grid_run<R>(const grid<R>&, const pass_data<R>&, R*);
ZOR_INSTANCES(float)
ZOR_INSTANCES(double)
#undef ZOR_INSTANCES

}  // namespace zor::dft
