// SPDX-License-Identifier: MIT
// Bodies of the passes of tiles, included by the files that make their instances.
#pragma once

#include "conv/tiles/passes.h"
#include "dft/engine/passes/lanes.h"

namespace zor::conv {

using dft::form;

enum class tile_way { forward, backward };

template <class R, int r, tile_way Way, bool Twiddled, form In, form Out>
void run_blocks(const tile_pass<R>& pass, const tile_range<R>& range) {
  using V = vec<R>;
  const tile_pass<R> p = pass;  // copies that no store can change
  const tile_range<R> d = range;
  zor_int at = d.first % p.blocks;
  for (zor_int b = d.first; b < d.first + d.count; ++b) {
    const R* const w = p.twiddles + at * 2 * (r - 1);
    if (++at == p.blocks) at = 0;
    const zor_int base = b * r * p.span;
    for (zor_int q = base + d.begin; q < base + d.end; q += lanes<V>) {
      complex_lanes<V> u[r];
      const auto twiddle = [&]() __attribute__((always_inline)) {
        if constexpr (Twiddled)
          dft::unrolled<r - 1>([&](auto s) __attribute__((always_inline)) {
            u[s + 1] = mul(u[s + 1], w[2 * s], w[2 * s + 1]);
          });
      };
      dft::unrolled<r>([&](auto t) __attribute__((always_inline)) {
        u[t] = dft::load_complex<In, V>(d.x_re, d.x_im, q + p.span * t);
      });
      if (Way == tile_way::forward) twiddle();
      dft::dft<r>(u);
      if (Way == tile_way::backward) twiddle();
      dft::unrolled<r>([&](auto t) __attribute__((always_inline)) {
        if constexpr (Way == tile_way::backward && Out == form::interleaved) std::swap(u[t].re, u[t].im);
        dft::store_complex<Out>(d.y_re, d.y_im, q + p.span * t, u[t]);
      });
    }
  }
}

// Lane i of u[s] is value s of block first + i.
template <class V, class R>
[[gnu::always_inline]] inline void load_leaves(const R* re, const R* im, zor_int first, complex_lanes<V>* u) {
  V parts[2][leaf_radix];
  dft::load_transposed<leaf_radix>(re, first, first + lanes<V>, parts[0]);
  dft::load_transposed<leaf_radix>(im, first, first + lanes<V>, parts[1]);
  dft::unrolled<leaf_radix>([&](auto s) __attribute__((always_inline)) {
    u[s] = {parts[0][s], parts[1][s]};
  });
}

template <class R>
const R* leaf_twiddles(const tile_plan<R>& p, zor_int first) {
  return p.leaf + first / lanes_of<R> % p.leaf_groups * (2 * (leaf_radix - 1) * lanes_of<R>);
}

template <class R>
void transform_leaves(const tile_plan<R>& p, zor_int first, zor_int count, const R* re, const R* im,
                      R* spectrum) {
  using V = vec<R>;
  constexpr zor_int W = lanes<V>;
  const R scale = R(1) / R(p.points);
  for (zor_int b = first; b < first + count; b += W) {
    complex_lanes<V> u[leaf_radix];
    load_leaves<V>(re, im, b, u);
    dft::apply_twiddles<leaf_radix>(u, leaf_twiddles(p, b));
    dft::dft<leaf_radix>(u);
    R* const out = spectrum + 2 * leaf_radix * b;
    dft::unrolled<leaf_radix>([&](auto s) __attribute__((always_inline)) {
      store<V>(out + 2 * W * s, u[s].re * scale);
      store<V>(out + 2 * W * s + W, u[s].im * scale);
    });
  }
}

template <class R>
void multiply_leaves(const tile_plan<R>& p, zor_int first, zor_int count, const R* spectrum, R* re, R* im) {
  using V = vec<R>;
  constexpr zor_int W = lanes<V>;
  for (zor_int b = first; b < first + count; b += W) {
    const R *const w = leaf_twiddles(p, b), *const h = spectrum + 2 * leaf_radix * b;
    complex_lanes<V> u[leaf_radix];
    load_leaves<V>(re, im, b, u);
    dft::apply_twiddles<leaf_radix>(u, w);
    dft::dft<leaf_radix>(u);
    dft::unrolled<leaf_radix>([&](auto s) __attribute__((always_inline)) {
      u[s] = mul(u[s], load<V>(h + 2 * W * s), load<V>(h + 2 * W * s + W));
      std::swap(u[s].re, u[s].im);
    });
    dft::dft<leaf_radix>(u);
    dft::apply_twiddles<leaf_radix>(u, w);
    dft::store_transposed<form::split, leaf_radix>(im, re, b, b + W, u);
  }
}

template <form In, form Out, class R>
void copy_values(zor_int count, const R* x_re, const R* x_im, R* y_re, R* y_im) {
  using V = vec<R>;
  zor_int i = 0;
  for (; i + lanes<V> <= count; i += lanes<V>)
    dft::store_complex<Out>(y_re, y_im, i, dft::load_complex<In, V>(x_re, x_im, i));
  for (; i < count; ++i) dft::store_complex<Out>(y_re, y_im, i, dft::load_complex<In, R>(x_re, x_im, i));
}
template <class R>
void copy_to_parts(zor_int count, const R* pairs, const R* none, R* re, R* im) {
  copy_values<form::interleaved, form::split>(count, pairs, none, re, im);
}
template <class R>
void copy_to_pairs(zor_int count, const R* re, const R* im, R* pairs, R* none) {
  copy_values<form::split, form::interleaved>(count, re, im, pairs, none);
}

template <class R, int r>
constexpr tile_pass_set<R> passes_of_radix() {
  constexpr form apart = form::split, pairs = form::interleaved;
  constexpr tile_way there = tile_way::forward, back = tile_way::backward;
  return {run_blocks<R, r, there, true, apart, apart>,  run_blocks<R, r, back, true, apart, apart>,
          run_blocks<R, r, there, false, apart, apart>, run_blocks<R, r, back, false, apart, apart>,
          run_blocks<R, r, there, false, pairs, apart>, run_blocks<R, r, back, false, apart, pairs>};
}
template <class R, size_t... I>
tile_pass_set<R> find_among(int32_t radix, std::index_sequence<I...>) {
  tile_pass_set<R> found = {};
  ((radix == tile_radices[I] ? void(found = passes_of_radix<R, tile_radices[I]>()) : void()), ...);
  return found;
}

#define ZOR_TILE_PASSES(R)                                                                          \
  template <>                                                                                       \
  tile_pass_set<R> find_tile_passes<R>(int32_t radix) {                                             \
    return find_among<R>(radix, std::make_index_sequence<tile_radix_count>());                      \
  }                                                                                                 \
  template void transform_leaves<R>(const tile_plan<R>&, zor_int, zor_int, const R*, const R*, R*); \
  template void multiply_leaves<R>(const tile_plan<R>&, zor_int, zor_int, const R*, R*, R*);        \
  template void copy_to_parts<R>(zor_int, const R*, const R*, R*, R*);                              \
  template void copy_to_pairs<R>(zor_int, const R*, const R*, R*, R*);

}  // namespace zor::conv
