// SPDX-License-Identifier: MIT
// One block of C against one panel of the depth, and how a depth is cut into panels.
#pragma once

#include "blas/level3/blocking.h"
#include "blas/level3/gemm_pack.h"

namespace zor::gemm {

// Whether a product goes through the register kernels.
template <class T>
bool fills_tile(zor_int m, zor_int n, zor_int k) {
  return m >= limits<T>::least_m && n >= limits<T>::least_nk && k >= limits<T>::least_nk;
}

// A block of C against a panel of the depth: strips of columns, and in each the strips of A. The strip of B
// in hand is spread first where the kernels want it so. C may be complex where T is real, see tile_kernel:
// n counts the columns of B.
template <class T, reading From, class C = T>
[[gnu::always_inline]] inline void product_block(zor_int m, zor_int n, const tile<T>& t, const real_t<T>* a,
                                                 const real_t<T>* b, C* c) {
  constexpr int most = tile_shape<T>::columns;
  using V = vec<real_t<T>, width>;
  constexpr bool packed = From == reading::packed, spread = packed && spread_b<T>;
  constexpr int copies = lanes<V>;
  alignas(V) real_t<T> scratch[spread ? limits<T>::kb * most * parts<T> * copies : 1];
  const zor_int b_step = (packed ? t.depth : t.b_column) * parts<T>;
  if (const strip s = next_strip<T, From>(m); !spread && s.rows == m) {
    auto& at = kernels<T, From, C>.at[s.height];
    for (; n > most; n -= most, b += most * b_step, c += most / columns_in_one<T, C> * t.ldc)
      at[most - 1](t, a, b, c, s.rows);
    return at[n - 1](t, a, b, c, s.rows);
  }
  for (zor_int j = 0; j < n; j += most) {
    const int columns = n - j < most ? int(n - j) : most;
    const real_t<T>* strip_b = b;
    if constexpr (spread) {
      for (zor_int e = 0; e < columns * t.depth * parts<T>; ++e)
        store(scratch + e * copies, broadcast<V>(b[e]));
      strip_b = scratch;
    }
    const real_t<T>* strip_a = a;
    C* strip_c = c;
    for (zor_int left = m; left > 0;) {
      const strip s = next_strip<T, From>(left);
      kernels<T, From, C>.at[s.height][columns - 1](t, strip_a, strip_b, strip_c, s.rows);
      strip_a += From == reading::in_place ? s.rows : s.packed_rows * t.depth * parts<T>;
      strip_c += s.rows;
      left -= s.rows;
    }
    b += columns * b_step;
    c += most / columns_in_one<T, C> * t.ldc;
  }
}

}  // namespace zor::gemm
