// SPDX-License-Identifier: MIT
// Dot products of real vectors, in the precision of the elements. When the product of the increments is 1 and
// both vectors lie on element boundaries there are four accumulators of 16 bytes, L lanes each (2 double, 4
// single); an accumulator takes L consecutive products.
//   x and y at the same position modulo 16:
//     elements before the boundary             lane 0 of a0, one after the other
//     then groups of L                         a0 a1 a2 a3 in turn, in blocks of 4L
//     tails of 2L and L                        a0 a1 and a0
//   otherwise, x standing on the boundary after the same peel:
//     blocks of 4L                             a0 a1 a2 a3
//     groups of L                              a0 each
//   the elements that are left                 lane 0 of a0, one after the other
// The result is ((a0 + a1) + a2) + a3, its lanes added in order. Any other pair is one running sum in the
// order of the standard walk, but increments of -1 both run forward wherever the vectors lie.
#include "zor/signatures/blas.h"

#include "blas/level1/partial_sums.h"
#include "blas/level1/vector.h"
#include "blas/level1/walk.h"

namespace zor {
namespace {

// Vectors of less than a block; of blocks; and so long that their lines are asked for a block ahead.
enum class extent { below_block, blocks, far };
template <class R>
constexpr zor_int block = block_bytes / zor_int(sizeof(R));

// Registers of 32 bytes for blocks, even where there are wider ones: the sums are bound by the latency of an
// addition, which is longer there on some processors. Short vectors take registers of 16 bytes alone, which
// need no joining.
template <class R, extent Extent>
[[gnu::always_inline]] inline R dot_unit(zor_int n, const R* x, const R* y) {
  using V = vec<R, 16>;
  constexpr int L = lanes<V>;
  const bool together = position(x) == position(y);
  // A branch, so that the first loads need not wait for the count.
  R first = 0;
  if (const zor_int peel = peel_count(x, n); peel != 0) [[unlikely]] {
    for (zor_int i = 0; i < peel; ++i) first = first + x[i] * y[i];
    x += peel;
    y += peel;
    n -= peel;
  }

  V a0{first}, a1{}, a2{}, a3{};
  if constexpr (Extent != extent::below_block) {
    partial_sums<R, 64, long_width> sums;
    using P = typename partial_sums<R, 64, long_width>::V;
    // Made whole: a single lane that is set by itself goes through memory.
    sums.part[0] = P{first};
    for (; n >= block<R>; n -= block<R>, x += block<R>, y += block<R>) {
      if constexpr (Extent == extent::far) {
        touch_block(x);
        touch_block(y);
      }
#pragma GCC unroll 16
      for (int k = 0; k < block<R>; k += sums.step)
        sums.part[k / sums.step % sums.count] += load<P>(x + k) * load<P>(y + k);
    }
    a0 = sums.template accumulator<0>(), a1 = sums.template accumulator<1>();
    a2 = sums.template accumulator<2>(), a3 = sums.template accumulator<3>();
  }
  for (; n >= 4 * L; n -= 4 * L, x += 4 * L, y += 4 * L) {
    // The loop stays as it is: counted in advance or taken apart it would be longer for short vectors.
    asm("" : "+r"(n), "+r"(x), "+r"(y));
    a0 += load<V>(x) * load<V>(y);
    a1 += load<V>(x + L) * load<V>(y + L);
    a2 += load<V>(x + 2 * L) * load<V>(y + 2 * L);
    a3 += load<V>(x + 3 * L) * load<V>(y + 3 * L);
  }
  if (n & 2 * L) {
    a0 += load<V>(x) * load<V>(y);
    const V second = load<V>(x + L) * load<V>(y + L);
    if (together)
      a1 += second;
    else
      a0 += second;
    x += 2 * L;
    y += 2 * L;
  }
  if (n & L) {
    a0 += load<V>(x) * load<V>(y);
    x += L;
    y += L;
  }
  for (n &= L - 1; n > 0; --n, ++x, ++y) a0[0] = a0[0] + *x * *y;
  return sum_lanes(((a0 + a1) + a2) + a3);
}

template <class T>
[[gnu::noinline]] T dot_blocks(zor_int n, const T* x, const T* y) {
  return n * zor_int(sizeof(T)) < long_bytes ? dot_unit<T, extent::blocks>(n, x, y)
                                             : dot_unit<T, extent::far>(n, x, y);
}
// Other increments than 1, or vectors off the boundaries of their elements.
template <class T>
[[gnu::noinline]] T dot_walk(zor_int n, const T* x, zor_int incx, const T* y, zor_int incy) {
  if (n < 1) return 0;
  if (unit_pair(incx, incy)) {
    incx = incy = 1;
    if (on_real_boundary(x) && on_real_boundary(y)) return dot_blocks(n, x, y);
  }
  x = walk_start(x, n, incx);
  y = walk_start(y, n, incy);
  T sum = 0;
  for (zor_int i = 0; i < n; ++i) sum = sum + load_element(x + i * incx) * load_element(y + i * incy);
  return sum;
}

// In line in every entry, with the way of short vectors in one run of code: they feel each jump.
template <class T>
[[gnu::always_inline]] inline T dot_of(zor_int n, const T* x, zor_int incx, const T* y, zor_int incy) {
  const uintptr_t off = (reinterpret_cast<uintptr_t>(x) | reinterpret_cast<uintptr_t>(y)) % sizeof(T);
  if (incx != 1 || incy != 1 || off != 0) [[unlikely]]
    return dot_walk(n, x, incx, y, incy);
  if (n >= block<T>) [[unlikely]]
    return dot_blocks(n, x, y);
  return n < 1 ? 0 : dot_unit<T, extent::below_block>(n, x, y);
}

}  // namespace

template <class T>
T dot(zor_int n, const T* x, zor_int incx, const T* y, zor_int incy) {
  return dot_of(n, x, incx, y, incy);
}
template float dot(zor_int, const float*, zor_int, const float*, zor_int);
template double dot(zor_int, const double*, zor_int, const double*, zor_int);

}  // namespace zor

#define ROW_DOT(name, T) \
  extern "C" SIG_DOT(name, T) { return zor::dot_of<T>(*n, x, *incx, y, *incy); }
#include "zor/tables/blas_vector.inc"
