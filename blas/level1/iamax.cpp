// SPDX-License-Identifier: MIT
// The 1-based index of the largest or smallest magnitude, |re| + |im| in the working precision for complex.
// The first element is the current one; a later element replaces it unless the current magnitude truly is at
// least (for the smallest: at most) as large. So ties go to the first occurrence, a NaN is taken at once, and
// the element after a NaN replaces it. n or incx of 0 or less gives 0, n of 1 gives 1 and compares nothing.
// Otherwise a NaN among the elements raises the invalid flag, as a comparison does.
//
// Without NaN that rule is the first occurrence of the extreme value, so contiguous vectors are searched in
// blocks by lanes, and only the block that holds the winner is looked through for the place. A block with a
// NaN, or one that follows a current NaN, goes element by element.
#include "zor/signatures/blas.h"

#include "blas/level1/vector.h"
#include "blas/level1/walk.h"

namespace zor {
namespace {

struct largest {
  template <class R>
  static bool keeps(R current, R other) {
    return current >= other;
  }
  template <class V>
  static V pick(V a, V b) {
    return max_lanes(a, b);
  }
};
struct smallest {
  template <class R>
  static bool keeps(R current, R other) {
    return current <= other;
  }
  template <class V>
  static V pick(V a, V b) {
    return min_lanes(a, b);
  }
};

// Magnitudes of the elements in a vector; a complex element's stands in both of its lanes.
template <class T>
[[gnu::always_inline]] inline vec<real_t<T>> magnitudes(const real_t<T>* x) {
  const vec<real_t<T>> a = abs_lanes(load<vec<real_t<T>>>(x));
  if constexpr (is_complex<T>)
    return a + swap_pairs(a);
  else
    return a;
}

template <class T>
struct current_element {
  real_t<T> value;
  zor_int index;
};

template <class T, class Order>
void scan(current_element<T>& current, zor_int first, zor_int last, const T* x, zor_int incx) {
  for (zor_int i = first; i < last; ++i) {
    const real_t<T> m = magnitude(load_element(x + i * incx));
    if (!Order::keeps(current.value, m)) current = {m, i};
  }
}

// The extreme lane of a vector that holds no NaN.
template <class Order, class V>
[[gnu::always_inline]] inline lane_t<V> extreme_lane(V v) {
  if constexpr (sizeof(V) > 16) {
    constexpr int half = int(sizeof(V) / 2);
    return extreme_lane<Order>(Order::pick(slice<half, 0>(v), slice<half, 1>(v)));
  } else {
    lane_t<V> extreme = v[0];
    for (int k = 1; k < lanes<V>; ++k) extreme = Order::pick(lane_t<V>(v[k]), extreme);
    return extreme;
  }
}

// The extreme of `count` reals, at least one vector of them; NaN when one of them is.
template <class T, class Order>
[[gnu::always_inline]] inline real_t<T> block_extreme(const real_t<T>* x, zor_int count) {
  using V = vec<real_t<T>>;
  constexpr zor_int L = lanes<V>;
  const V first = magnitudes<T>(x), last = magnitudes<T>(x + count - L);
  V best[4] = {Order::pick(first, last), first, first, first};
  nan_watch<V> nan;
  nan.see(first, last);
  zor_int i = L;
  for (; i + 4 * L <= count; i += 4 * L) {
    V m[4];
#pragma GCC unroll 4
    for (int k = 0; k < 4; ++k) {
      m[k] = magnitudes<T>(x + i + k * L);
      best[k] = Order::pick(m[k], best[k]);
    }
    nan.see(m[0], m[1]);
    nan.see(m[2], m[3]);
  }
  for (; i + L <= count; i += L) {
    const V m = magnitudes<T>(x + i);
    best[0] = Order::pick(m, best[0]);
    nan.see(m, m);
  }
  if (nan.any()) return __builtin_nan("");
  return extreme_lane<Order>(Order::pick(Order::pick(best[0], best[1]), Order::pick(best[2], best[3])));
}

// The first place, in elements, where the magnitude is `value`, which one of `count` reals has.
template <class T>
zor_int find(const real_t<T>* x, zor_int count, real_t<T> value) {
  using V = vec<real_t<T>>;
  constexpr zor_int L = lanes<V>;
  zor_int i = 0;
  for (; i + L <= count; i += L) {
    const unsigned hit = sign_mask(magnitudes<T>(x + i) == broadcast<V>(value));
    if (hit != 0) return (i + __builtin_ctz(hit)) / parts<T>;
  }
  return (count - L + __builtin_ctz(sign_mask(magnitudes<T>(x + count - L) == broadcast<V>(value)))) /
         parts<T>;
}

template <class T, class Order>
zor_int search_unit(zor_int n, const T* x) {
  using R = real_t<T>;
  constexpr zor_int least = lanes_of<R> / parts<T>;
  constexpr zor_int block = thresholds::search_block_bytes / zor_int(sizeof(T));
  current_element<T> current = {magnitude(load_element(x)), 0};
  if (n < least) {
    scan<T, Order>(current, 1, n, x, 1);
    return current.index + 1;
  }
  // The block [found, found_end) holds the current value first, at a place not yet looked up.
  zor_int found = -1, found_end = 0;
  for (zor_int i = 0; i < n; i += block) {
    const zor_int end = n - i < block ? n : i + block;
    // The last block may have less than a vector: it reaches back over elements that cannot win again.
    const zor_int from = end - i < least ? end - least : i;
    const R* p = reinterpret_cast<const R*>(x + from);
    const R extreme =
        current.value == current.value ? block_extreme<T, Order>(p, (end - from) * parts<T>) : current.value;
    if (extreme != extreme) {
      const zor_int before = current.index;
      if (found >= 0) current.index = -1;
      scan<T, Order>(current, i, end, x, 1);
      if (current.index >= 0)
        found = -1;
      else
        current.index = before;
    } else if (!Order::keeps(current.value, extreme)) {
      current.value = extreme;
      found = from;
      found_end = end;
    }
  }
  if (found < 0) return current.index + 1;
  const R* p = reinterpret_cast<const R*>(x + found);
  return found + find<T>(p, (found_end - found) * parts<T>, current.value) + 1;
}

template <class T, class Order>
zor_int search(zor_int n, const T* x, zor_int incx) {
  if (n < 1 || incx < 1) return 0;
  if (n == 1) return 1;
  if (incx == 1) return search_unit<T, Order>(n, x);
  current_element<T> current = {magnitude(load_element(x)), 0};
  scan<T, Order>(current, 1, n, x, incx);
  return current.index + 1;
}

}  // namespace

template <class T>
zor_int iamax(zor_int n, const T* x, zor_int incx) {
  return search<T, largest>(n, x, incx);
}
template <class T>
zor_int iamin(zor_int n, const T* x, zor_int incx) {
  return search<T, smallest>(n, x, incx);
}

}  // namespace zor

#define ROW_IAMAX(name, T) \
  extern "C" SIG_IAMAX(name, T) { return zor::iamax(*n, x, *incx); }
#define ROW_IAMIN(name, T) \
  extern "C" SIG_IAMAX(name, T) { return zor::iamin(*n, x, *incx); }
#include "zor/tables/blas_vector.inc"
