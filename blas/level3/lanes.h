// SPDX-License-Identifier: MIT
// Neighbouring elements as lanes, the parts of complex ones apart.
#pragma once

#include "serv/element.h"

namespace zor::level3 {

template <class T, class V>
struct lane_value_of {
  using type = V;
};
template <class V>
struct lane_value_of<c32, V> {
  using type = complex_lanes<V>;
};
template <class V>
struct lane_value_of<c64, V> {
  using type = complex_lanes<V>;
};

// Elements as lanes: real ones as they are, complex ones with their parts apart. `units` of them stand in a
// vector.
template <class T, class V>
struct lane_units {
  static constexpr int units = int(sizeof(V) / sizeof(T)), per_value = lanes<V> / units;
  using value = typename lane_value_of<T, V>::type;

  [[gnu::always_inline]] static value join(const V (&part)[per_value]) {
    if constexpr (is_complex<T>)
      return {unzip<0>(part[0], part[1]), unzip<1>(part[0], part[1])};
    else
      return part[0];
  }
  [[gnu::always_inline]] static void split(value x, V (&part)[per_value]) {
    if constexpr (is_complex<T>) {
      part[0] = zip_low(x.re, x.im);
      part[1] = zip_high(x.re, x.im);
    } else {
      part[0] = x;
    }
  }
};

// Neighbouring complex elements with their parts apart, as many as V has lanes; V may be a plain real number.
template <class V, class T>
[[gnu::always_inline]] inline complex_lanes<V> load_parts(const T* p) {
  if constexpr (lane_count<V> == 1) {
    return {p->re, p->im};
  } else {
    constexpr int half = lane_count<V> / 2;
    return lane_units<T, V>::join({load_units<V>(p), load_units<V>(p + half)});
  }
}
template <class V, class T>
[[gnu::always_inline]] inline void store_parts(T* p, complex_lanes<V> x) {
  if constexpr (lane_count<V> == 1) {
    *p = {x.re, x.im};
  } else {
    V part[2];
    lane_units<T, V>::split(x, part);
    store_units(p, part[0]);
    store_units(p + lane_count<V> / 2, part[1]);
  }
}
template <class V, class R>
[[gnu::always_inline]] inline V load_reals(const R* p) {
  V v;
  __builtin_memcpy(&v, p, sizeof v);
  return v;
}
template <class V, class R>
[[gnu::always_inline]] inline void store_reals(R* p, V v) {
  __builtin_memcpy(p, &v, sizeof v);
}

}  // namespace zor::level3
