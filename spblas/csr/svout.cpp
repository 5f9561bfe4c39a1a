// SPDX-License-Identifier: MIT
// Solves op(T) x = b for one right-hand side, y holding b and then x. T is the triangle or the diagonal of a
// CSR matrix with sorted rows. A pivot is found by a walk along its row and never tested; alpha is read by
// the diagonal view alone. Every quotient is a division.
#include "spblas/csr/row_dot.h"
#include "spblas/csr/solve.h"
#include "zor/spblas.h"

namespace zor::sparse {
namespace {

// The row dot of fewer than eight entries, the first of which meets the element solved last: the plain chain
// ((0 + p0) + p1) + ..., with p0 last to arrive. Whether 0 meets p0 or p1 decides nothing.
template <bool Conj, class T, class I>
[[gnu::always_inline]] inline one<T> chain_from(csr<T, I> a, zor_int k, zor_int count,
                                                const solved_element<T>& previous, const T* x) {
  const auto term = [=](zor_int i) __attribute__((always_inline)) {
    return mul_at<T, Conj>(a.val + i, load<T, 1>(x + a.indx[i]));
  };
  one<T> s{};
  if (count > 1) s = s + term(k + 1);
  s = s + previous.times(conj_if<T>(Conj, load<T, 1>(a.val + k)));
#pragma GCC unroll 8
  for (zor_int i = 2; i < count; ++i) s = s + term(k + i);
  return s;
}

// Upper solve: s = row dot over the entries behind the pivot, x(r) = (x(r) - s) / pivot. A unit diagonal
// steps over the stopping position only when it is the diagonal: x(r) = x(r) - s.
template <bool Conj, class T, class I>
void backward_solve(csr<T, I> a, bool unit, zor_int m, zor_int block, T* x) {
  a = a.moved();
  const T* const shifted = settled(x - a.base);
  solved_element<T> previous;
  const auto solve_row_of = [&]<int Count>(zor_int row) __attribute__((always_inline)) {
    const zor_int begin = a.begin(row), end = a.end(row), stop = walk_forward(a, row);
    const zor_int k = !unit || (stop < end && a.column(stop) == row) ? stop + 1 : stop;
    const zor_int count = end - k;
    one<T> s;
    if (count > 0 && count < 8 && a.column(k) == row + 1) {
      if (Count > 1 && k == begin + 1)
        s = chain_from<Conj>(a, begin + 1, Count - 1, previous, shifted);
      else
        s = chain_from<Conj>(a, k, count, previous, shifted);
    } else {
      s = row_dot<T, Conj>(a.val + k, a.indx + k, count, shifted);
    }
    solve_row(load<T, 1>(x + row) - s, unit, unit ? T{} : value_at(a, stop, Conj), x + row, previous);
  };
  row_blocks<true>(
      m, block, [&](zor_int first, zor_int last) __attribute__((always_inline)) {
        for_rows<4, 2, true>(a, first, last, solve_row_of);
      });
}

template <view V, class T, class I>
void solve(csr<T, I> a, zor_int m, T alpha, T* y) {
  const dense<T, false> x{y, 0};
  const zor_int block = rows_of_block(V, a.base, false);
  if constexpr (V.structure == 'd')
    diagonal_solve(a, V.conjugated(), m, 0, 1, alpha, x);
  else if constexpr (V.transposed())
    push_solve(a, V, m, block, 0, 1, x);
  else if constexpr (V.triangle == 'l')
    forward_solve(a, V.conjugated(), V.unit(), m, block, x, 0);
  else
    backward_solve<V.conjugated()>(a, V.unit(), m, block, y);
}

}  // namespace
}  // namespace zor::sparse

#define ROW_csr_svout_seq(name, T, I, base, op, shape, tri, diag)                                           \
  extern "C" void name(const I* m, const T* alpha, const T* val, const I* indx, const I* pntrb,             \
                       const I* pntre, T* y) {                                                              \
    if (*m < 1) return;                                                                                     \
    constexpr auto v = ZOR_VIEW(op, shape, tri, diag);                                                      \
    zor::sparse::solve<v, T, I>({val, indx, pntrb, pntre, base}, *m, v.structure == 'd' ? *alpha : T{}, y); \
  }
#include "zor/tables/spblas_grammar.inc"
