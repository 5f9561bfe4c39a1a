// SPDX-License-Identifier: MIT
// The steps of a sweep with rows of a block or right-hand sides in lanes; their order of sums stands in
// gauss.h.
#pragma once

#include "spblas/panel.h"
#include "spblas/quotient.h"
#include "spblas/solve_order.h"
#include "spblas/sweep/gauss.h"

namespace zor::sparse {

// Rows of a block whose sums are held at a time.
inline constexpr zor_int held_rows = 16;

// ---- One right-hand side: lanes are rows of a block.

template <class T, class I, bool ByRows>
struct vector_sweep {
  const block_matrix<T, I, ByRows>& a;
  sweep_kind kind;
  T* y;

  [[gnu::always_inline]] const T* x_of(zor_int line) const { return y + line * a.lb; }

  // y_R := y_R - (the sum of the blocks first to last - 1 times their y).
  void subtract_row(zor_int R, zor_int first, zor_int last) const {
    T* const target = y + R * a.lb;
    for (zor_int from = 0; from < a.lb; from += held_rows) {
      const zor_int rows = a.lb - from < held_rows ? a.lb - from : held_rows;
      T sums[held_rows];
      for_packs<T>(
          0, rows, [&]<int N>(zor_int i) __attribute__((always_inline)) {
            pack<T, N> t{};
            for (zor_int p = first; p < last; ++p) {
              const T *const block = a.block(p), *const x = x_of(a.index(p));
              for (zor_int j = 0; j < a.lb; ++j)
                t = t + mul<T>(a.template column<N>(block, from + i, j), spread<T, N>(x + j));
            }
            store<T, N>(sums + i, t);
          });
      for_packs<T>(
          0, rows, [&]<int N>(zor_int i) __attribute__((always_inline)) {
            T* const p = target + from + i;
            store<T, N>(p, load<T, N>(p) - load<T, N>(sums + i));
          });
    }
  }

  // y_R := y_R - A y_C for each of the blocks first to last - 1 of block column C.
  void subtract_column(zor_int C, zor_int first, zor_int last) const {
    const T* const x = x_of(C);
    for (zor_int p = first; p < last; ++p) {
      const T* const block = a.block(p);
      T* const target = y + a.index(p) * a.lb;
      for_packs<T>(
          0, a.lb, [&]<int N>(zor_int i) __attribute__((always_inline)) {
            pack<T, N> t = load<T, N>(target + i);
            for (zor_int j = 0; j < a.lb; ++j)
              t = t - mul<T>(a.template column<N>(block, i, j), spread<T, N>(x + j));
            store<T, N>(target + i, t);
          });
    }
  }

  void solve_diagonal(zor_int R, const T* block) const {
    T* const x = y + R * a.lb;
    in_order(!kind.upper, a.lb, [&](zor_int i) {
      one<T> s{};
      const zor_int first = kind.upper ? i + 1 : 0, last = kind.upper ? a.lb : i;
      for (zor_int j = first; j < last; ++j) s = s + mul_at<T>(a.at(block, i, j), load<T, 1>(x + j));
      const one<T> rest = load<T, 1>(x + i) - s;
      T v;
      std::memcpy(&v, &rest, sizeof v);
      x[i] = quotient(v, *a.at(block, i, i));
    });
  }
};

// ---- Many right-hand sides by rows: lanes are right-hand sides.

template <class T, class I, bool ByRows>
struct panel_sweep {
  const block_matrix<T, I, ByRows>& a;
  sweep_kind kind;
  dense<T, true> y;
  zor_int nrhs;

  void subtract_row(zor_int R, zor_int first, zor_int last) const {
    for_packs<T>(
        0, nrhs, [&]<int N>(zor_int r) __attribute__((always_inline)) {
          for (zor_int from = 0; from < a.lb; from += held_rows)
            subtract_rows<N>(R, from, a.lb - from < held_rows ? a.lb - from : held_rows, first, last, r);
        });
  }
  template <int N>
  [[gnu::always_inline]] void subtract_rows(zor_int R, zor_int from, zor_int rows, zor_int first,
                                            zor_int last, zor_int r) const {
    pack<T, N> sums[held_rows];
    for (zor_int i = 0; i < rows; ++i) {
      pack<T, N> t{};
      for (zor_int p = first; p < last; ++p) {
        const T* const block = a.block(p);
        const zor_int x = a.index(p) * a.lb;
        for (zor_int j = 0; j < a.lb; ++j)
          t = t + mul<T>(spread<T, N>(a.at(block, from + i, j)), y.template get<N>(x + j, r));
      }
      sums[i] = t;
    }
    for (zor_int i = 0; i < rows; ++i) {
      const zor_int row = R * a.lb + from + i;
      y.template put<N>(row, r, y.template get<N>(row, r) - sums[i]);
    }
  }

  void subtract_column(zor_int C, zor_int first, zor_int last) const {
    for (zor_int p = first; p < last; ++p) {
      const T* const block = a.block(p);
      for (zor_int i = 0; i < a.lb; ++i) {
        const zor_int row = a.index(p) * a.lb + i;
        for_packs<T>(
            0, nrhs, [&]<int N>(zor_int r) __attribute__((always_inline)) {
              pack<T, N> t = y.template get<N>(row, r);
              for (zor_int j = 0; j < a.lb; ++j)
                t = t - mul<T>(spread<T, N>(a.at(block, i, j)), y.template get<N>(C * a.lb + j, r));
              y.template put<N>(row, r, t);
            });
      }
    }
  }

  void solve_diagonal(zor_int R, const T* block) const {
    const zor_int top = R * a.lb;
    in_order(!kind.upper, a.lb, [&](zor_int i) {
      const zor_int first = kind.upper ? i + 1 : 0, last = kind.upper ? a.lb : i;
      for_packs<T>(
          0, nrhs, [&]<int N>(zor_int r) __attribute__((always_inline)) {
            pack<T, N> s{};
            for (zor_int j = first; j < last; ++j)
              s = s + mul<T>(spread<T, N>(a.at(block, i, j)), y.template get<N>(top + j, r));
            const pack<T, N> rest = y.template get<N>(top + i, r) - s;
            y.template put<N>(top + i, r, divided<T, N>(rest, *a.at(block, i, i)));
          });
    });
  }
};

// One line of the matrix after the other. The blocks of the triangle stand on one side of the stopping block;
// that block itself is left out when it is the diagonal block or taken for it.
template <class T, class I, bool ByRows, class Sweep>
void sweep_lines(const block_matrix<T, I, ByRows>& a, const sweep_kind& kind, const Sweep& sweep) {
  const bool behind = kind.upper != kind.by_block_columns;
  in_order(!kind.upper, a.count, [&](zor_int line) {
    const zor_int stop = a.stop(line), end = a.end(line);
    const bool skips = kind.with_diagonal || (stop < end && a.index(stop) == line);
    const zor_int first = behind ? stop + skips : a.begin(line), last = behind ? end : stop;
    if (kind.by_block_columns) {
      if (kind.with_diagonal) sweep.solve_diagonal(line, a.block(stop));
      sweep.subtract_column(line, first, last);
    } else {
      sweep.subtract_row(line, first, last);
      if (kind.with_diagonal) sweep.solve_diagonal(line, a.block(stop));
    }
  });
}

template <class T, class I, bool ByRows>
void sweep_blocks(const block_matrix<T, I, ByRows>& a, const sweep_kind& kind, zor_int nrhs, T* y,
                  zor_int ldy) {
  if (ByRows && nrhs > 1) {
    sweep_lines(a, kind, panel_sweep<T, I, ByRows>{a, kind, {y, ldy}, nrhs});
  } else {
    for (zor_int r = 0; r < nrhs; ++r)
      sweep_lines(a, kind, vector_sweep<T, I, ByRows>{a, kind, r == 0 ? y : y + r * ldy});
  }
}

}  // namespace zor::sparse
