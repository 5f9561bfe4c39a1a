// SPDX-License-Identifier: MIT
// Loads and stores of complex lanes in the three forms of pass data.
#pragma once

#include "dft/engine/passes/pass.h"

namespace zor::dft {

// A vector of W reals, or the plain real for one.
template <class R, int W>
using lanes_or_real = vec_or_real<R, W* int(sizeof(R))>;

template <class R>
[[gnu::always_inline]] inline ptrdiff_t blocked_index(ptrdiff_t j) {
  return 2 * j - (j & (lanes_of<R> - 1));
}

template <class V, class R>
[[gnu::always_inline]] inline V load_lanes(const R* p) {
  if constexpr (lane_count<V> == 1)
    return *p;
  else
    return load<V>(p);
}
template <class V, class R>
[[gnu::always_inline]] inline void store_lanes(R* p, V v) {
  if constexpr (lane_count<V> == 1)
    *p = v;
  else
    store(p, v);
}

// v times 1 or -1. Only the sign bit changes: a product would flush denormals where the caller's mode asks
// for it, and bits would then depend on which pass reads a value first.
template <class V, class R>
[[gnu::always_inline]] inline V with_sign(V v, R sign) {
  if constexpr (lane_count<V> == 1)
    return sign < 0 ? -v : v;
  else
    return V(bits_t<V>(v) ^ (bits_t<V>(broadcast<V>(sign)) & bits_t<V>(broadcast<V>(R(-0.0)))));
}

template <form F, class V, class R>
[[gnu::always_inline]] inline complex_lanes<V> load_complex(const R* re, const R* im, ptrdiff_t j) {
  if constexpr (F == form::split) {
    return {load_lanes<V>(re + j), load_lanes<V>(im + j)};
  } else if constexpr (F == form::blocked) {
    const R* p = re + blocked_index<R>(j);
    return {load_lanes<V>(p), load_lanes<V>(p + lanes_of<R>)};
  } else if constexpr (lane_count<V> == 1) {
    return {re[2 * j], re[2 * j + 1]};
  } else {
    const V a = load<V>(re + 2 * j), b = load<V>(re + 2 * j + lane_count<V>);
    return {unzip<0>(a, b), unzip<1>(a, b)};
  }
}

template <form F, class V, class R>
[[gnu::always_inline]] inline void store_complex(R* re, R* im, ptrdiff_t j, complex_lanes<V> v) {
  if constexpr (F == form::split) {
    store_lanes(re + j, v.re);
    store_lanes(im + j, v.im);
  } else if constexpr (F == form::blocked) {
    R* p = re + blocked_index<R>(j);
    store_lanes(p, v.re);
    store_lanes(p + lanes_of<R>, v.im);
  } else if constexpr (lane_count<V> == 1) {
    re[2 * j] = v.re;
    re[2 * j + 1] = v.im;
  } else {
    store(re + 2 * j, zip_low(v.re, v.im));
    store(re + 2 * j + lane_count<V>, zip_high(v.re, v.im));
  }
}

// The last value in lane 0.
template <class V>
[[gnu::always_inline]] inline complex_lanes<V> reversed(complex_lanes<V> v) {
  if constexpr (lane_count<V> == 1)
    return v;
  else
    return {reverse_lanes(v.re), reverse_lanes(v.im)};
}

// P vectors of W lanes become W chunks of P lanes: chunk i holds lane i of every vector, in their order.
template <int P, class V>
[[gnu::always_inline]] inline void chunk_lanes(V* rows) {
#pragma GCC unroll 4
  for (int round = 1; round < P; round *= 2) {
    V from[P];
    unrolled<P>([&](auto k) __attribute__((always_inline)) { from[k] = rows[k]; });
    unrolled<P / 2>([&](auto k) __attribute__((always_inline)) {
      rows[2 * k] = zip_low(from[k], from[k + P / 2]);
      rows[2 * k + 1] = zip_high(from[k], from[k + P / 2]);
    });
  }
}
template <int I, int P, class V, class R>
[[gnu::always_inline]] inline void store_chunk(R* p, const V* rows) {
  constexpr int per_vector = lane_count<V> / P;
  if constexpr (P == 1)
    *p = rows[0][I];
  else
    store(p, slice<P* int(sizeof(R)), I % per_vector>(rows[I / per_vector]));
}

// Stores result s of lane i at y(r (p + i) + s), for the r results of W lanes. Stores follow the order of
// addresses. The results of a lane are written as whole vectors, the last few of them as a chunk where half a
// vector is enough; where these do not divide r, the last store of a lane runs into the place of the next
// lane, which is written after it. Stores that would run past the last of all `count` lanes write their own
// values only.
template <form Out, int r, class V, class R>
[[gnu::always_inline]] inline void store_transposed(R* re, R* im, ptrdiff_t p, ptrdiff_t count,
                                                    const complex_lanes<V>* u) {
  constexpr int W = lane_count<V>, rest = r % W;
  constexpr int P = rest == 0 || rest > 8 ? W : rest > 4 ? 8 : rest > 2 ? 4 : rest;
  constexpr bool chunked = Out == form::split && P <= W / 2;
  constexpr int groups = chunked ? r / W : (r + W - 1) / W;
  const bool exact = (p + W - 1) * r + groups * W + (chunked ? P : 0) > count * r;
  static_assert(Out == form::split || rest == 0);
  V tr[groups + 1][W], ti[groups + 1][W];
  unrolled<groups * W>([&](auto i) __attribute__((always_inline)) {
    tr[i / W][i % W] = u[i < r ? i : r - 1].re;
    ti[i / W][i % W] = u[i < r ? i : r - 1].im;
  });
  unrolled<groups>([&](auto g) __attribute__((always_inline)) {
    transpose_units<1>(tr[g]);
    transpose_units<1>(ti[g]);
  });
  if constexpr (chunked) {
    unrolled<P>([&](auto i) __attribute__((always_inline)) {
      constexpr int s = groups * W + i;
      tr[groups][i] = u[s < r ? s : r - 1].re;
      ti[groups][i] = u[s < r ? s : r - 1].im;
    });
    chunk_lanes<P>(tr[groups]);
    chunk_lanes<P>(ti[groups]);
  }
  unrolled<W>([&](auto i) __attribute__((always_inline)) {
    unrolled<groups>([&](auto g) __attribute__((always_inline)) {
      constexpr int left = (W - i) * r - g * W;
      const ptrdiff_t j = (p + i) * r + g * W;
      if (left < W && exact) {
        store_partial(re + j, left < W ? left : W, tr[g][i]);
        store_partial(im + j, left < W ? left : W, ti[g][i]);
      } else {
        store_complex<Out>(re, im, j, complex_lanes<V>{tr[g][i], ti[g][i]});
      }
    });
    if constexpr (chunked) {
      const ptrdiff_t j = (p + i) * r + groups * W;
      if ((W - i) * r < groups * W + P && exact) {
        for (int s = 0; s < rest; ++s) {
          re[j + s] = u[groups * W + s].re[int(i)];
          im[j + s] = u[groups * W + s].im[int(i)];
        }
      } else {
        store_chunk<i, P>(re + j, tr[groups]);
        store_chunk<i, P>(im + j, ti[groups]);
      }
    }
  });
}

template <int r, class V, class R>
[[gnu::always_inline]] inline void apply_twiddles(complex_lanes<V>* u, const R* w) {
  unrolled<r - 1>([&](auto s) __attribute__((always_inline)) {
    constexpr int W = lane_count<V>;
    u[s + 1] = mul(u[s + 1], load_lanes<V>(w + 2 * W * s), load_lanes<V>(w + 2 * W * s + W));
  });
}

// The reverse for one part in split form: lane i of u[s] is x(r (p + i) + s). Nothing behind the last of all
// `count` lanes is read.
template <int r, class V, class R>
[[gnu::always_inline]] inline void load_transposed(const R* x, ptrdiff_t p, ptrdiff_t count, V* u) {
  constexpr int W = lane_count<V>, groups = (r + W - 1) / W;
  const bool exact = (p + W - 1) * r + groups * W > count * r;
  unrolled<groups>([&](auto g) __attribute__((always_inline)) {
    V rows[W];
    unrolled<W>([&](auto i) __attribute__((always_inline)) {
      constexpr int left = (W - i) * r - g * W;
      const R* from = x + (p + i) * r + g * W;
      if (left < W && exact)
        rows[i] = load_partial<V>(from, left < W ? left : W, *from);
      else
        rows[i] = load<V>(from);
    });
    transpose_units<1>(rows);
    unrolled<W>([&](auto i) __attribute__((always_inline)) {
      if constexpr (g * W + i < r) u[g * W + i] = rows[i];
    });
  });
}

}  // namespace zor::dft
