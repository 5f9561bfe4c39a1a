// SPDX-License-Identifier: MIT
// The entries of one CSR row as the products with one vector pass over them, several times if need be.
#pragma once

#include "spblas/csr/mvout/mvout.h"
#include "spblas/csr/runs.h"
#include "spblas/row_dot.h"

namespace zor::sparse {

// Where an entry must stand, as seen from its row, to be visited: beyond the diagonal of a triangle, or on it
// as well. Side is that of the view.
template <int Side, bool Diagonal>
struct outside {
  static bool holds(zor_int c, zor_int r) { return Side * (c - r) > (Diagonal ? -1 : 0); }
  // Whether no lane of a vector of columns stands there.
  template <class V>
  [[gnu::always_inline]] static bool none(V c, lane_t<V> r) {
    if constexpr (Diagonal)
      return sign_mask(V(Side > 0 ? c - r : r - c)) == (1u << lanes<V>)-1;
    else
      return sign_mask(V(Side > 0 ? r - c : c - r)) == 0;
  }
};
struct on_diagonal {
  static bool holds(zor_int c, zor_int r) { return c == r; }
  template <class V>
  [[gnu::always_inline]] static bool none(V c, lane_t<V> r) {
    return sign_mask(V((c - r) | (r - c))) == (1u << lanes<V>)-1;
  }
};

// Count is the number of entries where it is not 0; see for_rows.
template <int Count, class T, class I>
struct row_entries {
  const T* val;
  const I* indx;
  zor_int count;

  template <bool Conj>
  [[gnu::always_inline]] one<T> dot(const T* x) const {
    return row_dot_of<Count, T, Conj>(stored_entries<T, I>{val, indx}, count, x);
  }
  // Whether every column is beyond the one before it.
  [[gnu::always_inline]] bool ascends() const {
    bool up = true;
    if constexpr (Count > 0) {
#pragma GCC unroll 8
      for (int i = 1; i < Count; ++i) up = up && indx[i - 1] < indx[i];
    } else {
      using V = vec<I>;
      zor_int i = 1;
      for (; up && i + lanes<V> <= count; i += lanes<V>)
        up = sign_mask(V(zor::load<V>(indx + i - 1) - zor::load<V>(indx + i))) == (1u << lanes<V>)-1;
      for (; up && i < count; ++i) up = indx[i - 1] < indx[i];
    }
    return up;
  }
  // Calls visit(a, c) for every entry in order: where its value stands, and its column.
  template <class Visit>
  [[gnu::always_inline]] void each(const Visit& visit) const {
    if constexpr (Count > 0) {
#pragma GCC unroll 8
      for (int i = 0; i < Count; ++i) visit(val + i, zor_int(indx[i]));
    } else {
      for (zor_int i = 0; i < count; ++i) visit(val + i, zor_int(indx[i]));
    }
  }
  // The same for those entries alone that stand at a Place as seen from row r. A long row is looked at by
  // vectors of columns.
  template <class Place, class Visit>
  [[gnu::always_inline]] void each_in(Place, zor_int r, const Visit& visit) const {
    const auto look = [&](zor_int i) __attribute__((always_inline)) {
      const zor_int c = indx[i];
      if (Place::holds(c, r)) visit(val + i, c);
    };
    if constexpr (Count > 0) {
#pragma GCC unroll 8
      for (int i = 0; i < Count; ++i) look(i);
    } else {
      constexpr int n = lanes_of<I>;
      zor_int i = 0;
      for (; i + n <= count; i += n) {
        if (Place::none(zor::load<vec<I>>(indx + i), I(r))) continue;
        for (int j = 0; j < n; ++j) look(i + j);
      }
      for (; i < count; ++i) look(i);
    }
  }
  // Calls visit(term, c) for every entry in order; term<N>(a) makes the terms of N values from a on.
  template <class Term, class Visit>
  [[gnu::always_inline]] void each_term(const Term& term, const Visit& visit) const {
    // Complex elements by themselves take no shuffles, which pays in short rows.
    constexpr int most = is_complex<T> ? (Count > 0 ? 1 : 2) : 4, n = most < widest<T> ? most : widest<T>;
    const auto pass = [&]<int N>(zor_int i) __attribute__((always_inline)) {
      const pack<T, N> terms = term.template operator()<N>(val + i);
      [&]<int... E>(std::integer_sequence<int, E...>) __attribute__((always_inline)) {
        (visit(element<T, N, E>(terms), zor_int(indx[i + E])), ...);
      }
      (std::make_integer_sequence<int, N>{});
    };
    const zor_int known = Count > 0 ? Count : count;
    zor_int i = 0;
#pragma GCC unroll 4
    for (; i + n <= known; i += n) pass.template operator()<n>(i);
#pragma GCC unroll 4
    for (; i < known; ++i) pass.template operator()<1>(i);
  }
};

// Calls visit(r, entries) for every row of a product; runs as Rule says.
template <run_rule Rule, class T, class I, class Visit>
[[gnu::always_inline]] inline void each_row(const vector_product<T, I>& p, const Visit& visit) {
  for_rows<Rule>(
      p.a, p.first, p.last, [&]<int Count>(zor_int r, zor_int k) __attribute__((always_inline)) {
        visit(r, row_entries<Count, T, I>{opaque(p.a.val + k), opaque(p.a.indx + k), opaque(p.a.end(r)) - k});
      });
}

}  // namespace zor::sparse
