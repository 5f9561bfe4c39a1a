// SPDX-License-Identifier: MIT
// Solves op(T) x = b for one right-hand side, y holding b and then x. T is the triangle or the diagonal of a
// CSR matrix with sorted rows. A pivot is found by a walk along its row and never tested; alpha is read by
// the diagonal view alone. Every quotient is a division.
#include "spblas/csr/row_dot.h"
#include "spblas/csr/solve.h"
#include "zor/spblas.h"

namespace zor::sparse {
namespace {

// The row dot of a short run of entries that starts with column row + 1, whose element is at hand in a
// register: the plain chain ((0 + p0) + p1) + ..., with p0 last to arrive. Whether 0 meets p0 or p1 decides
// nothing.
template <bool Conj, class T, class I>
[[gnu::always_inline]] inline one<T> chain_from(csr<T, I> a, zor_int k, zor_int end, one<T> previous,
                                                const T* x) {
  const auto term = [=](zor_int i) __attribute__((always_inline)) {
    return mul<T, Conj>(load<T, 1>(a.val + i), load<T, 1>(x + a.indx[i]));
  };
  one<T> s{};
  if (k + 1 < end) s = s + term(k + 1);
  s = s + mul<T, Conj>(load<T, 1>(a.val + k), previous);
  for (k += 2; k < end; ++k) s = s + term(k);
  return s;
}

// Upper solve: s = row dot over the entries behind the pivot, x(r) = (x(r) - s) / pivot. A unit diagonal
// steps over the stopping position only when it is the diagonal: x(r) = x(r) - s.
template <bool Conj, class T, class I>
void backward_solve(csr<T, I> a, bool unit, zor_int m, zor_int block, T* x) {
  const T* const shifted = x - a.base;
  one<T> previous{};
  rows_down(
      m, block, [&](zor_int row) __attribute__((always_inline)) {
        const zor_int stop = walk_forward(a, row), end = a.end(row);
        const zor_int k = !unit || (stop < end && a.column(stop) == row) ? stop + 1 : stop;
        one<T> s;
        if (k < end && end - k < 8 && a.column(k) == row + 1)
          s = chain_from<Conj>(a, k, end, previous, shifted);
        else
          s = row_dot<T, Conj>(a.val + k, a.indx + k, end - k, shifted);
        previous = load<T, 1>(x + row) - s;
        if (!unit) previous = divided<T, 1>(previous, value_at(a, stop, Conj));
        store<T, 1>(x + row, previous);
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
