// SPDX-License-Identifier: MIT
// Triangular products in place: B := alpha op(A) B and B := alpha B op(A).
//
// A cascade of diagonal blocks: the block of B that meets the diagonal is replaced by its product, then one
// matrix product adds the rectangle beside it. The blocks go in the order in which the sources of that
// product are unchanged.
#include "blas/level3/blocks.h"
#include "blas/level3/triangular.h"

namespace zor::level3 {
namespace {

// The order of what is multiplied directly.
constexpr int leaf = 32;

// Row p of L x over x(p), where the rows behind it have been replaced.
template <class T, int Most, class Block>
[[gnu::always_inline]] inline void multiply_row(bool unit, int p, const packed_rows<T, Most>& l, Block& x) {
  const T* const row = l.data + l.row(p);
  if (!unit) {
#pragma GCC unroll 4
    for (int v = 0; v < Block::vectors; ++v) x.at[p][v] = times(x.at[p][v], row[p]);
  }
  if (p == 0) return;
  typename Block::value sum[Block::vectors];
  sum_of_products(p, row, x, sum);
#pragma GCC unroll 4
  for (int v = 0; v < Block::vectors; ++v) x.at[p][v] = sum[v] + x.at[p][v];
}
// Rows p to p + group - 1, the last first.
template <class T, int Most, class Block>
[[gnu::always_inline]] inline void multiply_group(bool unit, int p, const packed_rows<T, Most>& l, Block& x) {
  const T* const row[group] = {l.data + l.row(p), l.data + l.row(p + 1), l.data + l.row(p + 2),
                               l.data + l.row(p + 3)};
#pragma GCC unroll 2
  for (int v = 0; v < Block::vectors; ++v) {
    typename Block::value sum[group];
    sums_of_group(p, row, x, v, sum);
#pragma GCC unroll 4
    for (int r = group - 1; r >= 0; --r) {
#pragma GCC unroll 4
      for (int q = 0; q < r; ++q) sum[r] = plus_times_at(sum[r], x.at[p + q][v], row[r] + p + q);
      x.at[p + r][v] = sum[r] + (unit ? x.at[p + r][v] : times(x.at[p + r][v], row[r][p + r]));
    }
  }
}

// x := alpha L x of each lane.
template <class T, int Most, class Block>
[[gnu::always_inline]] inline void multiply_lanes(bool unit, T alpha, int order,
                                                  const packed_rows<T, Most>& l, Block& x) {
  if (!is_one(alpha)) {
    for (int p = 0; p < order; ++p) {
#pragma GCC unroll 4
      for (int v = 0; v < Block::vectors; ++v) x.at[p][v] = times(x.at[p][v], alpha);
    }
  }
  int p = order;
  if constexpr (takes_groups<T, Most>) {
    while (p % group != 0) multiply_row(unit, --p, l, x);
    for (; p > first_group; p -= group) multiply_group(unit, p - group, l, x);
  }
  while (p > 0) multiply_row(unit, --p, l, x);
}

template <class T>
[[gnu::noinline]] void multiply_directly(bool left, const triangle<T>& t, T alpha, zor_int order,
                                         zor_int count, T* b, zor_int ldb) {
  for_lane_blocks<leaf>(left, t, order, count, b, ldb,
                        [&](const auto& l, auto& x) { multiply_lanes(t.unit, alpha, int(order), l, x); });
}

template <int Level, class T>
void multiply_right(const triangle<T>& t, T alpha, zor_int m, zor_int n, T* b, zor_int ldb) {
  if constexpr (Level == multiply_levels) {
    multiply_directly(false, t, alpha, n, m, b, ldb);
  } else {
    for_pieces(m, multiply_right_blocks[Level].free, [&](zor_int i, zor_int rows) {
      for_blocks(n, multiply_right_blocks[Level].order, t.lower, [&](diagonal_block d) {
        T* const block = b + i + d.first * ldb;
        multiply_right<Level + 1>(t.from(d.first), alpha, rows, d.size, block, ldb);
        multiply_add('N', t.letter(), rows, d.size, d.left, alpha, b + i + d.rest * ldb, ldb,
                     t.at(d.rest, d.first), t.lda, from_real<T>(1), block, ldb);
      });
    });
  }
}

template <int Level, class T>
void multiply_left(const triangle<T>& t, T alpha, zor_int m, zor_int n, T* b, zor_int ldb) {
  if constexpr (Level == multiply_levels) {
    multiply_directly(true, t, alpha, m, n, b, ldb);
  } else {
    const zor_int free = Level == 0 && !t.trans ? multiply_left_columns : multiply_left_blocks[Level].free;
    for_pieces(n, free < n ? free : n, [&](zor_int j, zor_int columns) {
      for_blocks(m, multiply_left_blocks[Level].order, !t.lower, [&](diagonal_block d) {
        T* const block = b + d.first + j * ldb;
        multiply_left<Level + 1>(t.from(d.first), alpha, d.size, columns, block, ldb);
        multiply_add(t.letter(), 'N', d.size, columns, d.left, alpha, t.at(d.first, d.rest), t.lda,
                     b + d.rest + j * ldb, ldb, from_real<T>(1), block, ldb);
      });
    });
  }
}

template <class T>
void trmm(bool left, const triangle<T>& t, zor_int m, zor_int n, T alpha, T* b, zor_int ldb) {
  if (n <= 0 || m <= 0) return;
  if (is_zero(alpha)) return gemm::zero_columns(m, n, b, ldb);
  if (left)
    multiply_left<0>(t, alpha, m, n, b, ldb);
  else
    multiply_right<0>(t, alpha, m, n, b, ldb);
}

}  // namespace
}  // namespace zor::level3

#define ROW_XTRMM(name, T)                                                    \
  extern "C" SIG_XTRSM(name, T) {                                             \
    const auto t = zor::level3::make_triangle(uplo, transa, diag, a, *lda);   \
    zor::level3::trmm(zor::is_letter(side, 'L'), t, *m, *n, *alpha, b, *ldb); \
  }
#include "zor/tables/blas_level3.inc"
