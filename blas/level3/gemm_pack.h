// SPDX-License-Identifier: MIT
// Internal packing: panels in the order in which this build's register kernels read them. A strip of A holds,
// for each p, its rows of alpha op(A) (complex: all real parts, then all imaginary parts); a last vector that
// is not full repeats the strip's last row, so that no lane computes on anything but real data. A strip of B
// holds, for each p, its columns of op(B), the last strip exactly as many as are left. The depth is not
// padded.
#pragma once

#include "blas/level3/gemm_tile.h"
#include "blas/thresholds.h"

namespace zor::gemm {

// destination[p * step + q] := source[p + q ld] for q < count, p < depth. Elements are only moved. The next
// `count` columns of the source are prefetched: they are the next strip's.
template <class T, int Bytes = width>
void move_transposed(const T* source, zor_int ld, zor_int count, zor_int depth, T* destination, zor_int step,
                     zor_int q = 0) {
  // Blocks of an element a vector and more: squares of side units<T, Bytes> transposed in registers.
  constexpr int side = units<T, Bytes>;
  if constexpr (side > 1) {
    using V = vec<real_t<T>, Bytes>;
    for (; q + side <= count; q += side) {
      const T* from = source + q * ld;
      zor_int p = 0;
      for (; p + side <= depth; p += side) {
        V rows[side];
#pragma GCC unroll 16
        for (int i = 0; i < side; ++i) {
          rows[i] = load_units<V>(from + p + i * ld);
          __builtin_prefetch(from + p + (i + count) * ld);
        }
        transpose_units<parts<T>>(rows);
#pragma GCC unroll 16
        for (int i = 0; i < side; ++i) store_units(destination + (p + i) * step + q, rows[i]);
      }
      for (; p < depth; ++p)
        for (int i = 0; i < side; ++i)
          __builtin_memcpy(destination + p * step + q + i, from + p + i * ld, sizeof(T));
    }
    if (q < count) {
      constexpr int next = Bytes > 16 ? Bytes / 2 : int(sizeof(T));
      move_transposed<T, next>(source, ld, count, depth, destination, step, q);
    }
  } else {
    for (; q < count; ++q)
      for (zor_int p = 0; p < depth; ++p)
        __builtin_memcpy(destination + p * step + q, source + p + q * ld, sizeof(T));
  }
}

// One vector of a strip times alpha: (xr ar - xi ai, ar xi + ai xr), conjugated (xr ar + xi ai,
// ar xi - ai xr). Complex rows come in two vectors, of which the imaginary parts go `step` further.
template <class T, class V, bool Conj>
[[gnu::always_inline]] inline void scale_vector(V low, V high, T alpha, real_t<T>* destination, int step) {
  if constexpr (is_complex<T>) {
    const V xr = broadcast<V>(alpha.re), xi = broadcast<V>(alpha.im);
    const V ar = unzip<0>(low, high), ai = unzip<1>(low, high);
    store<V>(destination, Conj ? xr * ar + xi * ai : xr * ar - xi * ai);
    store<V>(destination + step, Conj ? ar * xi - ai * xr : ar * xi + ai * xr);
  } else {
    store<V>(destination, low * broadcast<V>(alpha));
  }
}

// One strip of A from columns of `rows` elements at stride ld; source and destination may be the same strip.
template <class T, class V, int Vectors, bool Conj>
void scale_strip(const T* source, zor_int ld, zor_int depth, int rows, T alpha, real_t<T>* destination) {
  constexpr int n = lanes<V>;
  constexpr bool padded = Vectors == 1 && !is_complex<T>;
  for (zor_int p = 0; p < depth; ++p, source += ld, destination += Vectors * n * parts<T>) {
    V low[Vectors], high[Vectors];
#pragma GCC unroll 8
    for (int v = 0; v < Vectors; ++v) {
      if (padded && rows < n)
        low[v] = load_partial<V>(reals(source), rows, reals(source)[rows - 1]);
      else
        low[v] = load_units<V>(source + v * n);
      high[v] = is_complex<T> ? load_units<V>(source + v * n + n / 2) : low[v];
    }
#pragma GCC unroll 8
    for (int v = 0; v < Vectors; ++v)
      scale_vector<T, V, Conj>(low[v], high[v], alpha, destination + v * n, Vectors * n);
  }
}

// One strip of A from rows of `depth` elements at stride ld: squares of a vector's side are transposed in
// registers and scaled on their way. The last square ends with the depth and may overlap the one before. More
// rows than the hardware follows are read at once, so the square after the next is asked for.
template <class T, class V, int Vectors, bool Conj>
void transpose_strip(const T* source, zor_int ld, zor_int depth, int rows, T alpha, real_t<T>* destination) {
  constexpr int n = lanes<V>, side = units<T, sizeof(V)>, step = Vectors * n;
  // Only one vector of doubles may stand for fewer rows.
  const auto row_at = [=](zor_int row) __attribute__((always_inline)) {
    if constexpr (Vectors == 1 && std::is_same_v<T, double>)
      return source + (row < rows ? row : zor_int(rows - 1)) * ld;
    else
      return source + row * ld;
  };
  if (depth < side) {
    T* const transposed = reinterpret_cast<T*>(destination);
    for (int i = 0; i < step; ++i)
      for (zor_int p = 0; p < depth; ++p)
        __builtin_memcpy(transposed + p * step + i, row_at(i) + p, sizeof(T));
    return scale_strip<T, V, Vectors, Conj>(transposed, step, depth, step, alpha, destination);
  }
  for (zor_int p = 0;;) {
    real_t<T>* to = destination + p * step * parts<T>;
    for (int v = 0; v < Vectors; ++v, to += n) {
      V x[parts<T>][side];
#pragma GCC unroll 2
      for (int h = 0; h < parts<T>; ++h) {
#pragma GCC unroll 16
        for (int i = 0; i < side; ++i) {
          const T* from = row_at(v * n + h * side + i) + p;
          x[h][i] = load_units<V>(from);
          __builtin_prefetch(from + 2 * side);
        }
        transpose_units<parts<T>>(x[h]);
      }
#pragma GCC unroll 16
      for (int i = 0; i < side; ++i)
        scale_vector<T, V, Conj>(x[0][i], x[parts<T> - 1][i], alpha, to + i * step * parts<T>, step);
    }
    if (p + side == depth) return;
    p = p + 2 * side <= depth ? p + side : depth - side;
  }
}

template <class T>
using strip_packer = void(const T*, zor_int, zor_int, int, T, real_t<T>*);

// The packers by height, as in tile_kernels.
template <class T, bool Transposed, bool Conj>
struct strip_packers {
  strip_packer<T>* at[strip_heights<T>];
  template <int Height>
  static constexpr strip_packer<T>* pick() {
    using V = height_vector<T, Height>;
    constexpr int count = height_vectors<T, Height>;
    return Transposed ? transpose_strip<T, V, count, Conj> : scale_strip<T, V, count, Conj>;
  }
  template <int... Heights>
  constexpr void fill(std::integer_sequence<int, Heights...>) {
    ((at[Heights] = pick<Heights>()), ...);
  }
  constexpr strip_packers() : at{} { fill(std::make_integer_sequence<int, strip_heights<T>>{}); }
};
template <class T, bool Transposed, bool Conj>
inline constexpr strip_packers<T, Transposed, Conj> packers{};

// Packs alpha op(A), m by depth, from `source` on. For complex types m is a multiple of 16 bytes of reals.
// Columns of an A that is not transposed are read down the whole block, a few at a time, which keeps them in
// the reach of the TLB and of the hardware's prefetch.
template <class T>
void pack_a(zor_int m, zor_int depth, bool trans, bool conj, const T* source, zor_int ld, T alpha,
            real_t<T>* destination) {
  constexpr zor_int columns = thresholds::packed_columns;
  const zor_int step = trans ? depth : columns, row_stride = trans ? ld : 1;
  const auto& pack = conj    ? packers<T, true, true>.at
                     : trans ? packers<T, true, false>.at
                             : packers<T, false, false>.at;
  for (zor_int p = 0; p < depth; p += step, source += columns * ld) {
    const zor_int part = depth - p < step ? depth - p : step;
    const T* from = source;
    real_t<T>* panel = destination;
    for (zor_int left = m; left > 0;) {
      const strip s = next_strip<T, reading::packed>(left);
      pack[s.height](from, ld, part, s.rows, alpha, panel + p * s.packed_rows * parts<T>);
      panel += s.packed_rows * depth * parts<T>;
      from += s.rows * row_stride;
      left -= s.rows;
    }
  }
}

// Imaginary parts as 0 - im.
template <class T>
void conjugate(zor_int count, T* x) {
  for_vectors<T>(0, count, [=]<int Bytes>(zor_int i) {
    using V = vec<real_t<T>, Bytes>;
    store_units(x + i, conj_units_by_subtraction<T>(load_units<V>(x + i)));
  });
}

// Packs op(B), depth by n, from `source` on, which is strided as `b` is, in strips of `most` columns.
template <class T, int most = tile_shape<T>::columns>
void pack_b(zor_int depth, zor_int n, const operand<T>& b, const T* source, T* destination) {
  for (zor_int j = 0; j < n; source += most * b.column_stride) {
    const int columns = n - j < most ? int(n - j) : most;
    if (!b.trans) {
      move_transposed(source, b.column_stride, columns, depth, destination, columns);
    } else if (columns == most) {
      for (zor_int p = 0; p < depth; ++p)
        __builtin_memcpy(destination + p * most, source + p * b.row_stride, most * sizeof(T));
    } else {
      for (zor_int p = 0; p < depth; ++p)
        for (int q = 0; q < columns; ++q)
          __builtin_memcpy(destination + p * columns + q, source + p * b.row_stride + q, sizeof(T));
    }
    if (is_complex<T> && b.conj) conjugate(depth * columns, destination);
    destination += columns * depth;
    j += columns;
  }
}

}  // namespace zor::gemm
