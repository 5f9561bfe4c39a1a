// SPDX-License-Identifier: MIT
// Solves op(T) X = B for the right-hand sides first to last, C holding B and then X. T is the triangle or the
// diagonal of a CSR matrix with sorted rows. The row-dot forms multiply by the reciprocal of the pivot, the
// scatter forms divide, so that the last bit may differ from the solve of one right-hand side.
#include "spblas/csr/row_dot.h"
#include "spblas/csr/solve.h"
#include "zor/serv.h"
#include "zor/spblas.h"

namespace zor::sparse {
namespace {

template <class T, bool RowMajor, class I>
struct solve_of {
  csr<T, I> a;
  zor_int m, n, first, last;
  T alpha;
  dense<T, RowMajor> x;
};

// n elements from the pool, null when memory is short.
template <class T>
T* workspace(zor_int n) {
  uint64_t bytes;
  if (n < 1 || __builtin_mul_overflow(uint64_t(n), sizeof(T), &bytes)) return nullptr;
  return static_cast<T*>(zor_serv_allocate(bytes, 128));
}

// Without workspace each right-hand side is solved by itself and divided. The 1-based members then take the
// row pointers as positions just as they stand.
template <class T, bool RowMajor, class I>
void forward_without_workspace(solve_of<T, RowMajor, I> p, view v) {
  if (!RowMajor) p.a.origin = 0;
  const zor_int block = RowMajor ? rows_of_block(v, p.a.base, true) : 0;
  for (zor_int j = p.first; j < p.last; ++j) forward_solve(p.a, v.conjugated(), v.unit(), p.m, block, p.x, j);
}

// Lower solve: w(j) = sum of a x(col, j) over the entries below the diagonal, then with t = 1 / pivot
// x(r, j) = (x(r, j) - w(j)) t, or x(r, j) - w(j) for a unit diagonal.
template <class T, bool RowMajor, class I>
void forward(solve_of<T, RowMajor, I> p, view v) {
  T* const w = workspace<T>(p.n);
  if (w == nullptr) return forward_without_workspace(p, v);
  rows_up(
      p.m, rows_of_block(v, p.a.base, true), [&](zor_int row) __attribute__((always_inline)) {
        for_packs<T>(
            p.first, p.last, [&]<int N>(zor_int j) __attribute__((always_inline)) {
              store<T, N>(w + j, pack<T, N>{});
            });
        const zor_int stop = walk_forward(p.a, row);
        for (zor_int k = p.a.begin(row); k < stop; ++k) {
          const one<T> entry = conj_if<T>(v.conjugated(), load<T, 1>(p.a.val + k));
          const zor_int col = p.a.column(k);
          for_packs<T>(
              p.first, p.last, [&]<int N>(zor_int j) __attribute__((always_inline)) {
                store<T, N>(w + j,
                            load<T, N>(w + j) + mul<T>(spread<T, N>(entry), p.x.template get<N>(col, j)));
              });
        }
        const T t = v.unit() ? T{} : reciprocal(value_at(p.a, stop, v.conjugated()));
        for_packs<T>(
            p.first, p.last, [&]<int N>(zor_int j) __attribute__((always_inline)) {
              const pack<T, N> rest = p.x.template get<N>(row, j) - load<T, N>(w + j);
              p.x.template put<N>(row, j, v.unit() ? rest : mul<T>(rest, spread<T, N>(&t)));
            });
      });
  zor_serv_deallocate(w);
}

// Upper solve: s = row dot over the entries behind the pivot, t = 1 / pivot, x(r, j) = (x(r, j) - s) t; a
// unit diagonal steps over the stopping position only when it is the diagonal, x(r, j) = x(r, j) - s.
template <class T, bool RowMajor, class I>
void backward(solve_of<T, RowMajor, I> p, view v) {
  const csr<T, I> a = p.a.moved();
  const dense<const T, RowMajor> solved{settled(p.x.at(-a.base, 0)), p.x.ld};
  rows_down(
      p.m, rows_of_block(v, p.a.base, true), [&](zor_int row) __attribute__((always_inline)) {
        const zor_int stop = walk_forward(a, row), end = a.end(row);
        const zor_int k = !v.unit() || (stop < end && a.column(stop) == row) ? stop + 1 : stop;
        const T t = v.unit() ? T{} : reciprocal(value_at(a, stop, v.conjugated()));
        for_packs<T>(
            p.first, p.last, [&]<int N>(zor_int j) __attribute__((always_inline)) {
              const pack<T, N> rest =
                  p.x.template get<N>(row, j) -
                  row_dots<N>(a, v.conjugated(), k, end, dense<const T, RowMajor>{solved.at(0, j), solved.ld})
                      .at[0];
              p.x.template put<N>(row, j, v.unit() ? rest : mul<T>(rest, spread<T, N>(&t)));
            });
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

#define ROW_csr_smout_par(name, T, I, base, op, shape, tri, diag)                                           \
  extern "C" void name(const I* first, const I* last, const I* m, const I* n, const T* alpha, const T* val, \
                       const I* indx, const I* pntrb, const I* pntre, T* c, const I* ldc) {                 \
    if (*m < 1 || *last < *first) return;                                                                   \
    constexpr auto v = ZOR_VIEW(op, shape, tri, diag);                                                      \
    zor::sparse::solve<v, T, base == 0, I>({{val, indx, pntrb, pntre, base},                                \
                                            *m,                                                             \
                                            *n,                                                             \
                                            *first - 1,                                                     \
                                            *last,                                                          \
                                            v.structure == 'd' ? *alpha : T{},                              \
                                            {c, *ldc}});                                                    \
  }
#include "zor/tables/spblas_grammar.inc"
