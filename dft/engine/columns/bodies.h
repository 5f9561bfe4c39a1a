// SPDX-License-Identifier: MIT
// Bodies of the column passes, included by the files that make their instances, and the choice among the
// instances.
#pragma once

#include "dft/engine/columns/columns.h"
#include "dft/engine/passes/lanes.h"

namespace zor::dft {

template <class R>
[[gnu::always_inline]] inline ptrdiff_t row_index(const column_call<R>& c, ptrdiff_t row) {
  if (c.row_low_mask == -1) return c.start + row * c.row_low_step;
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

// Rows of memory to those of the tile, one after the other; nothing is computed but the sign.
template <class R, class V, form F>
void copy_rows(const column_call<R>& call) {
  const column_call<R> c = call;  // a copy that no store can change
  for (ptrdiff_t i = 0; i < c.rows; ++i) {
    const ptrdiff_t row = row_index(c, i);
    for (ptrdiff_t j = 0; j < c.columns; j += lane_count<V>) {
      complex_lanes<V> v = load_complex<F, V>(c.x_re, c.x_im, row + j);
      v.im = with_sign(v.im, c.sign);
      store_tile(c.tile + 2 * (i * c.columns + j), v);
    }
  }
}

// From memory to the tile: butterflies of rows q + span t, each result s times w(q s).
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
        u[t] = load_complex<F, V>(c.x_re, c.x_im, row[t] + j);
        u[t].im = with_sign(u[t].im, c.sign);
      });
      dft<r>(u);
      R* const out = c.tile + 2 * (q * c.columns + j);
      store_tile(out, u[0]);
      unrolled<r - 1>([&](auto s) __attribute__((always_inline)) {
        store_tile(out + 2 * c.columns * c.span * (s + 1), mul(u[s + 1], w[2 * s], w[2 * s + 1]));
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
          store_tile(p + 2 * c.columns * c.span * (s + 1), mul(u[s + 1], w[2 * s], w[2 * s + 1]));
        });
      }
    }
  }
}

// The last radix, from the tile to the rows of memory in natural order.
template <class R, int r, class V, form F>
void scatter_pass(const column_call<R>& c) {
  constexpr int W = lane_count<V>;
  for (ptrdiff_t b = 0; b < c.blocks; ++b) {
    const ptrdiff_t row = c.out_start + c.frequency[b] * c.out_step;
    for (ptrdiff_t j = 0; j < c.columns; j += W) {
      const R* const p = c.tile + 2 * (b * r * c.columns + j);
      complex_lanes<V> u[r];
      unrolled<r>([&](auto t) __attribute__((always_inline)) { u[t] = load_tile<V>(p + 2 * c.columns * t); });
      dft<r>(u);
      unrolled<r>([&](auto s) __attribute__((always_inline)) {
        store_complex<F>(c.y_re, c.y_im, row + j + s * c.blocks * c.out_step,
                         complex_lanes<V>{u[s].re * c.scale_re, u[s].im * c.scale_im});
      });
    }
  }
}

// A length of one radix.
template <class R, int r, class V, form F>
void whole_pass(const column_call<R>& c) {
  for (ptrdiff_t j = 0; j < c.columns; j += lane_count<V>) {
    complex_lanes<V> u[r];
    unrolled<r>([&](auto t) __attribute__((always_inline)) {
      u[t] = load_complex<F, V>(c.x_re, c.x_im, row_index(c, t) + j);
      u[t].im = with_sign(u[t].im, c.sign);
    });
    dft<r>(u);
    unrolled<r>([&](auto s) __attribute__((always_inline)) {
      store_complex<F>(c.y_re, c.y_im, c.out_start + s * c.out_step + j,
                       complex_lanes<V>{u[s].re * c.scale_re, u[s].im * c.scale_im});
    });
  }
}

template <class R, int r, class V, form F>
constexpr column_set<R> set_of() {
  return {copy_rows<R, V, F>, gather_pass<R, r, V, F>, tile_pass<R, r, V>, scatter_pass<R, r, V, F>, nullptr};
}

// Radices of grids, which split data and narrower vectors run alone.
template <class R, class V, form F>
column_set<R> column_set_of(int32_t radix) {
  if (radix == 8) return set_of<R, 8, V, F>();
  if (radix == 16) return set_of<R, 16, V, F>();
  return {};
}

// Interleaved data at full width: every radix of the table, and straight-line lengths up to 15 as one pass.
template <class R>
column_set<R> full_column_set(int32_t radix) {
  using V = vec<R>;
  constexpr form F = form::interleaved;
  column_set<R> found{};
  with_radix(radix, [&]<int r>(std::integral_constant<int, r>) { found = set_of<R, r, V, F>(); });
  unrolled<14>([&](auto n) {
    if (radix == n + 2) found.whole = whole_pass<R, n + 2, V, F>;
  });
  return found;
}

template <class R, int index>
column_set<R> column_set_at(form outer, int32_t radix) {
  using V = lanes_or_real<R, pass_lanes<R>(index)>;
  return outer == form::split ? column_set_of<R, V, form::split>(radix)
                              : column_set_of<R, V, form::interleaved>(radix);
}

template <class R>
column_set<R> choose_column_set(form outer, int32_t radix, int32_t lanes) {
  if (lanes == pass_lanes<R>(0)) {
    if (outer == form::interleaved) return full_column_set<R>(radix);
    return column_set_at<R, 0>(outer, radix);
  }
  return lanes == pass_lanes<R>(1) ? column_set_at<R, 1>(outer, radix) : column_set_at<R, 2>(outer, radix);
}

}  // namespace zor::dft
