// SPDX-License-Identifier: MIT
// Real transforms: straight-line lengths, the recombination of even lengths, odd lengths by chirp, and the
// choice of a method.
#include "dft/engine/real/real.h"

#include <cstring>

#include "dft/engine/any_length/convolve.h"
#include "dft/engine/plan/memory.h"
#include "dft/engine/real/recombine.h"
#include "dft/engine/roots/root_table.h"
#include "dft/thresholds.h"

namespace zor::dft {
namespace {

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
  constexpr ptrdiff_t line = 64 / sizeof(R);
  t->table_row = (t->n / 4 + 1 + line) / line * line;
  t->table = static_cast<R*>(engine_allocate(uint64_t(t->table_row) * 2 * sizeof(R)));
  root_table roots;
  if (t->table == nullptr || !roots_build(&roots, t->n)) return false;
  walk_roots(
      roots, 1,
      t->n / 4 + 1, [&](ptrdiff_t k, const root_view& view, int64_t) __attribute__((always_inline)) {
        set_root(t->table + k, view.head(k), t->table_row);
      });
  roots_free(&roots);
  return true;
}

// The recombination as a walk over pairs: forward from x, half of the transform of length h, to the spectrum
// y, and backward from the spectrum to what the inverse transforms. The spectrum is interleaved. The other
// side is too, or it is in the inner form of the passes, which then leave one of their multiplications to the
// walk: that by the scale forward, that by the sign backward.
template <class R, bool Forward, form Inner>
struct pair_walk {
  static constexpr form in = Forward ? Inner : form::interleaved, out = Forward ? form::interleaved : Inner;
  const real_transform<R>& t;
  const R *x_re, *x_im;
  R *y_re, *y_im;
  R factor;

  template <class V>
  [[gnu::always_inline]] complex_lanes<V> load(ptrdiff_t j) const {
    complex_lanes<V> v = load_complex<in, V>(x_re, x_im, j);
    if constexpr (in != form::interleaved) v = {v.re * factor, v.im * factor};
    return v;
  }
  template <class V>
  [[gnu::always_inline]] void store(ptrdiff_t j, complex_lanes<V> v) const {
    if constexpr (out != form::interleaved) v.im = v.im * factor;
    store_complex<out>(y_re, y_im, j, v);
  }
  // Values j to j + W - 1, the last one in lane 0.
  template <class V>
  [[gnu::always_inline]] complex_lanes<V> load_reversed(ptrdiff_t j) const {
    return reversed(load<V>(j));
  }
  template <class V>
  [[gnu::always_inline]] void store_reversed(ptrdiff_t j, complex_lanes<V> v) const {
    store(j, reversed(v));
  }
  template <class V>
  [[gnu::always_inline]] void combine(ptrdiff_t k, complex_lanes<V>* a, complex_lanes<V>* b) const {
    const V c = load_lanes<V>(t.table + k), s = load_lanes<V>(t.table + t.table_row + k);
    if constexpr (Forward)
      recombine(a, b, c, s);
    else
      separate(a, b, c, s);
  }
};

// All pairs k, h - k from `first` on.
template <class R, class Walk>
[[gnu::always_inline]] inline void combine_range(const Walk& w, ptrdiff_t first) {
  const ptrdiff_t h = w.t.n / 2, pairs = (h - 1) / 2;
  for_vectors<R>(
      first, pairs + 1, [&]<int Bytes>(ptrdiff_t k) __attribute__((always_inline)) {
        using V = vec_or_real<R, Bytes>;
        const ptrdiff_t mirror = h - k - lane_count<V> + 1;
        complex_lanes<V> a = w.template load<V>(k), b = w.template load_reversed<V>(mirror);
        w.combine(k, &a, &b);
        w.store(k, a);
        w.store_reversed(mirror, b);
      });
}

// All pairs by two vectors that overlap: both are read before one is written.
template <class V, class Walk>
[[gnu::always_inline]] inline void combine_overlapping(const Walk& w) {
  const ptrdiff_t h = w.t.n / 2, at[2] = {1, (h - 1) / 2 - lane_count<V> + 1};
  complex_lanes<V> a[2], b[2];
  for (int i = 0; i < 2; ++i) {
    a[i] = w.template load<V>(at[i]);
    b[i] = w.template load_reversed<V>(h - at[i] - lane_count<V> + 1);
    w.combine(at[i], &a[i], &b[i]);
  }
  for (int i = 0; i < 2; ++i) {
    w.store(at[i], a[i]);
    w.store_reversed(h - at[i] - lane_count<V> + 1, b[i]);
  }
}

// Pairs from 0 to below the value returned, by blocks of W values that begin at multiples of W, so that no
// load and no store crosses a cache line. The values that a block is paired with are all but the first of one
// block and the first of the next, so one block of each side waits for its neighbour. Value 0 comes out
// wrong, and so does value h / 2 where the blocks end there.
template <class V, class Walk>
ptrdiff_t combine_blocks(const Walk& w) {
  using R = lane_t<V>;
  constexpr ptrdiff_t W = lanes<V>;
  const ptrdiff_t h = w.t.n / 2, end = h / (2 * W) * W;
  if (h < pairs_by_blocks_from) return 0;
  complex_lanes<V> above{}, waiting{};
  for (ptrdiff_t k = 0; k < end; k += W) {
    complex_lanes<V> a = w.template load<V>(k);
    const complex_lanes<V> below = w.template load<V>(h - k - W);
    complex_lanes<V> b = reversed_behind(above, below);
    above = below;
    w.combine(k, &a, &b);
    w.store(k, a);
    if (k > 0) w.store(h - k, reversed_behind(b, waiting));
    waiting = b;
  }
  complex_lanes<R> a = w.template load<R>(end), b = w.template load<R>(h - end);
  w.combine(end, &a, &b);
  w.store(h - end, reversed_behind(waiting, waiting));
  w.store(end, a);
  w.store(h - end, b);
  return end + 1;
}

// All values: the pairs, the ends of the spectrum made of the parts `zero` and `end`, and the middle value of
// even h.
template <class R, bool Forward, form Inner>
void combine_pairs(const pair_walk<R, Forward, Inner>& w, R zero, R end) {
  using V = vec<R>;
  const ptrdiff_t h = w.t.n / 2;
  const R factor = Forward ? R(2) : R(1);
  const complex_lanes<R> middle = w.template load<R>(h / 2);
  constexpr ptrdiff_t W = lanes<V>;
  const ptrdiff_t pairs = (h - 1) / 2;
  ptrdiff_t k = combine_blocks<V>(w);
  if (k == 0) k = 1;
  // Backward, a short transform would wait for two stores that overlap.
  if (Forward && k == 1 && pairs >= W && pairs <= 2 * W) {
    combine_overlapping<V>(w);
    k = pairs + 1;
  }
  combine_range<R>(w, k);
  w.store(0, complex_lanes<R>{(zero + end) * factor, (zero - end) * factor});
  if (h % 2 == 0) w.store(h / 2, complex_lanes<R>{middle.re * R(2), middle.im * R(-2)});
}

// Whether the passes of the half-length transform can end with, or begin with, their values in the inner
// form.
template <class R>
bool joins_passes(const real_transform<R>& t, const R* x, const R* y) {
  const int32_t passes = transform_passes(t.inner);
  return passes > 1 && t.n / 2 >= pairs_by_blocks_from &&
         (t.inner.passes.inner == form::blocked || passes % 2 == 1 || x != y);
}

template <class R, form Inner>
void join_forward(const real_transform<R>& t, const R* x, R* y, R half, R* work) {
  const chain<R>& c = t.inner.passes;
  chain_to_inner(c, x, y, work);
  R* const z = inner_place(c, y, work, true);
  const R zero = z[0] * half, end = z[Inner == form::split ? c.n : lanes_of<R>] * half;
  combine_pairs(pair_walk<R, true, Inner>{t, z, z + c.n, y, y, half}, zero, end);
}

template <class R, form Inner>
void join_backward(const real_transform<R>& t, const R* x, R end, R* y, R scale, R* work) {
  const chain<R>& c = t.inner.passes;
  R* const z = inner_place(c, y, work, false);
  combine_pairs(pair_walk<R, false, Inner>{t, x, x, z, z + c.n, R(-1)}, x[0], end);
  chain_from_inner(c, y, scale, -scale, work);
}

template <class R>
void even_forward(const real_transform<R>& t, const R* x, R* y, R scale, R* work) {
  const R half = R(0.5) * scale;
  if (joins_passes(t, x, y)) {
    t.inner.passes.inner == form::split ? join_forward<R, form::split>(t, x, y, half, work)
                                        : join_forward<R, form::blocked>(t, x, y, half, work);
    return;
  }
  transform_run(t.inner, pass_data<R>{x, nullptr, y, nullptr, R(1), half, half}, work);
  combine_pairs(pair_walk<R, true, form::interleaved>{t, y, y, y, y, R(1)}, y[0], y[1]);
}

template <class R>
void even_backward(const real_transform<R>& t, const R* x, R end, R* y, R scale, R* work) {
  if (joins_passes(t, x, y)) {
    t.inner.passes.inner == form::split ? join_backward<R, form::split>(t, x, end, y, scale, work)
                                        : join_backward<R, form::blocked>(t, x, end, y, scale, work);
    return;
  }
  combine_pairs(pair_walk<R, false, form::interleaved>{t, x, x, y, y, R(1)}, x[0], end);
  transform_run(t.inner, pass_data<R>{y, nullptr, y, nullptr, R(-1), scale, -scale}, work);
}

// Odd lengths by chirp: the first half of a complex transform of reals, and the real parts of one of a whole
// spectrum.
template <class R>
void chirp_forward(const chirp<R>& c, int32_t n, const R* x, R* y, R scale, R* work) {
  R *const re = work, *const im = work + c.padded;
  convolve(
      c, n, n / 2 + 1, work,
      [&]<class V>(ptrdiff_t j) __attribute__((always_inline)) {
        const V v = load_lanes<V>(x + j);
        return complex_lanes<V>{v * load_lanes<V>(c.chirp_re + j), v * load_lanes<V>(c.chirp_im + j)};
      },
      [&](ptrdiff_t j, auto v) __attribute__((always_inline)) {
        const auto value = times_chirp(c, j, v);
        store_complex<form::split>(re, im, j, decltype(v){value.re * scale, value.im * scale});
      });
  y[0] = re[0];
  for_vectors<R, whole_vectors>(
      0, n / 2, [&]<int Bytes>(ptrdiff_t j) __attribute__((always_inline)) {
        using V = vec_or_real<R, Bytes>;
        store_complex<form::interleaved>(y + 1, y + 1, j, load_complex<form::split, V>(re + 1, im + 1, j));
      });
}
template <class R>
void chirp_backward(const chirp<R>& c, int32_t n, const R* x, R* y, R scale, R* work) {
  R *const re = work, *const im = work + c.padded;
  re[0] = x[0];
  im[0] = R(0);
  for (ptrdiff_t k = 1; 2 * k < n; ++k) {
    re[k] = re[n - k] = x[2 * k - 1];
    im[k] = -x[2 * k];
    im[n - k] = x[2 * k];
  }
  convolve(
      c, n, n, work,
      [&]<class V>(ptrdiff_t j) __attribute__((always_inline)) {
        return times_chirp(c, j, load_complex<form::split, V>(re, im, j));
      },
      [&](ptrdiff_t j, auto v)
          __attribute__((always_inline)) { store_lanes(y + j, times_chirp(c, j, v).re * scale); });
}

}  // namespace

template <class R>
bool real_build(real_transform<R>* t, int32_t n, const selection& s) {
  std::memset(static_cast<void*>(t), 0, sizeof *t);
  t->how = s.how;
  t->n = n;
  find_straight_real(t, std::make_integer_sequence<int, 16>());
  if (t->straight_forward == nullptr) find_short_real(n, &t->straight_forward, &t->straight_backward);
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
    even_forward(t, x, y, scale, work);
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
    even_backward(t, x, end, y, scale, work);
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
