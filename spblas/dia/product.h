// SPDX-License-Identifier: MIT
// C := C + alpha op(A) B for a matrix in diagonals. An element of C takes its contributions column block
// after column block and in a block in the order in which diagonals are listed; a vector as y(i) = y(i) +
// (x(i + q) alpha) a, a matrix as c(i, j) = c(i, j) + b(i + q, j) (a alpha). Where a diagonal has an image,
// tiles of rows and columns follow one another and in a tile each row changes c(i) first and then its image
// c(i + q). The transposed of a diagonal of distance q is one of distance -q whose element of row i stands at
// row i - q.
#pragma once

#include <algorithm>

#include "blas/level1/vector.h"
#include "spblas/dia/dia.h"

namespace zor::sparse {

// A run of a diagonal: element i of `a` multiplies element i + x of a right-hand side.
template <class T>
struct diagonal_run {
  const T* a;
  zor_int x;
};
template <class T>
struct diagonal_runs {
  diagonal_run<T> at[thresholds::dia_runs_at_once];
  int count = 0;
};

// What runs are added to, and how: the right-hand sides j and following, `conj` the elements conjugated,
// `minus` the products subtracted.
template <class T>
struct run_target {
  const T* x;
  zor_int ldx;
  T* y;
  zor_int ldy;
  T alpha;
  bool conj, minus;
};

// Elements first to last - 1 of Columns right-hand sides, for one run after the other.
template <bool Many, int Columns, class T>
[[gnu::noinline]] void add_runs(const run_target<T>& to, const diagonal_runs<T>& runs, zor_int first,
                                zor_int last) {
  const bool conj = to.conj, minus = to.minus;
  const zor_int ldx = to.ldx, ldy = to.ldy;
  const one<T> alpha = load<T, 1>(&to.alpha);
  const auto body = [&]<int N, int R>(zor_int i) __attribute__((always_inline)) {
    constexpr int all = R * Columns;
    const pack<T, N> scale = spread<T, N>(alpha);
    packs<T, N, all> sum;
    each<all>([&](int s) __attribute__((always_inline)) {
      sum.at[s] = load<T, N>(to.y + i + s / Columns * N + s % Columns * ldy);
    });
    for (int d = 0; d < runs.count; ++d) {
      const T *a = runs.at[d].a + i, *x = to.x + runs.at[d].x + i;
      each<all>([&](int s) __attribute__((always_inline)) {
        const int row = s / Columns * N;
        const pack<T, N> entry = conj_if<T>(conj, load<T, N>(a + row));
        const pack<T, N> element = load<T, N>(x + row + s % Columns * ldx);
        const pack<T, N> product =
            Many ? mul<T>(element, mul<T>(entry, scale)) : mul<T>(mul<T>(element, scale), entry);
        sum.at[s] = minus ? sum.at[s] - product : sum.at[s] + product;
      });
    }
    each<all>([&](int s) __attribute__((always_inline)) {
      store<T, N>(to.y + i + s / Columns * N + s % Columns * ldy, sum.at[s]);
    });
  };
  for_packs_abreast<T, Columns == 1 ? 4 : 1>(first, last, body);
}

// The rows of a diagonal of distance q in some rows and columns.
struct row_span {
  zor_int first, last;
};
inline row_span rows_of(zor_int q, row_span rows, row_span columns) {
  return {std::max(rows.first, columns.first - q), std::min(rows.last, columns.last - q)};
}
// Block number i of so many, the last of which takes the rest.
inline row_span block_of(zor_int i, zor_int count, zor_int size, zor_int all) {
  return {i * size, i + 1 < count ? (i + 1) * size : all};
}

template <bool Many, class T>
class diagonals_product {
 public:
  diagonals_product(view v, const dia_product<T>& p)
      : v_(v),
        p_(p),
        flip_(v.transposed() && v.structure != 'h'),
        m_(p.m),
        k_(v.structure == 'd' ? p.m : p.k) {}

  void run() const {
    if (v_.unit())
      for (zor_int j = p_.from_column; j < p_.to_column; ++j)
        zor::axpy<T>(p_.m, p_.alpha, p_.b.at(0, j), 1, p_.c.at(0, j), 1);
    if (m_ < 1 || k_ < 1) return;
    v_.mirrored() ? add_tiles() : add_column_blocks();
  }

 private:
  // Whether the view takes a stored diagonal, and the distance that it then has.
  bool takes(zor_int d) const {
    const zor_int side = v_.side() * p_.a.idiag[d];
    if (v_.structure == 'g') return true;
    return side == 0 ? !v_.unit() && !v_.skew() : side < 0 && v_.structure != 'd';
  }
  zor_int distance(zor_int d) const { return flip_ ? -p_.a.idiag[d] : p_.a.idiag[d]; }
  // The diagonal as a run whose element i is that of row i of op(A).
  diagonal_run<T> run_of(zor_int d) const {
    return {p_.a.diagonal(d) + (flip_ ? distance(d) : 0), distance(d)};
  }

  // Rows of some runs, moved by `shift` rows of C, for all right-hand sides.
  void add(const diagonal_runs<T>& runs, row_span rows, zor_int shift = 0, bool conj = false,
           bool minus = false) const {
    constexpr int abreast = thresholds::dia_columns_abreast;
    const auto target = [&](zor_int j) {
      return run_target<T>{p_.b.at(0, j), p_.b.ld, p_.c.at(shift, j), p_.c.ld, p_.alpha, conj, minus};
    };
    zor_int j = p_.from_column;
    if constexpr (Many)
      for (; j + abreast <= p_.to_column; j += abreast)
        add_runs<Many, abreast>(target(j), runs, rows.first, rows.last);
    for (; j < p_.to_column; ++j) add_runs<Many, 1>(target(j), runs, rows.first, rows.last);
  }

  // With ascending distances the columns of a row ascend as its diagonals do: one block then holds them all.
  bool ascends() const {
    zor_int before = -m_;
    for (zor_int d = 0; d < p_.a.ndiag; ++d) {
      if (!takes(d)) continue;
      if (distance(d) < before) return false;
      before = distance(d);
    }
    return true;
  }

  void add_column_blocks() const {
    const zor_int size = ascends() ? k_ : std::min(k_, thresholds::dia_tile_columns), count = k_ / size;
    for (zor_int i = 0; i < count; ++i) {
      const row_span columns = block_of(i, count, size, k_);
      row_span any = {m_, 0};
      for (zor_int d = 0; d < p_.a.ndiag; ++d) {
        if (!takes(d)) continue;
        const row_span rows = rows_of(distance(d), {0, m_}, columns);
        if (rows.first < rows.last) any = {std::min(any.first, rows.first), std::max(any.last, rows.last)};
      }
      for (zor_int row = any.first; row < any.last; row += thresholds::dia_rows_at_once)
        add_rows({row, std::min(any.last, row + thresholds::dia_rows_at_once)}, columns);
    }
  }
  // Diagonals that have all of the rows are gathered and added together; one that has some of them is added
  // by itself, behind those before it.
  void add_rows(row_span rows, row_span columns) const {
    diagonal_runs<T> runs;
    const auto flush = [&] {
      if (runs.count > 0) add(runs, rows, 0, v_.conjugates_entry());
      runs.count = 0;
    };
    for (zor_int d = 0; d < p_.a.ndiag; ++d) {
      if (!takes(d)) continue;
      const row_span part = rows_of(distance(d), rows, columns);
      if (part.first >= part.last) continue;
      if (part.first == rows.first && part.last == rows.last) {
        runs.at[runs.count++] = run_of(d);
        if (runs.count == thresholds::dia_runs_at_once) flush();
      } else {
        flush();
        add({.at = {run_of(d)}, .count = 1}, part, 0, v_.conjugates_entry());
      }
    }
    flush();
  }

  void add_tiles() const {
    const zor_int tile_rows = std::min(m_, thresholds::dia_tile_rows), row_tiles = m_ / tile_rows;
    const zor_int tile_columns = std::min(k_, thresholds::dia_tile_columns), column_tiles = k_ / tile_columns;
    for (zor_int i = 0; i < row_tiles; ++i)
      for (zor_int j = 0; j < column_tiles; ++j)
        for (zor_int d = 0; d < p_.a.ndiag; ++d)
          if (takes(d))
            add_with_image(run_of(d), rows_of(distance(d), block_of(i, row_tiles, tile_rows, m_),
                                              block_of(j, column_tiles, tile_columns, k_)));
  }
  // An element of C below the diagonal meets the run before its image, one above it behind; some rows at a
  // time keep that order.
  void add_with_image(diagonal_run<T> run, row_span rows) const {
    const diagonal_runs<T> direct = {.at = {run}, .count = 1}, image = {.at = {{run.a, 0}}, .count = 1};
    constexpr zor_int step = thresholds::dia_image_rows_at_once;
    for (zor_int row = rows.first; row < rows.last; row += step) {
      const row_span some = {row, std::min(rows.last, row + step)};
      if (run.x > 0) add(image, some, run.x, v_.conjugates_image(), v_.skew());
      add(direct, some, 0, v_.conjugates_entry());
      if (run.x < 0) add(image, some, run.x, v_.conjugates_image(), v_.skew());
    }
  }

  const view v_;
  const dia_product<T>& p_;
  const bool flip_;
  const zor_int m_, k_;
};

template <bool Many, class T>
void multiply(view v, const dia_product<T>& p) {
  diagonals_product<Many, T>(v, p).run();
}

}  // namespace zor::sparse
