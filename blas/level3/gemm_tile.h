// SPDX-License-Identifier: MIT
// The register kernels of the matrix product: one tile of C for the whole depth of a panel.
#pragma once

#include <bit>
#include <numeric>

#include "blas/level3/gemm.h"
#include "serv/mul_add.h"

namespace zor::gemm {

// A tile has up to `vectors` full vectors of rows and up to `columns` columns. The sums of a tile, the
// vectors of A and the temporaries fit the registers of the build: 24 sums of 32 registers at 64 bytes.
// Complex tiles are tall, since each broadcast of B serves two products a vector.
template <class T>
struct tile_shape {
  static constexpr int lanes = int(width / sizeof(real_t<T>));
  static constexpr int vectors = width == 64 ? 3 : is_complex<T> ? 1 : 2;
  static constexpr int columns_by_width[3] = {4, is_complex<T> ? 5 : 6, is_complex<T> ? 4 : 8};
  static constexpr int columns = columns_by_width[width / 32];
  static constexpr int rows = vectors * lanes;
};

// Where broadcasting a float takes a shuffle, the kernels of packed B read each value repeated over a vector.
template <class T>
inline constexpr bool spread_b = width == 16 && sizeof(real_t<T>) == 4;

// Where a kernel reads: both panels packed; B in place; or both in place, for an A that is not transposed, an
// alpha of 1 (the product with it changes no A that is not flushed) and real types.
enum class reading { packed, b_in_place, in_place };

// What the tiles of a block share: columns of A in place are a_step apart, element (p, j) of a B in place
// stands at (p b_step + j b_column) parts.
template <class T>
struct tile {
  zor_int depth, a_step, b_step, b_column, ldc;
  update how;
  T beta;
};

// a is a packed strip of alpha op(A), see gemm_pack.h, or A itself. `rows` of C are updated, fewer than the
// strip has when its last vector is padded. C is of type T, or complex where T is real: then neighbouring
// columns of B are the real and the imaginary parts of one column, and so are their sums.
template <class T, class C = T>
using tile_kernel = void(const tile<T>& t, const real_t<T>* a, const real_t<T>* b, C* c, int rows);

// Columns of B that make one column of C.
template <class T, class C>
inline constexpr int columns_in_one = is_complex<C> && !is_complex<T> ? 2 : 1;

// The lane-wise sums over p, in ascending order and from +0: of a b, and for complex types
// R := (R + br ar) - bi ai, I := (I + br ai) + bi ar, each product joined by mul_add or mul_sub.
template <class T, class V, int Vectors, int Columns, reading From>
[[gnu::always_inline]] inline void accumulate(const tile<T>& t, const real_t<T>* a, const real_t<T>* b,
                                              V (&sum)[Columns][Vectors * parts<T>]) {
  constexpr int n = lanes<V>;
  constexpr bool packed = From == reading::packed, spread = packed && spread_b<T>;
  constexpr int copies = spread ? tile_shape<T>::lanes : 1;
  const zor_int a_step = From == reading::in_place ? t.a_step : Vectors * parts<T> * n;
  const zor_int step = packed ? Columns * parts<T> * copies : t.b_step * parts<T>;
  // Vectors of 64 bytes repeat an element from memory as an operand of the product, at no cost, while an
  // instruction for the repetition takes one of the pipes of additions or products. So every product reads
  // its element anew: the compiler is not to know that b is where it was. Measured on Zen 4: 44 to 58 GFLOP/s
  // in double.
  const auto b_value = [&](zor_int offset) __attribute__((always_inline)) {
    if constexpr (spread) {
      return load_aligned<V>(b + offset);
    } else {
      if constexpr (width == 64) asm("" : "+r"(b));
      return broadcast<V>(b[offset]);
    }
  };
#pragma GCC unroll 16
  for (int j = 0; j < Columns; ++j)
#pragma GCC unroll 16
    for (int v = 0; v < Vectors * parts<T>; ++v) sum[j][v] = V{};
  // With a column that the compiler knows, each factor of B is one operand of its product.
  const auto for_depth = [&](auto column) __attribute__((always_inline)) {
    for (zor_int p = t.depth; p > 0; --p) {
      V av[Vectors * parts<T>];
#pragma GCC unroll 16
      for (int v = 0; v < Vectors * parts<T>; ++v) av[v] = load<V>(a + v * n);
#pragma GCC unroll 16
      for (int j = 0; j < Columns; ++j) {
        if constexpr (is_complex<T>) {
          const zor_int re = j * column, im = re + copies;
#pragma GCC unroll 16
          for (int v = 0; v < Vectors; ++v) {
            sum[j][v] = mul_add(b_value(re), av[v], sum[j][v]);
            sum[j][Vectors + v] = mul_add(b_value(re), av[Vectors + v], sum[j][Vectors + v]);
          }
#pragma GCC unroll 16
          for (int v = 0; v < Vectors; ++v) {
            sum[j][v] = mul_sub(b_value(im), av[Vectors + v], sum[j][v]);
            sum[j][Vectors + v] = mul_add(b_value(im), av[v], sum[j][Vectors + v]);
          }
        } else {
#pragma GCC unroll 16
          for (int v = 0; v < Vectors; ++v) sum[j][v] = mul_add(av[v], b_value(j * column), sum[j][v]);
        }
      }
      a += a_step;
      b += step;
    }
  };
  if (packed || t.b_column == 1)
    for_depth(std::integral_constant<int, parts<T> * copies>{});
  else
    for_depth(t.b_column * parts<T>);
}

// One vector of C, interleaved for complex types, joined by its sums in one addition a real.
template <update How, class T, class V>
[[gnu::always_inline]] inline void fold(T* c, V sum, T beta) {
  if constexpr (How == update::store) {
    store_units(c, sum);
  } else if constexpr (How == update::add) {
    store_units(c, load_units<V>(c) + sum);
  } else if constexpr (is_complex<T>) {
    const V straight = broadcast_pair<V>(beta.re, beta.im), crossed = broadcast_pair<V>(-beta.im, beta.re);
    const V old = load_units<V>(c);
    store_units(c, sum + (straight * dup_even(old) + crossed * dup_odd(old)));
  } else {
    store_units(c, load_units<V>(c) * broadcast<V>(beta) + sum);
  }
}

// The sums of a tile into C. Padded lanes never meet C: with fewer rows than lanes (double precision, one
// vector high) the sums of the real rows join it one by one.
template <update How, class T, class V, int Vectors, int Columns>
[[gnu::always_inline]] inline void fold_tile(const V (&sum)[Columns][Vectors * parts<T>], T* c, zor_int ldc,
                                             int rows, T beta) {
  constexpr int n = lanes<V>;
  if (Vectors == 1 && std::is_same_v<T, double> && rows < n) {
#pragma GCC unroll 16
    for (int j = 0; j < Columns; ++j, c += ldc) {
      real_t<T> column[n];
      store<V>(column, sum[j][0]);
      for (int i = 0; i < rows; ++i) fold<How>(c + i, vec<real_t<T>, sizeof(T)>{column[i]}, beta);
    }
    return;
  }
#pragma GCC unroll 16
  for (int j = 0; j < Columns; ++j, c += ldc) {
#pragma GCC unroll 16
    for (int v = 0; v < Vectors; ++v) {
      if constexpr (is_complex<T>) {
        fold<How>(c + v * n, zip_low(sum[j][v], sum[j][Vectors + v]), beta);
        fold<How>(c + v * n + n / 2, zip_high(sum[j][v], sum[j][Vectors + v]), beta);
      } else {
        fold<How>(c + v * n, sum[j][v], beta);
      }
    }
  }
}

template <class T, class V, int Vectors, int Columns>
[[gnu::always_inline]] inline void fold_as_told(const tile<T>& t, const V (&sum)[Columns][Vectors * parts<T>],
                                                T* c, int rows) {
  switch (t.how) {
    case update::add:
      return fold_tile<update::add, T, V, Vectors, Columns>(sum, c, t.ldc, rows, t.beta);
    case update::store:
      return fold_tile<update::store, T, V, Vectors, Columns>(sum, c, t.ldc, rows, t.beta);
    case update::scale:
      return fold_tile<update::scale, T, V, Vectors, Columns>(sum, c, t.ldc, rows, t.beta);
  }
}

// Real sums of pairs of columns into complex columns of C: added, or added to zero.
template <bool Store, class C, class V, int Vectors, int Columns>
[[gnu::always_inline]] inline void fold_pairs(const V (&sum)[Columns][Vectors], C* c, zor_int ldc, int rows) {
  constexpr int n = lanes<V>;
  const auto old = [](const auto* p) __attribute__((always_inline)) { return Store ? V{} : load<V>(p); };
#pragma GCC unroll 16
  for (int j = 0; j < Columns; j += 2, c += ldc) {
#pragma GCC unroll 16
    for (int v = 0; v < Vectors; ++v) {
      const V low = zip_low(sum[j][v], sum[j + 1][v]), high = zip_high(sum[j][v], sum[j + 1][v]);
      real_t<C>* const to = reals(c + v * n);
      if (Vectors == 1 && std::is_same_v<C, c64> && rows < n) {
        real_t<C> column[2 * n];
        store<V>(column, low);
        store<V>(column + n, high);
        for (int i = 0; i < 2 * rows; ++i) to[i] = (Store ? 0 : to[i]) + column[i];
      } else {
        store<V>(to, old(to) + low);
        store<V>(to + n, old(to + n) + high);
      }
    }
  }
}

template <class T, class V, int Vectors, int Columns, reading From, class C = T>
void tile_product(const tile<T>& t, const real_t<T>* a, const real_t<T>* b, C* c, int rows) {
  [[maybe_unused]] constexpr int span = int(Vectors * lanes<V> * sizeof(C));
  const zor_int ldc = t.ldc;
  // C is needed only after the whole depth: ask for its lines now. A product that reads in place is small.
  if constexpr (From == reading::packed) {
#pragma GCC unroll 16
    for (int j = 0; j < Columns / columns_in_one<T, C>; ++j) {
      const char* column = reinterpret_cast<const char*>(c + j * ldc);
#pragma GCC unroll 16
      for (int at = 0; at < span; at += 64) __builtin_prefetch(column + at);
    }
  }
  V sum[Columns][Vectors * parts<T>];
  accumulate<T, V, Vectors, Columns, From>(t, a, b, sum);
  if constexpr (columns_in_one<T, C> == 2) {
    if (t.how == update::store) return fold_pairs<true>(sum, c, ldc, rows);
    return fold_pairs<false>(sum, c, ldc, rows);
  } else {
    return fold_as_told<T, V, Vectors, Columns>(t, sum, c, rows);
  }
}

// The heights of a strip: 1 to `vectors` full vectors, then single vectors of half the bytes each, down
// to 16.
template <class T>
inline constexpr int strip_heights = tile_shape<T>::vectors + std::bit_width(unsigned(width / 16)) - 1;
template <class T, int Height>
inline constexpr int height_vectors = Height < tile_shape<T>::vectors ? Height + 1 : 1;
template <class T, int Height>
inline constexpr int height_bytes = Height < tile_shape<T>::vectors
                                        ? width
                                        : (width >> (Height - tile_shape<T>::vectors + 1));
template <class T, int Height>
using height_vector = vec<real_t<T>, height_bytes<T, Height>>;

// The kernels by height and by columns.
template <class T, reading From, class C = T>
struct tile_kernels {
  using shape = tile_shape<T>;
  tile_kernel<T, C>* at[strip_heights<T>][shape::columns];

  template <int Height, int Columns>
  static constexpr tile_kernel<T, C>* pick() {
    // Types other than double come here with complete groups of 4 columns.
    constexpr int group = std::is_same_v<T, double> ? columns_in_one<T, C> : std::gcd(4, shape::columns);
    if constexpr (Columns % group != 0) {
      return nullptr;
    } else {
      return tile_product<T, height_vector<T, Height>, height_vectors<T, Height>, Columns, From, C>;
    }
  }
  template <int Height, int... Columns>
  constexpr void fill(std::integer_sequence<int, Columns...>) {
    ((at[Height][Columns] = pick<Height, Columns + 1>()), ...);
  }
  template <int... Heights>
  constexpr void fill_all(std::integer_sequence<int, Heights...>) {
    (fill<Heights>(std::make_integer_sequence<int, shape::columns>{}), ...);
  }
  constexpr tile_kernels() : at{} { fill_all(std::make_integer_sequence<int, strip_heights<T>>{}); }
};

template <class T, reading From, class C = T>
inline constexpr tile_kernels<T, From, C> kernels{};

// Whether a kernel may take more rows than a strip has: packed rows are padded, those of an A in place are
// followed by foreign memory. The other types come in multiples of a 16-byte vector.
template <class T, reading From>
inline constexpr bool pads_rows = std::is_same_v<T, double>&& From != reading::in_place;

// The strip that takes the next rows when `left` remain: its height as an index of the table above, its rows,
// and its rows as packed, padding included. Without padding `left` is a multiple of a 16-byte vector.
struct strip {
  int height, rows, packed_rows;
};
template <class T, reading From>
[[gnu::always_inline]] inline strip next_strip(zor_int left) {
  constexpr int n = tile_shape<T>::lanes, most = tile_shape<T>::vectors;
  if (left >= n) {
    const int vectors = left >= most * n ? most : int(left / n);
    return {vectors - 1, vectors * n, vectors * n};
  }
  constexpr int least = int(16 / sizeof(real_t<T>));
  int height = 0, packed = n;
  while (packed > least && (pads_rows<T, From> ? packed / 2 >= left : packed > left)) {
    packed /= 2;
    height = height == 0 ? most : height + 1;
  }
  return {height, packed < left ? packed : int(left), packed};
}

}  // namespace zor::gemm
