// SPDX-License-Identifier: MIT
// Triangular solves with many right-hand sides: op(A) X = alpha B and X op(A) = alpha B, X over B.
//
// A cascade of diagonal blocks: a block is solved, then one matrix product takes its solution out of what is
// not solved yet. All types but double complex scale B by alpha first. Double complex solves B unscaled and
// multiplies each solved block by alpha once it has entered the products, so a result carries one rounding of
// alpha, at its end.
#include "blas/level3/blocks.h"
#include "blas/level3/triangular.h"

namespace zor::level3 {
namespace {

template <class T>
inline constexpr bool scales_last = std::is_same_v<T, c64>;

template <class T>
constexpr T minus_one = from_real<T>(-1);

// x(p) of L x = b over b(p), where the rows before it are solved.
template <class T, int Most, class Block>
[[gnu::always_inline]] inline void solve_row(bool unit, int p, const packed_rows<T, Most>& l, Block& x) {
  const T* const row = l.data + l.row(p);
  if (p > 0) {
    typename Block::value sum[Block::vectors];
    sum_of_products(p, row, x, sum);
#pragma GCC unroll 4
    for (int v = 0; v < Block::vectors; ++v) x.at[p][v] = x.at[p][v] - sum[v];
  }
  if (!unit) {
#pragma GCC unroll 4
    for (int v = 0; v < Block::vectors; ++v) x.at[p][v] = divided(x.at[p][v], row[p]);
  }
}
// Rows p to p + group - 1.
template <class T, int Most, class Block>
[[gnu::always_inline]] inline void solve_group(bool unit, int p, const packed_rows<T, Most>& l, Block& x) {
  const T* const row[group] = {l.data + l.row(p), l.data + l.row(p + 1), l.data + l.row(p + 2),
                               l.data + l.row(p + 3)};
  typename Block::value sum[Block::vectors][group];
#pragma GCC unroll 2
  for (int v = 0; v < Block::vectors; ++v) sums_of_group(p, row, x, v, sum[v]);
#pragma GCC unroll 4
  for (int r = 0; r < group; ++r) {
#pragma GCC unroll 2
    for (int v = 0; v < Block::vectors; ++v) {
      const auto rest = x.at[p + r][v] - sum[v][r], solved = unit ? rest : divided(rest, row[r][p + r]);
      x.at[p + r][v] = solved;
#pragma GCC unroll 4
      for (int s = r + 1; s < group; ++s) sum[v][s] = plus_times_at(sum[v][s], solved, row[s] + p + r);
    }
  }
}

// L x = b of each lane.
template <class T, int Most, class Block>
[[gnu::always_inline]] inline void solve_lanes(bool unit, int order, const packed_rows<T, Most>& l,
                                               Block& x) {
  int p = 0;
  if constexpr (takes_groups<T, Most>) {
    for (; p < order && p < first_group; ++p) solve_row(unit, p, l, x);
    for (; p + group <= order; p += group) solve_group(unit, p, l, x);
  }
  for (; p < order; ++p) solve_row(unit, p, l, x);
}

template <int Most, class T>
[[gnu::noinline]] void solve_directly(bool left, const triangle<T>& t, zor_int order, zor_int count, T* b,
                                      zor_int ldb) {
  for_lane_blocks<Most>(left, t, order, count, b, ldb,
                        [&](const auto& l, auto& x) { solve_lanes(t.unit, int(order), l, x); });
}

// Multiplies what has entered all its products by alpha.
template <class T>
void scale_solved(T alpha, zor_int m, zor_int n, T* b, zor_int ldb) {
  if (scales_last<T> && !is_one(alpha)) gemm::scale_columns(m, n, alpha, b, ldb);
}

// X op(A) = B. The columns of X that op(A) needs first are solved first: upwards when it is upper.
template <int Level, class T>
void solve_right(const triangle<T>& t, T alpha, zor_int m, zor_int n, T* b, zor_int ldb) {
  if constexpr (Level == solve_right_levels<T>) {
    solve_directly<int(solve_right_blocks<T>[solve_right_levels<T> - 1].order)>(false, t, n, m, b, ldb);
  } else {
    for_blocks(n, solve_right_blocks<T>[Level].order, !t.lower, [&](diagonal_block d) {
      const triangle<T> diagonal = t.from(d.first);
      for_pieces(m, solve_right_blocks<T>[Level].free < m ? solve_right_blocks<T>[Level].free : m,
                 [&](zor_int i, zor_int rows) {
                   T* const solved = b + i + d.first * ldb;
                   solve_right<Level + 1>(diagonal, alpha, rows, d.size, solved, ldb);
                   multiply_add('N', t.letter(), rows, d.left, d.size, minus_one<T>, solved, ldb,
                                t.at(d.first, d.rest), t.lda, from_real<T>(1), b + i + d.rest * ldb, ldb);
                 });
      if constexpr (Level == 0) scale_solved(alpha, m, d.size, b + d.first * ldb, ldb);
    });
  }
}

// op(A) X = B: rows downwards when op(A) is lower. Each block is followed by the product that takes it out of
// the rest.
template <class T, class Solve>
void eliminate_left(const triangle<T>& t, zor_int m, zor_int n, T* b, zor_int ldb, zor_int step,
                    const Solve& solve) {
  for_blocks_from_start(m, step, t.lower, [&](diagonal_block d) {
    solve(t.from(d.first), d.size, b + d.first);
    multiply_add(t.letter(), 'N', d.left, n, d.size, minus_one<T>, t.at(d.rest, d.first), t.lda, b + d.first,
                 ldb, from_real<T>(1), b + d.rest, ldb);
  });
}

template <int Piece, class T>
void solve_left(const triangle<T>& t, T alpha, zor_int m, zor_int n, T* b, zor_int ldb) {
  eliminate_left(t, m, n, b, ldb, solve_left_step, [&](const triangle<T>& block, zor_int size, T* rows) {
    eliminate_left(block, size, n, rows, ldb, Piece, [&](const triangle<T>& small, zor_int order, T* part) {
      solve_directly<Piece>(true, small, order, n, part, ldb);
    });
  });
  scale_solved(alpha, m, n, b, ldb);
}

template <class T>
void trsm(bool left, const triangle<T>& t, zor_int m, zor_int n, T alpha, T* b, zor_int ldb) {
  if (n <= 0 || m <= 0) return;
  if (is_zero(alpha)) return gemm::zero_columns(m, n, b, ldb);
  if (!scales_last<T> && !is_one(alpha)) gemm::scale_columns(m, n, alpha, b, ldb);
  if (!left) return solve_right<0>(t, alpha, m, n, b, ldb);
  if (t.trans) return solve_left<solve_transposed_piece>(t, alpha, m, n, b, ldb);
  for_pieces(n, solve_left_columns, [&](zor_int j, zor_int columns) {
    solve_left<solve_plain_piece>(t, alpha, m, columns, b + j * ldb, ldb);
  });
}

}  // namespace
}  // namespace zor::level3

#define ROW_XTRSM(name, T)                                                    \
  extern "C" SIG_XTRSM(name, T) {                                             \
    const auto t = zor::level3::make_triangle(uplo, transa, diag, a, *lda);   \
    zor::level3::trsm(zor::is_letter(side, 'L'), t, *m, *n, *alpha, b, *ldb); \
  }
#include "zor/tables/blas_level3.inc"
