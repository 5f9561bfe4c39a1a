// SPDX-License-Identifier: MIT
// Forward transforms of short compile-time lengths on complex lanes. V is a vector of reals or one real;
// every lane is a transform of its own and meets the same operations in the same order, so the width never
// shows.
#pragma once

#include <cstdint>
#include <type_traits>
#include <utility>

#include "dft/engine/roots/double_double.h"
#include "serv/element.h"

namespace zor::dft {

// f(0), f(1), ... f(N - 1) with the index as a compile-time constant.
template <class F, int... I>
[[gnu::always_inline]] inline void unrolled([[maybe_unused]] F f, std::integer_sequence<int, I...>) {
  (f(std::integral_constant<int, I>()), ...);
}
template <int N, class F>
[[gnu::always_inline]] inline void unrolled(F f) {
  unrolled(f, std::make_integer_sequence<int, N>());
}

// a times exp(-2 pi i K / N). Multiples of an eighth take the additions that they need and no more.
template <int64_t K, int64_t N, class V>
[[gnu::always_inline]] inline complex_lanes<V> times_root(complex_lanes<V> a) {
  using R = real_of<V>;
  constexpr zor_c64 w = dd::constant_root(K % N, N);
  constexpr R re = R(w.re), im = R(w.im);
  if constexpr (8 * (K % N) % N != 0) {
    return mul(a, re, im);
  } else {
    constexpr int eighth = int(8 * (K % N) / N);
    if constexpr (eighth == 0) return a;
    if constexpr (eighth == 2) return {a.im, -a.re};
    if constexpr (eighth == 4) return {-a.re, -a.im};
    if constexpr (eighth == 6) return {-a.im, a.re};
    if constexpr (eighth % 4 == 1) return {(a.re + a.im) * re, (a.im - a.re) * re};
    return {(a.im - a.re) * -re, (a.re + a.im) * re};
  }
}

constexpr int gcd(int a, int b) { return b == 0 ? a : gcd(b, a % b); }
constexpr int inverse_modulo(int a, int n) {
  int i = 1;
  while (a * i % n != 1 % n) ++i;
  return i;
}
// The first factor a composite length is split by; the length itself when it is prime.
constexpr int first_factor(int n) {
  if (n == 8) return 2;
  if (n == 16) return 4;
  if (n == 32) return 4;
  int d = 2;
  while (d < n && n % d != 0) ++d;
  while (n % (d * d) == 0 && gcd(d * d, n / (d * d)) == 1 && d * d < n) d *= d;
  return d;
}

// Odd prime N. With s(j) = x(j) + x(N-j) and d(j) = x(j) - x(N-j), outputs k and N-k are a - i b and a + i b,
// where a = x(0) + sum s(j) cos(2 pi j k / N) and b = sum d(j) sin(2 pi j k / N), both in the order of j.
template <int N, class V>
[[gnu::always_inline]] inline void prime_dft(complex_lanes<V>* x) {
  using R = real_of<V>;
  constexpr int h = (N - 1) / 2;
  const complex_lanes<V> x0 = x[0];
  complex_lanes<V> s[h], d[h];
  unrolled<h>([&](auto j) __attribute__((always_inline)) {
    s[j] = x[j + 1] + x[N - 1 - j];
    d[j] = x[j + 1] - x[N - 1 - j];
    x[0] = x[0] + s[j];
  });
  unrolled<h>([&](auto k0) __attribute__((always_inline)) {
    constexpr int k = k0 + 1;
    complex_lanes<V> a = x0;
    complex_lanes<V> b;
    unrolled<h>([&](auto j0) __attribute__((always_inline)) {
      constexpr int j = j0 + 1;
      constexpr zor_c64 w = dd::constant_root(j * k, N);
      constexpr R c = R(w.re), sine = R(-w.im);
      a.re = a.re + s[j0].re * c;
      a.im = a.im + s[j0].im * c;
      if constexpr (j == 1) {
        b = {d[j0].re * sine, d[j0].im * sine};
      } else {
        b.re = b.re + d[j0].re * sine;
        b.im = b.im + d[j0].im * sine;
      }
    });
    x[k] = {a.re + b.im, a.im - b.re};
    x[N - k] = {a.re - b.im, a.im + b.re};
  });
}

template <class V>
[[gnu::always_inline]] inline void dft4(complex_lanes<V>* x) {
  const complex_lanes<V> a = x[0] + x[2], b = x[0] - x[2], c = x[1] + x[3], d = x[1] - x[3];
  x[0] = a + c;
  x[1] = {b.re + d.im, b.im - d.re};
  x[2] = a - c;
  x[3] = {b.re - d.im, b.im + d.re};
}

// Real and imaginary parts in neighbouring lanes, for vectors that would be half empty with the parts apart.
// The operations are those of complex_lanes.
template <class V>
struct packed_lanes {
  V v;
};
template <class V>
[[gnu::always_inline]] inline packed_lanes<V> operator+(packed_lanes<V> a, packed_lanes<V> b) {
  return {a.v + b.v};
}
template <class V>
[[gnu::always_inline]] inline packed_lanes<V> operator-(packed_lanes<V> a, packed_lanes<V> b) {
  return {a.v - b.v};
}
// re and im each in both lanes of a pair.
template <class V>
[[gnu::always_inline]] inline packed_lanes<V> mul(packed_lanes<V> a, V re, V im) {
  return {subtract_add_pairs(a.v * re, swap_pairs(a.v) * im)};
}
template <class V>
[[gnu::always_inline]] inline packed_lanes<V> times_minus_i(packed_lanes<V> a) {
  return {negate_pairs<1>(swap_pairs(a.v))};
}
template <int64_t K, int64_t N, class V>
[[gnu::always_inline]] inline packed_lanes<V> times_root(packed_lanes<V> a) {
  using R = lane_t<V>;
  static_assert(8 * (K % N) % N == 0 && 8 * (K % N) / N < 4);
  constexpr int eighth = int(8 * (K % N) / N);
  constexpr R re = R(dd::constant_root(K % N, N).re);
  if constexpr (eighth == 0) return a;
  if constexpr (eighth == 1) return {(a.v + times_minus_i(a).v) * broadcast<V>(re)};
  if constexpr (eighth == 2) return times_minus_i(a);
  return {subtract_add_pairs(swap_pairs(a.v), a.v) * broadcast_pair<V>(-re, re)};
}
template <class V>
[[gnu::always_inline]] inline void dft4(packed_lanes<V>* x) {
  const packed_lanes<V> a = x[0] + x[2], b = x[0] - x[2], c = x[1] + x[3], d = times_minus_i(x[1] - x[3]);
  x[0] = a + c;
  x[1] = b + d;
  x[2] = a - c;
  x[3] = b - d;
}

template <int N, class C>
[[gnu::always_inline]] inline void dft(C* x);

// N = A B: coprime factors by the Chinese remainder theorem without twiddles, others by Cooley and Tukey.
template <int N, class C>
[[gnu::always_inline]] inline void composite_dft(C* x) {
  constexpr int A = first_factor(N), B = N / A;
  constexpr bool coprime = gcd(A, B) == 1;
  constexpr int out_a = coprime ? B * inverse_modulo(B % A, A) : 1;
  constexpr int out_b = coprime ? A * inverse_modulo(A % B, B) : A;
  C y[N];
  unrolled<B>([&](auto b) __attribute__((always_inline)) {
    C column[A];
    unrolled<A>([&](auto a)
                    __attribute__((always_inline)) { column[a] = x[(a * B + b * (coprime ? A : 1)) % N]; });
    dft<A>(column);
    unrolled<A>([&](auto a) __attribute__((always_inline)) {
      if constexpr (coprime)
        y[a * B + b] = column[a];
      else
        y[a * B + b] = times_root<a * b, N>(column[a]);
    });
  });
  unrolled<A>([&](auto a) __attribute__((always_inline)) {
    dft<B>(y + a * B);
    unrolled<B>([&](auto b)
                    __attribute__((always_inline)) { x[(a * out_a + b * out_b) % N] = y[a * B + b]; });
  });
}

// x(0..N-1) replaced by its forward transform, natural order. C is complex_lanes, or packed_lanes for powers
// of two.
template <int N, class C>
[[gnu::always_inline]] inline void dft(C* x) {
  if constexpr (N == 1) {
  } else if constexpr (N == 2) {
    const C a = x[0], b = x[1];
    x[0] = a + b;
    x[1] = a - b;
  } else if constexpr (N == 4) {
    dft4(x);
  } else if constexpr (first_factor(N) == N) {
    prime_dft<N>(x);
  } else {
    composite_dft<N>(x);
  }
}

}  // namespace zor::dft
