// SPDX-License-Identifier: MIT
// Solves of one and of many right-hand sides in place whose rows are walked alike for both: the transposed
// ones and those of a diagonal. Rows are sorted by ascending column.
#pragma once

#include "spblas/csr/pivot.h"
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

// Transposed solves: each solved element is pushed into those that depend on it, x(col) = x(col) + a t with
// t = 0 - x(r), leftwards from the pivot in lower triangles and rightwards in upper ones. A unit diagonal
// takes the stopping position as an ordinary entry unless it is the diagonal. Of one right-hand side the
// element that the next row begins with is kept, since memory would give it back late.
template <class T, bool RowMajor, class I, class RightHandSides>
void push_rows(csr<T, I> a, view v, zor_int m, dense<T, RowMajor> x, RightHandSides sides) {
  const bool conj = v.conjugated(), lower = v.triangle == 'l';
  const zor_int step = lower ? -1 : 1;
  one<T> kept{};
  zor_int kept_row = -1;
  in_order(
      v.solves_upwards(), m, [&](zor_int row) __attribute__((always_inline)) {
        const zor_int stop = lower ? walk_backward(a, row) : walk_forward(a, row);
        const zor_int beyond = lower ? a.begin(row) - 1 : a.end(row);
        const bool skip = !v.unit() || (stop != beyond && a.column(stop) == row);
        const zor_int start = skip ? stop + step : stop;
        const zor_int count = (beyond - start) * step;
        sides.template for_each_pack<T>([&]<int N>(zor_int j) __attribute__((always_inline)) {
          pack<T, N> xr;
          if constexpr (RightHandSides::is_one)
            xr = kept_row == row ? kept : x.template get<N>(row, j);
          else
            xr = x.template get<N>(row, j);
          if (!v.unit()) {
            xr = divided<T, N>(xr, value_at(a, stop, conj));
            x.template put<N>(row, j, xr);
          }
          if (count < 1) return;  // 0 - x(r) would raise flags that nothing asks for
          const pack<T, N> t = pack<T, N>{} - xr;
          for (zor_int i = 0, k = start; i < count; ++i, k += step) {
            const auto entry = spread<T, N>(conj_if<T>(conj, load<T, 1>(a.val + k)));
            const zor_int col = a.column(k);
            const pack<T, N> sum = x.template get<N>(col, j) + mul<T>(entry, t);
            x.template put<N>(col, j, sum);
            if constexpr (RightHandSides::is_one)
              if (col == row + step) kept = sum, kept_row = col;
          }
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
