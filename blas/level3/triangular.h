// SPDX-License-Identifier: MIT
// What triangular solves and products share: the triangle op(A) and its rectangles, the walk over its
// diagonal blocks, and the direct treatment of one small block against many right-hand sides.
#pragma once

#include "blas/level3/gemm.h"
#include "blas/level3/lanes.h"
#include "blas/level3/product.h"
#include "blas/quotient.h"
#include "serv/mul_add.h"

namespace zor::level3 {

// op(A) of a stored triangle, or of a diagonal block of it; `lower` says which triangle op(A) is.
template <class T>
struct triangle {
  const T* a;
  zor_int lda;
  bool lower, trans, conj, unit;

  char letter() const { return trans ? transpose_letter(conj) : 'N'; }
  // Where the part of A stands whose op() begins with row i and column k of op(A).
  const T* at(zor_int i, zor_int k) const { return trans ? a + k + i * lda : a + i + k * lda; }
  T element(zor_int i, zor_int k) const { return conj_by_sign_if(conj, load_element(at(i, k))); }
  triangle from(zor_int i) const {
    triangle block = *this;
    block.a = at(i, i);
    return block;
  }
};

// Option letters: L, U and N in either case, anything else being the other choice; C conjugates complex A. A
// diagonal is taken as one for U alone.
template <class T>
triangle<T> make_triangle(const char* uplo, const char* transa, const char* diag, const T* a, zor_int lda) {
  const bool trans = !is_letter(transa, 'N');
  return {a,
          lda,
          is_letter(uplo, 'L') != trans,
          trans,
          is_complex<T> && is_letter(transa, 'C'),
          is_letter(diag, 'U')};
}

// A diagonal block `first` to first + size - 1, and the rows or columns `rest` to rest + left - 1 that the
// walk has not come to yet.
struct diagonal_block {
  zor_int first, size, rest, left;
};

// Calls body for blocks of `step`, cut from the beginning of 0 to n - 1, walked upwards or downwards.
template <class Body>
void for_blocks(zor_int n, zor_int step, bool upwards, const Body& body) {
  if (upwards) {
    for (zor_int i = 0; i < n; i += step) {
      const zor_int size = n - i < step ? n - i : step;
      body(diagonal_block{i, size, i + size, n - i - size});
    }
  } else if (n > 0) {
    for (zor_int i = (n - 1) / step * step; i >= 0; i -= step)
      body(diagonal_block{i, n - i < step ? n - i : step, 0, i});
  }
}
// The same, cut from the end at which the walk begins: the last block of the walk is the short one.
template <class Body>
void for_blocks_from_start(zor_int n, zor_int step, bool upwards, const Body& body) {
  if (upwards) return for_blocks(n, step, true, body);
  for (zor_int end = n; end > 0; end -= step) {
    const zor_int size = end < step ? end : step;
    body(diagonal_block{end - size, size, 0, end - size});
  }
}
// Calls body(first, count) for pieces of `step` of 0 to n - 1.
template <class Body>
void for_pieces(zor_int n, zor_int step, const Body& body) {
  for (zor_int i = 0; i < n; i += step) body(i, n - i < step ? n - i : step);
}

// ---- Direct treatment of small blocks.
//
// A block of order up to `most` is written as a lower triangle L that acts on rows: from the left L is op(A),
// from the right its transpose, and an upper L is reversed with its rows. So one forward walk serves all
// cases. Right-hand sides are lanes: each lane has one sequential sum, and the width of the vectors drops
// out.
//
// Sum of row p: products of L(p, q) and x(q), q ascending along the walk. Below `spread_from` of them they
// are added one after the other. From there on product q joins partial sum q mod 4, the four are joined as
// (s0 + s2) + (s1 + s3), and the up to 3 products behind the last whole four follow one after the other.
inline constexpr int spread_from = 9;

// Right-hand sides side by side: `vectors` vectors of the widest kind for each row of the block.
template <class T, int Most, int Vectors = is_complex<T> ? 1 : 2>
struct lane_block {
  using V = vec<real_t<T>, width>;
  using value = typename lane_value_of<T, V>::type;
  static constexpr int vectors = Vectors, most = Most;
  static constexpr int count = vectors * lanes<V>;

  value at[Most][vectors];
};

template <class T, class L>
[[gnu::always_inline]] inline L times(L x, T s) {
  if constexpr (is_complex<T>) {
    using V = decltype(x.re);
    return mul(x, broadcast<V>(s.re), broadcast<V>(s.im));
  } else {
    return x * broadcast<L>(s);
  }
}

// The same with *s. Vectors of 64 bytes repeat a real element from memory as an operand of the product, at no
// cost, when each product reads it anew and x is in a register: the compiler is not to know that s is where
// it was.
template <class T, class L>
[[gnu::always_inline]] inline L times_at(L x, const T* s) {
  if constexpr (width == 64 && !is_complex<T>) asm("" : "+r"(s), "+v"(x));
  return times(x, load_element(s));
}

// sum + x *s of each lane.
template <class T, class L>
[[gnu::always_inline]] inline L plus_times_at(L sum, L x, const T* s) {
  if constexpr (is_complex<T>) {
    using V = decltype(x.re);
    return mul_add(x, {broadcast<V>(s->re), broadcast<V>(s->im)}, sum);
  } else {
    if constexpr (width == 64) asm("" : "+r"(s), "+v"(x));
    return mul_add(x, broadcast<L>(load_element(s)), sum);
  }
}

// The sum of l[q] x(q), q from 0 to count - 1, of each lane; count is at least 1.
template <class T, class Block>
[[gnu::always_inline]] inline void sum_of_products(int count, const T* l, const Block& x,
                                                   typename Block::value (&sum)[Block::vectors]) {
  constexpr int vectors = Block::vectors;
  int q = 1;
  if (count < spread_from) {
#pragma GCC unroll 4
    for (int v = 0; v < vectors; ++v) sum[v] = times_at(x.at[0][v], l);
  } else {
    typename Block::value partial[4][vectors];
#pragma GCC unroll 4
    for (int s = 0; s < 4; ++s) {
#pragma GCC unroll 4
      for (int v = 0; v < vectors; ++v) partial[s][v] = times_at(x.at[s][v], l + s);
    }
    for (q = 4; q + 4 <= count; q += 4) {
#pragma GCC unroll 4
      for (int s = 0; s < 4; ++s) {
#pragma GCC unroll 4
        for (int v = 0; v < vectors; ++v)
          partial[s][v] = plus_times_at(partial[s][v], x.at[q + s][v], l + q + s);
      }
    }
#pragma GCC unroll 4
    for (int v = 0; v < vectors; ++v)
      sum[v] = (partial[0][v] + partial[2][v]) + (partial[1][v] + partial[3][v]);
  }
  for (; q < count; ++q) {
#pragma GCC unroll 4
    for (int v = 0; v < vectors; ++v) sum[v] = plus_times_at(sum[v], x.at[q][v], l + q);
  }
}

// Rows of L that are taken at once where they are long, and the first of them: the rows before it have sums
// of less than spread_from products. Each x(q) is then read once for all four, since real products would
// wait for their loads otherwise. The sums of four rows fill half of 32 registers.
inline constexpr int group = 4, first_group = (spread_from + group - 1) / group * group;
template <class T, int Most>
inline constexpr bool takes_groups = width == 64 && !is_complex<T> && (Most >= 2 * group + first_group);
// A block with few such rows waits for the quotients of one row before those of the next: more right-hand
// sides at once fill that time.
template <class T, int Most>
inline constexpr bool waits_for_quotients = width == 64 && !is_complex<T> && !takes_groups<T, Most>;

// The sums of the first `count` products of `group` rows, lanes v; count is a multiple of 4. Factors are held
// in registers and elements addressed by their own pointers: else each product loads its factor again.
template <class T, class Block>
[[gnu::always_inline]] inline void sums_of_group(int count, const T* const (&l)[group], const Block& x, int v,
                                                 typename Block::value (&sum)[group]) {
  using L = typename Block::value;
  const auto at = [&](int q) __attribute__((always_inline)) {
    L factor = x.at[q][v];
    asm("" : "+v"(factor));
    return factor;
  };
  const auto element = [](const T* s) __attribute__((always_inline)) {
    asm("" : "+r"(s));
    return broadcast<L>(load_element(s));
  };
  L partial[4][group];
#pragma GCC unroll 4
  for (int s = 0; s < 4; ++s) {
    const L factor = at(s);
#pragma GCC unroll 4
    for (int r = 0; r < group; ++r) partial[s][r] = factor * element(l[r] + s);
  }
  for (int q = 4; q < count; q += 4) {
#pragma GCC unroll 4
    for (int s = 0; s < 4; ++s) {
      const L factor = at(q + s);
#pragma GCC unroll 4
      for (int r = 0; r < group; ++r) partial[s][r] = mul_add(factor, element(l[r] + q + s), partial[s][r]);
    }
  }
#pragma GCC unroll 4
  for (int r = 0; r < group; ++r) sum[r] = (partial[0][r] + partial[2][r]) + (partial[1][r] + partial[3][r]);
}

// A small triangle by rows, row p with its p elements before the diagonal and the diagonal behind them, which
// is not read from a unit triangle.
template <class T, int Most>
struct packed_rows {
  T data[Most * (Most + 1) / 2];
  bool reversed;

  static constexpr int row(int p) { return p * (p + 1) / 2; }
};

template <class T, int Most>
void pack_rows(int order, const triangle<T>& t, bool left, packed_rows<T, Most>& to) {
  const bool lower = t.lower == left;
  to.reversed = !lower;
  T* out = to.data;
  for (int p = 0; p < order; ++p) {
    const int i = lower ? p : order - 1 - p;
    for (int q = 0; q <= p; ++q) {
      const int k = lower ? q : order - 1 - q;
      if (q == p && t.unit)
        *out++ = T{};
      else
        *out++ = left ? t.element(i, k) : t.element(k, i);
    }
  }
}

// Up to `units` elements from p on, the last of them repeated behind them; `count` is at least 1.
template <class T, class V>
[[gnu::always_inline]] inline V load_repeating(const T* p, zor_int count) {
  constexpr int most = int(sizeof(V) / sizeof(T));
  if (count >= most) return load_units<V>(p);
  T run[most];
  for (int i = 0; i < most; ++i) run[i] = load_element(p + (i < count ? i : count - 1));
  return load_units<V>(run);
}
template <class T, class V>
[[gnu::always_inline]] inline void store_first(T* p, zor_int count, V v) {
  constexpr int most = int(sizeof(V) / sizeof(T));
  if (count >= most) return store_units(p, v);
  T run[most];
  store_units(run, v);
  for (int i = 0; i < count; ++i) store_element(p + i, run[i]);
}

// From the right a lane is a row of B, and row p of L goes with one of its columns. Lanes beyond the last row
// repeat it, so that they raise no flag of their own. Whole: no row is missing.
template <bool Whole, class T, class Block>
void load_right(int order, bool reversed, const T* b, zor_int ldb, zor_int rows, Block& x) {
  using V = typename Block::V;
  using L = lane_units<T, V>;
  for (int p = 0; p < order; ++p) {
    const T* const column = b + (reversed ? order - 1 - p : p) * ldb;
#pragma GCC unroll 4
    for (int v = 0; v < Block::vectors; ++v) {
      V part[L::per_value];
#pragma GCC unroll 2
      for (int u = 0; u < L::per_value; ++u) {
        const zor_int from = (v * L::per_value + u) * L::units, first = from < rows ? from : rows - 1;
        part[u] = Whole ? load_units<V>(column + from) : load_repeating<T, V>(column + first, rows - first);
      }
      x.at[p][v] = L::join(part);
    }
  }
}
template <bool Whole, class T, class Block>
void store_right(int order, bool reversed, const Block& x, T* b, zor_int ldb, zor_int rows) {
  using V = typename Block::V;
  using L = lane_units<T, V>;
  for (int p = 0; p < order; ++p) {
    T* const column = b + (reversed ? order - 1 - p : p) * ldb;
#pragma GCC unroll 4
    for (int v = 0; v < Block::vectors; ++v) {
      V part[L::per_value];
      L::split(x.at[p][v], part);
#pragma GCC unroll 2
      for (int u = 0; u < L::per_value; ++u) {
        const zor_int from = (v * L::per_value + u) * L::units;
        if (Whole)
          store_units(column + from, part[u]);
        else
          store_first(column + from, rows - from, part[u]);
      }
    }
  }
}

// From the left a lane is a column of B, and squares of B are transposed in registers. Lanes beyond the last
// column repeat it. Whole: no row or column is missing.
template <bool Whole, class T, class Block>
void load_left(int order, bool reversed, const T* b, zor_int ldb, zor_int columns, Block& x) {
  using V = typename Block::V;
  using L = lane_units<T, V>;
  constexpr int U = L::units;
  for (int v = 0; v < Block::vectors; ++v) {
    for (int r = 0; r < order; r += U) {
      V square[L::per_value][U];
#pragma GCC unroll 2
      for (int u = 0; u < L::per_value; ++u) {
#pragma GCC unroll 16
        for (int l = 0; l < U; ++l) {
          const zor_int lane = (v * L::per_value + u) * U + l, column = lane < columns ? lane : columns - 1;
          square[u][l] = Whole ? load_units<V>(b + r + lane * ldb)
                               : load_repeating<T, V>(b + r + column * ldb, order - r);
        }
        transpose_units<int(sizeof(T) / sizeof(real_t<T>))>(square[u]);
      }
#pragma GCC unroll 16
      for (int i = 0; i < U; ++i) {
        if (!Whole && r + i >= order) break;
        V part[L::per_value];
#pragma GCC unroll 2
        for (int u = 0; u < L::per_value; ++u) part[u] = square[u][i];
        x.at[reversed ? order - 1 - r - i : r + i][v] = L::join(part);
      }
    }
  }
}
template <bool Whole, class T, class Block>
void store_left(int order, bool reversed, const Block& x, T* b, zor_int ldb, zor_int columns) {
  using V = typename Block::V;
  using L = lane_units<T, V>;
  constexpr int U = L::units;
  for (int v = 0; v < Block::vectors; ++v) {
    for (int r = 0; r < order; r += U) {
      V square[L::per_value][U];
#pragma GCC unroll 16
      for (int i = 0; i < U; ++i) {
        const int row = Whole || r + i < order ? r + i : order - 1;
        V part[L::per_value];
        L::split(x.at[reversed ? order - 1 - row : row][v], part);
#pragma GCC unroll 2
        for (int u = 0; u < L::per_value; ++u) square[u][i] = part[u];
      }
#pragma GCC unroll 2
      for (int u = 0; u < L::per_value; ++u) {
        transpose_units<int(sizeof(T) / sizeof(real_t<T>))>(square[u]);
#pragma GCC unroll 16
        for (int l = 0; l < U; ++l) {
          const zor_int lane = (v * L::per_value + u) * U + l;
          if (Whole)
            store_units(b + r + lane * ldb, square[u][l]);
          else if (lane < columns)
            store_first(b + r + lane * ldb, order - r, square[u][l]);
        }
      }
    }
  }
}

template <bool Whole, class T, class Block>
void load_lanes(bool left, int order, bool reversed, const T* b, zor_int ldb, zor_int size, Block& x) {
  if (left)
    load_left<Whole>(order, reversed, b, ldb, size, x);
  else
    load_right<Whole>(order, reversed, b, ldb, size, x);
}
template <bool Whole, class T, class Block>
void store_lanes(bool left, int order, bool reversed, const Block& x, T* b, zor_int ldb, zor_int size) {
  if (left)
    store_left<Whole>(order, reversed, x, b, ldb, size);
  else
    store_right<Whole>(order, reversed, x, b, ldb, size);
}

// Runs body(l, x) with right-hand sides first to first + size - 1 of the block in the lanes of x.
template <class T, int Most, class Block, class Body>
void with_lanes(bool left, int order, const packed_rows<T, Most>& l, zor_int first, zor_int size, T* b,
                zor_int ldb, Block& x, const Body& body) {
  constexpr int side = lane_units<T, typename Block::V>::units;
  T* const part = b + first * (left ? ldb : 1);
  const bool whole = size >= Block::count && (!left || order % side == 0);
  const auto load = whole ? load_lanes<true, T, Block> : load_lanes<false, T, Block>;
  load(left, order, l.reversed, part, ldb, size, x);
  body(l, x);
  const auto store = whole ? store_lanes<true, T, Block> : store_lanes<false, T, Block>;
  store(left, order, l.reversed, x, part, ldb, size);
}

// Runs body(packed rows, lanes) for all right-hand sides of the block: `count` rows of B from the right,
// columns from the left.
template <int Most, class T, class Body>
void for_lane_blocks(bool left, const triangle<T>& t, zor_int order, zor_int count, T* b, zor_int ldb,
                     const Body& body) {
  packed_rows<T, Most> l;
  pack_rows(int(order), t, left, l);
  zor_int first = 0;
  if constexpr (waits_for_quotients<T, Most>) {
    lane_block<T, Most, 4> x;
    for (; first + x.count <= count; first += x.count)
      with_lanes(left, int(order), l, first, x.count, b, ldb, x, body);
  }
  lane_block<T, Most> x;
  for (; first < count; first += x.count)
    with_lanes(left, int(order), l, first, count - first < x.count ? count - first : x.count, b, ldb, x,
               body);
}

}  // namespace zor::level3
