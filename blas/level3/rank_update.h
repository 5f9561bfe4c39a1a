// SPDX-License-Identifier: MIT
// What the symmetric and Hermitian rank updates share. Matrix products write full rectangles and an update
// owns one triangle of C, so each diagonal block is computed into a square tile, of which one triangle is
// added to C; the rest of the block's columns is a rectangle of its own.
#pragma once

#include "blas/level3/blocks.h"
#include "blas/level3/gemm.h"
#include "blas/level3/lanes.h"
#include "blas/level3/product.h"

namespace zor::level3 {

template <class T>
struct triangle_of {
  T* c;
  zor_int ldc, n;
  bool lower;

  // First row of column j, and rows of it, within the triangle.
  zor_int first_row(zor_int j) const { return lower ? j : 0; }
  zor_int rows(zor_int j) const { return lower ? n - j : j + 1; }
  // The triangle of a diagonal block.
  triangle_of block(zor_int j, zor_int order) const { return {c + j + j * ldc, ldc, order, lower}; }
};

template <class T>
inline void clear_imaginary(T& c) {
  if constexpr (is_complex<T>) c.im = 0;
}

// C := beta C in the triangle; beta 0 stores zeros and reads nothing. A Hermitian triangle is scaled by a
// real number and its diagonal becomes real.
template <bool Hermitian, class T, class B>
void scale_triangle(const triangle_of<T>& t, B beta) {
  for (zor_int j = 0; j < t.n; ++j) {
    T* const column = t.c + t.first_row(j) + j * t.ldc;
    if (is_zero(beta))
      gemm::zero_columns(t.rows(j), 1, column, t.ldc);
    else if constexpr (Hermitian)
      gemm::scale_columns(t.rows(j) * parts<T>, 1, beta, reals(column), t.ldc);
    else
      gemm::scale_columns(t.rows(j), 1, beta, column, t.ldc);
    if (Hermitian) clear_imaginary(t.c[j + j * t.ldc]);
  }
}

// Adds the triangle of a tile of leading dimension tile_order.
template <bool Hermitian, class T>
void add_tile(const triangle_of<T>& t, const T* tile) {
  for (zor_int j = 0; j < t.n; ++j) {
    const zor_int first = t.first_row(j);
    real_t<T>* const c = reals(t.c + first + j * t.ldc);
    const real_t<T>* const add = reals(tile + first + j * tile_order);
    for_vectors<real_t<T>>(0, t.rows(j) * parts<T>, [&]<int Bytes>(zor_int i) {
      using V = vec_or_real<real_t<T>, Bytes>;
      store_reals(c + i, load_reals<V>(c + i) + load_reals<V>(add + i));
    });
    if (Hermitian) clear_imaginary(t.c[j + j * t.ldc]);
  }
}

// Tuned: rows and columns whose diagonal blocks share one rectangle.
inline constexpr zor_int joined_order = 256;

// Calls diagonal(j, order) for each diagonal block, and rectangle(row, rows, column, columns) for what the
// triangle holds beside them. The rectangles of neighbouring blocks are joined where none of their parts
// falls short of `least_product`: the sums of an element stay what they are, and A is packed less often.
template <class T, class Diagonal, class Rectangle>
void for_diagonal_blocks(const triangle_of<T>& t, zor_int step, const Diagonal& diagonal,
                         const Rectangle& rectangle) {
  for (zor_int first = 0; first < t.n; first += joined_order) {
    const zor_int end = t.n - first < joined_order ? t.n : first + joined_order;
    const bool join = t.lower ? t.n - end >= least_product : (end - first - 1) % step + 1 >= least_product;
    for (zor_int j = first; j < end; j += step) {
      const zor_int order = end - j < step ? end - j : step;
      diagonal(j, order);
      const zor_int row = t.lower ? j + order : join ? first : 0;
      rectangle(row, (t.lower ? join ? end : t.n : j) - row, j, order);
    }
    if (join) rectangle(t.lower ? end : 0, t.lower ? t.n - end : first, first, end - first);
  }
}

// A diagonal block is computed by strips of columns, without most of the triangle that nobody wants. Their
// width is a multiple of all groups of rows and columns that the product takes, and none is so narrow that
// the product would take another way for it: no element's sum changes. Complex elements cost four times as
// much, so that narrower strips with less of the other triangle pay.
template <class T>
inline constexpr zor_int strip_columns = is_complex<T> ? 16 : 32;

// Calls body(column, columns, row, rows) for the strips of a block and the rows of the triangle in each.
template <class T, class Body>
void for_strips(bool lower, zor_int order, const Body& body) {
  for (zor_int j = 0, columns; j < order; j += columns) {
    const zor_int left = order - j;
    columns = left < strip_columns<T> + least_product ? left : strip_columns<T>;
    body(j, columns, lower ? j : 0, lower ? left : j + columns);
  }
}

// The quick returns of a rank update; false when nothing is left to add. The triangle is scaled either way.
template <bool Hermitian, class T, class B>
bool begin_update(const triangle_of<T>& t, zor_int k, bool alpha_is_zero, B beta) {
  if (t.n <= 0) return false;
  if ((alpha_is_zero || k <= 0) && is_one(beta)) return false;
  if (!is_one(beta)) scale_triangle<Hermitian>(t, beta);
  return !alpha_is_zero;
}

// Rows from `row` on of op(A), n by k.
template <class T>
const T* rows_of(bool trans, const T* a, zor_int lda, zor_int row) {
  return a + (trans ? row * lda : row);
}

}  // namespace zor::level3
