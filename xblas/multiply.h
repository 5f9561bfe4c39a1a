// SPDX-License-Identifier: MIT
// y := alpha op(A) x + beta y, and the same for x given as the sum of two vectors. Each output is one sum
// from 0 over its row of op(A) in order, the term of the tail of x behind that of its head; lanes are
// different outputs. Then the sum is multiplied by alpha, y by beta, and the two are added.
#pragma once

#include "xblas/arithmetic.h"
#include "xblas/row_block.h"

namespace zor {

// What a call has besides the matrix. x starts with its first element whatever the sign of its increment, and
// so does y. tail is null when x is one vector.
template <class T>
struct operands {
  T alpha;
  const T *head, *tail;
  zor_int incx;
  T beta;
  T* y;
  zor_int incy;
};

template <class T>
operands<T> operands_of(T alpha, const T* head, const T* tail, zor_int inputs, zor_int incx, T beta, T* y,
                        zor_int outputs, zor_int incy) {
  return {alpha,
          walk_start(head, inputs, incx),
          tail == nullptr ? tail : walk_start(tail, inputs, incx),
          incx,
          beta,
          walk_start(y, outputs, incy),
          incy};
}

// What becomes of a sum.
enum class ending { zero, scaled_y, sum, scaled_sum, scaled_sum_and_y };
template <class T>
ending ending_of(T alpha, T beta) {
  if (is_zero(alpha)) return is_zero(beta) ? ending::zero : ending::scaled_y;
  if (!is_zero(beta)) return ending::scaled_sum_and_y;
  return is_one(alpha) ? ending::sum : ending::scaled_sum;
}

// One factor of x for all lanes.
template <class T>
struct uniform_x {
  const T *head, *tail;
  zor_int inc;

  template <class V>
  [[gnu::always_inline]] V at(int form, zor_int k, int p, int) const {
    const T e = load_element((form == 0 ? head : tail) + k * inc);
    return broadcast<V>(lane_t<V>(reals(&e)[p]));
  }
  [[gnu::always_inline]] uniform_x from(zor_int k) const {
    return {head + k * inc, tail == nullptr ? tail : tail + k * inc, inc};
  }
};

// A factor for each lane, packed like a panel with the tail's columns behind the head's.
template <class R, int Vectors, int Parts, int Forms>
struct packed_x {
  const R* columns;

  template <class V>
  [[gnu::always_inline]] V at(int form, zor_int k, int p, int s) const {
    return load<V>(columns + ((k * Forms + form) * Parts + p) * block_rows<R, Vectors> + s * lanes<V>);
  }
};

template <class A, int Parts, int Vectors>
struct block_sums {
  using V = vec<typename A::real>;
  parted<A, V, Parts> of[Vectors] = {};
};

// The terms of `count` columns, added one by one.
template <class A, int Forms, int Parts, int Vectors, class X>
void add_panel(zor_int count, const typename A::real* panel, const X& x,
               block_sums<A, Parts, Vectors>& sums) {
  using R = typename A::real;
  using V = vec<R>;
  constexpr int B = block_rows<R, Vectors>;
  block_sums<A, Parts, Vectors> now = sums;
  for (zor_int k = 0; k < count; ++k) {
#pragma GCC unroll 4
    for (int s = 0; s < Vectors; ++s) {
      V a[Parts];
      for (int p = 0; p < Parts; ++p) a[p] = load<V>(panel + (k * Parts + p) * B + s * lanes<V>);
#pragma GCC unroll 2
      for (int form = 0; form < Forms; ++form) {
        V factor[Parts];
        for (int p = 0; p < Parts; ++p) factor[p] = x.template at<V>(form, k, p, s);
        const auto term = multiply_parts<A, Parts, V>([&](int i, int j) __attribute__((always_inline)) {
          return A::product(a[i], factor[j]);
        });
        now.of[s] = add_parts(now.of[s], term);
      }
    }
  }
  sums = now;
}

template <class A, class V, int Parts>
[[gnu::always_inline]] inline parted<A, V, Parts> scaled_by(const parted<A, V, Parts>& sum,
                                                            const V (&factor)[Parts]) {
  return multiply_parts<A, Parts, V>([&](int i, int j) __attribute__((always_inline)) {
    return A::scaled(sum.part[j], factor[i]);
  });
}

// Outputs 0 to rows - 1 of a block. With an increment of 0 they are one element, which each in turn takes
// from the one before it.
template <class A, int Vectors, class T>
void store_block(ending how, zor_int rows, const operands<T>& o, const block_sums<A, parts<T>, Vectors>& sums,
                 T* y) {
  using R = typename A::real;
  using V = vec<R>;
  constexpr int P = parts<T>, L = lanes<V>, B = block_rows<R, Vectors>;
  const bool reads_y = how == ending::scaled_y || how == ending::scaled_sum_and_y;
  V alpha[P], beta[P];
  for (int p = 0; p < P; ++p) {
    alpha[p] = broadcast<V>(R(reals(&o.alpha)[p]));
    beta[p] = broadcast<V>(R(reals(&o.beta)[p]));
  }
  const zor_int together = o.incy == 0 ? 1 : rows;
  for (zor_int first = 0; first < rows; first += together) {
    R old[P * B] = {}, result[P * B];
    if (reads_y)
      pack_elements<Vectors>(rows, 1, old, [&](zor_int i, zor_int) { return load_element(y + i * o.incy); });
    for (int s = 0; s < Vectors; ++s) {
      parted<A, V, P> value = {};
      if (how == ending::sum) value = sums.of[s];
      if (how == ending::scaled_sum || how == ending::scaled_sum_and_y) value = scaled_by(sums.of[s], alpha);
      if (reads_y) {
        const auto term = multiply_parts<A, P, V>([&](int i, int j) __attribute__((always_inline)) {
          return A::wide_product(load<V>(old + j * B + s * L), beta[i]);
        });
        value = how == ending::scaled_y ? term : add_parts(value, term);
      }
      for (int p = 0; p < P; ++p) store(result + p * B + s * L, A::rounded(value.part[p]));
    }
    for (zor_int i = first; i < first + together; ++i) {
      T e;
      for (int p = 0; p < P; ++p) reals(&e)[p] = real_t<T>(result[p * B + i]);
      store_element(y + i * o.incy, e);
    }
  }
}

// Blocks of outputs: as many as fit of several vectors, then of one. sum_block.operator()<Vectors>(first,
// rows, sums) adds up the outputs from `first` on.
template <class A, class T, int Vectors, class SumBlock>
void for_blocks(ending how, zor_int outputs, const operands<T>& o, const SumBlock& sum_block,
                zor_int first = 0) {
  constexpr int B = block_rows<typename A::real, Vectors>;
  const bool needs_sum = how != ending::zero && how != ending::scaled_y;
  while (first < outputs && (Vectors == 1 || first + B <= outputs)) {
    const zor_int rows = outputs - first < B ? outputs - first : B;
    block_sums<A, parts<T>, Vectors> sums;
    if (needs_sum) sum_block.template operator()<Vectors>(first, rows, sums);
    store_block<A, Vectors>(how, rows, o, sums, o.y + first * o.incy);
    first += rows;
  }
  if constexpr (Vectors > 1) {
    if (first < outputs) for_blocks<A, T, 1>(how, outputs, o, sum_block, first);
  }
}

// Vectors of a block: enough independent sums for the latency of an addition.
template <class T>
inline constexpr int block_vectors = is_complex<T> ? 2 : 4;

// A source packs columns k to k + count - 1 of the block of rows that begins at `first`; columns up to
// source.same_until(first, rows, k) are packed alike.
template <class A, int Forms, class T, class Source>
void multiply(ending how, zor_int outputs, zor_int inputs, const operands<T>& o, const Source& source) {
  using R = typename A::real;
  const uniform_x<T> x = {o.head, o.tail, o.incx};
  for_blocks<A, T, block_vectors<T>>(
      how, outputs, o, [&]<int Vectors>(zor_int first, zor_int rows, block_sums<A, parts<T>, Vectors>& sums) {
        R panel[panel_cols * parts<T> * block_rows<R, Vectors>];
        for (zor_int k = 0; k < inputs;) {
          const zor_int left = source.same_until(first, rows, k) - k;
          const zor_int count = left < panel_cols ? left : panel_cols;
          source.template pack<Vectors>(first, rows, k, count, panel);
          add_panel<A, Forms>(count, panel, x.from(k), sums);
          k += count;
        }
      });
}

// Precisions as the caller names them.
enum { single_precision = 211, double_precision = 212, indigenous_precision = 213, extra_precision = 214 };

inline bool is_precision(int precision) {
  return precision >= single_precision && precision <= extra_precision;
}

// Calls body.operator()<A>() with the arithmetic of a precision; does nothing for a number that names none.
template <class T, class Body>
void with_arithmetic(int precision, const Body& body) {
  constexpr bool is_single = sizeof(real_t<T>) == sizeof(float);
  if (precision == single_precision)
    body.template operator()<plain<real_t<T>>>();
  else if (precision == double_precision || precision == indigenous_precision)
    body.template operator()<plain<double>>();
  else if (precision == extra_precision)
    body.template operator()<extended<is_single>>();
}

}  // namespace zor
