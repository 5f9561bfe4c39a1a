// SPDX-License-Identifier: MIT
// Packs: runs of N elements that the sparse kernels work on at once, and how they meet memory. Arithmetic on
// packs is the lane arithmetic of the vector header, and `mul` for products.
#pragma once

#include "serv/element.h"

namespace zor::sparse {

template <class T, int N>
struct pack_of {
  using type = vec<real_t<T>, N* int(sizeof(T))>;
};
template <>
struct pack_of<float, 1> {
  using type = float;
};
template <>
struct pack_of<double, 1> {
  using type = double;
};
// A single complex fills 16 bytes with two copies, so that no lane holds foreign data.
template <>
struct pack_of<c32, 1> {
  using type = vec<float, 16>;
};
template <class T, int N>
using pack = typename pack_of<T, N>::type;
template <class T>
using one = pack<T, 1>;

// x, as a value whose origin the compiler does not know: else it undoes the shift of a pointer by a constant
// and shifts every index instead, or keeps every place derived from an index in a register of its own.
template <class X>
[[gnu::always_inline]] inline X opaque(X x) {
  asm("" : "+r"(x));
  return x;
}

// Elements in the build's widest vector.
template <class T>
inline constexpr int widest = int(width / sizeof(T));

template <class T, int N>
[[gnu::always_inline]] inline pack<T, N> load(const T* p) {
  if constexpr (N == 1 && !is_complex<T>) {
    return *p;
  } else if constexpr (N == 1 && sizeof(T) == 8) {
    double both;
    std::memcpy(&both, p, sizeof both);
    return pack<T, 1>(vec<double, 16>{both, both});
  } else {
    return zor::load<pack<T, N>>(reinterpret_cast<const real_t<T>*>(p));
  }
}

template <class T, int N>
[[gnu::always_inline]] inline void store(T* p, pack<T, N> v) {
  std::memcpy(p, &v, N * sizeof(T));
}

// N elements from the addresses address(0) to address(N-1).
template <class T, int N, class Address>
[[gnu::always_inline]] inline pack<T, N> collect(const Address& address) {
  if constexpr (N == 1) {
    return load<T, 1>(address(0));
  } else if constexpr (N * sizeof(T) > 16) {
    using half = pack<T, N / 2>;
    const half low = collect<T, N / 2>(address);
    const half high = collect<T, N / 2>([&](int i) { return address(i + N / 2); });
    return [=]<int... L>(std::integer_sequence<int, L...>) __attribute__((always_inline)) {
      return __builtin_shufflevector(low, high, L...);
    }
    (std::make_integer_sequence<int, int(2 * sizeof(half) / sizeof(real_t<T>))>{});
  } else {
    using word = std::conditional_t<sizeof(T) == 8, double, float>;
    vec<word, int(N * sizeof(T))> v;
    for (int i = 0; i < N; ++i) {
      word w;
      std::memcpy(&w, address(i), sizeof w);
      v[i] = w;
    }
    return pack<T, N>(v);
  }
}

// Element i of a pack, as a pack of one.
template <class T, int N, int I>
[[gnu::always_inline]] inline one<T> element(pack<T, N> v) {
  if constexpr (N == 1) {
    return v;
  } else if constexpr (!is_complex<T>) {
    return v[I];
  } else if constexpr (sizeof(T) == 8) {
    return __builtin_shufflevector(v, v, 2 * I, 2 * I + 1, 2 * I, 2 * I + 1);
  } else {
    return __builtin_shufflevector(v, v, 2 * I, 2 * I + 1);
  }
}

// N copies of one element.
template <class T, int N>
[[gnu::always_inline]] inline pack<T, N> spread(one<T> e) {
  if constexpr (N == 1) {
    return e;
  } else if constexpr (!is_complex<T>) {
    return broadcast<pack<T, N>>(e);
  } else {
    return broadcast_pair<pack<T, N>>(e[0], e[1]);
  }
}
template <class T, int N>
[[gnu::always_inline]] inline pack<T, N> spread(const T* p) {
  return spread<T, N>(load<T, 1>(p));
}

// a x, or conj(a) x, in the subtracting form.
template <class T, bool Conj = false, class V>
[[gnu::always_inline]] inline V mul(V a, V x) {
  return mul_units<T, Conj>(a, x);
}

// The same for an element in memory, whose parts are loaded apart: a load spreads them without a shuffle.
template <class T, bool Conj = false>
[[gnu::always_inline]] inline one<T> mul_at(const T* a, one<T> x) {
  if constexpr (sizeof(T) == 16)
    return complex_mul<Conj>(broadcast<one<T>>(a->re), broadcast<one<T>>(a->im), x);
  else
    return mul<T, Conj>(load<T, 1>(a), x);
}

// a, or its conjugate by sign.
template <class T, class V>
[[gnu::always_inline]] inline V conj_if(bool conj, V a) {
  return conj_units_by_sign_if<T>(conj, a);
}

// A factor of many products with elements in memory: what they share is made once.
template <class T>
struct factor {
  one<T> value;

  explicit factor(one<T> x) : value(x) {}
  template <bool Conj>
  [[gnu::always_inline]] one<T> times(const T* a) const {
    return mul_at<T, Conj>(a, value);
  }
  // The same for N elements whose conjugates are taken before the product: directed rounding tells them from
  // those taken within.
  template <bool Conj, int N = 1>
  [[gnu::always_inline]] pack<T, N> times_conj(const T* a) const {
    return mul<T>(conj_if<T>(Conj, load<T, N>(a)), spread<T, N>(value));
  }
};
template <>
struct factor<c64> {
  one<c64> value, swapped;

  explicit factor(one<c64> x) : value(x), swapped(swap_pairs(x)) {}
  template <bool Conj>
  [[gnu::always_inline]] one<c64> times(const c64* a) const {
    const auto straight = broadcast<one<c64>>(a->re) * value, crossed = broadcast<one<c64>>(a->im) * swapped;
    return Conj ? straight + negate_pairs<1>(crossed) : subtract_add_pairs(straight, crossed);
  }
  template <bool Conj, int N = 1>
  [[gnu::always_inline]] pack<c64, N> times_conj(const c64* a) const {
    if constexpr (N > 1) {
      return mul<c64>(conj_if<c64>(Conj, load<c64, N>(a)), spread<c64, N>(value));
    } else {
      const auto re = broadcast<one<c64>>(a->re), im = broadcast<one<c64>>(a->im);
      return subtract_add_pairs(re * value, (Conj ? -im : im) * swapped);
    }
  }
};

// Elements, or their conjugates, each the factor of many packs: its parts are spread by loads, without a
// shuffle. A difference x - y z is taken as x + (-y) z, with the sign in the factor, not in each product.
template <class T, int N>
struct spread_factor {
  pack<T, N> value;

  struct signs {
    explicit signs(bool) {}
  };
  [[gnu::always_inline]] spread_factor(const T* a, signs) : value(spread<T, N>(a)) {}
  [[gnu::always_inline]] pack<T, N> times(pack<T, N> x) const { return value * x; }
};
template <class T, int N>
requires is_complex<T>
struct spread_factor<T, N> {
  using V = pack<T, N>;
  V re, im;

  struct signs {
    V of_im;

    explicit signs(bool conj) : of_im(conj ? negate_pairs<1>(V{}) : negate_pairs<0>(V{})) {}
  };
  [[gnu::always_inline]] spread_factor(const T* a, signs s)
      : re(broadcast<V>(a->re)), im(V(bits_t<V>(broadcast<V>(a->im)) ^ bits_t<V>(s.of_im))) {}
  [[gnu::always_inline]] V times(V x) const {
    asm("" : "+v"(x));  // Held in a register: else x is loaded twice, once for each use.
    return re * x + im * swap_pairs(x);
  }
};

}  // namespace zor::sparse
