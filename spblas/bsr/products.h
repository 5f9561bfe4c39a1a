// SPDX-License-Identifier: MIT
// C := C + alpha op(A) B for a matrix in blocks and many right-hand sides: with t = a alpha, c(i, :) = c(i,
// :) + t b(j, :) for the elements of each block, rows and blocks in their stored order. The symmetric view
// adds the image of a block on its side, and takes the stored triangle of a diagonal block for both.
#pragma once

#include <algorithm>

#include "spblas/bsr/block.h"
#include "spblas/bsr/bsr.h"

namespace zor::sparse {

namespace thresholds {
// Tuned: rows of C whose sums stay in registers together.
inline constexpr int bsr_rows_abreast = 4;
// Tuned: bytes of blocks that are multiplied by alpha before their elements are used. Stores of whole vectors
// have to be some hundred cycles old: an element that is loaded from a younger one waits.
inline constexpr int bsr_scaled_bytes = 2048;
// Tuned: bytes ahead that blocks are asked for.
inline constexpr int bsr_bytes_ahead = 2048;
}  // namespace thresholds

// Blocks first to last - 1 of a block row, or one block transposed, for Rows rows of C from `row` on and the
// right-hand sides of a pack. `a` is the element of the first block that meets row `row` of C.
struct block_walk {
  zor_int first, last;   // blocks
  zor_int row, element;  // row of C, and its place in each block
  zor_int row_step, sum_step;
};
template <int N, int Rows, class T, bool RowMajor>
[[gnu::noinline]] void add_block_rows(const bsr_products<T, RowMajor>& p, const block_walk& w, zor_int input,
                                      zor_int j) {
  const one<T> alpha = load<T, 1>(&p.alpha);
  const zor_int lb = p.a.lb;
  packs<T, N, Rows> sum;
  each<Rows>([&](int i) __attribute__((always_inline)) { sum.at[i] = p.c.template get<N>(w.row + i, j); });
  for (zor_int k = w.first; k < w.last; ++k) {
    const T* a = p.a.block(k) + w.element;
    const zor_int start = (input < 0 ? p.a.column(k) : input) * lb;
    for (zor_int s = 0; s < lb; ++s, a += w.sum_step) {
      const pack<T, N> b = p.b.template get<N>(start + s, j);
      each<Rows>([&](int i) __attribute__((always_inline)) {
        const one<T> t = mul<T>(load<T, 1>(a + i * w.row_step), alpha);
        sum.at[i] = sum.at[i] + mul<T>(spread<T, N>(t), b);
      });
    }
  }
  each<Rows>([&](int i) __attribute__((always_inline)) { p.c.template put<N>(w.row + i, j, sum.at[i]); });
}

// to[i] := a[i] alpha.
template <class T>
[[gnu::always_inline]] inline void scale_elements(const T* a, zor_int count, one<T> alpha, T* to) {
  for_packs<T>(
      0, count, [&]<int N>(zor_int i) __attribute__((always_inline)) {
        touch(reinterpret_cast<const char*>(a + i) + thresholds::bsr_bytes_ahead);
        store<T, N>(to + i, mul<T>(load<T, N>(a + i), spread<T, N>(alpha)));
      });
}

// Blocks first to last - 1 of a block row, whose elements times alpha stand at a, for the right-hand sides of
// a pack: the sums of all rows of a block stay in registers.
template <int L, int N, class T>
[[gnu::always_inline]] inline void add_scaled_blocks(const bsr_products<T, true>& p, zor_int row,
                                                     zor_int first, zor_int last, const T* a, zor_int j) {
  const zor_int ldb = p.b.ld;
  packs<T, N, L> sum;
  each<L>([&](int i) __attribute__((always_inline)) { sum.at[i] = p.c.template get<N>(row * L + i, j); });
  for (zor_int k = first; k < last; ++k, a += L * L) {
    const T* from = p.b.at(p.a.column(k) * L, j);
#pragma GCC unroll 8
    for (int s = 0; s < L; ++s, from += ldb) {
      const pack<T, N> b = load<T, N>(from);
      each<L>([&](int i) __attribute__((always_inline)) {
        sum.at[i] = sum.at[i] + mul<T>(spread<T, N>(a + i * L + s), b);
      });
    }
  }
  each<L>([&](int i) __attribute__((always_inline)) { p.c.template put<N>(row * L + i, j, sum.at[i]); });
}

// Block rows of blocks by rows in the general view. Blocks of several rows that follow one another are scaled
// together; those of a longer row are taken in several runs.
template <int L, int N, class T>
[[gnu::noinline]] void add_known_block_rows(const bsr_products<T, true>& p, zor_int j) {
  constexpr int size = L * L, at_once = std::max(1, thresholds::bsr_scaled_bytes / (size * int(sizeof(T))));
  alignas(64) T scaled[at_once * size];
  const one<T> alpha = load<T, 1>(&p.alpha);
  for (zor_int row = 0; row < p.mb;) {
    const zor_int group = row;
    zor_int begin = p.a.begin(row), end = p.a.end(row++);
    for (; end - begin > at_once; begin += at_once) {
      scale_elements(p.a.val + begin * size, at_once * size, alpha, scaled);
      add_scaled_blocks<L, N>(p, group, begin, begin + at_once, scaled, j);
    }
    while (row < p.mb && p.a.begin(row) == end && p.a.end(row) - begin <= at_once) end = p.a.end(row++);
    scale_elements(p.a.val + begin * size, (end - begin) * size, alpha, scaled);
    for (zor_int r = group, k = begin; r < row; k = p.a.end(r++))
      add_scaled_blocks<L, N>(p, r, k, p.a.end(r), scaled + (k - begin) * size, j);
  }
}

template <int L, class T>
void add_known_blocks(const bsr_products<T, true>& p) {
  for_packs<T>(
      0, p.n, [&]<int N>(zor_int j) __attribute__((always_inline)) { add_known_block_rows<L, N>(p, j); });
}

// The elements of a diagonal block, those beyond the diagonal read from their image.
template <int N, class T, bool RowMajor>
[[gnu::noinline]] void add_diagonal_rows(const bsr_products<T, RowMajor>& p, view v, zor_int k, zor_int row,
                                         zor_int j) {
  const one<T> alpha = load<T, 1>(&p.alpha);
  for (zor_int i = 0; i < p.a.lb; ++i) {
    pack<T, N> sum = p.c.template get<N>(row + i, j);
    for (zor_int s = 0; s < p.a.lb; ++s) {
      const bool image = v.place_of(i, s) == place::beyond;
      const zor_int at =
          image ? s * p.a.row_step() + i * p.a.column_step() : i * p.a.row_step() + s * p.a.column_step();
      const one<T> t = mul<T>(load<T, 1>(p.a.block(k) + at), alpha);
      sum = sum + mul<T>(spread<T, N>(t), p.b.template get<N>(row + s, j));
    }
    p.c.template put<N>(row + i, j, sum);
  }
}

// body.operator()<N>(j) for packs of all right-hand sides, column-major ones one by one.
template <class T, bool RowMajor, class Body>
[[gnu::always_inline]] inline void for_all_sides(const bsr_products<T, RowMajor>& p, const Body& body) {
  if constexpr (RowMajor)
    for_packs<T>(0, p.n, body);
  else
    for (zor_int j = 0; j < p.n; ++j) body.template operator()<1>(j);
}

// All lb rows of C that some blocks give, for all right-hand sides; `input` is the block row of B, or below 0
// the column of each block.
template <class T, bool RowMajor>
void add_blocks(const bsr_products<T, RowMajor>& p, zor_int first, zor_int last, zor_int output,
                zor_int input) {
  constexpr int abreast = thresholds::bsr_rows_abreast;
  const bool flip = input >= 0;
  const zor_int row_step = flip ? p.a.column_step() : p.a.row_step();
  const zor_int sum_step = flip ? p.a.row_step() : p.a.column_step();
  for_all_sides(
      p, [&]<int N>(zor_int j) __attribute__((always_inline)) {
        zor_int i = 0;
        for (; i + abreast <= p.a.lb; i += abreast)
          add_block_rows<N, abreast>(p, {first, last, output * p.a.lb + i, i * row_step, row_step, sum_step},
                                     input, j);
        for (; i < p.a.lb; ++i)
          add_block_rows<N, 1>(p, {first, last, output * p.a.lb + i, i * row_step, row_step, sum_step}, input,
                               j);
      });
}

template <class T, bool RowMajor>
void multiply_many(view v, bool diagonal_blocks, const bsr_products<T, RowMajor>& p) {
  if constexpr (RowMajor) {
    const bool plain = v.structure == 'g' && !v.transposed();
    if (plain && with_known_size(p.a.lb, [&]<int L>() { add_known_blocks<L>(p); })) return;
  }
  for (zor_int row = 0; row < p.mb; ++row) {
    const zor_int begin = p.a.begin(row), end = p.a.end(row);
    if (v.structure == 'g' && !v.transposed()) {
      add_blocks(p, begin, end, row, -1);
      continue;
    }
    for (zor_int k = begin; k < end; ++k) {
      const zor_int column = p.a.column(k);
      const place where = v.structure == 'g' ? place::inside : v.place_of(row, column);
      if (where == place::inside) {
        if (v.mirrored()) add_blocks(p, k, k + 1, row, -1);
        add_blocks(p, k, k + 1, column, row);
      } else if (where == place::diagonal && diagonal_blocks) {
        for_all_sides(
            p, [&]<int N>(zor_int j)
                   __attribute__((always_inline)) { add_diagonal_rows<N>(p, v, k, row * p.a.lb, j); });
      }
    }
  }
}

}  // namespace zor::sparse
