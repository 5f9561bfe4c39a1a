// SPDX-License-Identifier: MIT
// What the matrix-vector kernels share: the scaling of y, single terms of a sum, sums of columns.
#pragma once

#include "serv/mul_add.h"

namespace zor {

// Asks for the cache line at p, which may be any address, in the second-level cache: it has more requests
// under way at a time than the first.
[[gnu::always_inline]] inline void touch_second_level(const void* p) { __builtin_prefetch(p, 0, 2); }

// y := beta y. A beta of 0 stores zeros and reads nothing, one of 1 does nothing.
template <class T>
void scale(zor_int n, T beta, T* y, zor_int incy) {
  using E = element<T>;
  if (is_one(beta)) return;
  if (is_zero(beta)) {
    for (zor_int i = 0; i < n; ++i) store_units(y + i * incy, E{});
  } else if (incy == 1) {
    for_ranges<T>(0, n, [&]<int Bytes>(zor_int i, zor_int last) {
      using V = vec<real_t<T>, Bytes>;
      const factor<T, V> f = make_factor<V>(beta);
      for (; i < last; i += units<T, Bytes>) store_units(y + i, f * load_units<V>(y + i));
    });
  } else {
    for (zor_int i = 0; i < n; ++i)
      store_units(y + i * incy, make_factor<E>(beta) * load_units<E>(y + i * incy));
  }
}

// One element in a register. A real number is no vector of one lane, which the compiler would keep in memory.
template <class T>
using value = std::conditional_t<is_complex<T>, element<T>, T>;
template <class T>
[[gnu::always_inline]] inline value<T> load_value(const T* p) {
  if constexpr (is_complex<T>)
    return load_units<element<T>>(p);
  else
    return load_element(p);
}
template <class T>
[[gnu::always_inline]] inline void store_value(T* p, value<T> v) {
  if constexpr (is_complex<T>)
    store_units(p, v);
  else
    store_element(p, v);
}

// The element in it; through memory the vector would not stay in its register.
template <class T>
[[gnu::always_inline]] inline T element_of(value<T> v) {
  if constexpr (is_complex<T>)
    return {v[0], v[1]};
  else
    return v;
}

// Single elements as a vector, and one of them. Through memory the vector would wait for the stores of its
// elements.
template <class V, class E, int Count>
[[gnu::always_inline]] inline V join_values(const E (&v)[Count]) {
  return [&]<int... I>(std::integer_sequence<int, I...>) __attribute__((always_inline)) {
    if constexpr (std::is_floating_point_v<E>)
      return V{v[I]...};
    else
      return V{v[I / 2][I % 2]...};
  }
  (std::make_integer_sequence<int, lanes<V>>{});
}
template <class T, int I, class V>
[[gnu::always_inline]] inline value<T> value_at(V v) {
  if constexpr (is_complex<T>)
    return slice<int(sizeof(T)), I>(v);
  else
    return v[I];
}
template <class T, class V, int Count>
[[gnu::always_inline]] inline void split_values(V from, value<T> (&v)[Count]) {
  [&]<int... I>(std::integer_sequence<int, I...>) __attribute__((always_inline)) {
    ((v[I] = value_at<T, I>(from)), ...);
  }
  (std::make_integer_sequence<int, Count>{});
}

// s a, with Conj s conj(a).
template <bool Conj = false, class T>
[[gnu::always_inline]] inline value<T> times_element(T s, value<T> a) {
  if constexpr (is_complex<T>)
    return make_factor<element<T>, Conj>(s) * a;
  else
    return s * a;
}
// sum + s a, with Conj sum + s conj(a).
template <bool Conj = false, class T>
[[gnu::always_inline]] inline value<T> plus_term(value<T> sum, T s, value<T> a) {
  if constexpr (is_complex<T>)
    return mul_add(make_factor<element<T>, Conj>(s), a, sum);
  else
    return mul_add(s, a, sum);
}
// The same of an element a in memory.
template <bool Conj = false, class T>
[[gnu::always_inline]] inline value<T> plus_term(value<T> sum, T s, const T* a) {
  return plus_term<Conj>(sum, s, load_value(a));
}
// y := y + s a of one element each.
template <bool Conj = false, class T>
[[gnu::always_inline]] inline void add_term(T s, const T* a, T* y) {
  store_value(y, plus_term<Conj>(load_value(y), s, a));
}

// Vectors of so many bytes add columns. Most of 64 bytes straddle a line where columns are no whole number of
// lines long: measured on Zen 4, single products of order 500 gain 10 %, others nothing.
template <class T>
inline constexpr int column_width = sizeof(T) == 4 && width > 32 ? 32 : width;

// y := y + s[0] a_0 + ... + s[Columns-1] a_(Columns-1), one addition after the other; column(j) is where a_j
// stands. Unit strides.
template <int Columns, class T, class Column>
void add_columns(zor_int m, const T* s, const Column& column, T* y) {
  const Column at = column;  // a copy, which the loops keep in registers
  for_ranges<T, narrowing{column_width<T>}>(0, m, [&]<int Bytes>(zor_int i, zor_int last) {
    using V = vec<real_t<T>, Bytes>;
    factor<T, V> f[Columns];
    for (int j = 0; j < Columns; ++j) f[j] = make_factor<V>(s[j]);
    for (; i < last; i += units<T, Bytes>) {
      V sum = load_units<V>(y + i);
      for (int j = 0; j < Columns; ++j) sum = mul_add(f[j], load_units<V>(at(j) + i), sum);
      store_units(y + i, sum);
    }
  });
}
// The same with columns lda apart.
template <int Columns, class T>
void add_columns(zor_int m, const T* s, const T* a, zor_int lda, T* y) {
  add_columns<Columns>(
      m, s, [=](int j) __attribute__((always_inline)) { return a + j * lda; }, y);
}
// One column.
template <class T>
void add_column(zor_int m, T s, const T* a, T* y) {
  add_columns<1>(m, &s, a, 0, y);
}

// Running sums over rows, a lane a column, come from squares of columns that are transposed in registers. In
// vectors of 32 bytes the transposition takes the fewest operations a byte; columns beyond those of a vector
// are further sums side by side.
inline constexpr int square_width = width < 32 ? width : 32;
// The bytes of a vector for squares over `Columns` columns at least, which are 1 or fill 16 bytes.
template <class T, int Columns>
inline constexpr int square_bytes = Columns* int(sizeof(T)) < square_width ? Columns* int(sizeof(T))
                                                                           : square_width;
// Half as many columns, or a single one where half of them do not fill 16 bytes.
template <class T, int Columns>
inline constexpr int fewer_columns = Columns / 2 * int(sizeof(T)) >= 16 ? Columns / 2 : 1;

// A square of as many rows as the vector has elements, `at(l)` being column l at its first row; row i is
// square[i] after the transposition.
template <class T, class V, int U, class At>
[[gnu::always_inline]] inline void load_square(V (&square)[U], const At& at) {
#pragma GCC unroll 16
  for (int l = 0; l < U; ++l) square[l] = load_units<V>(at(l));
}
template <class T, class V, int U>
[[gnu::always_inline]] inline void transpose_square(V (&square)[U]) {
  transpose_units<int(sizeof(T) / sizeof(real_t<T>))>(square);
}

}  // namespace zor
