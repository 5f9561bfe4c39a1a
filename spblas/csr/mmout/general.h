// SPDX-License-Identifier: MIT
// The general view with many right-hand sides: the row dot for each of them, then c(r, j) = c(r, j) + s
// alpha.
#pragma once

#include <limits>

#include "serv/scratch.h"
#include "spblas/csr/mmout/mmout.h"
#include "spblas/csr/mmout/row_blocks.h"
#include "spblas/csr/runs.h"
#include "spblas/row_dot.h"

namespace zor::sparse {

// R packs of right-hand sides from j on, rows `row` to end - 1. B is read through b, which may be a copy.
template <int N, int R, class T, bool RowMajor, bool RowsOfB, class I>
[[gnu::noinline]] void dot_panel(const matrix_product<T, RowMajor, I>& p, bool conj, zor_int row, zor_int end,
                                 zor_int j, dense<const T, RowsOfB> b) {
  const csr<T, I> a = p.a.with_pointers_as_positions();
  const dense<const T, RowsOfB> x{opaque(b.at(-a.base, j)), b.ld};
  const dense<T, RowMajor> c = p.c;
  const auto alpha = spread<T, N>(&p.alpha);
  const stored_entries<T, I> entries{a.val, a.indx};
  // Where runs of equally short rows pay for the code that they take.
  constexpr run_rule runs = RowsOfB && N == widest<T> ? thresholds::panel_runs : thresholds::no_runs;
  for_rows<runs>(
      a, row, end, [&]<int Count>(zor_int r) __attribute__((always_inline)) {
        const auto s = row_dots<N, R, Count>(entries, conj, a.begin(r), a.end(r), x);
        each<R>([&](int i) __attribute__((always_inline)) {
          const zor_int column = j + i * N;
          c.template put<N>(r, column, c.template get<N>(r, column) + mul<T>(alpha, s.at[i]));
        });
      });
}

// Right-hand sides first to last - 1. A line of a column-major B is one pack in the widest build.
template <class T, bool RowMajor, bool RowsOfB, class I>
void dot_rows(const matrix_product<T, RowMajor, I>& p, bool conj, zor_int row, zor_int end, zor_int first,
              zor_int last, dense<const T, RowsOfB> b) {
  for_panels<T, RowMajor ? thresholds::packs_abreast : 64 / width>(
      row, end, first,
      last, [&]<int N, int R>(zor_int j, zor_int from, zor_int to) __attribute__((always_inline)) {
        dot_panel<N, R>(p, conj, from, to, j, b);
      });
}

// The rows of B that some rows of A use, first to last, and how many entries use them.
struct reach {
  zor_int first, last, entries;

  zor_int rows() const { return entries == 0 ? 0 : last - first + 1; }
};
template <class T, class I>
reach reach_of(csr<T, I> a, zor_int row, zor_int end) {
  using V = vec<I>;
  constexpr I none = std::numeric_limits<I>::max();
  V low = broadcast<V>(none), high = broadcast<V>(-1);
  zor_int entries = 0;
  const auto meet = [&](V columns) __attribute__((always_inline)) {
    low = min_lanes(low, columns);
    high = max_lanes(high, columns);
  };
  while (row < end) {
    zor_int k = a.begin(row), last = a.end(row);
    while (++row < end && a.begin(row) == last) last = a.end(row);
    entries += last - k;
    for (; k + lanes<V> <= last; k += lanes<V>) {
      touch(a.indx + k + thresholds::columns_ahead / zor_int(sizeof(I)));
      meet(zor::load<V>(a.indx + k));
    }
    for (; k < last; ++k) meet(broadcast<V>(a.indx[k]));
  }
  I first = none, most = -1;
  for (int i = 0; i < lanes<V>; ++i) {
    first = low[i] < first ? low[i] : first;
    most = high[i] > most ? high[i] : most;
  }
  return {first - a.base, most - a.base, entries};
}

// A column-major B costs a cache line for every entry and right-hand side. Copied a line of columns at a time
// into rows of their own it costs one for all of them. A row-major B whose rows are used all over, and of
// which the second cache holds less than half, is copied likewise where the cache holds the copy.
template <class T, bool RowMajor, class I>
bool copy_may_pay(const matrix_product<T, RowMajor, I>& p) {
  using namespace thresholds;
  if constexpr (!RowMajor) return p.last - p.first > 1;
  const zor_int bytes = (p.last - p.first) * zor_int(sizeof(T)), middle = p.m / 2;
  if (bytes <= copied_row_bytes<true>) return false;
  const zor_int sampled = p.m - middle < sampled_rows ? p.m : middle + sampled_rows;
  const zor_int rows = reach_of(p.a, middle, sampled).rows();
  return rows * bytes > 2 * second_cache && rows * copied_row_bytes<true> <= second_cache;
}

// False, with nothing done, when the copy would not pay or memory is short.
template <class T, bool RowMajor, class I>
bool dot_rows_of_copy(const matrix_product<T, RowMajor, I>& p, bool conj, zor_int row, zor_int end) {
  constexpr zor_int columns = thresholds::copied_row_bytes<RowMajor> / zor_int(sizeof(T));
  const reach r = reach_of(p.a, row, end);
  const zor_int rows = r.rows();
  if (rows == 0 || r.entries < thresholds::uses_for_copy<RowMajor> * rows) return false;
  const scratch<T> block(rows * columns);
  if (block.data == nullptr) return false;
  for (zor_int first = p.first; first < p.last; first += columns) {
    const zor_int last = p.last - first < columns ? p.last : first + columns;
    for_panels<T, 1>(
        r.first, r.last + 1, first,
        last, [&]<int N, int>(zor_int j, zor_int i, zor_int stop) __attribute__((always_inline)) {
          for (T* to = block.data + (i - r.first) * columns + j - first; i < stop; ++i, to += columns)
            store<T, N>(to, p.b.template get<N>(i, j));
        });
    const dense<const T, true> copy{block.data - r.first * columns - first, columns};
    dot_rows(p, conj, row, end, first, last, copy);
  }
  return true;
}

// Only the column-major members block their rows.
template <class T, bool RowMajor, class I>
void multiply_general(bool conj, const matrix_product<T, RowMajor, I>& p) {
  const zor_int block =
      RowMajor ? p.m : rows_in_block<I>(weights_of<T>(conj), I(p.m), p.a.pntre[p.m - 1], I(p.n));
  const zor_int blocks = p.m / block;
  const bool may_copy = copy_may_pay(p);
  for (zor_int i = 0; i < blocks; ++i) {
    const zor_int row = i * block, end = i + 1 < blocks ? row + block : p.m;
    if (!may_copy || !dot_rows_of_copy(p, conj, row, end)) dot_rows(p, conj, row, end, p.first, p.last, p.b);
  }
}

}  // namespace zor::sparse
