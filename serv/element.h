// SPDX-License-Identifier: MIT
// Vectors of elements, real or complex: their types, loads and stores, conjugation and products in each
// stated form, and the loop over a run that narrows its vectors at the end. Single elements stand in
// serv/scalar.h. Forms that round differently are functions of their own, named by what they compute.
#pragma once

#include "serv/vec.h"

namespace zor {

// ---- Types and parts.

// A vector of Bytes, or the plain real number where that is all it would hold.
template <class R, int Bytes>
struct vec_or_real_of {
  using type = vec<R, Bytes>;
};
template <>
struct vec_or_real_of<float, 4> {
  using type = float;
};
template <>
struct vec_or_real_of<double, 8> {
  using type = double;
};
template <class R, int Bytes>
using vec_or_real = typename vec_or_real_of<R, Bytes>::type;

// The real type and the number of lanes of a vector; a plain real number has one.
template <class V>
struct real_of_lanes {
  using type = lane_t<V>;
  static constexpr int count = lanes<V>;
};
template <>
struct real_of_lanes<float> {
  using type = float;
  static constexpr int count = 1;
};
template <>
struct real_of_lanes<double> {
  using type = double;
  static constexpr int count = 1;
};
template <class V>
using real_of = typename real_of_lanes<V>::type;
template <class V>
inline constexpr int lane_count = real_of_lanes<V>::count;

// Complex values with their parts apart, one a lane. V is a vector or a plain real number.
template <class V>
struct complex_lanes {
  V re, im;
};
template <class V>
[[gnu::always_inline]] inline complex_lanes<V> operator+(complex_lanes<V> a, complex_lanes<V> b) {
  return {a.re + b.re, a.im + b.im};
}
template <class V>
[[gnu::always_inline]] inline complex_lanes<V> operator-(complex_lanes<V> a, complex_lanes<V> b) {
  return {a.re - b.re, a.im - b.im};
}

// ---- Loads and stores.

// One element as a vector: one lane, or a real and an imaginary lane.
template <class T>
using element = vec<real_t<T>, sizeof(T)>;
// Elements of T in a vector of Bytes.
template <class T, int Bytes = width>
inline constexpr int units = int(Bytes / sizeof(T));

// Vectors of elements as they stand in memory; the parts of a complex one are neighbouring lanes.
template <class V, class T>
[[gnu::always_inline]] inline V load_units(const T* p) {
  return load<V>(reals(p));
}
template <class V, class T>
[[gnu::always_inline]] inline void store_units(T* p, V v) {
  store<V>(reals(p), v);
}

// ---- Conjugation of vectors of elements of T, as conj_by_sign_if and conj_by_subtraction do it.

// The choice takes no branch.
template <class T, class V>
[[gnu::always_inline]] inline V conj_units_by_sign_if(bool conj, V v) {
  if constexpr (is_complex<T>) {
    using lane = typename bits_of<V>::lane;
    const lane sign = conj ? lane(uint64_t(1) << (8 * sizeof(lane) - 1)) : 0;
    return V(bits_t<V>(v) ^ broadcast_pair<bits_t<V>>(0, sign));
  } else {
    return v;
  }
}
template <class T, class V>
[[gnu::always_inline]] inline V conj_units_by_subtraction(V v) {
  if constexpr (is_complex<T>)
    return pick_odd(v, V{} - v);
  else
    return v;
}

// ---- Products, rounded once an operation.

// The subtracting form, x y of complex lanes; the parts of y are vectors, or constants of all lanes.
template <class V, class W>
[[gnu::always_inline]] inline complex_lanes<V> mul(complex_lanes<V> x, W re, W im) {
  return {x.re * re - x.im * im, x.re * im + x.im * re};
}
// The subtracting form of vectors of elements of T, x conjugated within the product with ConjX.
template <class T, bool ConjX = false, class V>
[[gnu::always_inline]] inline V mul_units(V x, V y) {
  if constexpr (is_complex<T>)
    return complex_mul<ConjX>(x, y);
  else
    return x * y;
}

// The adding form: a factor s of many products s v with vectors of elements, in which the sign of the
// subtracted product stands in the factor: s v = (vr sr + vi (-si), vi sr + vr si). With Conj it makes
// s conj(v) = (vr sr + vi si, vi (-sr) + vr si).
template <class T, class V>
struct factor {
  V straight;
  V crossed;
};
template <class V, bool Conj = false, class T>
[[gnu::always_inline]] inline factor<T, V> make_factor(T s) {
  if constexpr (is_complex<T>) {
    const V re = broadcast<V>(s.re), im = broadcast<V>(s.im);
    return {Conj ? negate_pairs<1>(re) : re, Conj ? im : negate_pairs<0>(im)};
  } else {
    return {broadcast<V>(s), V{}};
  }
}
template <class T, class V>
[[gnu::always_inline]] inline V operator*(const factor<T, V>& f, V v) {
  if constexpr (is_complex<T>)
    return v * f.straight + swap_pairs(v) * f.crossed;
  else
    return v * f.straight;
}
// The adding form of two elements.
template <class T>
[[gnu::always_inline]] inline T mul_adding(T x, T y) {
  T p;
  store_units(&p, make_factor<element<T>>(x) * load_units<element<T>>(&y));
  return p;
}

// ---- Runs. For work without sums across elements, where the grouping cannot show.

// The vectors that a loop over a run takes: the widest while they fit, then each half of them at most once,
// down to `floor` bytes, then single elements. With `least` the loop ends with vectors of so many bytes and
// leaves the rest.
struct narrowing {
  int widest = width, floor = 16, least = 0;
};

// Calls body.operator()<Bytes>(i, end) for ranges of whole vectors of Bytes that together cover first to last
// - 1 in rising order: what the vectors of a range share is made once. Returns where it stopped.
template <class T, narrowing How = narrowing{}, class Body>
[[gnu::always_inline]] inline zor_int for_ranges(zor_int first, zor_int last, const Body& body) {
  constexpr int bytes = How.widest, step = units<T, bytes>;
  const zor_int end = last > first ? first + (last - first) / step * step : first;
  if (end > first) body.template operator()<bytes>(first, end);
  if constexpr (step > 1) {
    constexpr int next = bytes > How.floor ? bytes / 2 : int(sizeof(T));
    if constexpr (next >= How.least)
      if (end < last) return for_ranges<T, narrowing{next, How.floor, How.least}>(end, last, body);
  }
  return end;
}

// The same, body.operator()<Bytes>(i) being called for every vector; Unroll of the widest ones stand side by
// side.
template <class T, narrowing How = narrowing{}, int Unroll = 1, bool Once = false, class Body>
[[gnu::always_inline]] inline zor_int for_vectors(zor_int first, zor_int last, const Body& body) {
  constexpr int bytes = How.widest, step = units<T, bytes>;
  zor_int i = first;
  if constexpr (Once) {
    if (i + step <= last) {
      body.template operator()<bytes>(i);
      i += step;
    }
  } else {
    if constexpr (Unroll > 1) {
      for (; i + Unroll * step <= last; i += Unroll * step) {
#pragma GCC unroll 16
        for (int k = 0; k < Unroll; ++k) body.template operator()<bytes>(i + k * step);
      }
    }
    for (; i + step <= last; i += step) body.template operator()<bytes>(i);
  }
  if constexpr (step > 1) {
    constexpr bool halve = bytes > How.floor;
    constexpr int next = halve ? bytes / 2 : int(sizeof(T));
    if constexpr (next >= How.least)
      return for_vectors<T, narrowing{next, How.floor, How.least}, 1, 2 * next == bytes>(i, last, body);
  }
  return i;
}

}  // namespace zor
