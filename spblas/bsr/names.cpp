// SPDX-License-Identifier: MIT
// The names of products of a matrix in blocks.
#include "spblas/bsr/bsr.h"
#include "zor/signatures/spblas.h"

namespace zor::sparse {
namespace {

template <class T, class I>
bsr<T> blocks(int base, I lb, const T* val, const I* indx, const I* pntrb, const I* pntre, bool by_rows) {
  return {val, stored_integers(indx), stored_integers(pntrb), stored_integers(pntre), base, lb, by_rows};
}
template <class I>
view view_of(char structure, I op, I uplo, I diag) {
  return {op == 1 ? 'n' : 't', structure, uplo == 1 ? 'l' : 'u', diag == 1 ? 'n' : 'u'};
}

}  // namespace
}  // namespace zor::sparse

#define BLOCKS(base, by_rows) zor::sparse::blocks(base, *lb, val, indx, pntrb, pntre, by_rows)

#define ROW_bsr_gemvout_par(name, T, I, base, ...)                                                    \
  extern "C" SIG_bsr_gemvout_par(name, T, I) {                                                        \
    (void)unread1, (void)unread2, (void)unread3;                                                      \
    zor::sparse::multiply_plain<T>(                                                                   \
        {zor::sparse::blocks(base, *lb, val, indx, ia, ia + 1, false), *first - 1, *last, {}, x, y}); \
  }
// Both vectors are given from block row `first` on.
#define ROW_bsr_mvout_par(name, T, I, base, op, shape, tri, diag)                                         \
  extern "C" SIG_bsr_mvout_par(name, T, I) {                                                              \
    (void)unread;                                                                                         \
    const zor_int start = *first - 1, moved = start * *lb;                                                \
    zor::sparse::multiply_mirrored<T>(ZOR_VIEW(op, shape, tri, diag), true,                               \
                                      {BLOCKS(base, false), start, *last, *alpha, x - moved, y - moved}); \
  }
#include "zor/tables/spblas_bsr.inc"

// The last argument of a row is the base: blocks by columns in base 1, by rows in base 0.
#define ROW_BSR_GENERAL(name, T, I)                                            \
  extern "C" SIG_BSR_GENERAL(name, T, I) {                                     \
    (void)unread1, (void)unread2;                                              \
    zor::sparse::multiply_blocks<T>(zor::sparse::view_of<I>('g', *op, 1, 1),   \
                                    {BLOCKS(1, false), 0, *mb, *alpha, x, y}); \
  }
#define ROW_BSR_TRIANGULAR(name, T, I, base)                                          \
  extern "C" SIG_BSR_TRIANGULAR(name, T, I) {                                         \
    (void)unread1, (void)unread2;                                                     \
    zor::sparse::multiply_blocks<T>(zor::sparse::view_of<I>('t', *op, *uplo, *diag),  \
                                    {BLOCKS(base, base == 0), 0, *mb, *alpha, x, y}); \
  }
#define ROW_BSR_SKEW(name, T, I, base)                                                  \
  extern "C" SIG_BSR_SKEW(name, T, I) {                                                 \
    (void)unread1, (void)unread2;                                                       \
    zor::sparse::multiply_mirrored<T>(zor::sparse::view_of<I>('a', 1, *uplo, 1), true,  \
                                      {BLOCKS(base, base == 0), 0, *mb, *alpha, x, y}); \
  }
#define ROW_BSR_DIAGONAL(name, T, I, base)                                                          \
  extern "C" SIG_BSR_DIAGONAL(name, T, I) {                                                         \
    (void)unread1, (void)unread2;                                                                   \
    zor::sparse::multiply_diagonal<T>(*diag == 1, {BLOCKS(base, base == 0), 0, *mb, *alpha, x, y}); \
  }
#define ROW_BSR_SYMMETRIC(name, T, I, base)                                                              \
  extern "C" SIG_BSR_SYMMETRIC(name, T, I) {                                                             \
    const auto v = zor::sparse::view_of<I>('s', 1, *uplo, 1);                                            \
    if (*nrhs == 1)                                                                                      \
      zor::sparse::multiply_mirrored<T>(v, *diag != 0, {BLOCKS(base, base == 0), 0, *mb, *alpha, b, c}); \
    else                                                                                                 \
      zor::sparse::multiply_many<T, base == 0>(                                                          \
          v, *diag != 0, {BLOCKS(base, base == 0), *mb, *nrhs, *alpha, {b, *ldb}, {c, *ldc}});           \
  }
#define ROW_BSR_GENERAL_MANY(name, T, I)                                                                \
  extern "C" SIG_BSR_GENERAL_MANY(name, T, I) {                                                         \
    const auto v = zor::sparse::view_of<I>('g', *op, 1, 1);                                             \
    if (*nrhs == 1)                                                                                     \
      zor::sparse::multiply_blocks<T>(v, {BLOCKS(0, true), 0, *mb, *alpha, b, c});                      \
    else                                                                                                \
      zor::sparse::multiply_many<T, true>(v, false,                                                     \
                                          {BLOCKS(0, true), *mb, *nrhs, *alpha, {b, *ldb}, {c, *ldc}}); \
  }
#include "zor/tables/spblas_stems.inc"
