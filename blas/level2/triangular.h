// SPDX-License-Identifier: MIT
// Triangular solves and products with one vector, x := op(A)^-1 x and x := op(A) x, over a triangle that is
// full, banded or packed. Row i of op(A) gives one running sum that starts from x[i]:
//   solve: x[i] - a x[j] - ..., j from the far end towards the diagonal, as x[j] become known; then the
//          quotient by the diagonal;
//   product: the diagonal times x[i], then + a x[j] + ..., j away from the diagonal.
// There are four ways to it, with the same bits. By single rows: any stride, and solves with narrow bands. By
// groups of rows whose sums are lanes: products with narrow bands. By columns of A, if op(A) is A: a group of
// columns is added to all rows at once. By columns as rows of op(A), if A is transposed: the sums of a group
// of them are lanes, and squares are transposed in registers.
#pragma once

#include "blas/level2/band_rows.h"
#include "blas/level2/squares.h"
#include "blas/level2/triangle.h"
#include "blas/quotient.h"
#include "blas/thresholds.h"

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

// sum - s a, or with Conj sum - s conj(a), where the sum waits for s: the sign goes to a.
template <bool Conj, class T>
[[gnu::always_inline]] inline value<T> minus_term(value<T> sum, T s, const T* a) {
  return plus_term<Conj>(sum, s, -load_value(a));
}

template <operation Op, task Task, class T>
class triangular_walk {
 public:
  triangular_walk(const stored_triangle<const T>& a, bool unit, T* x, zor_int incx)
      : a_(a), x_(x), incx_(incx), unit_(unit), lower_(a.upper == (Op != operation::plain)) {}

  void run() {
    const bool narrow = a_.reach < narrow_reach && a_.reach < a_.n - 1;
    const bool narrow_band = incx_ == 1 && narrow && a_.bend == 0;
    if (narrow_band && solving)
      upwards() ? solve_band<true>() : solve_band<false>();
    else if (narrow_band && a_.reach >= band_lanes)
      by_band_lanes();
    else if (incx_ != 1 || narrow)
      by_rows();
    else if constexpr (Op == operation::plain)
      by_columns();
    else
      by_lanes<most_lanes>(0, a_.n);
  }

 private:
  using E = value<T>;
  // Rows of op(A) whose sums are lanes; more of them keep more sums under way, where there are registers.
  static constexpr int most_lanes = sizeof(T) == 16 ? 4 : is_complex<T> || width < 64 ? 8 : 16;
  static constexpr bool conj = Op == operation::conjugate, solving = Task == task::solve;
  static constexpr int column_count = is_complex<T> ? 4 : 8;  // columns of a group
  static constexpr zor_int block_rows = thresholds::solve_block;
  // Diagonals beside the main one below which a band is narrow.
  static constexpr zor_int narrow_reach = 24;
  // Rows of a narrow band whose sums are lanes.
  static constexpr int band_lanes = Op == operation::plain ? tile_rows<T> : units<T, square_width>;

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
  static T quotient(T x, T d) {
    if constexpr (is_complex<T>) {
      const auto q = divided(complex_lanes<real_t<T>>{x.re, x.im}, d);
      return {q.re, q.im};
    } else {
      return divided(x, d);
    }
  }
  E times_diagonal(zor_int i) const {
    return unit_ ? load_value(at(i)) : times_element<conj>(load_element(at(i)), load_value(a_.column(i) + i));
  }

  // Elements of row i beside the diagonal, as many as `known` allows.
  zor_int terms_of_row(zor_int known) const { return known < a_.reach ? known : a_.reach; }
  void multiply_row(zor_int i) const {
    const zor_int count = terms_of_row(lower_ ? i : a_.n - 1 - i);
    store_value(at(i), add_terms(times_diagonal(i), i, lower_ ? i - 1 : i + 1, count));
  }
  void solve_row(zor_int i) const {
    const zor_int count = terms_of_row(lower_ ? i : a_.n - 1 - i);
    store_value(at(i), add_terms(load_value(at(i)), i, lower_ ? i - count : i + count, count));
    if (!unit_) store_element(at(i), quotient(load_element(at(i)), diagonal(i)));
  }
  void by_rows() const {
    for (zor_int k = 0; k < a_.n; ++k) {
      const zor_int i = upwards() ? k : a_.n - 1 - k;
      solving ? solve_row(i) : multiply_row(i);
    }
  }

  // ---- Solves with a narrow band. The element solved last goes to the next row in a register: each row
  // waits for it, and the way through memory takes a third of a row's time.

  template <bool Up>
  void solve_band() const {
    constexpr zor_int way = Up ? 1 : -1;
    const zor_int step = Op == operation::plain ? way * a_.step : way;
    T before{};
    for (zor_int known = 0; known < a_.n; ++known) {
      const zor_int i = Up ? known : a_.n - 1 - known, count = terms_of_row(known);
      const T *const diagonal_at = a_.data + i * (a_.step + 1), *a = diagonal_at - count * step;
      const T* xj = x_ + i - count * way;
      E sum = load_value(x_ + i);
#pragma GCC unroll 4
      for (zor_int left = count - 1; left > 0; --left, a += step, xj += way)
        sum = plus_term<conj>(sum, negated(load_element(xj)), a);
      if (count > 0) sum = minus_term<conj>(sum, before, a);
      T xi = element_of<T>(sum);
      if (!unit_) xi = quotient(xi, conj_by_sign_if(conj, load_element(diagonal_at)));
      store_element(x_ + i, xi);
      before = xi;
    }
  }

  // ---- Products of a narrow band. Rows of op(A) that the band holds whole are lanes.

  void by_band_lanes() const {
    constexpr int U = band_lanes;
    const zor_int n = a_.n, k = a_.reach, lda = a_.step + 1;
    const band_ahead<T> ahead(n, k + 1, lda);
    const T* const array = a_.data - (a_.upper ? k : 0);
    for (zor_int done = 0; done < n;) {
      const zor_int i = upwards() ? done : n - done - U;
      ahead.touch_columns(array + i * lda, U, upwards());
      const bool whole = done + U <= n && (lower_ ? i >= k : i + U + k <= n);
      if (!whole)
        multiply_row(upwards() ? done : n - 1 - done);
      else if constexpr (Op == operation::plain)
        lower_ ? band_tile<true>(i) : band_tile<false>(i);
      else
        band_group(i);
      done += whole ? U : 1;
    }
  }
  // Rows of A: the triangle on the diagonal, the columns that hold all rows, those that hold fewer and fewer.
  template <bool Lower>
  void band_tile(zor_int i) const {
    constexpr int U = band_lanes, way = Lower ? -1 : 1;
    const zor_int k = a_.reach, beside = Lower ? i - 1 : i + U, step = way * a_.step;
    const T* a = a_.column(beside) + i;
    E v[U];
#pragma GCC unroll 8
    for (int r = 0; r < U; ++r) v[r] = load_value(x_ + i + r);
    near_triangle<U, !Lower>(i, v);
    const zor_int whole = k - (U - 1);
    const auto joined = join_values<tile_vector<T>>(v);
    split_values<T>(add_tile_columns<way>(joined, a, step, whole, x_ + beside), v);
    a += whole * step;
    const T* xj = x_ + beside + way * whole;
#pragma GCC unroll 8
    for (int q = 1; q < U; ++q, a += step, xj += way) {
#pragma GCC unroll 8
      for (int r = Lower ? 0 : q; r < (Lower ? U - q : U); ++r)
        v[r] = plus_term(v[r], load_element(xj), a + r);
    }
#pragma GCC unroll 8
    for (int r = 0; r < U; ++r) store_value(x_ + i + r, v[r]);
  }
  // Columns of A.
  void band_group(zor_int i) const {
    using V = vec<real_t<T>, square_width>;
    constexpr int U = units<T, square_width>;
    const T* const diagonal_at = a_.column(i) + i;
    const zor_int lda = a_.step + 1, k = a_.reach;
    E v[U];
#pragma GCC unroll 8
    for (int l = 0; l < U; ++l) v[l] = times_diagonal(i + l);
    V sum = join_values<V>(v);
    if (lower_)
      sum = add_band_rows<conj, false>(sum, diagonal_at - k, lda, k, x_ + i - k);
    else
      sum = add_band_rows<conj, true>(sum, diagonal_at + 1, lda, k, x_ + i + 1);
    store_units(x_ + i, sum);
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
  // The triangle of rows and columns i to i + Count - 1 of op(A), in registers: v holds x or the sums so far.
  // Columns of op(A) are taken in the order of the walk, so a product takes those of a row away from the
  // diagonal.
  template <int Count, bool Up>
  [[gnu::always_inline]] void near_triangle(zor_int i, E (&v)[Count]) const {
    E given[Count];
#pragma GCC unroll 16
    for (int k = 0; k < Count; ++k) given[k] = v[k];
#pragma GCC unroll 16
    for (int k = 0; k < Count; ++k) {
      const int j = Up ? k : Count - 1 - k;
      const T* const diagonal_at = a_.column(i + j) + i + j;
      T xj = element_of<T>(solving ? v[j] : given[j]);
      if (solving) {
        if (!unit_) xj = quotient(xj, conj_by_sign_if(conj, load_element(diagonal_at)));
        v[j] = load_value(&xj);
      } else {
        if (!unit_) v[j] = times_element<conj>(xj, load_value(diagonal_at));
      }
#pragma GCC unroll 16
      for (int r = 0; r < Count; ++r) {
        // Rows of a solve that are still to come, rows of a product that have begun.
        if (Up == solving ? r <= j : r >= j) continue;
        const T* const a = Op == operation::plain ? a_.column(i + j) + i + r : a_.column(i + r) + i + j;
        if (solving && r == j + (Up ? 1 : -1))
          v[r] = minus_term<conj>(v[r], xj, a);
        else
          v[r] = plus_term<conj>(v[r], solving ? negated(xj) : xj, a);
      }
    }
  }
  template <int Count>
  void near_triangle(zor_int i, T* sums) const {
    E v[Count];
#pragma GCC unroll 16
    for (int k = 0; k < Count; ++k) v[k] = load_value(sums + k);
    if (upwards())
      near_triangle<Count, true>(i, v);
    else
      near_triangle<Count, false>(i, v);
#pragma GCC unroll 16
    for (int k = 0; k < Count; ++k) store_value(sums + k, v[k]);
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
    near_triangle<Count>(j, at(j));
    if (solving) rest_of_columns<Count>(j);
  }
  // A solve of `block_rows` rows: all of them stay in registers, so that between two groups of columns no row
  // waits for a store. The rows of the group at hand are single elements, those of the others vectors.
  template <bool Up>
  void solve_block() const {
    constexpr int group = 8, groups = int(block_rows) / group;
    constexpr int bytes = group * int(sizeof(T)) < width ? group * int(sizeof(T)) : width;
    constexpr int U = units<T, bytes>, parts = group / U;
    using V = vec<real_t<T>, bytes>;
    V rows[groups][parts];
#pragma GCC unroll 16
    for (int g = 0; g < groups; ++g) {
#pragma GCC unroll 8
      for (int p = 0; p < parts; ++p) rows[g][p] = load_units<V>(x_ + g * group + p * U);
    }
#pragma GCC unroll 16
    for (int done = 0; done < groups; ++done) {
      const int g = Up ? done : groups - 1 - done;
      E near[parts][U], v[group];
#pragma GCC unroll 8
      for (int p = 0; p < parts; ++p) {
        split_values<T>(rows[g][p], near[p]);
#pragma GCC unroll 8
        for (int r = 0; r < U; ++r) v[p * U + r] = near[p][r];
      }
      near_triangle<group, Up>(g * group, v);
#pragma GCC unroll 8
      for (int k = 0; k < group; ++k) {
        const int j = Up ? k : group - 1 - k;
        store_value(x_ + g * group + j, v[j]);
        const factor<T, V> s = make_factor<V>(negated(element_of<T>(v[j])));
        const T* const column = a_.column(g * group + j);
#pragma GCC unroll 16
        for (int next = done + 1; next < groups; ++next) {
          const int h = Up ? next : groups - 1 - next;
#pragma GCC unroll 8
          for (int p = 0; p < parts; ++p)
            rows[h][p] = mul_add(s, load_units<V>(column + h * group + p * U), rows[h][p]);
        }
      }
    }
  }
  void by_columns() const {
    if constexpr (solving) {
      if (a_.n == block_rows && a_.reach >= a_.n - 1 && a_.bend == 0)
        return upwards() ? solve_block<true>() : solve_block<false>();
    }
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

  // The sums of rows i to i + Lanes - 1 of op(A), columns of A, go on with `squares` squares beside the
  // triangle on the diagonal.
  template <int Lanes>
  void add_squares(zor_int i, zor_int squares, T* sums) const {
    using V = vec<real_t<T>, square_bytes<T, Lanes>>;
    constexpr int U = units<T, sizeof(V)>, groups = Lanes / U;
    const T* column[Lanes];
#pragma GCC unroll 16
    for (int l = 0; l < Lanes; ++l) column[l] = a_.column(i + l);
    V sum[groups];
    for (int g = 0; g < groups; ++g) sum[g] = load_units<V>(sums + g * U);
    const auto add_square = [&]<bool Up>(std::bool_constant<Up>, zor_int row) __attribute__((always_inline)) {
#pragma GCC unroll 8
      for (int g = 0; g < groups; ++g) {
        V square[U];
        load_square<T>(
            square, [&](int l) __attribute__((always_inline)) { return column[g * U + l] + row; });
        const V xv = load_units<V>(x_ + row);
        make_terms<conj, T>(square, solving ? -xv : xv);
#pragma GCC unroll 8
        for (int k = 0; k < U; ++k) {
          const int p = Up ? k : U - 1 - k;
          const T xj = load_element(x_ + row + p);
          sum[g] = plus_terms<conj>(sum[g], square[p], solving ? negated(xj) : xj);
        }
      }
    };
    const zor_int low = lower_ ? i - squares * U : i + Lanes, high = low + squares * U;
    if (upwards())
      for (zor_int row = low; row < high; row += U) add_square(std::true_type{}, row);
    else
      for (zor_int row = high - U; row >= low; row -= U) add_square(std::false_type{}, row);
    for (int g = 0; g < groups; ++g) store_units(sums + g * U, sum[g]);
  }

  template <int Lanes>
  void lane_group(zor_int i) const {
    constexpr int U = units<T, square_bytes<T, Lanes>>;
    // Terms beyond the triangle on the diagonal: those of the row that has fewest come in squares.
    const zor_int fewest_beside = lower_ ? i - a_.first_row(i + Lanes - 1) : a_.end_row(i) - (i + Lanes);
    const zor_int squares = fewest_beside / U;
    const zor_int edge = lower_ ? i - squares * U : i + Lanes + squares * U;
    T sums[Lanes];
    const auto add_far_terms = [&] {
      for (int l = 0; l < Lanes; ++l) {
        const zor_int end = lower_ ? a_.first_row(i + l) : a_.end_row(i + l);
        const zor_int count = lower_ ? edge - end : end - edge;
        if (count == 0) continue;
        const zor_int low = lower_ ? end : edge, high = lower_ ? edge : end;
        store_value(sums + l, add_terms(load_value(sums + l), i + l, upwards() ? low : high - 1, count));
      }
    };
    for (int l = 0; l < Lanes; ++l) sums[l] = load_element(x_ + i + l);
    if constexpr (solving) {
      add_far_terms();
      if (squares > 0) add_squares<Lanes>(i, squares, sums);
      near_triangle<Lanes>(i, sums);
    } else {
      near_triangle<Lanes>(i, sums);
      if (squares > 0) add_squares<Lanes>(i, squares, sums);
      add_far_terms();
    }
    for (int l = 0; l < Lanes; ++l) store_element(x_ + i + l, sums[l]);
  }

  // Rows first to end - 1 in groups of Lanes, the rest in smaller ones. The rest lies where the rows of a
  // full triangle are longest, so that all of them consist of whole squares.
  template <int Lanes>
  void by_lanes(zor_int first, zor_int end) const {
    const zor_int rest = (end - first) % Lanes, whole = end - first - rest;
    const zor_int begin = lower_ ? first : first + rest;
    const auto narrower = [&] {
      if constexpr (Lanes > 1) {
        constexpr int next = fewer_columns<T, Lanes>;
        if (rest > 0) lower_ ? by_lanes<next>(begin + whole, end) : by_lanes<next>(first, begin);
      }
    };
    if (!solving) narrower();
    for (zor_int k = 0; k < whole; k += Lanes)
      lane_group<Lanes>(upwards() ? begin + k : begin + whole - Lanes - k);
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
//
// Where gemv adds columns one after the other, the sums of a row may be taken up where they were left, and
// the rectangles of many blocks are added together: long pieces of columns, not one strip of `block` rows
// after the other through all of A.
template <task Task, class T, class Gemv>
class block_walk {
 public:
  block_walk(const triangular_options& o, zor_int n, zor_int block, const T* a, zor_int lda, T* x,
             zor_int incx, Gemv& gemv)
      : o_(o), a_(a), x_(x), n_(n), block_(block), lda_(lda), incx_(incx), gemv_(gemv) {}

  void run() const {
    if (!o_.plain() || (solving && !o_.lower()))
      by_single_blocks();
    else if (solving)
      solve_lower();
    else if (o_.lower())
      multiply_lower();
    else
      multiply_upper();
  }

 private:
  static constexpr bool solving = Task == task::solve;
  static constexpr zor_int together = 512;  // Tuned: rows of whole blocks whose rectangles are added at once

  // Elements as gemv takes them: with a negative increment a vector begins at its far end.
  T* part(zor_int first, zor_int count) const { return x_ + (incx_ < 0 ? first + count - 1 : first) * incx_; }
  // x[row ..] grows by the product of `rows` rows of op(A) with v, the elements of the columns from `column`.
  void add_product(zor_int row, zor_int rows, zor_int column, zor_int columns, const T* v,
                   zor_int incv) const {
    if (rows <= 0 || columns <= 0) return;
    const T factor = solving ? negated(one_of<T>()) : one_of<T>(), one = one_of<T>();
    const bool plain = o_.plain();
    const T* const a = plain ? a_ + row + column * lda_ : a_ + column + row * lda_;
    gemv_(&o_.trans, plain ? &rows : &columns, plain ? &columns : &rows, &factor, a, &lda_, v, &incv, &one,
          part(row, rows), &incx_);
  }
  void add_product(zor_int row, zor_int rows, zor_int column, zor_int columns) const {
    add_product(row, rows, column, columns, part(column, columns), incx_);
  }
  void direct(zor_int i, zor_int size) const {
    walk_triangle<Task, T>(o_, full_triangle(o_.upper(), size, a_ + i + i * lda_, lda_), x_ + i * incx_,
                           incx_);
  }
  zor_int at_most(zor_int size, zor_int left) const { return size < left ? size : left; }

  void by_single_blocks() const {
    const bool lower = o_.lower(), upwards = lower == solving;
    for (zor_int done = 0; done < n_; done += block_) {
      const zor_int size = at_most(block_, n_ - done), i = upwards ? done : n_ - done - size;
      const zor_int j = lower ? 0 : i + size, count = lower ? i : n_ - j;
      if (solving) add_product(i, size, j, count);
      direct(i, size);
      if (!solving) add_product(i, size, j, count);
    }
  }
  void solve_lower() const {
    for (zor_int first = 0; first < n_; first += together) {
      const zor_int rows = at_most(together, n_ - first);
      add_product(first, rows, 0, first);
      for (zor_int i = first; i < first + rows; i += block_) {
        const zor_int size = at_most(block_, first + rows - i);
        direct(i, size);
        add_product(i + size, first + rows - i - size, i, size);
      }
    }
  }
  void multiply_upper() const {
    for (zor_int i = 0; i < n_; i += block_) {
      const zor_int size = at_most(block_, n_ - i);
      add_product(0, i, i, size);
      direct(i, size);
    }
  }
  // A row adds columns of its own group of blocks after all before the group, from a copy of x.
  void multiply_lower() const {
    T copy[together];
    for (zor_int end = n_; end > 0; end -= together) {
      const zor_int first = end > together ? end - together : 0;
      gather(end - first, x_ + first * incx_, incx_, copy);
      // Blocks are cut from the end.
      const zor_int short_block = (end - first) % block_ == 0 ? block_ : (end - first) % block_;
      for (zor_int i = first, size = short_block; i < end; i += size, size = block_) direct(i, size);
      add_product(first, end - first, 0, first);
      for (zor_int i = first, size = short_block; i < end; i += size, size = block_)
        add_product(i + size, end - i - size, i, size, copy + (i - first), 1);
    }
  }

  const triangular_options o_;
  const T* const a_;
  T* const x_;
  const zor_int n_, block_, lda_, incx_;
  Gemv& gemv_;
};

}  // namespace zor
