// SPDX-License-Identifier: MIT
// Scaling by the inverse of the main diagonal of a BSR matrix.
#include "spblas/panel.h"
#include "spblas/quotient.h"
#include "spblas/sweep/block_matrix.h"
#include "zor/signatures/spblas_sweep.h"

namespace zor::sparse {
namespace {

// The block of block row R on the diagonal, one position past the row if there is none.
template <class T, class I, bool ByRows>
const T* diagonal_block(const block_matrix<T, I, ByRows>& a, zor_int R) {
  zor_int p = a.begin(R);
  while (p < a.end(R) && a.index(p) != R) ++p;
  return a.block(p);
}

// The diagonal stands at steps of lb + 1 in either order of elements.
template <class T, class I, bool ByRows>
void divide_vector(const block_matrix<T, I, ByRows>& a, T* y) {
  for (zor_int R = 0; R < a.count; ++R) {
    const T* const block = diagonal_block(a, R);
    T* const x = y + R * a.lb;
    for (zor_int i = 0; i < a.lb; ++i) x[i] = quotient(x[i], *a.at(block, i, i));
  }
}

template <class T, class I>
void divide_rows(const block_matrix<T, I, true>& a, const dense<T, true>& y, zor_int nrhs) {
  for (zor_int R = 0; R < a.count; ++R) {
    const T* const block = diagonal_block(a, R);
    for (zor_int i = 0; i < a.lb; ++i) {
      const T pivot = *a.at(block, i, i);
      for_packs<T>(
          0, nrhs, [&]<int N>(zor_int r) __attribute__((always_inline)) {
            const zor_int row = R * a.lb + i;
            y.template put<N>(row, r, divided<T, N>(y.template get<N>(row, r), pivot));
          });
    }
  }
}

}  // namespace
}  // namespace zor::sparse

#define ROW_INVDIAG(name, T, I)                                                                              \
  extern "C" SIG_INVDIAG(name, T, I) {                                                                       \
    if (*mb < 1 || *flag == 0) return;                                                                       \
    zor::sparse::divide_vector(zor::sparse::block_matrix<T, I, false>{*mb, *lb, val, indx, pntrb, pntre, 1}, \
                               y);                                                                           \
  }
#define ROW_INVDIAG_ROWS(name, T, I)                                                     \
  extern "C" SIG_INVDIAG_ROWS(name, T, I) {                                              \
    if (*mb < 1 || *nrhs < 1) return;                                                    \
    const zor::sparse::block_matrix<T, I, true> a{*mb, *lb, val, indx, pntrb, pntre, 0}; \
    if (*nrhs == 1)                                                                      \
      zor::sparse::divide_vector(a, y);                                                  \
    else                                                                                 \
      zor::sparse::divide_rows<T, I>(a, {y, zor_int(*ldy)}, *nrhs);                      \
  }
#include "zor/tables/spblas_sweep.inc"
