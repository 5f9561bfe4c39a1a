// SPDX-License-Identifier: MIT
// Mixed-radix transforms of real data of odd length: a real pass of one radix, then a batch of complex
// transforms of half of its results.
#include <cstring>

#include "dft/engine/passes/lanes.h"
#include "dft/engine/plan/memory.h"
#include "dft/engine/real/real.h"
#include "dft/engine/roots/root_table.h"

namespace zor::dft {
namespace {

// Values 0 to (r - 1) / 2 of the transform of r reals: with s(j) = x(j) + x(r-j) and d(j) = x(j) - x(r-j),
// value k is x(0) + sum s(j) cos(2 pi j k / r) - i sum d(j) sin(2 pi j k / r), both sums in the order of j.
template <int r, class V>
[[gnu::always_inline]] inline void real_dft(const V* x, complex_lanes<V>* u) {
  using R = real_of<V>;
  constexpr int h = (r - 1) / 2;
  V s[h], d[h];
  V total = x[0];
  unrolled<h>([&](auto j) __attribute__((always_inline)) {
    s[j] = x[j + 1] + x[r - 1 - j];
    d[j] = x[j + 1] - x[r - 1 - j];
    total = total + s[j];
  });
  u[0] = {total, V{}};
  unrolled<h>([&](auto k) __attribute__((always_inline)) {
    V a = x[0], b;
    unrolled<h>([&](auto j) __attribute__((always_inline)) {
      constexpr zor_c64 w = dd::constant_root((j + 1) * (k + 1), r);
      constexpr R re = R(w.re), im = R(w.im);
      a = a + s[j] * re;
      if constexpr (j == 0)
        b = d[j] * im;
      else
        b = b + d[j] * im;
    });
    u[k + 1] = {a, b};
  });
}

// The r reals of a half spectrum: the transform backward, which divides by nothing.
template <int r, class V>
[[gnu::always_inline]] inline void real_inverse(const complex_lanes<V>* u, V* x) {
  using R = real_of<V>;
  constexpr int h = (r - 1) / 2;
  V total = u[0].re;
  complex_lanes<V> twice[h];
  unrolled<h>([&](auto k) __attribute__((always_inline)) {
    twice[k] = {u[k + 1].re + u[k + 1].re, u[k + 1].im + u[k + 1].im};
    total = total + twice[k].re;
  });
  x[0] = total;
  unrolled<h>([&](auto j) __attribute__((always_inline)) {
    V a = u[0].re, b;
    unrolled<h>([&](auto k) __attribute__((always_inline)) {
      constexpr zor_c64 w = dd::constant_root((j + 1) * (k + 1), r);
      constexpr R re = R(w.re), im = R(w.im);
      a = a + twice[k].re * re;
      if constexpr (k == 0)
        b = twice[k].im * im;
      else
        b = b + twice[k].im * im;
    });
    x[j + 1] = a + b;
    x[r - 1 - j] = a - b;
  });
}

template <class R, int r, class V>
void first_forward(const odd_chain<R>& c, const R* x, R* re, R* im) {
  constexpr int W = lane_count<V>, kept = (r + 1) / 2;
  const R* w = c.twiddles;
  for (ptrdiff_t i = 0; i < c.m; i += W, w += 2 * W * (kept - 1)) {
    const ptrdiff_t p = i + W <= c.m ? i : c.m - W;
    V v[r];
    complex_lanes<V> u[kept];
    unrolled<r>([&](auto t) __attribute__((always_inline)) { v[t] = load_lanes<V>(x + p + c.m * t); });
    real_dft<r>(v, u);
    apply_twiddles<kept>(u, w);
    if constexpr (W == 1) {
      unrolled<kept>([&](auto s) __attribute__((always_inline)) {
        re[p * kept + s] = u[s].re;
        im[p * kept + s] = u[s].im;
      });
    } else {
      store_transposed<form::split, kept>(re, im, p, c.m, u);
    }
  }
}

// The batch leaves conjugates, so that the forward twiddles serve; imaginary parts change sign after them.
template <class R, int r, class V>
void last_backward(const odd_chain<R>& c, const R* re, const R* im, R* y, R scale) {
  constexpr int W = lane_count<V>, kept = (r + 1) / 2;
  const R* w = c.twiddles;
  for (ptrdiff_t i = 0; i < c.m; i += W, w += 2 * W * (kept - 1)) {
    const ptrdiff_t p = i + W <= c.m ? i : c.m - W;
    V u_re[kept], u_im[kept], v[r];
    if constexpr (W == 1) {
      unrolled<kept>([&](auto s) __attribute__((always_inline)) {
        u_re[s] = re[p * kept + s];
        u_im[s] = im[p * kept + s];
      });
    } else {
      load_transposed<kept>(re, p, c.m, u_re);
      load_transposed<kept>(im, p, c.m, u_im);
    }
    complex_lanes<V> u[kept];
    unrolled<kept>([&](auto s) __attribute__((always_inline)) { u[s] = {u_re[s], u_im[s]}; });
    apply_twiddles<kept>(u, w);
    unrolled<kept>([&](auto s) __attribute__((always_inline)) { u[s].im = -u[s].im; });
    real_inverse<r>(u, v);
    unrolled<r>([&](auto t) __attribute__((always_inline)) { store_lanes(y + p + c.m * t, v[t] * scale); });
  }
}

// Any odd radix, one column at a time.
template <class R>
void generic_forward(const odd_chain<R>& c, const R* x, R* re, R* im) {
  const int32_t r = c.radix, h = r / 2;
  const R* w = c.twiddles;
  for (ptrdiff_t p = 0; p < c.m; ++p, w += 2 * h) {
    R s[largest_generic], d[largest_generic];
    R total = x[p];
    for (int32_t j = 1; j <= h; ++j) {
      s[j] = x[p + c.m * j] + x[p + c.m * (r - j)];
      d[j] = x[p + c.m * j] - x[p + c.m * (r - j)];
      total = total + s[j];
    }
    re[p * c.kept] = total;
    im[p * c.kept] = R(0);
    for (int32_t k = 1; k <= h; ++k) {
      complex_lanes<R> u = {x[p], R(0)};
      for (int32_t j = 1, e = k; j <= h; ++j, e = e + k >= r ? e + k - r : e + k) {
        u.re = u.re + s[j] * c.cosines[2 * e];
        u.im = u.im - d[j] * c.cosines[2 * e + 1];
      }
      u = mul(u, w[2 * k - 2], w[2 * k - 1]);
      re[p * c.kept + k] = u.re;
      im[p * c.kept + k] = u.im;
    }
  }
}
template <class R>
void generic_backward(const odd_chain<R>& c, const R* re, const R* im, R* y, R scale) {
  const int32_t r = c.radix, h = r / 2;
  const R* w = c.twiddles;
  for (ptrdiff_t p = 0; p < c.m; ++p, w += 2 * h) {
    complex_lanes<R> u[largest_generic];
    const R first = re[p * c.kept];
    R total = first;
    for (int32_t k = 1; k <= h; ++k) {
      u[k] = mul(complex_lanes<R>{re[p * c.kept + k], im[p * c.kept + k]}, w[2 * k - 2], w[2 * k - 1]);
      u[k] = {u[k].re + u[k].re, u[k].im + u[k].im};
      total = total + u[k].re;
    }
    y[p] = total * scale;
    for (int32_t j = 1; j <= h; ++j) {
      R a = first, b = R(0);
      for (int32_t k = 1, e = j; k <= h; ++k, e = e + j >= r ? e + j - r : e + j) {
        a = a + u[k].re * c.cosines[2 * e];
        b = b + u[k].im * c.cosines[2 * e + 1];
      }
      y[p + c.m * j] = (a + b) * scale;
      y[p + c.m * (r - j)] = (a - b) * scale;
    }
  }
}

template <class R, int r>
void set_radix(odd_chain<R>* c) {
  using V = vec<R>;
  const bool wide = c->m >= lanes<V>;
  c->lanes = wide ? lanes<V> : 1;
  c->forward = wide ? first_forward<R, r, V> : first_forward<R, r, R>;
  c->backward = wide ? last_backward<R, r, V> : last_backward<R, r, R>;
}

// The largest radix of the table that divides n, else the smallest prime.
template <class R>
void choose_radix(odd_chain<R>* c, int32_t n) {
  c->lanes = 1;
  c->forward = generic_forward<R>;
  c->backward = generic_backward<R>;
  int i = 0;
  while (i < radix_count && (!radices[i].odd_real || n % radices[i].radix != 0)) ++i;
  c->radix = i < radix_count ? radices[i].radix : largest_radix + 1;
  while (n % c->radix != 0) c->radix += 2;
  c->m = n / c->radix;
  with_radix(c->radix, [=]<int r>(std::integral_constant<int, r>) {
    if constexpr (row_of_radix(r).odd_real) set_radix<R, r>(c);
  });
}

// Where value k of n stands in a half spectrum, and whether as its conjugate.
struct spectrum_place {
  ptrdiff_t index;
  bool conjugate;
};
[[gnu::always_inline]] inline spectrum_place place_of(ptrdiff_t k, ptrdiff_t n) {
  return 2 * k < n ? spectrum_place{k, false} : spectrum_place{n - k, true};
}

}  // namespace

template <class R>
bool odd_build(odd_chain<R>* c, int32_t n) {
  choose_radix(c, n);
  c->kept = (c->radix + 1) / 2;
  const ptrdiff_t vectors = (c->m + c->lanes - 1) / c->lanes;
  const ptrdiff_t size = 2 * (c->kept - 1) * vectors * c->lanes;
  c->tables = static_cast<R*>(engine_allocate(uint64_t(size + 2 * c->radix) * sizeof(R)));
  root_table roots;
  if (c->tables == nullptr || !chain_build_batch(&c->rest, int32_t(c->m), c->kept) || !roots_build(&roots, n))
    return false;
  c->twiddles = c->tables;
  fill_twiddles(roots, n, c->kept - 1, c->m, c->lanes, c->tables);
  roots_free(&roots);
  R* const w = c->tables + size;
  c->cosines = w;
  for (int32_t k = 0; k < c->radix; ++k) {
    const zor_c64 v = root_of_unity(k, c->radix);
    w[2 * k] = R(v.re);
    w[2 * k + 1] = R(-v.im);
  }
  return true;
}

template <class R>
void odd_free(odd_chain<R>* c) {
  engine_free(c->tables);
  c->tables = nullptr;
  chain_free(&c->rest);
}

// Work holds 2 n reals: array a takes 2 kept m of them, half of array b the rest; b's imaginary parts stand
// in y. The batch must end in a, so with an odd number of passes it starts in b, and data standing in y are
// saved in a first.
template <class R>
void odd_forward(const odd_chain<R>& c, const R* x, R* y, R scale, R* work) {
  const ptrdiff_t count = c.kept * c.m, n = c.radix * c.m;
  R *a_re = work, *a_im = work + count, *b_re = work + 2 * count, *b_im = y;
  if (c.rest.count % 2 == 0) {
    c.forward(c, x, a_re, a_im);
    chain_run_batch(c.rest, a_re, a_im, b_re, b_im);
  } else {
    if (x == y) {
      std::memcpy(work, x, sizeof(R) * size_t(n));
      x = work;
    }
    c.forward(c, x, b_re, b_im);
    chain_run_batch(c.rest, b_re, b_im, a_re, a_im);
  }
  for (ptrdiff_t k2 = 0; k2 < c.m; ++k2) {
    for (ptrdiff_t k1 = k2 == 0 ? 1 : 0; k1 < c.kept; ++k1) {
      const spectrum_place at = place_of(k1 + c.radix * k2, n);
      if (k1 == 0 && at.conjugate) continue;
      y[2 * at.index - 1] = a_re[k1 + c.kept * k2] * scale;
      y[2 * at.index] = a_im[k1 + c.kept * k2] * (at.conjugate ? -scale : scale);
    }
  }
  y[0] = a_re[0] * scale;
}

template <class R>
void odd_backward(const odd_chain<R>& c, const R* x, R* y, R scale, R* work) {
  const ptrdiff_t count = c.kept * c.m, n = c.radix * c.m;
  R *a_re = work, *a_im = work + count, *b_re = work + 2 * count, *b_im = y;
  const bool even = c.rest.count % 2 == 0;
  R* to_re = even ? a_re : b_re;
  R* to_im = even ? a_im : b_im;
  if (!even && x == y) {
    std::memcpy(work, x, sizeof(R) * size_t(n));
    x = work;
  }
  // Conjugates, so that the forward passes run the sum backwards.
  const R first = x[0];
  for (ptrdiff_t k2 = 0; k2 < c.m; ++k2) {
    for (ptrdiff_t k1 = k2 == 0 ? 1 : 0; k1 < c.kept; ++k1) {
      const spectrum_place at = place_of(k1 + c.radix * k2, n);
      to_re[k1 + c.kept * k2] = x[2 * at.index - 1];
      to_im[k1 + c.kept * k2] = at.conjugate ? x[2 * at.index] : -x[2 * at.index];
    }
  }
  to_re[0] = first;
  to_im[0] = R(0);
  if (even)
    chain_run_batch(c.rest, a_re, a_im, b_re, b_im);
  else
    chain_run_batch(c.rest, b_re, b_im, a_re, a_im);
  c.backward(c, a_re, a_im, y, scale);
}

#define ZOR_INSTANCES(R)                                                  \
  template bool odd_build<R>(odd_chain<R>*, int32_t);                     \
  template void odd_free<R>(odd_chain<R>*);                               \
  template void odd_forward<R>(const odd_chain<R>&, const R*, R*, R, R*); \
  template void odd_backward<R>(const odd_chain<R>&, const R*, R*, R, R*);
ZOR_INSTANCES(float)
ZOR_INSTANCES(double)
#undef ZOR_INSTANCES

}  // namespace zor::dft
