// SPDX-License-Identifier: MIT
// Solves of one and of many right-hand sides in place whose rows are walked alike for both: the transposed
// ones and those of a diagonal. Rows are sorted by ascending column.
#pragma once

#include "spblas/csr/pivot.h"
#include "spblas/csr/thresholds.h"
#include "spblas/panel.h"
#include "spblas/solve_order.h"

namespace zor::sparse {

// The one right-hand side of a vector, and several of a dense operand, as push_rows passes over them.
struct one_right_hand_side {
  static constexpr bool is_one = true;
  template <class T, class Body>
  [[gnu::always_inline]] void for_each_pack(const Body& body) const {
    body.template operator()<1>(0);
  }
};
struct right_hand_sides {
  static constexpr bool is_one = false;
  zor_int first, last;
  template <class T, class Body>
  [[gnu::always_inline]] void for_each_pack(const Body& body) const {
    for_packs<T>(first, last, body);
  }
};

// Of one right-hand side the element that the next row begins with, since memory would give it back late.
template <class T>
struct kept_element {
  one<T> value{};
  zor_int row = -1;
};

// The entries of a row away from its pivot.
template <class T, class I>
struct pushed_entries {
  csr<T, I> a;
  zor_int start, count, step;

  // x(col, j) = x(col, j) + a t, or + (-a) t with Negated, for a pack of right-hand sides from j on.
  template <int N, bool Negated, bool RowMajor>
  [[gnu::always_inline]] pack<T, N> push_one(zor_int k, bool conj, pack<T, N> t, dense<T, RowMajor> x,
                                             zor_int j) const {
    const auto entry = spread<T, N>(conj_if<T>(conj, load<T, 1>(a.val + k)));
    const pack<T, N> sum = x.template get<N>(a.column(k), j) + mul<T>(Negated ? -entry : entry, t);
    x.template put<N>(a.column(k), j, sum);
    return sum;
  }
  template <int N, bool Negated, bool RowMajor>
  [[gnu::always_inline]] void push(bool conj, pack<T, N> t, dense<T, RowMajor> x, zor_int j) const {
    for (zor_int i = 0, k = start; i < count; ++i, k += step) push_one<N, Negated>(k, conj, t, x, j);
  }
  // The same of one right-hand side and at least one entry. x of row `next` is kept when the first entry of a
  // short row alone has met it, which takes one branch a row and none an entry.
  template <bool Negated, bool RowMajor>
  [[gnu::always_inline]] void push_and_keep(bool conj, one<T> t, dense<T, RowMajor> x, zor_int next,
                                            kept_element<T>& kept) const {
    kept.row = -1;
    if (count > thresholds::longest_keeping_row) return push<1, Negated>(conj, t, x, 0);
    kept.value = push_one<1, Negated>(start, conj, t, x, 0);
    zor_int met = a.column(start) == next ? next : -1;
    for (zor_int i = 1, k = start + step; i < count; ++i, k += step) {
      push_one<1, Negated>(k, conj, t, x, 0);
      met = a.column(k) == next ? -1 : met;
    }
    kept.row = met;
  }
};

// Whether a (0 - x) is (-a) x whatever a is: of 0 the signs differ. Not asked of complex elements.
template <class V>
[[gnu::always_inline]] inline bool may_negate(V x) {
  if constexpr (std::is_arithmetic_v<V>)
    return x != 0;
  else
    return false;
}

// Transposed solves: each solved element is pushed into those that depend on it, x(col) = x(col) + a t with
// t = 0 - x(r), leftwards from the pivot in lower triangles and rightwards in upper ones. A unit diagonal
// takes the stopping position as an ordinary entry unless it is the diagonal.
template <class T, bool RowMajor, class I, class RightHandSides>
void push_rows(csr<T, I> a, view v, zor_int m, dense<T, RowMajor> x, RightHandSides sides) {
  constexpr bool is_one = RightHandSides::is_one;
  const bool conj = v.conjugated(), lower = v.triangle == 'l';
  const zor_int step = lower ? -1 : 1;
  kept_element<T> kept;
  in_order(
      v.solves_upwards(), m, [&](zor_int row) __attribute__((always_inline)) {
        const zor_int stop = lower ? walk_backward(a, row) : walk_forward(a, row);
        const zor_int beyond = lower ? a.begin(row) - 1 : a.end(row);
        const bool skip = !v.unit() || (stop != beyond && a.column(stop) == row);
        const zor_int start = skip ? stop + step : stop;
        const pushed_entries<T, I> entries{a, start, (beyond - start) * step, step};
        sides.template for_each_pack<T>([&]<int N>(zor_int j) __attribute__((always_inline)) {
          pack<T, N> xr;
          if constexpr (is_one)
            xr = kept.row == row ? kept.value : x.template get<N>(row, j);
          else
            xr = x.template get<N>(row, j);
          if (!v.unit()) {
            xr = divided<T, N>(xr, value_at(a, stop, conj));
            x.template put<N>(row, j, xr);
          }
          if (entries.count < 1) return;  // 0 - x(r) would raise flags that nothing asks for
          // With the sign in a the next row waits for a subtraction less.
          if constexpr (!is_one)
            entries.template push<N, false>(conj, pack<T, N>{} - xr, x, j);
          else if (may_negate(xr)) [[likely]]
            entries.template push_and_keep<true>(conj, xr, x, row + step, kept);
          else
            entries.template push_and_keep<false>(conj, pack<T, N>{} - xr, x, row + step, kept);
        });
      });
}

// Diagonal view: x(r) = x(r) (alpha / pivot), the pivot found by the forward walk. The one solve that reads
// alpha.
template <class T, bool RowMajor, class I>
void scale_by_pivots(csr<T, I> a, bool conj, zor_int m, T alpha, dense<T, RowMajor> x,
                     right_hand_sides sides) {
  for (zor_int row = 0; row < m; ++row) {
    const T q = quotient(alpha, value_at(a, walk_forward(a, row), conj));
    sides.for_each_pack<T>([&]<int N>(zor_int j) __attribute__((always_inline)) {
      x.template put<N>(row, j, mul<T>(x.template get<N>(row, j), spread<T, N>(&q)));
    });
  }
}

}  // namespace zor::sparse
