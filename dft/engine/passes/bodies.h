// SPDX-License-Identifier: MIT
// Bodies of the passes, included by the files that make their instances, and the choice among the instances.
#pragma once

#include "dft/engine/passes/lanes.h"

namespace zor::dft {

// Lanes p to p + W - 1 of a first pass: butterfly, twiddles, store.
template <class R, int r, class V, form Out>
[[gnu::always_inline]] inline void finish_first(const pass_data<R>& d, const R* w, ptrdiff_t l, ptrdiff_t p,
                                                complex_lanes<V>* u) {
  dft<r>(u);
  apply_twiddles<r>(u, w);
  if constexpr (lane_count<V> == 1) {
    unrolled<r>([&](auto s)
                    __attribute__((always_inline)) { store_complex<Out>(d.y_re, d.y_im, p * r + s, u[s]); });
  } else {
    store_transposed<Out, r>(d.y_re, d.y_im, p, l, u);
  }
}

// Plain data take no sign: theirs is 1.
template <class R, int r, class V, form In, form Out, bool Plain = false>
[[gnu::always_inline]] inline void first_body(const pass_data<R>& d, const R* w, ptrdiff_t l) {
  constexpr int W = lane_count<V>;
  for (ptrdiff_t i = 0; i < l; i += W, w += 2 * W * (r - 1)) {
    const ptrdiff_t p = i + W <= l ? i : l - W;
    complex_lanes<V> u[r];
    unrolled<r>([&](auto t) __attribute__((always_inline)) {
      u[t] = load_complex<In, V>(d.x_re, d.x_im, p + l * t);
      if constexpr (In == form::interleaved && !Plain) u[t].im = with_sign(u[t].im, d.sign);
    });
    finish_first<R, r, V, Out>(d, w, l, p, u);
  }
}

template <class R, int r, class V, form In, form Out>
void first_pass(const pass_data<R>& d, const pass<R>& self) {
  first_body<R, r, V, In, Out>(d, self.twiddles, self.l);
}

template <class R, int r, class V, form F>
void middle_pass(const pass_data<R>& d, const pass<R>& self) {
  constexpr int W = lane_count<V>;
  const ptrdiff_t l = self.l, m = self.m;
  const R* w = self.twiddles;
  for (ptrdiff_t p = 0; p < l; ++p, w += 2 * (r - 1)) {
    for (ptrdiff_t i = 0; i < m; i += W) {
      const ptrdiff_t q = i + W <= m ? i : m - W;
      complex_lanes<V> u[r];
      unrolled<r>([&](auto t) __attribute__((always_inline)) {
        u[t] = load_complex<F, V>(d.x_re, d.x_im, q + m * (p + l * t));
      });
      dft<r>(u);
      unrolled<r - 1>([&](auto s) __attribute__((always_inline)) {
        u[s + 1] = mul(u[s + 1], w[2 * s], w[2 * s + 1]);
      });
      unrolled<r>([&](auto s) __attribute__((always_inline)) {
        store_complex<F>(d.y_re, d.y_im, q + m * (r * p + s), u[s]);
      });
    }
  }
}

// May run in place when both forms are blocked or interleaved and the lanes divide m.
template <class R, int r, class V, form In, form Out, bool Plain = false>
[[gnu::always_inline]] inline void last_body(const pass_data<R>& d, ptrdiff_t m) {
  constexpr int W = lane_count<V>;
  for (ptrdiff_t i = 0; i < m; i += W) {
    const ptrdiff_t q = i + W <= m ? i : m - W;
    complex_lanes<V> u[r];
    unrolled<r>([&](auto t) __attribute__((always_inline)) {
      u[t] = load_complex<In, V>(d.x_re, d.x_im, q + m * t);
    });
    dft<r>(u);
    unrolled<r>([&](auto s) __attribute__((always_inline)) {
      if constexpr (Out == form::interleaved && !Plain) u[s] = {u[s].re * d.scale_re, u[s].im * d.scale_im};
      store_complex<Out>(d.y_re, d.y_im, q + m * s, u[s]);
    });
  }
}

template <class R, int r, class V, form In, form Out>
void last_pass(const pass_data<R>& d, const pass<R>& self) {
  last_body<R, r, V, In, Out>(d, self.m);
}

// Any odd radix, at any position, by the formula of prime_dft. The table holds cos and sin of 2 pi e / r; the
// index e = j k is walked modulo r.
template <class R, class V>
[[gnu::always_inline]] inline void generic_dft(int r, const R* table, const complex_lanes<V>* x,
                                               complex_lanes<V>* y) {
  const int h = (r - 1) / 2;
  complex_lanes<V> s[largest_generic / 2 + 1], d[largest_generic / 2 + 1];
  complex_lanes<V> total = x[0];
  for (int j = 1; j <= h; ++j) {
    s[j] = x[j] + x[r - j];
    d[j] = x[j] - x[r - j];
    total = total + s[j];
  }
  y[0] = total;
  for (int k = 1; k <= h; ++k) {
    complex_lanes<V> a = x[0];
    complex_lanes<V> b = {d[1].re * table[2 * k + 1], d[1].im * table[2 * k + 1]};
    a.re = a.re + s[1].re * table[2 * k];
    a.im = a.im + s[1].im * table[2 * k];
    for (int j = 2, e = 2 * k; j <= h; ++j, e += k) {
      if (e >= r) e -= r;
      const R c = table[2 * e], v = table[2 * e + 1];
      a.re = a.re + s[j].re * c;
      a.im = a.im + s[j].im * c;
      b.re = b.re + d[j].re * v;
      b.im = b.im + d[j].im * v;
    }
    y[k] = {a.re + b.im, a.im - b.re};
    y[r - k] = {a.re - b.im, a.im + b.re};
  }
}

template <class R, class V, form In, form Out, position At>
void generic_pass(const pass_data<R>& d, const pass<R>& self) {
  constexpr int W = lane_count<V>;
  const ptrdiff_t l = self.l, m = self.m;
  const int r = self.radix;
  const R* w = self.twiddles;
  complex_lanes<V> x[largest_generic], y[largest_generic];
  for (ptrdiff_t p = 0; p < l; ++p, w += 2 * (r - 1)) {
    for (ptrdiff_t i = 0; i < m; i += W) {
      const ptrdiff_t q = i + W <= m ? i : m - W;
      for (int t = 0; t < r; ++t) {
        x[t] = load_complex<In, V>(d.x_re, d.x_im, q + m * (p + l * t));
        if constexpr (At == position::first && In != form::split) x[t].im = with_sign(x[t].im, d.sign);
      }
      generic_dft<R, V>(r, self.cosines, x, y);
      for (int s = 0; s < r; ++s) {
        complex_lanes<V> v = y[s];
        if constexpr (At == position::last) {
          if constexpr (Out != form::split) v = {v.re * d.scale_re, v.im * d.scale_im};
        } else if (s > 0) {
          v = mul(v, w[2 * (s - 1)], w[2 * (s - 1) + 1]);
        }
        store_complex<Out>(d.y_re, d.y_im, q + m * (r * p + s), v);
      }
    }
  }
}

// A whole transform as one butterfly on plain reals.
template <class R, int N, form F>
void straight_pass(const pass_data<R>& d, const pass<R>&) {
  complex_lanes<R> x[N];
  unrolled<N>([&](auto j) __attribute__((always_inline)) {
    if constexpr (F == form::split)
      x[j] = {d.x_re[j], d.x_im[j]};
    else
      x[j] = {d.x_re[2 * j], d.x_re[2 * j + 1]};
    x[j].im = with_sign(x[j].im, d.sign);
  });
  dft<N>(x);
  unrolled<N>([&](auto k) __attribute__((always_inline)) {
    const R re = x[k].re * d.scale_re, im = x[k].im * d.scale_im;
    if constexpr (F == form::split) {
      d.y_re[k] = re;
      d.y_im[k] = im;
    } else {
      d.y_re[2 * k] = re;
      d.y_re[2 * k + 1] = im;
    }
  });
}

template <class R, int index>
using pass_vector = lanes_or_real<R, pass_lanes<R>(index)>;

// The blocked form has passes for powers of two alone, of radix 16 and 8.
template <class R, int r, class V>
pass_run<R> first_to_blocked(form outer) {
  return outer == form::blocked ? first_pass<R, r, V, form::blocked, form::blocked>
                                : first_pass<R, r, V, form::interleaved, form::blocked>;
}

template <class R, int index>
pass_run<R> first_of(form outer, form inner, int32_t radix) {
  using V = pass_vector<R, index>;
  if (inner == form::blocked) {
    constexpr int W = lane_count<V>;
    if constexpr (W > 1 && 16 % W == 0)
      if (radix == 16) return first_to_blocked<R, 16, V>(outer);
    if constexpr (W > 1 && 8 % W == 0)
      if (radix == 8) return first_to_blocked<R, 8, V>(outer);
    return nullptr;
  }
  pass_run<R> found = nullptr;
  with_radix(radix, [&]<int r>(std::integral_constant<int, r>) {
    found = outer == form::split ? first_pass<R, r, V, form::split, form::split>
                                 : first_pass<R, r, V, form::interleaved, form::split>;
  });
  if (found != nullptr) return found;
  if constexpr (lane_count<V> == 1)
    return outer == form::split ? generic_pass<R, V, form::split, form::split, position::first>
                                : generic_pass<R, V, form::interleaved, form::split, position::first>;
  return nullptr;
}

template <class R, int index>
pass_run<R> middle_of(form inner, int32_t radix) {
  using V = pass_vector<R, index>;
  if (inner == form::blocked) {
    if constexpr (lane_count < V >> 1) {
      if (radix == 16) return middle_pass<R, 16, V, form::blocked>;
      if (radix == 8) return middle_pass<R, 8, V, form::blocked>;
    }
    return nullptr;
  }
  pass_run<R> found = generic_pass<R, V, form::split, form::split, position::middle>;
  with_radix(radix,
             [&]<int r>(std::integral_constant<int, r>) { found = middle_pass<R, r, V, form::split>; });
  return found;
}

template <class R, int r, class V>
pass_run<R> last_from_blocked(form outer) {
  return outer == form::blocked ? last_pass<R, r, V, form::blocked, form::blocked>
                                : last_pass<R, r, V, form::blocked, form::interleaved>;
}

template <class R, int index>
pass_run<R> last_of(form inner, form outer, int32_t radix) {
  using V = pass_vector<R, index>;
  if (inner == form::blocked) {
    if constexpr (lane_count < V >> 1) {
      if (radix == 16) return last_from_blocked<R, 16, V>(outer);
      if (radix == 8) return last_from_blocked<R, 8, V>(outer);
    }
    return nullptr;
  }
  pass_run<R> found = outer == form::split
                          ? generic_pass<R, V, form::split, form::split, position::last>
                          : generic_pass<R, V, form::split, form::interleaved, position::last>;
  with_radix(radix, [&]<int r>(std::integral_constant<int, r>) {
    found = outer == form::split ? last_pass<R, r, V, form::split, form::split>
                                 : last_pass<R, r, V, form::split, form::interleaved>;
  });
  return found;
}

}  // namespace zor::dft
