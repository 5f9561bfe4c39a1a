// SPDX-License-Identifier: MIT
#include "dft/engine/real.h"

#include <cstring>

#include "dft/engine/lines.h"
#include "dft/engine/memory.h"
#include "dft/engine/trig.h"

namespace zor::dft {
namespace {

// With Z half of the half-length transform of the pairs x(2j) + i x(2j+1), values k and h - k of the spectrum
// from a = Z(k) and b = Z(h-k): E + T and conj(E - T), E = a + conj b, T = -i w(k) (a - conj b).
template <class V, class W>
[[gnu::always_inline]] inline void recombine(complex_lanes<V>* a, complex_lanes<V>* b, W w_re, W w_im) {
  const complex_lanes<V> e = {a->re + b->re, a->im - b->im};
  const complex_lanes<V> d = {a->re - b->re, a->im + b->im};
  const complex_lanes<V> t = {d.re * w_im + d.im * w_re, d.im * w_im - d.re * w_re};
  *a = {e.re + t.re, e.im + t.im};
  *b = {e.re - t.re, t.im - e.im};
}

// The way back, unnormalised: a, b = X(k), X(h-k) become Z(k), Z(h-k).
template <class V, class W>
[[gnu::always_inline]] inline void separate(complex_lanes<V>* a, complex_lanes<V>* b, W w_re, W w_im) {
  const complex_lanes<V> e = {a->re + b->re, a->im - b->im};
  const complex_lanes<V> d = {a->re - b->re, a->im + b->im};
  const complex_lanes<V> t = {d.re * w_im - d.im * w_re, d.im * w_im + d.re * w_re};
  *a = {e.re + t.re, e.im + t.im};
  *b = {e.re - t.re, t.im - e.im};
}

template <class R, int N>
void straight_forward(const R* x, R* y, R scale) {
  constexpr int h = N / 2;
  if constexpr (N % 2 != 0) {
    complex_lanes<R> z[N];
    unrolled<N>([&](auto j) __attribute__((always_inline)) { z[j] = {x[j], R(0)}; });
    dft<N>(z);
    y[0] = z[0].re * scale;
    unrolled<h>([&](auto k) __attribute__((always_inline)) {
      y[2 * k + 1] = z[k + 1].re * scale;
      y[2 * k + 2] = z[k + 1].im * scale;
    });
  } else {
    complex_lanes<R> z[h];
    unrolled<h>([&](auto j) __attribute__((always_inline)) { z[j] = {x[2 * j], x[2 * j + 1]}; });
    dft<h>(z);
    unrolled<(h - 1) / 2>([&](auto k) __attribute__((always_inline)) {
      z[k + 1] = {z[k + 1].re * R(0.5), z[k + 1].im * R(0.5)};
      z[h - 1 - k] = {z[h - 1 - k].re * R(0.5), z[h - 1 - k].im * R(0.5)};
    });
    z[0] = {z[0].re + z[0].im, z[0].re - z[0].im};
    if constexpr (h % 2 == 0) z[h / 2].im = -z[h / 2].im;
    unrolled<(h - 1) / 2>([&](auto k) __attribute__((always_inline)) {
      constexpr zor_c64 w = dd::constant_root(k + 1, N);
      constexpr R re = R(w.re), im = R(w.im);
      recombine(&z[k + 1], &z[h - 1 - k], re, im);
    });
    unrolled<h>([&](auto k) __attribute__((always_inline)) {
      y[2 * k] = z[k].re * scale;
      y[2 * k + 1] = z[k].im * scale;
    });
  }
}

template <class R, int N>
void straight_backward(const R* x, [[maybe_unused]] R end, R* y, R scale) {
  constexpr int h = N / 2;
  if constexpr (N % 2 != 0) {
    complex_lanes<R> z[N];
    z[0] = {x[0], R(0)};
    unrolled<h>([&](auto k) __attribute__((always_inline)) {
      z[k + 1] = {x[2 * k + 1], -x[2 * k + 2]};
      z[N - 1 - k] = {x[2 * k + 1], x[2 * k + 2]};
    });
    dft<N>(z);
    unrolled<N>([&](auto j) __attribute__((always_inline)) { y[j] = z[j].re * scale; });
  } else {
    complex_lanes<R> z[h];
    unrolled<h>([&](auto k) __attribute__((always_inline)) { z[k] = {x[2 * k], x[2 * k + 1]}; });
    z[0] = {x[0] + end, x[0] - end};
    if constexpr (h % 2 == 0) z[h / 2] = {z[h / 2].re * R(2), z[h / 2].im * R(-2)};
    unrolled<(h - 1) / 2>([&](auto k) __attribute__((always_inline)) {
      constexpr zor_c64 w = dd::constant_root(k + 1, N);
      constexpr R re = R(w.re), im = R(w.im);
      separate(&z[k + 1], &z[h - 1 - k], re, im);
    });
    unrolled<h>([&](auto k) __attribute__((always_inline)) { z[k].im = -z[k].im; });
    dft<h>(z);
    unrolled<h>([&](auto j) __attribute__((always_inline)) {
      y[2 * j] = z[j].re * scale;
      y[2 * j + 1] = -z[j].im * scale;
    });
  }
}

template <class R, int... N>
void find_straight_real(real_transform<R>* t, std::integer_sequence<int, N...>) {
  const auto set = [t]<int n>(std::integral_constant<int, n>) {
    if (t->n != n) return;
    t->straight_forward = straight_forward<R, n>;
    t->straight_backward = straight_backward<R, n>;
  };
  (set(std::integral_constant<int, N + 1>()), ...);
}

template <class R>
bool table_build(real_transform<R>* t) {
  const ptrdiff_t count = t->n / 4 + 1;
  t->table = static_cast<R*>(engine_allocate(uint64_t(count) * 2 * sizeof(R)));
  if (t->table == nullptr) return false;
  for (ptrdiff_t k = 0; k < count; ++k) {
    const zor_c64 w = root_of_unity(k, t->n);
    t->table[k] = R(w.re);
    t->table[count + k] = R(w.im);
  }
  return true;
}

// Pairs k, h - k of the h complex values x to y from *k to the last for which whole vectors are left.
template <class V, bool Forward, class R>
[[gnu::always_inline]] inline void turn_range(const real_transform<R>& t, const R* x, R* y, ptrdiff_t* k) {
  constexpr int W = lane_count<V>;
  const ptrdiff_t h = t.n / 2, pairs = (h - 1) / 2;
  const R* w_re = t.table;
  const R* w_im = t.table + t.n / 4 + 1;
  for (; *k + W <= pairs + 1; *k += W) {
    const ptrdiff_t mirror = h - *k - W + 1;
    complex_lanes<V> a = load_complex<form::interleaved, V>(x, x, *k);
    complex_lanes<V> b = load_reversed<V>(x, mirror);
    const V c = load_lanes<V>(w_re + *k), s = load_lanes<V>(w_im + *k);
    if constexpr (Forward)
      recombine(&a, &b, c, s);
    else
      separate(&a, &b, c, s);
    store_complex<form::interleaved>(y, y, *k, a);
    store_reversed(y, mirror, b);
  }
}

// All pairs k, h - k from 1, the first value (zero and h are the spectrum's ends there) and the middle one of
// even h. Forward takes half of the transform of length h.
template <class R, bool Forward>
void turn_pairs(const real_transform<R>& t, const R* x, R zero, R end, R* y) {
  const ptrdiff_t h = t.n / 2;
  const R factor = Forward ? R(2) : R(1);
  y[0] = (zero + end) * factor;
  y[1] = (zero - end) * factor;
  if (h % 2 == 0) {
    y[h] = x[h] * R(2);
    y[h + 1] = x[h + 1] * R(-2);
  }
  ptrdiff_t k = 1;
  turn_range<vec<R>, Forward>(t, x, y, &k);
  if constexpr (width >= 64) turn_range<vec<R, 32>, Forward>(t, x, y, &k);
  if constexpr (width >= 32) turn_range<vec<R, 16>, Forward>(t, x, y, &k);
  turn_range<R, Forward>(t, x, y, &k);
}

// Odd chirp: half of the complex transform's output, or the real part of all.
template <class R>
void chirp_forward(const chirp<R>& c, int32_t n, const R* x, R* y, R scale, R* a) {
  for (ptrdiff_t k = 0; k < n; ++k) {
    a[2 * k] = x[k] * c.chirp_re[k];
    a[2 * k + 1] = x[k] * c.chirp_im[k];
  }
  convolve_with_chirp(c, n, a);
  for (ptrdiff_t k = 0; 2 * k < n; ++k) {
    const complex_lanes<R> v =
        multiply(complex_lanes<R>{a[2 * k], a[2 * k + 1]}, c.chirp_re[k], c.chirp_im[k]);
    if (k > 0) y[2 * k - 1] = v.re * scale;
    y[2 * k] = (k > 0 ? v.im : v.re) * scale;
  }
}
template <class R>
void chirp_backward(const chirp<R>& c, int32_t n, const R* x, R* y, R scale, R* a) {
  const auto put = [&](ptrdiff_t k, R re, R im) {
    const complex_lanes<R> v = multiply(complex_lanes<R>{re, im}, c.chirp_re[k], c.chirp_im[k]);
    a[2 * k] = v.re;
    a[2 * k + 1] = v.im;
  };
  put(0, x[0], R(0));
  for (ptrdiff_t k = 1; 2 * k < n; ++k) {
    put(k, x[2 * k - 1], -x[2 * k]);
    put(n - k, x[2 * k - 1], x[2 * k]);
  }
  convolve_with_chirp(c, n, a);
  for (ptrdiff_t j = 0; j < n; ++j) y[j] = (a[2 * j] * c.chirp_re[j] - a[2 * j + 1] * c.chirp_im[j]) * scale;
}

}  // namespace

template <class R>
bool real_build(real_transform<R>* t, int32_t n, const selection& s) {
  std::memset(static_cast<void*>(t), 0, sizeof *t);
  t->how = s.how;
  t->n = n;
  find_straight_real(t, std::make_integer_sequence<int, 16>());
  if (t->straight_forward != nullptr) return true;
  bool built;
  if (n % 2 == 0)
    built = table_build(t) && transform_build(&t->inner, n / 2, s, form::interleaved);
  else if (s.how == method::mixed)
    built = odd_build(&t->odd, n);
  else if (s.how == method::direct)
    built = direct_build(&t->direct, n);
  else
    built = transform_build(&t->inner, n, s, form::interleaved);
  if (!built) real_free(t);
  return built;
}

template <class R>
void real_free(real_transform<R>* t) {
  transform_free(&t->inner);
  odd_free(&t->odd);
  direct_free(&t->direct);
  engine_free(t->table);
  t->table = nullptr;
}

template <class R>
void real_forward(const real_transform<R>& t, const R* x, R* y, R scale, R* work) {
  if (t.straight_forward != nullptr) {
    t.straight_forward(x, y, scale);
  } else if (t.n % 2 == 0) {
    const R half = R(0.5) * scale;
    transform_run(t.inner, pass_data<R>{x, nullptr, y, nullptr, R(1), half, half}, work);
    turn_pairs<R, true>(t, y, y[0], y[1], y);
  } else if (t.how == method::mixed) {
    odd_forward(t.odd, x, y, scale, work);
  } else if (t.how == method::direct) {
    direct_real_forward(t.direct, t.n, x, y, scale);
  } else {
    chirp_forward(t.inner.convolution, t.n, x, y, scale, work);
  }
}

template <class R>
void real_backward(const real_transform<R>& t, const R* x, R end, R* y, R scale, R* work) {
  if (t.straight_backward != nullptr) {
    t.straight_backward(x, end, y, scale);
  } else if (t.n % 2 == 0) {
    turn_pairs<R, false>(t, x, x[0], end, y);
    transform_run(t.inner, pass_data<R>{y, nullptr, y, nullptr, R(-1), scale, -scale}, work);
  } else if (t.how == method::mixed) {
    odd_backward(t.odd, x, y, scale, work);
  } else if (t.how == method::direct) {
    direct_real_backward(t.direct, t.n, x, y, scale);
  } else {
    chirp_backward(t.inner.convolution, t.n, x, y, scale, work);
  }
}

#define ZOR_INSTANCES(R)                                                        \
  template bool real_build<R>(real_transform<R>*, int32_t, const selection&);   \
  template void real_free<R>(real_transform<R>*);                               \
  template void real_forward<R>(const real_transform<R>&, const R*, R*, R, R*); \
  template void real_backward<R>(const real_transform<R>&, const R*, R, R*, R, R*);
ZOR_INSTANCES(float)
ZOR_INSTANCES(double)
#undef ZOR_INSTANCES

}  // namespace zor::dft
