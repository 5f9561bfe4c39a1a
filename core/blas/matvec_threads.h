// SPDX-License-Identifier: MIT
// Level 2 divided over threads. Each element of a result keeps its order of sums: a thread computes whole
// elements by the kernels, or the next terms of their sums after a phase in which others ended.
#pragma once

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <memory>

#include "blas/level2/triangle.h"
#include "core/blas/kernels.h"
#include "core/blas/pieces.h"
#include "core/kern.h"
#include "serv/control.h"
#include "zor/serv.h"
#include "zor/signatures/blas.h"

namespace zor_core {

using zor::is_complex;
using zor::real_t;
using zor::stored_triangle;

inline constexpr zor_int matvec_grain = zor::thresholds::matvec_cut;
inline constexpr zor_int one_step = 1;
// Bytes of the whole matrix from which a symmetric product is divided. Measured on Zen 4, double: two threads
// gain nothing at order 1000 and 1.3 to 1.4 at order 1500.
inline constexpr zor_int least_symmetric_bytes = zor_int(1) << 24;

// The kernel of a banded product: the kernel and the routine bear the same name.
template <class T>
constinit kern_function<zor::xgbmv_fn<T>> gbmv_kernel{nullptr};
#define ROW_XGBMV(name, T) \
  template <>              \
  inline constinit kern_function<zor::xgbmv_fn<T>> gbmv_kernel<T>{#name};
#include "zor/tables/blas_level2.inc"

// ---- Rank-one updates of a whole matrix: columns, or rows when these are few.

template <class T>
void threaded_ger(int32_t threads, zor::xger_fn<T>* kernel, zor_int m, zor_int n, const T* alpha, const T* x,
                  zor_int incx, const T* y, zor_int incy, T* a, zor_int lda) {
  if (n >= 4 * zor_int(threads))
    for_cuts(threads, n, 1, [&](zor_int first, zor_int count) {
      kernel(&m, &count, alpha, x, &incx, part(y, n, incy, first, count), &incy, a + first * lda, &lda);
    });
  else
    for_cuts(threads, m, matvec_grain, [&](zor_int first, zor_int count) {
      kernel(&count, &n, alpha, part(x, m, incx, first, count), &incx, y, &incy, a + first, &lda);
    });
}

// ---- Rank updates of a triangle: runs of columns. A column grows by a multiple of x or of two vectors,
// which are axpys of its own; the diagonal of a Hermitian matrix is a matrix of order 1 for the kernel.

// Whether complex axpys round as the kernels of rank updates do, which add the negative of a product where
// these subtract it.
template <class T>
bool axpy_rounds_alike() {
  return !is_complex<T> || zor::rounds_alike_under_signs();
}

// Column j of the triangle, but for the diagonal of a Hermitian one, grows by s x.
template <bool Hermitian, class T>
void update_column(const stored_triangle<T>& a, zor_int j, T s, const T* x, const zor_int* incx) {
  const zor_int first = a.first_row(j) + (Hermitian && !a.upper), end = a.end_row(j) - (Hermitian && a.upper);
  const zor_int count = end - first;
  if (count > 0)
    kernels<T>::axpy(&count, &s, part(x, a.n, *incx, first, count), incx, a.column(j) + first, &one_step);
}

template <class T>
int32_t threads_for_update(zor_int n) {
  const int32_t threads = threads_for_matrix<T>(n, n, 2 * zor::thresholds::threaded_matrix_bytes);
  return threads > 1 && axpy_rounds_alike<T>() ? threads : 1;
}

// `diagonal` updates the diagonal of a column.
template <bool Hermitian, class T, class Diagonal>
void threaded_rank_1(int32_t threads, const stored_triangle<T>& a, real_t<T> alpha, const T* x,
                     const zor_int* incx, const Diagonal& diagonal) {
  over_triangle_columns(threads, a.upper, a.n, [&](zor_int j) {
    const T* const xj = part(x, a.n, *incx, j, 1);
    if constexpr (Hermitian) diagonal(xj, a.column(j) + j);
    if (is_zero(*xj)) return;
    const T s = zor::scaled(alpha, zor::conj_by_sign_if(Hermitian, *xj));
    if (!is_zero(s)) update_column<Hermitian>(a, j, s, x, incx);
  });
}

// A copy of a vector with an increment of 1.
template <class T>
void copy_of(zor_int n, const T* x, const zor_int* incx, T* copy) {
  kernels<T>::copy(&n, x, incx, copy, &one_step);
}

// Rank 2 with real vectors: a column grows by a product of the matrix of both vectors, side by side in a
// copy. False, with nothing done, when there is no memory for it.
template <class T>
bool threaded_syr2(int32_t threads, const stored_triangle<T>& a, const T* alpha, const T* x,
                   const zor_int* incx, const T* y, const zor_int* incy) {
  T* const both = static_cast<T*>(zor_serv_allocate(uint64_t(a.n) * 2 * sizeof(T), 64));
  if (both == nullptr) return false;
  copy_of(a.n, x, incx, both);
  copy_of(a.n, y, incy, both + a.n);
  over_triangle_columns(threads, a.upper, a.n, [&](zor_int j) {
    const T factors[2] = {both[a.n + j], both[j]}, one = 1;
    if (is_zero(factors[0]) && is_zero(factors[1])) return;
    const zor_int first = a.first_row(j), count = a.end_row(j) - first, two = 2;
    kernels<T>::gemv("N", &count, &two, alpha, both + first, &a.n, factors, &one_step, &one,
                     a.column(j) + first, &one_step);
  });
  zor_serv_deallocate(both);
  return true;
}

// The factors of x and of y in column j of a Hermitian matrix.
template <class T>
struct her2_factors {
  T of_x, of_y;
  her2_factors(T alpha, T xj, T yj)
      : of_x(zor::mul(alpha, zor::conj_by_sign(yj))), of_y(zor::conj_by_sign(zor::mul(alpha, xj))) {}
};

// False, with nothing done, when a column has one factor that is 0 and one that is not: an axpy by 0 would
// leave out products that are not 0.
template <class T, class Diagonal>
bool threaded_her2(int32_t threads, const stored_triangle<T>& a, T alpha, const T* x, const zor_int* incx,
                   const T* y, const zor_int* incy, const Diagonal& diagonal) {
  for (zor_int j = 0; j < a.n; ++j) {
    const T xj = *part(x, a.n, *incx, j, 1), yj = *part(y, a.n, *incy, j, 1);
    if (is_zero(xj) && is_zero(yj)) continue;
    const her2_factors<T> factors(alpha, xj, yj);
    if (is_zero(factors.of_x) || is_zero(factors.of_y)) return false;
  }
  over_triangle_columns(threads, a.upper, a.n, [&](zor_int j) {
    const T *const xj = part(x, a.n, *incx, j, 1), *const yj = part(y, a.n, *incy, j, 1);
    diagonal(xj, yj, a.column(j) + j);
    if (is_zero(*xj) && is_zero(*yj)) return;
    const her2_factors<T> factors(alpha, *xj, *yj);
    update_column<true>(a, j, factors.of_x, x, incx);
    update_column<true>(a, j, factors.of_y, y, incy);
  });
  return true;
}

// ---- Products with a band: pieces of y, each with the columns or rows of the band that it meets, which are
// a band again.

template <class T>
void threaded_gbmv(int32_t threads, const char* trans, zor_int m, zor_int n, zor_int kl, zor_int ku,
                   const T* alpha, const T* a, const zor_int* lda, const T* x, const zor_int* incx,
                   const T* beta, T* y, const zor_int* incy) {
  const bool plain = is_plain(trans);
  const zor_int outputs = plain ? m : n, inputs = plain ? n : m;
  const zor_int before = plain ? kl : ku, behind = plain ? ku : kl;
  auto* const kernel = gbmv_kernel<T>.get();
  for_cuts(threads, outputs, matvec_grain, [&](zor_int first, zor_int count) {
    const zor_int begin = first > before ? first - before : 0,
                  end = inputs - first - count > behind ? first + count + behind : inputs;
    T* const piece = part(y, outputs, *incy, first, count);
    if (begin >= end) {
      const T nothing{};
      return kernel(trans, &count, &count, &kl, &ku, &nothing, a, lda, x, incx, beta, piece, incy);
    }
    const zor_int length = end - begin, nearer = before - (first - begin), farther = behind + (first - begin);
    const T* const run = part(x, inputs, *incx, begin, length);
    if (plain)
      kernel(trans, &count, &length, &nearer, &farther, alpha, a + begin * *lda, lda, run, incx, beta, piece,
             incy);
    else
      kernel(trans, &length, &count, &farther, &nearer, alpha, a + first * *lda, lda, run, incx, beta, piece,
             incy);
  });
}

// ---- Products with a triangular band: pieces of x, each with the elements that it meets, which lie on one
// side. These are computed too, in a copy, as far as the copy goes: the first terms of their sums, so that
// nothing is raised that the whole would not raise.

template <class T>
struct banded_product {
  zor_int n, before, behind;  // elements that one meets, before or behind it
  T* x;
  const zor_int* incx;

  zor_int pieces_for(int32_t threads) const {
    return std::clamp<zor_int>(n / matvec_grain / (1 + (before + behind) / 16), 1, threads);
  }

  // multiply(first, size, v) computes elements `first` on in v. False, with nothing done, when there is no
  // memory.
  template <class Multiply>
  bool run(int32_t threads, const Multiply& multiply) const {
    const zor_int pieces = pieces_for(threads), both = before + behind;
    T* const memory = static_cast<T*>(zor_serv_allocate(uint64_t(n + pieces * both) * sizeof(T), 64));
    if (memory == nullptr) return false;
    const auto for_pieces_of_band = [&](const auto& body) {
      for_each_piece(threads, pieces, [&](zor_int piece) {
        const zor_int first = cut(n, matvec_grain, pieces, piece),
                      last = cut(n, matvec_grain, pieces, piece + 1);
        const zor_int begin = first > before ? first - before : 0,
                      end = n - last > behind ? last + behind : n;
        body(first, last - first, begin, end - begin, memory + first + piece * both);
      });
    };
    for_pieces_of_band([&](zor_int, zor_int, zor_int begin, zor_int size, T* v) {
      copy_of(size, part(x, n, *incx, begin, size), incx, v);
    });
    for_pieces_of_band([&](zor_int first, zor_int count, zor_int begin, zor_int size, T* v) {
      multiply(begin, size, v);
      kernels<T>::copy(&count, v + (first - begin), &one_step, part(x, n, *incx, first, count), incx);
    });
    zor_serv_deallocate(memory);
    return true;
  }
};

template <class T>
int32_t threads_for_band(zor_int n, zor_int k) {
  return k < n / 16 ? threads_for_matrix<T>(k + 1, n, 2 * zor::thresholds::threaded_matrix_bytes) : 1;
}

// ---- Triangular products: from a copy of x, pieces of x in whole diagonal blocks of the kernel.

// x := op(A) x for the rows of one piece; `copy` holds all of x with an increment of 1.
template <class T>
struct triangular_product {
  zor::xtrmv_fn<T>* kernel;
  const char *uplo, *trans, *diag;
  zor_int n;
  const T* a;
  const zor_int* lda;
  T* x;
  const zor_int* incx;
  const T* copy;

  bool plain() const { return is_plain(trans); }
  bool lower() const { return is_letter(uplo, 'U') != plain(); }

  void diagonal_block(zor_int i, zor_int size) const {
    kernel(uplo, trans, diag, &size, a + i + i * *lda, lda, part(x, n, *incx, i, size), incx);
  }
  // Rows `row` on of op(A) times the elements of x from `column` on.
  void rectangle(zor_int row, zor_int rows, zor_int column, zor_int columns) const {
    if (rows <= 0 || columns <= 0) return;
    const T one = zor::one_of<T>();
    const bool by_columns = plain();
    kernels<T>::gemv(trans, by_columns ? &rows : &columns, by_columns ? &columns : &rows, &one,
                     a + (by_columns ? row + column * *lda : column + row * *lda), lda, copy + column,
                     &one_step, &one, part(x, n, *incx, row, rows), incx);
  }

  // Rows first to end - 1, whole blocks. The terms of a row follow its block's own: in a lower op(A) from
  // column 0, in an upper one up to column n - 1, and transposed in one sum.
  void piece(zor_int first, zor_int end) const {
    constexpr zor_int block = zor::thresholds::triangle_block;
    const zor_int rows = end - first, odd = rows % block == 0 ? block : rows % block;
    const bool far_first = plain() && lower(), far_last = plain() && !lower();
    for (zor_int i = first, size = lower() ? odd : block; i < end; i += size, size = block) {
      size = std::min(size, end - i);
      diagonal_block(i, size);
      if (!far_first)
        rectangle(i, size, lower() ? 0 : i + size, lower() ? i : (far_last ? end : n) - i - size);
    }
    if (far_last) rectangle(first, rows, end, n - end);
    if (!far_first) return;
    rectangle(first, rows, 0, first);
    for (zor_int i = first + odd; i < end; i += block) rectangle(i, block, first, i - first);
  }
};

// False when there is no memory for the copy.
template <class T>
bool threaded_trmv(int32_t threads, triangular_product<T> p) {
  T* const copy = static_cast<T*>(zor_serv_allocate(uint64_t(p.n) * sizeof(T), 64));
  if (copy == nullptr) return false;
  copy_of(p.n, p.x, p.incx, copy);
  p.copy = copy;
  // Blocks are cut from row 0 of an upper op(A) and from the last row of a lower one, where rows are longest.
  constexpr zor_int block = zor::thresholds::triangle_block;
  const zor_int pieces = std::min<zor_int>(2 * zor_int(threads), (p.n + block - 1) / block);
  const auto cut_at = [&](zor_int piece) {
    const zor_int at = first_column(false, p.n, pieces, piece);
    return piece == pieces ? p.n : at / block * block;
  };
  for_each_piece(threads, pieces, [&](zor_int piece) {
    const zor_int first = cut_at(piece), end = cut_at(piece + 1);
    if (p.lower())
      p.piece(p.n - end, p.n - first);
    else
      p.piece(first, end);
  });
  zor_serv_deallocate(copy);
  return true;
}

// ---- Products with a symmetric or Hermitian matrix, of which one triangle is stored. An element of y adds
// the terms of its row in the triangle, the diagonal, and alpha times the sum of its column: the column last
// in a lower triangle, first in an upper one. A thread takes a block of columns, which its cache keeps
// between the terms of the rows and the sums of the columns. Rows take their terms column by column, so a
// block follows the one before it down the rows, and stays behind it.

template <class T>
struct symmetric_product {
  zor::xsymv_fn<T>* kernel;
  const char* uplo;
  zor_int n;
  const T* alpha;
  const T* a;
  zor_int lda;
  const T* x;
  T* y;

  zor_int width = 0;  // columns of a block
  std::atomic<zor_int>* reached = nullptr;

  static constexpr zor_int least_width = 8, most_width = 64;
  // Bytes of the columns of a block, which stay in a second-level cache.
  static constexpr zor_int block_bytes = zor_int(1) << 19;
  // Rows after which a block tells the next one how far it has come.
  static constexpr zor_int stride = 512;
  static constexpr bool hermitian = is_complex<T>;

  bool upper() const { return is_letter(uplo, 'U'); }
  zor_int blocks() const { return (n + width - 1) / width; }
  zor_int begin(zor_int k) const { return k * width; }
  zor_int end(zor_int k) const { return std::min(n, (k + 1) * width); }
  const T* at(zor_int i, zor_int j) const { return a + i + j * lda; }

  // A part of the triangle as a band matrix: the step from column to column goes along the diagonal.
  template <class U>
  static void band(const char* trans, zor_int rows, zor_int columns, zor_int kl, zor_int ku, U factor,
                   const U* first, zor_int ld, const U* v, zor_int inc, U* result) {
    const U one = zor::one_of<U>();
    const zor_int step = ld + 1;
    gbmv_kernel<U>.get()(trans, &rows, &columns, &kl, &ku, &factor, first - ku, &step, v, &inc, &one, result,
                         &inc);
  }

  // The terms of the diagonal for elements i to i + count - 1. That of a Hermitian matrix is real, and the
  // parts of y are real vectors.
  void diagonal(zor_int i, zor_int count) const {
    if constexpr (hermitian) {
      using R = real_t<T>;
      T s[most_width];
      for (zor_int k = 0; k < count; ++k) s[k] = zor::mul(*alpha, x[i + k]);
      for (const int part : {0, 1})
        band<R>("N", count, count, 0, 0, 1, zor::reals(at(i, i)), 2 * lda + 1, zor::reals(s) + part, 2,
                zor::reals(y + i) + part);
    } else {
      band("N", count, count, 0, 0, *alpha, at(i, i), lda, x + i, 1, y + i);
    }
  }
  // The terms of block k's own rows beside the diagonal.
  void own_rows(zor_int k) const {
    const zor_int i = begin(k), count = end(k) - i - 1;
    if (upper())
      band("N", count, count, 0, count - 1, *alpha, at(i, i + 1), lda, x + i + 1, 1, y + i);
    else
      band("N", count, count, count - 1, 0, *alpha, at(i + 1, i), lda, x + i, 1, y + i + 1);
  }
  // The terms of block k in `count` of the other rows that it has.
  void rows(zor_int k, zor_int first, zor_int count) const {
    const zor_int j = begin(k), columns = end(k) - j;
    const T one = zor::one_of<T>();
    kernels<T>::gemv("N", &count, &columns, alpha, at(first, j), &lda, x + j, &one_step, &one, y + first,
                     &one_step);
  }
  // The sums of `count` columns from j on.
  void sums(zor_int j, zor_int count) const {
    const char* const trans = hermitian ? "C" : "T";
    if (upper()) {
      diagonal(j, count);
      band(trans, j + count - 1, count, j - 1, count - 1, *alpha, at(0, j), lda, x, 1, y + j);
    } else {
      const zor_int rows = n - j - 1;
      band(trans, rows, count, rows - 1, 0, *alpha, at(j + 1, j), lda, x + j + 1, 1, y + j);
    }
  }
  // The block that has no rows and sums beside its own triangle: the first of an upper triangle, the last of
  // a lower one.
  void corner() const {
    const zor_int k = upper() ? 0 : blocks() - 1, i = begin(k), size = end(k) - i;
    const T one = zor::one_of<T>();
    kernel(uplo, &size, alpha, at(i, i), &lda, x + i, &one_step, &one, y + i, &one_step);
  }

  // Waits until block k has added its terms to the rows before `row`.
  void wait_for(zor_int k, zor_int row) const {
    while (k >= 0 && reached[k].load(std::memory_order_acquire) < row) sched_yield();
  }
  void has_reached(zor_int k, zor_int row) const { reached[k].store(row, std::memory_order_release); }

  // The terms of block k in rows first to last - 1, which are not its own.
  void follow(zor_int k, zor_int first, zor_int last) const {
    for (zor_int i = first; i < last; i += stride) {
      const zor_int row = std::min(last, i + stride);
      // Of an upper triangle the last rows are those of block k - 1 itself, which it began with.
      wait_for(k - 1, upper() ? std::min(row, begin(k - 1)) : row);
      rows(k, i, row - i);
      has_reached(k, row);
    }
  }
  void run_block(zor_int k) const {
    const zor_int first = begin(k), last = end(k);
    if (upper()) {
      if (k == 0) {
        corner();
      } else {
        sums(first, last - first);
        own_rows(k);
      }
      has_reached(k, 0);
      return follow(k, 0, first);
    }
    wait_for(k - 1, last);
    if (last == n) return corner();
    own_rows(k);
    diagonal(first, last - first);
    follow(k, last, n);
    sums(first, last - first);
  }

  // False, with nothing done, when there is no memory for the marks of the blocks.
  bool run(int32_t threads, const T* beta) {
    width = std::clamp(block_bytes / (n * zor_int(sizeof(T))) / least_width * least_width, least_width,
                       most_width);
    reached = static_cast<std::atomic<zor_int>*>(zor_serv_allocate(uint64_t(blocks()) * sizeof *reached, 64));
    if (reached == nullptr) return false;
    for (zor_int k = 0; k < blocks(); ++k) std::construct_at(reached + k, -1);
    const T nothing{};
    kernels<T>::gemv("N", &n, &one_step, &nothing, a, &lda, x, &one_step, beta, y, &one_step);
    for_each_piece(threads, blocks(), [&](zor_int k) { run_block(k); });
    zor_serv_deallocate(reached);
    return true;
  }
};

}  // namespace zor_core
