// SPDX-License-Identifier: MIT
// Real transforms of 32, 64 and 128 values: two passes of half the length, between which and the
// recombination the values stay in local vectors. Every value meets the same operations as in longer lengths.
#include "dft/engine/passes/two_passes.h"
#include "dft/engine/real/real.h"
#include "dft/engine/real/recombine.h"

namespace zor::dft {
namespace {

template <class R, int N>
struct short_real {
  static constexpr int h = N / 2;
  using halves = two_passes<R, h>;
  using V = typename halves::last_vector;
  static constexpr int W = lane_count<V>, blocks = h / W;

  struct root_table {
    alignas(64) R re[h / 2], im[h / 2];
  };
  static constexpr root_table make() {
    root_table t{};
    for (int k = 0; k < h / 2; ++k) {
      const zor_c64 v = dd::constant_root(k, N);
      t.re[k] = R(v.re);
      t.im[k] = R(v.im);
    }
    return t;
  }
  static constexpr root_table roots = make();
};

// All pairs k, h - k in place, forward to the spectrum and backward from it; value 0 comes out wrong. The
// values that a block of W is paired with, in reverse, are the first of one block and all but the first of
// the block below it.
template <class R, int N, bool Forward>
[[gnu::always_inline]] inline void combine_all(complex_lanes<typename short_real<R, N>::V>* z) {
  using S = short_real<R, N>;
  using V = typename S::V;
  constexpr int W = S::W, blocks = S::blocks;
  complex_lanes<V> mirror[blocks / 2 + 1];
  mirror[blocks / 2] = {z[blocks / 2].re * R(2), z[blocks / 2].im * R(-2)};
  unrolled<blocks / 2>([&](auto b) __attribute__((always_inline)) {
    mirror[b] = reversed_behind(z[(blocks - b) % blocks], z[blocks - 1 - b]);
  });
  unrolled<blocks / 2>([&](auto b) __attribute__((always_inline)) {
    const V re = load<V>(S::roots.re + b * W), im = load<V>(S::roots.im + b * W);
    if constexpr (Forward)
      recombine(&z[b], &mirror[b], re, im);
    else
      separate(&z[b], &mirror[b], re, im);
  });
  unrolled<blocks / 2>([&](auto b) __attribute__((always_inline)) {
    z[blocks - 1 - b] = reversed_behind(mirror[b + 1], mirror[b]);
  });
}

template <class R, int N>
void short_forward(const R* x, R* y, R scale) {
  using S = short_real<R, N>;
  using T = typename S::halves;
  using V = typename S::V;
  constexpr int W = S::W;
  alignas(64) R work[N];
  first_body<R, T::r, typename T::first_vector, form::interleaved, form::blocked>(
      pass_data<R>{x, nullptr, work, nullptr, R(1), R(1), R(1)}, T::table.values, T::l);
  const R half = R(0.5) * scale;
  complex_lanes<V> z[S::blocks];
  unrolled<T::m / W>([&](auto i) __attribute__((always_inline)) {
    complex_lanes<V> u[T::l];
    unrolled<T::l>([&](auto t) __attribute__((always_inline)) {
      u[t] = load_complex<form::blocked, V>(work, work, i * W + T::m * t);
    });
    dft<T::l>(u);
    unrolled<T::l>([&](auto s) __attribute__((always_inline)) {
      z[i + T::m / W * s] = {u[s].re * half, u[s].im * half};
    });
  });
  const R zero = z[0].re[0], end = z[0].im[0];
  combine_all<R, N, true>(z);
  unrolled<S::blocks>([&](auto b) __attribute__((always_inline)) {
    store_complex<form::interleaved>(y, y, b * W, z[b]);
  });
  y[0] = (zero + end) * R(2);
  y[1] = (zero - end) * R(2);
}

template <class R, int N>
void short_backward(const R* x, R end, R* y, R scale) {
  using S = short_real<R, N>;
  using T = typename S::halves;
  using F = typename T::first_vector;
  constexpr int W = S::W, L = lane_count<F>;
  complex_lanes<typename S::V> z[S::blocks];
  unrolled<S::blocks>([&](auto b) __attribute__((always_inline)) {
    z[b] = load_complex<form::interleaved, typename S::V>(x, x, b * W);
  });
  const R zero = x[0];
  z[0].im[0] = end;  // what stands there may be anything
  combine_all<R, N, false>(z);
  z[0].re[0] = zero + end;
  z[0].im[0] = zero - end;
  alignas(64) R work[N];
  pass_data<R> d{nullptr, nullptr, work, nullptr, R(-1), scale, -scale};
  unrolled<T::l / L>([&](auto i) __attribute__((always_inline)) {
    complex_lanes<F> u[T::r];
    unrolled<T::r>([&](auto t) __attribute__((always_inline)) {
      constexpr int at = i * L + T::l * t;
      u[t] = {slice<sizeof(F), at % W / L>(z[at / W].re),
              with_sign(slice<sizeof(F), at % W / L>(z[at / W].im), d.sign)};
    });
    finish_first<R, T::r, F, form::blocked>(d, T::table.values + i * 2 * L * (T::r - 1), T::l, i * L, u);
  });
  d.x_re = work;
  d.y_re = y;
  last_body<R, T::l, typename S::V, form::blocked, form::interleaved>(d, T::m);
}

}  // namespace

template <class R>
void find_short_real(int32_t n, void (**forward)(const R* x, R* y, R scale),
                     void (**backward)(const R* x, R end, R* y, R scale)) {
  const auto set = [=]<int N>(std::integral_constant<int, N>) {
    if (n != N) return;
    *forward = short_forward<R, N>;
    *backward = short_backward<R, N>;
  };
  set(std::integral_constant<int, 32>());
  set(std::integral_constant<int, 64>());
  set(std::integral_constant<int, 128>());
}
template void find_short_real<float>(int32_t, void (**)(const float*, float*, float),
                                     void (**)(const float*, float, float*, float));
template void find_short_real<double>(int32_t, void (**)(const double*, double*, double),
                                      void (**)(const double*, double, double*, double));

}  // namespace zor::dft
