// SPDX-License-Identifier: MIT
// Solves op(T) X = B for the right-hand sides first to last, C holding B and then X. T is the triangle or the
// diagonal of a CSR matrix with sorted rows. The row-dot forms multiply by the reciprocal of the pivot, the
// scatter forms divide, so that the last bit may differ from the solve of one right-hand side.
#include "serv/scratch.h"
#include "spblas/csr/row_dot.h"
#include "spblas/csr/solve.h"
#include "zor/signatures/spblas.h"

namespace zor::sparse {
namespace {

template <class T, bool RowMajor, class I>
struct solve_of {
  csr<T, I> a;
  zor_int m, n, first, last;
  T alpha;
  dense<T, RowMajor> x;
};

// Without workspace each right-hand side is solved by itself and divided. The 1-based members then take the
// row pointers as positions just as they stand.
template <class T, bool RowMajor, class I>
void forward_without_workspace(solve_of<T, RowMajor, I> p, view v) {
  if (!RowMajor) p.a.origin = 0;
  const zor_int block = RowMajor ? rows_of_block(v, p.a.base, true) : 0;
  for (zor_int j = p.first; j < p.last; ++j) forward_solve(p.a, v.conjugated(), v.unit(), p.m, block, p.x, j);
}

// (x(r, j) - s) t for R packs of right-hand sides, or x(r, j) - s for a unit diagonal; stored and kept,
// since most rows need the one solved last at once.
template <int N, int R, class T, bool RowMajor>
[[gnu::always_inline]] inline void solve_packs(bool unit, T t, packs<T, N, R> s, dense<T, RowMajor> x,
                                               zor_int r, kept_row<T, N, R>& last) {
  const auto factor = spread<T, N>(&t);
  last.index = r;
  each<R>([&](int i) __attribute__((always_inline)) {
    const auto rest = x.template get<N>(r, i * N) - s.at[i];
    last.value.at[i] = unit ? rest : mul<T>(rest, factor);
    x.template put<N>(r, i * N, last.value.at[i]);
  });
}

// Lower solve for R packs of right-hand sides from j on, rows `first` to last - 1: s = sum of a x(col, j) in
// one chain over the entries below the diagonal, then with t = 1 / pivot x(r, j) = (x(r, j) - s) t, or
// x(r, j) - s for a unit diagonal. The first of the right-hand sides leave t of each row in `factors`.
template <int N, int R, class T, bool RowMajor, class I>
[[gnu::noinline]] void forward_panel(const solve_of<T, RowMajor, I>& p, view v, zor_int first, zor_int last,
                                     zor_int j, T* factors) {
  const csr<T, I> a = p.a.moved();
  // Addressed by columns in the base of the matrix.
  const dense<T, RowMajor> x{settled(p.x.at(-a.base, j)), p.x.ld};
  kept_row<T, N, R> previous;
  for (zor_int row = first; row < last; ++row) {
    const zor_int r = row + a.base, end = settled(a.end(row));
    packs<T, N, R> s{};
    zor_int k = a.begin(row);
    for (; k < end && a.indx[k] < r; ++k) {
      const zor_int col = a.indx[k];
      const auto entry = spread<T, N>(conj_if<T>(v.conjugated(), load<T, 1>(a.val + k)));
      if (col == previous.index) [[likely]]
        each<R>([&](int i) __attribute__((always_inline)) {
          s.at[i] = s.at[i] + mul<T>(entry, previous.value.at[i]);
        });
      else
        each<R>([&](int i) __attribute__((always_inline)) {
          s.at[i] = s.at[i] + mul<T>(entry, x.template get<N>(col, i * N));
        });
    }
    if (!v.unit() && j == p.first) factors[row - first] = reciprocal(value_at(a, k, v.conjugated()));
    solve_packs<N, R>(v.unit(), v.unit() ? T{} : factors[row - first], s, x, r, previous);
  }
}

// Whether the workspace is there decides between two forms; the sums of this one stay in registers.
template <class T, bool RowMajor, class I>
void forward(const solve_of<T, RowMajor, I>& p, view v) {
  const scratch<T> workspace(p.n, 128);
  if (workspace.data == nullptr) return forward_without_workspace(p, v);
  T factors[most_rows<T>];
  for_panels<T>(
      0, p.m, p.first,
      p.last, [&]<int N, int R>(zor_int j, zor_int row, zor_int end) __attribute__((always_inline)) {
        forward_panel<N, R>(p, v, row, end, j, factors);
      });
}

// Upper solve: s = row dot over the entries behind the pivot, t = 1 / pivot, x(r, j) = (x(r, j) - s) t; a
// unit diagonal steps over the stopping position only when it is the diagonal, x(r, j) = x(r, j) - s.
template <int N, int R, class T, bool RowMajor, class I>
[[gnu::noinline]] void backward_panel(const solve_of<T, RowMajor, I>& p, view v, zor_int first, zor_int row,
                                      zor_int j, T* factors) {
  const csr<T, I> a = p.a.moved();
  const dense<T, RowMajor> x{settled(p.x.at(-a.base, j)), p.x.ld};
  kept_row<T, N, R> previous;
  while (row-- > first) {
    const zor_int stop = walk_forward(a, row), end = a.end(row);
    const zor_int k = behind_pivot(a, v.unit(), row, stop);
    const auto s =
        row_dots<N, R, 0, true>(a, v.conjugated(), k, end, dense<const T, RowMajor>{x.data, x.ld}, previous);
    if (!v.unit() && j == p.first) factors[row - first] = reciprocal(value_at(a, stop, v.conjugated()));
    solve_packs<N, R>(v.unit(), v.unit() ? T{} : factors[row - first], s, x, row + a.base, previous);
  }
}

template <class T, bool RowMajor, class I>
void backward(const solve_of<T, RowMajor, I>& p, view v) {
  T factors[most_rows<T>];
  for_panels<T, abreast, true>(
      0, p.m, p.first,
      p.last, [&]<int N, int R>(zor_int j, zor_int row, zor_int end) __attribute__((always_inline)) {
        backward_panel<N, R>(p, v, row, end, j, factors);
      });
}

template <view V, class T, bool RowMajor, class I>
void solve(solve_of<T, RowMajor, I> p) {
  if constexpr (V.structure == 'd')
    diagonal_solve(p.a, V.conjugated(), p.m, p.first, p.last, p.alpha, p.x);
  else if constexpr (V.transposed())
    push_solve(p.a, V, p.m, rows_of_block(V, p.a.base, true), p.first, p.last, p.x);
  else if constexpr (V.triangle == 'l')
    forward(p, V);
  else
    backward(p, V);
}

}  // namespace
}  // namespace zor::sparse

#define ROW_csr_smout_par(name, T, I, base, op, shape, tri, diag)              \
  extern "C" SIG_csr_smout_par(name, T, I) {                                   \
    if (*m < 1 || *last < *first) return;                                      \
    constexpr auto v = ZOR_VIEW(op, shape, tri, diag);                         \
    zor::sparse::solve<v, T, base == 0, I>({{val, indx, pntrb, pntre, base},   \
                                            *m,                                \
                                            *n,                                \
                                            *first - 1,                        \
                                            *last,                             \
                                            v.structure == 'd' ? *alpha : T{}, \
                                            {c, *ldc}});                       \
  }
#include "zor/tables/spblas_csr.inc"
