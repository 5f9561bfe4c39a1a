// SPDX-License-Identifier: MIT
#include "dft/engine/grid.h"

#include <cstring>

#include "dft/engine/lines.h"
#include "dft/engine/memory.h"
#include "dft/engine/trig.h"

namespace zor::dft {

inline constexpr int32_t most_column_passes = 5;

// One call of a column pass. The tile keeps a row of `columns` values as groups of W real parts and W
// imaginary ones.
template <class R>
struct column_call {
  R* tile;
  ptrdiff_t columns;
  ptrdiff_t span;            // rows between the terms of a butterfly
  ptrdiff_t blocks;          // groups of radix * span rows
  const R* twiddles;         // by row of a block, s from 1: re, im
  const int32_t* frequency;  // last pass: output index of a block's first result
  // Memory: element (row, column) of the tile's columns.
  R *re, *im;
  ptrdiff_t start;  // index of row 0, column 0
  ptrdiff_t row_low_mask, row_low_step, row_shift, row_high_step;
  ptrdiff_t moved_rows, moved_start, moved_low_step,
      moved_high_step;  // rows below moved_rows stand elsewhere
  R sign, scale_re, scale_im;
  const R* grid_twiddles;
};

template <class R>
using column_run = void (*)(const column_call<R>&);

template <class R>
struct column_plan {
  int32_t length, count;
  form outer;
  int32_t radix[most_column_passes];
  const R* twiddles[most_column_passes];
  column_run<R> gather, turned, scatter, rows_out;
  column_run<R> middle[most_column_passes];
  const int32_t* frequency;  // of block b in the last pass
  const int32_t* place;      // tile row of output k
};

namespace {

template <class R>
[[gnu::always_inline]] inline ptrdiff_t row_index(const column_call<R>& c, ptrdiff_t row) {
  const ptrdiff_t low = row & c.row_low_mask, high = row >> c.row_shift;
  if (row < c.moved_rows) return c.moved_start + low * c.moved_low_step + high * c.moved_high_step;
  return c.start + low * c.row_low_step + high * c.row_high_step;
}

template <class V, class R>
[[gnu::always_inline]] inline complex_lanes<V> load_tile(const R* p) {
  return {load_lanes<V>(p), load_lanes<V>(p + lane_count<V>)};
}
template <class V, class R>
[[gnu::always_inline]] inline void store_tile(R* p, complex_lanes<V> v) {
  store_lanes(p, v.re);
  store_lanes(p + lane_count<V>, v.im);
}

// From memory to the tile: rows q + span t, twiddled by w(q s).
template <class R, int r, class V, form F>
void gather_pass(const column_call<R>& c) {
  constexpr int W = lane_count<V>;
  const R* w = c.twiddles;
  for (ptrdiff_t q = 0; q < c.span; ++q, w += 2 * (r - 1)) {
    ptrdiff_t row[r];
    unrolled<r>([&](auto t) __attribute__((always_inline)) { row[t] = row_index(c, q + c.span * t); });
    for (ptrdiff_t j = 0; j < c.columns; j += W) {
      complex_lanes<V> u[r];
      unrolled<r>([&](auto t) __attribute__((always_inline)) {
        u[t] = load_complex<F, V>(c.re, c.im, row[t] + j);
        u[t].im = u[t].im * c.sign;
      });
      dft<r>(u);
      R* const out = c.tile + 2 * (q * c.columns + j);
      store_tile(out, u[0]);
      unrolled<r - 1>([&](auto s) __attribute__((always_inline)) {
        store_tile(out + 2 * c.columns * c.span * (s + 1), multiply(u[s + 1], w[2 * s], w[2 * s + 1]));
      });
    }
  }
}

template <class R, int r, class V>
void tile_pass(const column_call<R>& c) {
  constexpr int W = lane_count<V>;
  for (ptrdiff_t b = 0; b < c.blocks; ++b) {
    const R* w = c.twiddles;
    for (ptrdiff_t q = 0; q < c.span; ++q, w += 2 * (r - 1)) {
      for (ptrdiff_t j = 0; j < c.columns; j += W) {
        R* const p = c.tile + 2 * ((b * r * c.span + q) * c.columns + j);
        complex_lanes<V> u[r];
        unrolled<r>([&](auto t) __attribute__((always_inline)) {
          u[t] = load_tile<V>(p + 2 * c.columns * c.span * t);
        });
        dft<r>(u);
        store_tile(p, u[0]);
        unrolled<r - 1>([&](auto s) __attribute__((always_inline)) {
          store_tile(p + 2 * c.columns * c.span * (s + 1), multiply(u[s + 1], w[2 * s], w[2 * s + 1]));
        });
      }
    }
  }
}

// The last radix within the tile, each result times its grid twiddle.
template <class R, int r, class V>
void turned_pass(const column_call<R>& c) {
  constexpr int W = lane_count<V>;
  const R* w = c.grid_twiddles;
  for (ptrdiff_t b = 0; b < c.blocks; ++b) {
    for (ptrdiff_t j = 0; j < c.columns; j += W, w += 2 * W * r) {
      R* const p = c.tile + 2 * (b * r * c.columns + j);
      complex_lanes<V> u[r];
      unrolled<r>([&](auto t) __attribute__((always_inline)) { u[t] = load_tile<V>(p + 2 * c.columns * t); });
      dft<r>(u);
      unrolled<r>([&](auto s) __attribute__((always_inline)) {
        const complex_lanes<V> turn = load_tile<V>(w + 2 * W * s);
        store_tile(p + 2 * c.columns * s, multiply(u[s], turn.re, turn.im));
      });
    }
  }
}

// The last radix, from the tile to the rows of memory in natural order.
template <class R, int r, class V, form F>
void scatter_pass(const column_call<R>& c) {
  constexpr int W = lane_count<V>;
  for (ptrdiff_t b = 0; b < c.blocks; ++b) {
    const ptrdiff_t row = c.start + c.frequency[b] * c.row_low_step;
    for (ptrdiff_t j = 0; j < c.columns; j += W) {
      const R* const p = c.tile + 2 * (b * r * c.columns + j);
      complex_lanes<V> u[r];
      unrolled<r>([&](auto t) __attribute__((always_inline)) { u[t] = load_tile<V>(p + 2 * c.columns * t); });
      dft<r>(u);
      unrolled<r>([&](auto s) __attribute__((always_inline)) {
        store_complex<F>(c.re, c.im, row + j + s * c.blocks * c.row_low_step,
                         complex_lanes<V>{u[s].re * c.scale_re, u[s].im * c.scale_im});
      });
    }
  }
}

// Columns of the tile to rows of memory, `span` values each; frequency gives the tile row of a value.
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
        store_complex<F>(c.re, c.im, c.start + (j + i) * c.row_low_step + k, complex_lanes<V>{re[i], im[i]});
      });
    }
  }
}

template <class R, int r, class V>
void set_radix(column_plan<R>* p, int32_t i) {
  const bool split = p->outer == form::split;
  if (i == 0) p->gather = split ? gather_pass<R, r, V, form::split> : gather_pass<R, r, V, form::interleaved>;
  p->middle[i] = tile_pass<R, r, V>;
  if (i < p->count - 1) return;
  p->turned = turned_pass<R, r, V>;
  p->scatter = split ? scatter_pass<R, r, V, form::split> : scatter_pass<R, r, V, form::interleaved>;
}

template <class R, class V>
void set_passes(column_plan<R>* p) {
  for (int32_t i = 0; i < p->count; ++i) {
    if (p->radix[i] == 16)
      set_radix<R, 16, V>(p, i);
    else
      set_radix<R, 8, V>(p, i);
  }
  p->rows_out =
      p->outer == form::split ? rows_out_pass<R, V, form::split> : rows_out_pass<R, V, form::interleaved>;
}

// The widest lanes that divide a tile's columns.
template <class R>
int32_t lanes_for(int32_t columns) {
  for (int i = 0; i < pass_widths; ++i)
    if (columns % pass_lanes<R>(i) == 0) return pass_lanes<R>(i);
  return 1;
}

template <class R>
void set_lanes(column_plan<R>* p, int32_t lanes) {
  if (lanes == pass_lanes<R>(0))
    set_passes<R, typename lanes_or_real<R, pass_lanes<R>(0)>::type>(p);
  else if (lanes == pass_lanes<R>(1))
    set_passes<R, typename lanes_or_real<R, pass_lanes<R>(1)>::type>(p);
  else
    set_passes<R, R>(p);
}

template <class T>
T* take(char** memory, int64_t count) {
  T* p = reinterpret_cast<T*>(*memory);
  *memory += (count * int64_t{sizeof(T)} + 63) / 64 * 64;
  return p;
}

int64_t column_bytes(int32_t length, int32_t real_bytes) {
  return 1024 + int64_t{length} * (4 * real_bytes + 8) + 64 * (most_column_passes + 2);
}

template <class R>
column_plan<R>* make_columns(char** memory, int32_t order, form outer, int32_t lanes) {
  auto* p = take<column_plan<R>>(memory, 1);
  p->length = 1 << order;
  p->count = (order + 3) / 4;
  p->outer = outer;
  const int32_t sixteens = order - 3 * p->count;
  ptrdiff_t span = p->length;
  for (int32_t i = 0; i < p->count; ++i) {
    const int32_t r = p->radix[i] = i < sixteens ? 16 : 8;
    const int64_t n = span;
    span /= r;
    R* w = take<R>(memory, 2 * (r - 1) * span);
    p->twiddles[i] = w;
    for (ptrdiff_t q = 0; i < p->count - 1 && q < span; ++q)
      for (int32_t s = 1; s < r; ++s, w += 2) {
        const zor_c64 v = root_of_unity(q * s, n);
        w[0] = R(v.re);
        w[1] = R(v.im);
      }
  }
  const int32_t last = p->radix[p->count - 1];
  const int32_t blocks = p->length / last;
  int32_t* frequency = take<int32_t>(memory, blocks);
  int32_t* place = take<int32_t>(memory, p->length);
  for (int32_t b = 0; b < blocks; ++b) {
    int32_t rest = b, k = 0, weight = blocks;
    for (int32_t i = p->count - 2; i >= 0; --i) {
      weight /= p->radix[i];
      k += rest % p->radix[i] * weight;
      rest /= p->radix[i];
    }
    frequency[b] = k;
    for (int32_t s = 0; s < last; ++s) place[k + blocks * s] = b * last + s;
  }
  p->frequency = frequency;
  p->place = place;
  set_lanes(p, lanes);
  return p;
}

template <class R>
void fill_twiddles(grid<R>* g, R* w, int32_t lanes) {
  const column_plan<R>& p = *g->first;
  const int32_t last = p.radix[p.count - 1], blocks = p.length / last;
  const int64_t n = int64_t{g->side} * g->side * g->middle;
  for (int32_t outer = 0; outer < g->side * g->middle; outer += g->columns)
    for (int32_t b = 0; b < blocks; ++b)
      for (int32_t group = 0; group < g->columns; group += lanes)
        for (int32_t s = 0; s < last; ++s, w += 2 * lanes)
          for (int32_t j = 0; j < lanes; ++j) {
            const zor_c64 v = root_of_unity(int64_t{outer + group + j} * (p.frequency[b] + blocks * s), n);
            w[j] = R(v.re);
            w[lanes + j] = R(v.im);
          }
}

// All radices of a column plan but the last, on a tile being gathered.
template <class R>
void fill_tile(const column_plan<R>& p, column_call<R>* c) {
  c->span = p.length / p.radix[0];
  c->blocks = 1;
  c->twiddles = p.twiddles[0];
  p.gather(*c);
  for (int32_t i = 1; i < p.count; ++i) {
    c->blocks *= p.radix[i - 1];
    c->span /= p.radix[i];
    c->twiddles = p.twiddles[i];
    if (i < p.count - 1) p.middle[i](*c);
  }
  c->frequency = p.frequency;
}

template <class R>
void move_values(const grid<R>& g, const pass_data<R>& ends, ptrdiff_t from, ptrdiff_t to) {
  const size_t bytes = sizeof(R) * size_t(g.columns);
  if (g.first->outer == form::split) {
    std::memcpy(ends.y_re + to, ends.y_re + from, bytes);
    std::memcpy(ends.y_im + to, ends.y_im + from, bytes);
  } else {
    std::memcpy(ends.y_re + 2 * to, ends.y_re + 2 * from, 2 * bytes);
  }
}

// Columns of side values, `tile` along the fastest index and d along the middle one. In place, blocks of
// columns x columns left of the diagonal have been moved across it by earlier tiles, and those right of it
// are moved here.
template <class R>
void first_sweep(const grid<R>& g, const pass_data<R>& ends, R* work, int32_t d, int32_t tile,
                 bool in_place) {
  const ptrdiff_t side = g.side, pitch = side * g.middle, w = g.columns;
  const ptrdiff_t column = tile * w;
  column_call<R> c{};
  c.tile = work;
  c.columns = w;
  c.re = const_cast<R*>(ends.x_re);
  c.im = const_cast<R*>(ends.x_im);
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
  c.grid_twiddles = g.twiddles + 2 * side * (d * side + column);
  g.first->turned(c);
  c.re = ends.y_re;
  c.im = ends.y_im;
  c.start = column * pitch + d * side;
  c.frequency = g.first->place;
  c.span = side;
  g.first->rows_out(c);
}

// Columns of middle * side values at pitch side; value d side + i stands in row i middle + d.
template <class R>
void second_sweep(const grid<R>& g, const pass_data<R>& ends, R* work, int32_t tile) {
  const ptrdiff_t side = g.side;
  column_call<R> c{};
  c.tile = work;
  c.columns = g.columns;
  c.re = ends.y_re;
  c.im = ends.y_im;
  c.start = ptrdiff_t{tile} * g.columns;
  c.row_low_mask = side - 1;
  c.row_shift = __builtin_ctzll(uint64_t(side));
  c.row_low_step = side * g.middle;
  c.row_high_step = side;
  c.sign = 1;
  fill_tile(*g.second, &c);
  c.row_low_step = side;
  c.scale_re = ends.scale_re;
  c.scale_im = ends.scale_im;
  g.second->scatter(c);
}

}  // namespace

template <class R>
bool grid_build(grid<R>* g, int32_t order, int64_t work_bytes, form outer) {
  const int32_t side_order = order / 2;
  g->side = 1 << side_order;
  g->middle = 1 << (order - 2 * side_order);
  const int64_t room = work_bytes / (2 * int64_t{sizeof(R)} * g->side * g->middle);
  g->columns = int32_t(room < 16 ? room : 16);
  const int32_t lanes = lanes_for<R>(g->columns);
  const int64_t values = int64_t{1} << order;
  g->memory = engine_allocate(uint64_t(2 * values * int64_t{sizeof(R)} + column_bytes(g->side, sizeof(R)) +
                                       column_bytes(g->side * g->middle, sizeof(R))));
  if (g->memory == nullptr) return false;
  char* memory = static_cast<char*>(g->memory);
  R* w = take<R>(&memory, 2 * values);
  g->first = make_columns<R>(&memory, side_order, outer, lanes);
  g->second = make_columns<R>(&memory, order - side_order, outer, lanes);
  g->twiddles = w;
  fill_twiddles(g, w, lanes);
  return true;
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
