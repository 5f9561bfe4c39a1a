// SPDX-License-Identifier: MIT
// Internal packing: panels in the order in which this build's register kernels read them. A strip of A holds,
// for each p, its rows of alpha op(A) (complex: all real parts, then all imaginary parts); a last vector that
// is not full repeats the strip's last row, so that no lane computes on anything but real data. A strip of B
// holds, for each p, its columns of op(B), the last strip exactly as many as are left. The depth is not
// padded.
#pragma once

#include "blas/kernels/gemm_tile.h"

namespace zor::gemm {

// destination[p * step + q] := source[p + q ld] for q < count, p < depth. Elements are only moved. The next
// `count` columns of the source are prefetched: they are the next strip's.
template <class T, int Bytes = width>
void move_transposed(const T* source, zor_int ld, zor_int count, zor_int depth, T* destination, zor_int step,
                     zor_int q = 0) {
  // Blocks of an element a vector and more: squares of side units<T, Bytes> turned in registers.
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

// One strip of A from columns of `rows` elements at stride ld; source and destination may be the same strip.
// The products with alpha: (xr ar - xi ai, ar xi + ai xr), conjugated (xr ar + xi ai, ar xi - ai xr).
template <class T, class V, int Vectors, bool Conj>
void scale_strip(const T* source, zor_int ld, zor_int depth, int rows, T alpha, real_t<T>* destination) {
  using R = real_t<T>;
  constexpr int n = lanes<V>;
  for (zor_int p = 0; p < depth; ++p, source += ld, destination += Vectors * n * parts<T>) {
    if constexpr (is_complex<T>) {
      const V xr = broadcast<V>(alpha.re), xi = broadcast<V>(alpha.im);
      V re[Vectors], im[Vectors];
#pragma GCC unroll 8
      for (int v = 0; v < Vectors; ++v) {
        const V low = load_units<V>(source + v * n), high = load_units<V>(source + v * n + n / 2);
        const V ar = unzip<0>(low, high), ai = unzip<1>(low, high);
        re[v] = Conj ? xr * ar + xi * ai : xr * ar - xi * ai;
        im[v] = Conj ? ar * xi - ai * xr : ar * xi + ai * xr;
      }
#pragma GCC unroll 8
      for (int v = 0; v < Vectors; ++v) {
        store<V>(destination + v * n, re[v]);
        store<V>(destination + (Vectors + v) * n, im[v]);
      }
    } else if (rows == Vectors * n) {
      const V x = broadcast<V>(alpha);
#pragma GCC unroll 8
      for (int v = 0; v < Vectors; ++v) store<V>(destination + v * n, x * load<V>(source + v * n));
    } else {
      const V row = load_partial<V>(source, rows, source[rows - 1]);
      store<V>(destination, row * broadcast<V>(R(alpha)));
    }
  }
}

template <class T>
using strip_packer = void(const T*, zor_int, zor_int, int, T, real_t<T>*);

// scale_strip by height, as in tile_kernels.
template <class T, bool Conj>
struct strip_packers {
  strip_packer<T>* at[strip_heights<T>];
  template <int Height>
  static constexpr strip_packer<T>* pick() {
    return scale_strip<T, height_vector<T, Height>, height_vectors<T, Height>, Conj>;
  }
  template <int... Heights>
  constexpr void fill(std::integer_sequence<int, Heights...>) {
    ((at[Heights] = pick<Heights>()), ...);
  }
  constexpr strip_packers() : at{} { fill(std::make_integer_sequence<int, strip_heights<T>>{}); }
};
template <class T, bool Conj>
inline constexpr strip_packers<T, Conj> packers{};

// Packs alpha op(A), m by depth. For complex types m is a multiple of 16 bytes of reals. Columns of an A that
// is not transposed are read down the whole block, a few at a time, which keeps them in the reach of the TLB
// and of the hardware's prefetch.
template <class T>
void pack_a(zor_int m, zor_int depth, const operand<T>& a, T alpha, real_t<T>* destination) {
  constexpr zor_int columns = 8;
  const zor_int step = a.trans ? depth : columns;
  for (zor_int p = 0; p < depth; p += step) {
    const zor_int part = depth - p < step ? depth - p : step;
    real_t<T>* panel = destination;
    for (zor_int i = 0; i < m;) {
      const strip s = next_strip<T>(m - i);
      const T* source = a.at(i, p);
      zor_int ld = a.column_stride;
      real_t<T>* const to = panel + p * s.packed_rows * parts<T>;
      if (a.trans) {
        T* turned = reinterpret_cast<T*>(to);
        move_transposed(source, a.row_stride, s.rows, part, turned, s.packed_rows);
        source = turned;
        ld = s.packed_rows;
      }
      (a.conj ? packers<T, true>.at : packers<T, false>.at)[s.height](source, ld, part, s.rows, alpha, to);
      panel += s.packed_rows * depth * parts<T>;
      i += s.rows;
    }
  }
}

// Imaginary parts as 0 - im.
template <class T>
void conjugate(zor_int count, T* x) {
  if constexpr (is_complex<T>) {
    in_chunks<T>(count, [&]<int Bytes>(zor_int i, zor_int last) {
      using V = vec<real_t<T>, Bytes>;
      for (; i < last; i += units<T, Bytes>) {
        const V v = load_units<V>(x + i);
        store_units(x + i, pick_odd(v, V{} - v));
      }
    });
  }
}

// Packs op(B), depth by n.
template <class T>
void pack_b(zor_int depth, zor_int n, const operand<T>& b, T* destination) {
  constexpr int most = tile_shape<T>::columns;
  for (zor_int j = 0; j < n;) {
    const int columns = n - j < most ? int(n - j) : most;
    const T* source = b.at(0, j);
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
    if (b.conj) conjugate(depth * columns, destination);
    destination += columns * depth;
    j += columns;
  }
}

}  // namespace zor::gemm
