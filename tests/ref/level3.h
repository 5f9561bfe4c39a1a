// SPDX-License-Identifier: MIT
// Level 3 in its stated blocks and orders of sums, on the plain loops of the matrix product.
#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include "tests/ref/gemm.h"

namespace zor_ref {

inline bool same_letter(char a, char b) { return (a & ~0x20) == b; }

template <class T>
void add_product(char ta, char tb, zor_int m, zor_int n, zor_int k, T alpha, const T* a, zor_int lda,
                 const T* b, zor_int ldb, double beta, T* c, zor_int ldc) {
  gemm(product<T>{ta, tb, m, n, k, alpha, a, lda, b, ldb, element_of<T>(real_t<T>(beta)), c, ldc});
}

// The sum of products of a direct sum: up to 8 in order; more of them in four sums by position, joined
// crosswise, then the rest. Each sum begins with its first product.
template <class T>
struct factors {
  T x, y;
};
template <class T>
T direct_sum(const std::vector<factors<T>>& terms) {
  const size_t whole = terms.size() < 9 ? 1 : terms.size() / 4 * 4;
  const auto product = [&](size_t i) { return times(terms[i].x, terms[i].y); };
  T s = product(0);
  if (whole > 1) {
    T four[4] = {s, product(1), product(2), product(3)};
    for (size_t i = 4; i < whole; ++i) four[i % 4] = plus_term(four[i % 4], terms[i].x, terms[i].y);
    s = plus(plus(four[0], four[2]), plus(four[1], four[3]));
  }
  for (size_t i = whole; i < terms.size(); ++i) s = plus_term(s, terms[i].x, terms[i].y);
  return s;
}

// A triangular problem over B, m by n, and its parts: `first` is the first row and column of the triangle in
// hand, `order` its size, `free` and `count` the columns (side left) or rows of B.
template <class T>
struct triangular {
  char side, uplo, trans, diag;
  zor_int m, n;
  T alpha;
  const T* a;
  zor_int lda;
  T* b;
  zor_int ldb;

  bool left() const { return same_letter(side, 'L'); }
  bool transposed() const { return !same_letter(trans, 'N'); }
  bool lower() const { return same_letter(uplo, 'L') != transposed(); }  // of op(A)
  bool unit() const { return same_letter(diag, 'U'); }
  const T* at(zor_int i, zor_int k) const { return transposed() ? a + k + i * lda : a + i + k * lda; }
  T op(zor_int i, zor_int k) const { return same_letter(trans, 'C') ? conj(*at(i, k)) : *at(i, k); }
  T& x(zor_int i, zor_int other) const { return left() ? b[i + other * ldb] : b[other + i * ldb]; }
  // Coefficient of unknown k in equation i.
  T coefficient(zor_int i, zor_int k) const { return left() ? op(i, k) : op(k, i); }
  // Unknowns are found upwards.
  bool upwards() const { return lower() == left(); }

  // B(rows of `to`) += alpha times the rectangle times B(rows of `from`), or by columns from the right.
  void add_rectangle(T factor, zor_int to, zor_int to_size, zor_int from, zor_int from_size, zor_int free,
                     zor_int count) const {
    if (to_size <= 0 || count <= 0) return;
    const char letter = transposed() ? (same_letter(trans, 'C') ? 'C' : 'T') : 'N';
    if (left())
      add_product(letter, 'N', to_size, count, from_size, factor, at(to, from), lda, b + from + free * ldb,
                  ldb, 1, b + to + free * ldb, ldb);
    else
      add_product('N', letter, count, to_size, from_size, factor, b + free + from * ldb, ldb, at(from, to),
                  lda, 1, b + free + to * ldb, ldb);
  }
  // Unknowns of the block by plain substitution.
  void substitute(zor_int first, zor_int order, zor_int free, zor_int count) const {
    for (zor_int f = free; f < free + count; ++f)
      for (zor_int p = 0; p < order; ++p) {
        const auto index = [&](zor_int q) { return upwards() ? first + q : first + order - 1 - q; };
        T& xp = x(index(p), f);
        std::vector<factors<T>> terms;
        for (zor_int q = 0; q < p; ++q) terms.push_back({x(index(q), f), coefficient(index(p), index(q))});
        if (p > 0) xp = plus(xp, times(element_of<T>(-1), direct_sum(terms)));
        if (!unit()) xp = quotient(xp, coefficient(index(p), index(p)));
      }
  }
  // The block's product, in place.
  void multiply(zor_int first, zor_int order, zor_int free, zor_int count) const {
    for (zor_int f = free; f < free + count; ++f) {
      std::vector<T> scaled;
      const auto index = [&](zor_int q) { return upwards() ? first + q : first + order - 1 - q; };
      for (zor_int q = 0; q < order; ++q) {
        const T e = x(index(q), f);
        scaled.push_back(is(alpha, 1) ? e : times(e, alpha));
      }
      for (zor_int p = 0; p < order; ++p) {
        const T own = unit() ? scaled[size_t(p)] : times(scaled[size_t(p)], coefficient(index(p), index(p)));
        std::vector<factors<T>> terms;
        for (zor_int q = 0; q < p; ++q) terms.push_back({scaled[size_t(q)], coefficient(index(p), index(q))});
        x(index(p), f) = p > 0 ? plus(direct_sum(terms), own) : own;
      }
    }
  }
  void scale(T factor) const {
    for (zor_int j = 0; j < n; ++j)
      for (zor_int i = 0; i < m; ++i) b[i + j * ldb] = is(factor, 0) ? T{} : times(factor, b[i + j * ldb]);
  }
};

// Blocks of `step`: cut from 0, or with from_start from the end that the walk begins with.
struct cut_block {
  zor_int first, size;
};
inline std::vector<cut_block> blocks(zor_int n, zor_int step, bool upwards, bool from_start) {
  std::vector<cut_block> list;
  if (!upwards && from_start) {
    for (zor_int end = n; end > 0; end -= step)
      list.push_back({std::max<zor_int>(0, end - step), std::min(end, step)});
    return list;
  }
  for (zor_int i = 0; i < n; i += step) list.push_back({i, std::min(step, n - i)});
  if (!upwards) std::reverse(list.begin(), list.end());
  return list;
}

struct level {
  zor_int order, free;
};

template <class T>
void solve_levels(const triangular<T>& q, const std::vector<level>& levels, size_t depth, bool from_start,
                  zor_int first, zor_int order, zor_int free, zor_int count) {
  if (depth == levels.size()) return q.substitute(first, order, free, count);
  for (const cut_block d : blocks(order, levels[depth].order, q.upwards(), from_start))
    for (zor_int f = 0; f < count; f += levels[depth].free) {
      const zor_int part = std::min(levels[depth].free, count - f), begin = first + d.first;
      solve_levels(q, levels, depth + 1, from_start, begin, d.size, free + f, part);
      if (q.upwards())
        q.add_rectangle(element_of<T>(-1), begin + d.size, order - d.first - d.size, begin, d.size, free + f,
                        part);
      else
        q.add_rectangle(element_of<T>(-1), first, d.first, begin, d.size, free + f, part);
    }
}

template <class T>
void trsm(const triangular<T>& q) {
  constexpr bool late = std::is_same_v<T, zor_c64>;
  if (q.m < 1 || q.n < 1) return;
  if (is(q.alpha, 0)) return q.scale(q.alpha);
  if (!late && !is(q.alpha, 1)) q.scale(q.alpha);
  const zor_int all = zor_int(1) << 40;
  if (!q.left())
    solve_levels(
        q, late ? std::vector<level>{{32, all}} : std::vector<level>{{256, 1024}, {128, 1024}, {64, 512}}, 0,
        false, 0, q.n, 0, q.m);
  else
    for (zor_int j = 0, step = q.transposed() ? all : 1024; j < q.n; j += step)
      solve_levels(q, {{64, all}, {q.transposed() ? 32 : 16, all}}, 0, true, 0, q.m, j,
                   std::min(step, q.n - j));
  if (late && !is(q.alpha, 1)) q.scale(q.alpha);
}

template <class T>
void multiply_levels(const triangular<T>& q, const std::vector<level>& levels, size_t depth, zor_int first,
                     zor_int order, zor_int free, zor_int count) {
  if (depth == levels.size()) return q.multiply(first, order, free, count);
  for (zor_int f = 0; f < count; f += levels[depth].free) {
    const zor_int part = std::min(levels[depth].free, count - f);
    // The other way round: a block is replaced while its sources are unchanged.
    for (const cut_block d : blocks(order, levels[depth].order, !q.upwards(), false)) {
      const zor_int begin = first + d.first;
      multiply_levels(q, levels, depth + 1, begin, d.size, free + f, part);
      if (q.upwards())
        q.add_rectangle(q.alpha, begin, d.size, first, d.first, free + f, part);
      else
        q.add_rectangle(q.alpha, begin, d.size, begin + d.size, order - d.first - d.size, free + f, part);
    }
  }
}

template <class T>
void trmm(const triangular<T>& q) {
  if (q.m < 1 || q.n < 1) return;
  if (is(q.alpha, 0)) return q.scale(q.alpha);
  if (q.left())
    multiply_levels(q, {{512, q.transposed() ? 1024 : 2048}, {128, 1 << 30}, {32, 1 << 30}}, 0, 0, q.m, 0,
                    q.n);
  else
    multiply_levels(q, {{128, 1024}, {64, 128}, {32, 128}}, 0, 0, q.n, 0, q.m);
}

// A symmetric or Hermitian update of one triangle of C. With b the rank-2k one, else the rank-k one.
template <class T>
struct rank_update {
  char uplo, trans;
  bool hermitian;
  zor_int n, k;
  T alpha;
  const T* a;
  zor_int lda;
  const T* b;
  zor_int ldb;
  T beta;
  T* c;
  zor_int ldc;

  bool plain() const { return same_letter(trans, 'N'); }
  bool in_triangle(zor_int i, zor_int j) const { return same_letter(uplo, 'L') ? i >= j : i <= j; }
  const T* rows(const T* x, zor_int ld, zor_int i) const { return x + (plain() ? i : i * ld); }
  void add(zor_int i, zor_int m, zor_int j, zor_int count, T factor, const T* x, zor_int ldx, const T* y,
           zor_int ldy, double old, T* to, zor_int ld) const {
    const char other = hermitian ? 'C' : 'T';
    add_product(plain() ? 'N' : other, plain() ? other : 'N', m, count, k, factor, rows(x, ldx, i), ldx,
                rows(y, ldy, j), ldy, old, to, ld);
  }
};

template <class T>
void make_real(T& e) {
  if constexpr (!std::is_floating_point_v<T>) e.im = 0;
}

template <class T>
void update(const rank_update<T>& q) {
  const bool no_product = is(q.alpha, 0) || q.k < 1;
  if (q.n < 1 || (no_product && is(q.beta, 1))) return;
  const auto each = [&](zor_int first, zor_int last, const auto& body) {
    for (zor_int j = first; j < last; ++j)
      for (zor_int i = first; i < last; ++i)
        if (q.in_triangle(i, j)) body(i, j, q.c[i + j * q.ldc]);
  };
  if (!is(q.beta, 1))
    each(0, q.n, [&](zor_int i, zor_int j, T& c) {
      if (is(q.beta, 0))
        c = T{};
      else if constexpr (std::is_floating_point_v<T>)
        c = q.beta * c;
      else
        c = q.hermitian ? T{q.beta.re * c.re, q.beta.re * c.im} : times(q.beta, c);
      if (q.hermitian && i == j) make_real(c);
    });
  if (is(q.alpha, 0)) return;
  const T* const right = q.b != nullptr ? q.b : q.a;
  const zor_int ldr = q.b != nullptr ? q.ldb : q.lda;
  const bool short_blocks = std::is_same_v<T, zor_c64> && (!q.plain() || q.b != nullptr);
  for (const cut_block d : blocks(q.n, short_blocks ? 32 : q.plain() ? 128 : 64, true, false)) {
    const zor_int j = d.first, size = d.size;
    std::vector<T> tile(size_t(size * size));
    q.add(j, size, j, size, q.alpha, q.a, q.lda, right, ldr, 0, tile.data(), size);
    each(j, j + size, [&](zor_int i, zor_int column, T& c) {
      c = plus(c, tile[size_t(i - j + (column - j) * size)]);
      const T mirrored = tile[size_t(column - j + (i - j) * size)];
      if (q.b != nullptr) c = plus(c, q.hermitian ? conj(mirrored) : mirrored);
      if (q.hermitian && i == column) make_real(c);
    });
    const bool lower = same_letter(q.uplo, 'L');
    const zor_int row = lower ? j + size : 0, rows = lower ? q.n - row : j;
    T* const beside = q.c + row + j * q.ldc;
    q.add(row, rows, j, size, q.alpha, q.a, q.lda, right, ldr, 1, beside, q.ldc);
    if (q.b != nullptr)
      q.add(row, rows, j, size, q.hermitian ? conj(q.alpha) : q.alpha, q.b, q.ldb, q.a, q.lda, 1, beside,
            q.ldc);
  }
}

// C := alpha A B + beta C or alpha B A + beta C with A symmetric or Hermitian; `order` is that of the
// diagonal blocks.
template <class T>
void symmetric_product(char side, char uplo, bool hermitian, zor_int order, zor_int m, zor_int n, T alpha,
                       const T* a, zor_int lda, const T* b, zor_int ldb, T beta, T* c, zor_int ldc) {
  if (m < 1 || n < 1 || (is(alpha, 0) && is(beta, 1))) return;
  if (!is(beta, 1))
    for (zor_int j = 0; j < n; ++j)
      for (zor_int i = 0; i < m; ++i) c[i + j * ldc] = is(beta, 0) ? T{} : times(beta, c[i + j * ldc]);
  const bool left = same_letter(side, 'L'), lower = same_letter(uplo, 'L');
  const zor_int size = left ? m : n;
  const auto add = [&](zor_int j, zor_int width, zor_int from, zor_int depth, char letter, T factor,
                       const T* part, zor_int ld) {
    if (depth < 1) return;
    if (left)
      add_product(letter, 'N', width, n, depth, factor, part, ld, b + from, ldb, 1, c + j, ldc);
    else
      add_product('N', letter, m, width, depth, factor, b + from * ldb, ldb, part, ld, 1, c + j * ldc, ldc);
  };
  const auto add_part = [&](zor_int j, zor_int width, zor_int from, zor_int depth) {
    const bool row_is_stored = lower == (from < j);  // Row j of A at these columns; else its mirror image is.
    const char letter = row_is_stored == left ? 'N' : hermitian ? 'C' : 'T';
    add(j, width, from, depth, letter, alpha, row_is_stored ? a + j + from * lda : a + from + j * lda, lda);
  };
  for (const cut_block d : blocks(size, order, true, false)) {
    const zor_int j = d.first, width = d.size;
    add_part(j, width, 0, j);
    std::vector<T> square(size_t(width * width));
    for (zor_int q = 0; q < width; ++q)
      for (zor_int p = 0; p < width; ++p) {
        const bool stored = lower ? p >= q : p <= q;
        T e = stored ? a[j + p + (j + q) * lda] : a[j + q + (j + p) * lda];
        if (hermitian && !stored) e = conj(e);
        if (hermitian && p == q) make_real(e);
        square[size_t(p + q * width)] = times(alpha, e);
      }
    add(j, width, j, width, 'N', element_of<T>(1), square.data(), width);
    add_part(j, width, j + width, size - j - width);
  }
}

}  // namespace zor_ref
