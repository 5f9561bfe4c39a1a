// SPDX-License-Identifier: MIT
// Triangular and diagonal solves with a CSR matrix, in place on the right-hand side. What the solves of one
// and of many right-hand sides share. Rows are sorted by ascending column: a walk stops at the first entry
// that passes the diagonal.
#pragma once

#include "spblas/csr/matrix.h"
#include "spblas/element.h"

namespace zor::sparse {

// n / d. A complex quotient is worked in the wider format and rounded once.
template <class T>
inline T quotient(T n, T d) {
  return quotient_by_reciprocal<std::conditional_t<std::is_same_v<T, c32>, double, long double>>(n, d);
}
template <class T>
inline T reciprocal(T d) {
  if constexpr (is_complex<T>)
    return quotient(one_of<T>(), d);
  else
    return 1 / d;
}
template <class T, int N>
[[gnu::always_inline]] inline pack<T, N> divided(pack<T, N> v, T d) {
  if constexpr (is_complex<T> && N == 1) {
    T e;
    std::memcpy(&e, &v, sizeof e);
    e = quotient(e, d);
    return broadcast_pair<pack<T, N>>(e.re, e.im);
  } else if constexpr (is_complex<T>) {
    constexpr int copies = int(sizeof v / sizeof(T));
    T e[copies];
    std::memcpy(e, &v, sizeof e);
    for (int i = 0; i < N; ++i) e[i] = quotient(e[i], d);
    for (int i = N; i < copies; ++i) e[i] = e[0];
    std::memcpy(&v, e, sizeof e);
    return v;
  } else {
    return v / spread<T, N>(&d);
  }
}

// The value at a position, conjugated on demand; taken as the pivot, whatever its column.
template <class T, class I>
[[gnu::always_inline]] inline T value_at(csr<T, I> a, zor_int k, bool conj) {
  return conj_by_sign_if(conj, a.val[k]);
}

// The first position of a row whose column is not below the row, or one behind the row.
template <class T, class I>
[[gnu::always_inline]] inline zor_int walk_forward(csr<T, I> a, zor_int row) {
  zor_int k = a.begin(row);
  for (const zor_int end = a.end(row); k < end && a.column(k) < row;) ++k;
  return k;
}
// The last position of a row whose column is not above the row, or one before the row.
template <class T, class I>
[[gnu::always_inline]] inline zor_int walk_backward(csr<T, I> a, zor_int row) {
  zor_int k = a.end(row) - 1;
  for (const zor_int begin = a.begin(row); k >= begin && a.column(k) > row;) --k;
  return k;
}

// Where an upper row goes on behind its pivot, found at `stop`: a unit diagonal is stepped over only when it
// is stored.
template <class T, class I>
[[gnu::always_inline]] inline zor_int behind_pivot(csr<T, I> a, bool unit, zor_int row, zor_int stop) {
  return !unit || (stop < a.end(row) && a.column(stop) == row) ? stop + 1 : stop;
}

// Rows in a block of the row loop. A block changes no result; m rows go in m / b blocks, the last of which
// holds the remainder. 0 stands for one block of all rows.
constexpr zor_int rows_of_block(view v, zor_int base, bool many) {
  if (v.structure == 'd' || (v.transposed() && v.triangle == 'l')) return 0;
  if (v.transposed()) return base == 1 && !many ? 10000 : 2000;
  return v.triangle == 'l' ? 10000 : 2000;
}

// Calls body(first, last) for the blocks of rows upwards, or downwards with Down.
template <bool Down, class Body>
[[gnu::always_inline]] inline void row_blocks(zor_int m, zor_int block, const Body& body) {
  if (block == 0 || block > m) block = m;
  const zor_int blocks = m / block;
  for (zor_int n = 0; n < blocks; ++n) {
    const zor_int i = Down ? blocks - 1 - n : n;
    body(i * block, i + 1 < blocks ? (i + 1) * block : m);
  }
}
template <class Body>
[[gnu::always_inline]] inline void rows_up(zor_int m, zor_int block, const Body& body) {
  row_blocks<false>(
      m, block, [&](zor_int row, zor_int end) __attribute__((always_inline)) {
        for (; row < end; ++row) body(row);
      });
}
template <class Body>
[[gnu::always_inline]] inline void rows_down(zor_int m, zor_int block, const Body& body) {
  row_blocks<true>(
      m, block, [&](zor_int first, zor_int row) __attribute__((always_inline)) {
        while (row-- > first) body(row);
      });
}

// A solved element in the form in which other rows multiply by it: most rows need the one before at once, and
// it never goes through memory as a vector that two narrower stores would hold up.
template <class T>
struct solved_element {
  one<T> value{};

  solved_element() = default;
  [[gnu::always_inline]] explicit solved_element(const T* x) : value(load<T, 1>(x)) {}
  [[gnu::always_inline]] one<T> times(one<T> entry) const { return mul<T>(entry, value); }
};
template <>
struct solved_element<c64> {
  one<c64> re{}, im{};

  solved_element() = default;
  [[gnu::always_inline]] explicit solved_element(const c64* x)
      : re(broadcast<one<c64>>(x->re)), im(broadcast<one<c64>>(x->im)) {}
  [[gnu::always_inline]] one<c64> times(one<c64> entry) const { return complex_mul(re, im, entry); }
};

// rest / pivot, or rest itself for a unit diagonal; stored to x and kept.
template <class T>
[[gnu::always_inline]] inline void solve_row(one<T> rest, bool unit, const T* pivot, bool conj, T* x,
                                             solved_element<T>& last) {
  T v;
  std::memcpy(&v, &rest, sizeof v);
  if (!unit) v = quotient(v, conj_by_sign_if(conj, *pivot));
  *x = v;
  last = solved_element<T>(&v);
}

// One right-hand side j of a lower solve: s = sum of a x(col) in one chain over the entries below the
// diagonal, x(r) = (x(r) - s) / pivot, or x(r) - s for a unit diagonal.
template <class T, bool RowMajor, class I>
void forward_solve(csr<T, I> a, bool conj, bool unit, zor_int m, zor_int block, dense<T, RowMajor> b,
                   zor_int j) {
  solved_element<T> solved;
  rows_up(
      m, block, [&](zor_int row) __attribute__((always_inline)) {
        one<T> s{};
        const zor_int stop = walk_forward(a, row);
        for (zor_int k = a.begin(row); k < stop; ++k) {
          const one<T> entry = conj_if<T>(conj, load<T, 1>(a.val + k));
          s = s + solved_element<T>(b.at(a.column(k), j)).times(entry);
        }
        T* const x = b.at(row, j);
        solve_row(load<T, 1>(x) - s, unit, a.val + stop, conj, x, solved);
      });
}

// Transposed solves: the rows are walked as they are stored, each solved element is pushed into those that
// depend on it, x(col) = x(col) + a t with t = 0 - x(r). Lower triangles go down the rows and leftwards from
// the pivot, upper ones up the rows and rightwards. A unit diagonal takes the stopping position as an
// ordinary entry unless it is the diagonal. over(body) calls body.operator()<N>(j) for packs that cover the
// right-hand sides. With One there is one of them: what the next row begins with is then kept, since memory
// would give it back late.
template <class T, bool One, bool RowMajor, class I, class Over>
[[gnu::always_inline]] inline void push_rows(csr<T, I> a, view v, zor_int m, zor_int block,
                                             dense<T, RowMajor> x, const Over& over) {
  const bool conj = v.conjugated(), lower = v.triangle == 'l';
  const zor_int step = lower ? -1 : 1;
  one<T> kept{};
  zor_int kept_row = -1;
  const auto push = [&](zor_int row) __attribute__((always_inline)) {
    const zor_int stop = lower ? walk_backward(a, row) : walk_forward(a, row);
    const zor_int beyond = lower ? a.begin(row) - 1 : a.end(row);
    const bool skip = !v.unit() || (stop != beyond && a.column(stop) == row);
    const zor_int start = skip ? stop + step : stop;
    const zor_int count = (beyond - start) * step;
    over([&]<int N>(zor_int j) __attribute__((always_inline)) {
      pack<T, N> xr;
      if constexpr (One)
        xr = kept_row == row ? kept : x.template get<N>(row, j);
      else
        xr = x.template get<N>(row, j);
      if (!v.unit()) {
        xr = divided<T, N>(xr, value_at(a, stop, conj));
        x.template put<N>(row, j, xr);
      }
      if (count < 1) return;  // 0 - x(r) would raise flags that nothing asks for
      const pack<T, N> t = pack<T, N>{} - xr;
      for (zor_int i = 0, k = start; i < count; ++i, k += step) {
        const auto entry = spread<T, N>(conj_if<T>(conj, load<T, 1>(a.val + k)));
        const zor_int col = a.column(k);
        const pack<T, N> sum = x.template get<N>(col, j) + mul<T>(entry, t);
        x.template put<N>(col, j, sum);
        if constexpr (One)
          if (col == row + step) kept = sum, kept_row = col;
      }
    });
  };
  if (lower)
    rows_down(m, block, push);
  else
    rows_up(m, block, push);
}
template <class T, bool RowMajor, class I>
void push_solve(csr<T, I> a, view v, zor_int m, zor_int block, zor_int first, zor_int last,
                dense<T, RowMajor> x) {
  push_rows<T, false>(
      a, v, m, block,
      x, [=](const auto& body) __attribute__((always_inline)) { for_packs<T>(first, last, body); });
}

// Diagonal view: x(r) = x(r) (alpha / pivot), the pivot found by the forward walk. The one solve that reads
// alpha.
template <class T, bool RowMajor, class I>
void diagonal_solve(csr<T, I> a, bool conj, zor_int m, zor_int first, zor_int last, T alpha,
                    dense<T, RowMajor> x) {
  for (zor_int row = 0; row < m; ++row) {
    const T q = quotient(alpha, value_at(a, walk_forward(a, row), conj));
    for_packs<T>(
        first, last, [&]<int N>(zor_int j) __attribute__((always_inline)) {
          x.template put<N>(row, j, mul<T>(x.template get<N>(row, j), spread<T, N>(&q)));
        });
  }
}

}  // namespace zor::sparse
