// SPDX-License-Identifier: MIT
// Block sizes of the matrix product and the bytes of its scratch block, for the kernels and for the core's
// entries that tell them to callers. All of it is contract: kb decides the order of sums, the sizes are told
// to callers, the bytes are those that the allocator is asked for.
#pragma once

#include "serv/scalar.h"

namespace zor::gemm {

// By type: the smallest problem worth packing; the groups of rows and columns that the register kernels take;
// the deepest panel and the rows of one block; the name under which a missing scratch block is reported.
template <class T>
struct limits;
template <>
struct limits<double> {
  static constexpr zor_int least_m = 3, least_nk = 3, rows = 1, columns = 1, kb = 112, mb = 480;
  static constexpr const char* name = "xdgemm";
};
template <>
struct limits<float> {
  static constexpr zor_int least_m = 8, least_nk = 8, rows = 8, columns = 4, kb = 112, mb = 640;
  static constexpr const char* name = "xsgemm";
};
template <>
struct limits<c32> {
  static constexpr zor_int least_m = 4, least_nk = 8, rows = 4, columns = 4, kb = 64, mb = 320;
  static constexpr const char* name = "xcgemm";
};
template <>
struct limits<c64> {
  static constexpr zor_int least_m = 4, least_nk = 8, rows = 2, columns = 4, kb = 64, mb = 320;
  static constexpr const char* name = "xzgemm";
};

// Columns of one outer step, and of that of a thin or a large product of doubles.
inline constexpr zor_int step_columns = 2000, wide_step_columns = 5000;

// Up to this m + n + k a B that is not transposed is not packed.
inline constexpr zor_int small_sum = 384;
// Unsigned: the sizes of a call that does nothing may be beyond all memory.
constexpr bool is_small(zor_int m, zor_int n, zor_int k) {
  return zor_int(uint64_t(m) + uint64_t(n) + uint64_t(k)) <= small_sum;
}

// Depth of a panel, largest blocks of rows and columns, and the bytes asked of the pool.
struct blocking {
  zor_int kb, mb, nb, bytes;
};

// The parts of the scratch block: a panel of A, a strip of 4 columns of B in which each real takes 16 bytes,
// a panel of B unless B is read in place, and room to bring each of them to a boundary.
template <class T>
constexpr zor_int scratch_bytes(zor_int kb, zor_int mb, zor_int nb, bool b_in_place) {
  constexpr zor_int page = 4096, before_strip = 2 * page + 512, after_strip = 768;
  constexpr zor_int around_b = std::is_same_v<T, double> ? before_strip : 2 * page;
  constexpr zor_int strip_columns = 4, spread_real = 16, size = sizeof(T);
  const zor_int strip = kb * strip_columns * parts<T> * spread_real;
  const zor_int fixed = size * kb * mb + before_strip + strip + after_strip;
  return b_in_place ? fixed : fixed + size * kb * nb + around_b;
}

// Of all types double alone fits its blocks to the problem: a depth of up to two panels is cut into halves,
// and a thin product (little depth, many rows and columns) or a large one has wider blocks.
[[gnu::always_inline]] constexpr blocking double_blocking(zor_int m, zor_int n, zor_int k) {
  constexpr zor_int two_panels = 2 * limits<double>::kb, thin = 10000, large = 4000, very_large = 12000;
  blocking b{limits<double>::kb, limits<double>::mb, step_columns, 0};
  if (k > b.kb && k <= two_panels) b.kb = k / 2 / 4 * 4;
  if (!is_small(m, n, k)) {
    const zor_int depth = k < b.kb ? k : b.kb;
    if (k <= two_panels && m >= thin - n) {
      b.nb = wide_step_columns;
      b.mb = depth <= 16 ? 1536 : depth <= 32 ? 1024 : depth <= 64 ? 768 : 512;
    } else if (m >= large && n >= large && k >= large && m >= very_large - n) {
      b.nb = wide_step_columns;
      b.mb = 512;
    }
  }
  return b;
}

// The blocks of a product of m, n and k of at least 1.
template <class T>
[[gnu::always_inline]] constexpr blocking blocking_of(zor_int m, zor_int n, zor_int k, bool b_in_place) {
  blocking b{limits<T>::kb, limits<T>::mb, step_columns, 0};
  if constexpr (std::is_same_v<T, double>) b = double_blocking(m, n, k);
  if (b.nb > n) b.nb = n;
  b.bytes = scratch_bytes<T>(b.kb, b.mb, b.nb, b_in_place && std::is_same_v<T, double>);
  return b;
}

// Depth of the first panel, the tail of the depth.
constexpr zor_int first_depth(zor_int k, zor_int kb) {
  if (k <= kb) return k;
  const zor_int tail = k % kb;
  return tail != 0 ? tail : kb;
}

}  // namespace zor::gemm
