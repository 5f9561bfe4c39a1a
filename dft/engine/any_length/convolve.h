// SPDX-License-Identifier: MIT
// The convolution of a chirp transform. A long padded length, a power of two, is taken apart by one radix of
// 16 into blocks: each block is transformed, multiplied by its part of the spectrum and transformed back
// while it is in cache. On the way in, rows of padding are not read; on the way out, rows behind the wanted
// values are not computed.
#pragma once

#include <cstring>

#include "dft/engine/passes/lanes.h"
#include "dft/engine/plan/transform.h"

namespace zor::dft {

// Whole vectors, then one value at a time.
inline constexpr narrowing whole_vectors{width, width};

// v times values j, j + 1, ... of the chirp.
template <class V, class R>
[[gnu::always_inline]] inline complex_lanes<V> times_chirp(const chirp<R>& c, ptrdiff_t j,
                                                           complex_lanes<V> v) {
  return mul(v, load_lanes<V>(c.chirp_re + j), load_lanes<V>(c.chirp_im + j));
}

// The transform of 16 values of which the last 8 are zero.
template <class V>
[[gnu::always_inline]] inline void dft16_of_half(complex_lanes<V>* x) {
  complex_lanes<V> y[16];
  unrolled<4>([&](auto b) __attribute__((always_inline)) {
    const complex_lanes<V> p = x[b], q = x[4 + b];
    const complex_lanes<V> column[4] = {p + q, {p.re + q.im, p.im - q.re}, p - q, {p.re - q.im, p.im + q.re}};
    unrolled<4>([&](auto a)
                    __attribute__((always_inline)) { y[4 * a + b] = times_root<a * b, 16>(column[a]); });
  });
  unrolled<4>([&](auto a) __attribute__((always_inline)) {
    dft4(y + 4 * a);
    unrolled<4>([&](auto b) __attribute__((always_inline)) { x[a + 4 * b] = y[4 * a + b]; });
  });
}

// Fewer values than a vector has, j to n - 1, and zero behind them; and their store. They end one row of
// many, and so have no copy in each.
template <class V, class Load>
[[gnu::noinline]] complex_lanes<V> load_last(ptrdiff_t n, ptrdiff_t j, const Load& load) {
  using R = real_of<V>;
  complex_lanes<V> v{};
  for (int i = 0; j + i < n; ++i) {
    const complex_lanes<R> one = load.template operator()<R>(j + i);
    v.re[i] = one.re;
    v.im[i] = one.im;
  }
  return v;
}
template <class V, class Store>
[[gnu::noinline]] void store_last(ptrdiff_t n, ptrdiff_t j, const complex_lanes<V>& v, const Store& store) {
  for (int i = 0; j + i < n; ++i) store(j + i, complex_lanes<real_of<V>>{v.re[i], v.im[i]});
}

// Values j to j + W - 1 of n, zero behind the last; and the store of those that exist.
template <class V, class Load>
[[gnu::always_inline]] inline complex_lanes<V> load_until(ptrdiff_t n, ptrdiff_t j, const Load& load) {
  if (j + lane_count<V> <= n) return load.template operator()<V>(j);
  return j < n ? load_last<V>(n, j, load) : complex_lanes<V>{};
}
template <class V, class Store>
[[gnu::always_inline]] inline void store_until(ptrdiff_t n, ptrdiff_t j, complex_lanes<V> v,
                                               const Store& store) {
  if (j + lane_count<V> <= n)
    store(j, v);
  else if (j < n)
    store_last<V>(n, j, v, store);
}

// The first radix of the padded length: its values are 16 rows of L, of which the first `rows` hold the n
// values of the convolution's input, and the results are 16 blocks ready for transforms of length L.
template <class R, int rows, class Load>
void spread_blocks(const chirp<R>& c, ptrdiff_t n, R* re, R* im, Load load) {
  using V = vec<R>;
  const ptrdiff_t l = c.padded / chirp_blocks;
  const R* w = c.twiddles;
  for (ptrdiff_t p = 0; p < l; p += lanes<V>, w += 2 * lanes<V> * 15) {
    complex_lanes<V> u[16];
    unrolled<rows>([&](auto t) __attribute__((always_inline)) { u[t] = load_until<V>(n, p + l * t, load); });
    if constexpr (rows == 8)
      dft16_of_half(u);
    else
      dft<16>(u);
    apply_twiddles<16>(u, w);
    unrolled<16>([&](auto s) __attribute__((always_inline)) {
      store(re + p + l * s, u[s].re);
      store(im + p + l * s, u[s].im);
    });
  }
}

// The last radix on the way back, on exchanged real and imaginary parts: the first n values, which stand in
// `rows` rows.
template <class R, int rows, class Store>
void join_blocks(const chirp<R>& c, ptrdiff_t n, const R* re, const R* im, Store put) {
  using V = vec<R>;
  const ptrdiff_t l = c.padded / chirp_blocks;
  const R* w = c.twiddles;
  for (ptrdiff_t p = 0; p < l; p += lanes<V>, w += 2 * lanes<V> * 15) {
    complex_lanes<V> u[16];
    unrolled<16>([&](auto s) __attribute__((always_inline)) {
      u[s] = {load<V>(im + p + l * s), load<V>(re + p + l * s)};
    });
    apply_twiddles<16>(u, w);
    dft<16>(u);
    unrolled<rows>([&](auto t) __attribute__((always_inline)) {
      store_until(n, p + l * t, complex_lanes<V>{u[t].im, u[t].re}, put);
    });
  }
}

// Products of `count` values with the spectrum's.
template <class R>
void times_spectrum(const R* s_re, const R* s_im, ptrdiff_t count, R* re, R* im) {
  for_vectors<R, whole_vectors>(
      0, count, [&]<int Bytes>(ptrdiff_t k) __attribute__((always_inline)) {
        using V = vec_or_real<R, Bytes>;
        const complex_lanes<V> s = load_complex<form::split, V>(s_re, s_im, k);
        store_complex<form::split>(re, im, k, mul(load_complex<form::split, V>(re, im, k), s.re, s.im));
      });
}

// Every block there and back.
template <class R>
void convolve_blocks(const chirp<R>& c, R* re, R* im, R* work) {
  const ptrdiff_t l = c.padded / chirp_blocks;
  R* const t_re = c.aside ? work : nullptr;
  R* const t_im = work + l;
  R* const rest = c.aside ? work + 2 * l : work;
  for (int s = 0; s < 16; ++s, re += l, im += l) {
    R* const b_re = c.aside ? t_re : re;
    R* const b_im = c.aside ? t_im : im;
    transform_run(*c.inner, pass_data<R>{re, im, b_re, b_im, R(1), R(1), R(1)}, rest);
    times_spectrum(c.spectrum_re + l * s, c.spectrum_im + l * s, l, b_re, b_im);
    transform_run(*c.inner, pass_data<R>{b_im, b_re, im, re, R(1), R(1), R(1)}, rest);
  }
}

// The convolution of n values with the chirp's conjugate: load.operator()<V>(j) gives lanes j on of c x,
// put(j, v) takes those of the sums, which times c are the result, for j below `wanted`. Work as selected;
// its first 2 M reals are a split array of M values, of which load and put may use the places that they are
// asked for.
template <class R, class Load, class Store>
[[gnu::always_inline]] inline void convolve(const chirp<R>& c, ptrdiff_t n, ptrdiff_t wanted, R* work,
                                            Load load, Store put) {
  const ptrdiff_t m = c.padded;
  R *const re = work, *const im = work + m, *const rest = work + 2 * m;
  if (c.twiddles == nullptr) {
    for_vectors<R, whole_vectors>(
        0, n, [&]<int Bytes>(ptrdiff_t j) __attribute__((always_inline)) {
          store_complex<form::split>(re, im, j, load.template operator()<vec_or_real<R, Bytes>>(j));
        });
    std::memset(re + n, 0, size_t(m - n) * sizeof(R));
    std::memset(im + n, 0, size_t(m - n) * sizeof(R));
    transform_run(*c.inner, pass_data<R>{re, im, re, im, R(1), R(1), R(1)}, rest);
    times_spectrum(c.spectrum_re, c.spectrum_im, m, re, im);
    transform_run(*c.inner, pass_data<R>{im, re, im, re, R(1), R(1), R(1)}, rest);
    for_vectors<R, whole_vectors>(
        0, wanted, [&]<int Bytes>(ptrdiff_t j) __attribute__((always_inline)) {
          put(j, load_complex<form::split, vec_or_real<R, Bytes>>(re, im, j));
        });
  } else if (2 * n <= m) {
    spread_blocks<R, 8>(c, n, re, im, load);
    convolve_blocks(c, re, im, rest);
    join_blocks<R, 8>(c, wanted, re, im, put);
  } else {
    spread_blocks<R, 16>(c, n, re, im, load);
    convolve_blocks(c, re, im, rest);
    join_blocks<R, 16>(c, wanted, re, im, put);
  }
}

}  // namespace zor::dft
