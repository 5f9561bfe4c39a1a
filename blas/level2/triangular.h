// SPDX-License-Identifier: MIT
// Triangular solves and products with one vector, x := op(A)^-1 x and x := op(A) x, over a triangle that is
// full, banded or packed. Row i of op(A) gives one running sum that starts from x[i]:
//   solve: x[i] - a x[j] - ..., j from the far end towards the diagonal, as x[j] become known; then the
//          quotient by the diagonal;
//   product: the diagonal times x[i], then + a x[j] + ..., j away from the diagonal.
// There are three ways to it, with the same bits. By single rows: any stride, and narrow bands. By columns of
// A, if op(A) is A: a group of columns is added to all rows at once. By columns as rows of op(A), if A is
// transposed: the sums of a group of them are lanes, and squares are transposed in registers.
#pragma once

#include "blas/level2/matvec.h"
#include "blas/level2/triangle.h"
#include "blas/quotient.h"

namespace zor {

enum class operation { plain, transpose, conjugate };
// What the walk over op(A) computes.
enum class task { solve, multiply };

template <class T>
[[gnu::always_inline]] inline T negated(T x) {
  if constexpr (is_complex<T>)
    return {-x.re, -x.im};
  else
    return -x;
}

template <operation Op, task Task, class T>
class triangular_walk {
 public:
  triangular_walk(const stored_triangle<const T>& a, bool unit, T* x, zor_int incx)
      : a_(a), x_(x), incx_(incx), unit_(unit), lower_(a.upper == (Op != operation::plain)) {}

  void run() {
    constexpr int least_reach = 2 * units < T >> 2 * column_count ? 2 * units<T> : 2 * column_count;
    const bool narrow = a_.reach < least_reach && a_.reach < a_.n - 1;
    if (incx_ != 1 || narrow)
      by_rows();
    else if constexpr (Op == operation::plain)
      by_columns();
    else
      by_lanes<width>(0, a_.n);
  }

 private:
  using E = element<T>;
  static constexpr bool conj = Op == operation::conjugate, solving = Task == task::solve;
  static constexpr int column_count = is_complex<T> ? 4 : 8;  // columns of a group

  // Rows of a solve go upwards in a lower op(A), rows of a product downwards, so that x[j] still stands; in a
  // solve the terms of a sum go the same way, in a product too.
  bool upwards() const { return lower_ == solving; }
  T* at(zor_int i) const { return x_ + i * incx_; }

  // ---- By rows.

  // The sum of row i goes on with the terms j from `from` on, `count` of them, in the direction of the walk.
  E add_terms(E sum, zor_int i, zor_int from, zor_int count) const {
    const zor_int step = upwards() ? 1 : -1;
    const T* element_at = Op == operation::plain ? a_.column(from) + i : a_.column(i) + from;
    for (zor_int j = from; count > 0; --count, j += step) {
      const T xj = load_element(at(j));
      sum = plus_term<conj>(sum, solving ? negated(xj) : xj, element_at);
      if constexpr (Op == operation::plain)
        element_at += upwards() ? a_.column_step(j) : -a_.column_step(j - 1);
      else
        element_at += step;
    }
    return sum;
  }
  T diagonal(zor_int i) const { return conj_by_sign_if(conj, load_element(a_.column(i) + i)); }
  // A finished sum of a solve becomes x[i]; the sum of a product begins.
  void divide(zor_int i) const {
    if (unit_) return;
    const T d = diagonal(i), xi = load_element(at(i));
    if constexpr (is_complex<T>) {
      const auto q = divided(complex_lanes<real_t<T>>{xi.re, xi.im}, d);
      store_element(at(i), T{q.re, q.im});
    } else {
      store_element(at(i), divided(xi, d));
    }
  }
  E times_diagonal(zor_int i) const {
    const E xi = load_units<E>(at(i));
    return unit_ ? xi : make_factor<E, conj>(load_element(at(i))) * load_units<E>(a_.column(i) + i);
  }

  void by_rows() const {
    for (zor_int k = 0; k < a_.n; ++k) {
      const zor_int i = upwards() ? k : a_.n - 1 - k;
      const zor_int before = lower_ ? i : a_.n - 1 - i, count = before < a_.reach ? before : a_.reach;
      const zor_int nearest = lower_ ? i - 1 : i + 1, farthest = lower_ ? i - count : i + count;
      if constexpr (solving) {
        store_units(at(i), add_terms(load_units<E>(at(i)), i, farthest, count));
        divide(i);
      } else {
        store_units(at(i), add_terms(times_diagonal(i), i, nearest, count));
      }
    }
  }

  // ---- By columns.

  // x[first .. end-1] grows by the columns j of a group, in the order of the walk.
  template <int Count>
  void add_group(zor_int j, zor_int first, zor_int end) const {
    const T* column[Count];
    T s[Count];
    for (int k = 0; k < Count; ++k) {
      const zor_int jk = upwards() ? j + k : j + Count - 1 - k;
      column[k] = a_.column(jk) + first;
      s[k] = solving ? negated(load_element(at(jk))) : load_element(at(jk));
    }
    add_columns<Count>(
        end - first, s, [&](int k) __attribute__((always_inline)) { return column[k]; }, at(first));
  }
  // The triangle of columns and rows j to j + Count - 1.
  template <int Count>
  void near_triangle(zor_int j) const {
    for (int k = 0; k < Count; ++k) {
      const zor_int jk = upwards() ? j + k : j + Count - 1 - k;
      if (solving) divide(jk);
      const T xj = load_element(at(jk)), s = solving ? negated(xj) : xj;
      const T* const column = a_.column(jk);
      const zor_int first = lower_ ? jk + 1 : j, end = lower_ ? j + Count : jk;
      for (zor_int i = first; i < end; ++i) add_term(s, column + i, at(i));
      if (!solving) store_units(at(jk), times_diagonal(jk));
    }
  }
  // Rows that all columns of the group have, then those that only the columns nearer to them have.
  template <int Count>
  void rest_of_columns(zor_int j) const {
    if (lower_) {
      const zor_int common = a_.end_row(j);
      add_group<Count>(j, j + Count, common);
      for (int k = 0; k < Count; ++k) {
        const zor_int jk = upwards() ? j + k : j + Count - 1 - k;
        add_single(jk, common, a_.end_row(jk));
      }
    } else {
      const zor_int common = a_.first_row(j + Count - 1);
      add_group<Count>(j, common, j);
      for (int k = 0; k < Count; ++k) {
        const zor_int jk = upwards() ? j + k : j + Count - 1 - k;
        add_single(jk, a_.first_row(jk), common);
      }
    }
  }
  void add_single(zor_int j, zor_int first, zor_int end) const {
    if (first >= end) return;
    const T xj = load_element(at(j));
    add_column(end - first, solving ? negated(xj) : xj, a_.column(j) + first, at(first));
  }
  template <int Count>
  void column_group(zor_int j) const {
    if (!solving) rest_of_columns<Count>(j);
    near_triangle<Count>(j);
    if (solving) rest_of_columns<Count>(j);
  }
  void by_columns() const {
    constexpr int group = column_count;
    for (zor_int done = 0; done < a_.n;) {
      const zor_int left = a_.n - done;
      const int count = left >= group ? group : left >= 4 ? 4 : left >= 2 ? 2 : 1;
      const zor_int j = upwards() ? done : left - count;
      switch (count) {
        case 1:
          column_group<1>(j);
          break;
        case 2:
          column_group<2>(j);
          break;
        case 4:
          column_group<4>(j);
          break;
        default:
          column_group<group>(j);
      }
      done += count;
    }
  }

  // ---- By lanes.

  // The sums of rows i to i + units - 1 of op(A), columns of A, go on with `squares` squares beside the
  // triangle on the diagonal.
  template <int Bytes>
  void add_squares(zor_int i, zor_int squares, T* sums) const {
    using V = vec<real_t<T>, Bytes>;
    constexpr int U = units<T, Bytes>;
    const T* column[U];
#pragma GCC unroll 16
    for (int l = 0; l < U; ++l) column[l] = a_.column(i + l);
    V sum = load_units<V>(sums);
    const auto add_square = [&]<bool Up>(std::bool_constant<Up>, zor_int row) __attribute__((always_inline)) {
      V square[U];
#pragma GCC unroll 16
      for (int l = 0; l < U; ++l) square[l] = load_units<V>(column[l] + row);
      transpose_units<int(sizeof(T) / sizeof(real_t<T>))>(square);
#pragma GCC unroll 16
      for (int k = 0; k < U; ++k) {
        const int p = Up ? k : U - 1 - k;
        const T xj = load_element(x_ + row + p);
        sum = sum + make_factor<V, conj>(solving ? negated(xj) : xj) * square[p];
      }
    };
    const zor_int low = lower_ ? i - squares * U : i + U, high = low + squares * U;
    if (upwards())
      for (zor_int row = low; row < high; row += U) add_square(std::true_type{}, row);
    else
      for (zor_int row = high - U; row >= low; row -= U) add_square(std::false_type{}, row);
    store_units(sums, sum);
  }

  template <int Bytes>
  void lane_group(zor_int i) const {
    constexpr int U = units<T, Bytes>;
    // Terms beyond the triangle on the diagonal: those of the row that has fewest come in squares.
    const zor_int fewest_beside = lower_ ? i - a_.first_row(i + U - 1) : a_.end_row(i) - (i + U);
    const zor_int squares = fewest_beside / U;
    T sums[U];
    const auto far_terms = [&](int l) __attribute__((always_inline)) {
      const zor_int edge = lower_ ? i - squares * U : i + U + squares * U;
      const zor_int end = lower_ ? a_.first_row(i + l) : a_.end_row(i + l);
      const zor_int count = lower_ ? edge - end : end - edge;
      const zor_int from = solving == lower_ ? (lower_ ? end : edge) : (lower_ ? edge - 1 : end - 1);
      store_units(sums + l, add_terms(load_units<E>(sums + l), i + l, from, count));
    };
    if constexpr (solving) {
      for (int l = 0; l < U; ++l) {
        sums[l] = load_element(x_ + i + l);
        far_terms(l);
      }
      if (squares > 0) add_squares<Bytes>(i, squares, sums);
      for (int k = 0; k < U; ++k) {
        const int l = lower_ ? k : U - 1 - k;
        store_units(at(i + l), add_terms(load_units<E>(sums + l), i + l, lower_ ? i : i + U - 1, k));
        divide(i + l);
      }
    } else {
      for (int l = 0; l < U; ++l) {
        const int count = lower_ ? l : U - 1 - l;
        store_units(sums + l, add_terms(times_diagonal(i + l), i + l, lower_ ? i + l - 1 : i + l + 1, count));
      }
      if (squares > 0) add_squares<Bytes>(i, squares, sums);
      for (int l = 0; l < U; ++l) {
        far_terms(l);
        store_element(at(i + l), sums[l]);
      }
    }
  }

  // Rows first to end - 1, in groups that fill vectors of Bytes, the rest in narrower ones. The rest lies
  // where the rows of a full triangle are longest, so that all of them consist of whole squares.
  template <int Bytes>
  void by_lanes(zor_int first, zor_int end) const {
    constexpr int U = units<T, Bytes>;
    const zor_int rest = (end - first) % U, whole = end - first - rest;
    const zor_int begin = lower_ ? first : first + rest;
    const auto narrower = [&] {
      if constexpr (U > 1) {
        constexpr int next = Bytes > 16 ? Bytes / 2 : int(sizeof(T));
        if (rest > 0) lower_ ? by_lanes<next>(begin + whole, end) : by_lanes<next>(first, begin);
      }
    };
    if (!solving) narrower();
    for (zor_int k = 0; k < whole; k += U) lane_group<Bytes>(upwards() ? begin + k : begin + whole - U - k);
    if (solving) narrower();
  }

  const stored_triangle<const T> a_;
  T* const x_;
  const zor_int incx_;
  const bool unit_, lower_;
};

// The options of a call: which operation, and whether the diagonal is of ones.
struct triangular_options {
  char uplo, trans, diag;

  bool upper() const { return is_upper(uplo); }
  bool unit() const { return diag == 'U' || diag == 'u'; }
  bool plain() const { return trans == 'N' || trans == 'n'; }
  bool conjugate() const { return trans == 'C' || trans == 'c'; }
  // The triangle op(A), as against the one that is stored.
  bool lower() const { return upper() != plain(); }
};

// x is where the walk over the elements starts.
template <task Task, class T>
void walk_triangle(const triangular_options& o, const stored_triangle<const T>& a, T* x, zor_int incx) {
  if (o.plain())
    triangular_walk<operation::plain, Task, T>(a, o.unit(), x, incx).run();
  else if (is_complex<T> && o.conjugate())
    triangular_walk<is_complex<T> ? operation::conjugate : operation::transpose, Task, T>(a, o.unit(), x,
                                                                                          incx)
        .run();
  else
    triangular_walk<operation::transpose, Task, T>(a, o.unit(), x, incx).run();
}

// A full triangle in diagonal blocks of `block`, cut from where the walk begins: upwards for the solve of a
// lower op(A) and the product of an upper one. x is where the walk over the elements starts. The rectangle
// beside a block, with the elements of x that are known (solve) or wanted (product), goes through gemv.
template <task Task, class T, class Gemv>
void walk_blocks(const triangular_options& o, zor_int n, zor_int block, const T* a, zor_int lda, T* x,
                 zor_int incx, Gemv& gemv) {
  constexpr bool solving = Task == task::solve;
  const bool lower = o.lower(), upwards = lower == solving;
  // A run of elements as gemv takes it: with a negative increment it begins at the far end.
  const auto run = [=](zor_int first, zor_int count) {
    return x + (incx < 0 ? first + count - 1 : first) * incx;
  };
  for (zor_int done = 0; done < n; done += block) {
    const zor_int size = n - done < block ? n - done : block, i = upwards ? done : n - done - size;
    const auto add_rectangle = [&] {
      const zor_int j = lower ? 0 : i + size, count = lower ? i : n - j;
      if (count == 0) return;
      const T factor = solving ? negated(one_of<T>()) : one_of<T>(), one = one_of<T>();
      const bool plain = o.plain();
      gemv(&o.trans, plain ? &size : &count, plain ? &count : &size, &factor,
           plain ? a + i + j * lda : a + j + i * lda, &lda, run(j, count), &incx, &one, run(i, size), &incx);
    };
    if (solving) add_rectangle();
    walk_triangle<Task, T>(o, full_triangle(o.upper(), size, a + i + i * lda, lda), x + i * incx, incx);
    if (!solving) add_rectangle();
  }
}

}  // namespace zor
