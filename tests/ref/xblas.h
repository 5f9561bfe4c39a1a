// SPDX-License-Identifier: MIT
// Extended-precision products by plain loops: every output gathers its terms in the order of its row and adds
// them up one by one, in the arithmetic that the precision stands for.
#pragma once

#include <utility>
#include <vector>

#include "tests/ref/matvec.h"

namespace zor_ref {

// ---- Pairs of doubles, step by step.

struct pair {
  double head, tail;
};

inline void split(double a, double& high, double& low) {
  const double t = 134217729.0 * a;
  high = t - (t - a);
  low = a - high;
}

inline pair two_prod(double a, double b) {
  double ah, al, bh, bl;
  split(a, ah, al);
  split(b, bh, bl);
  const double p = a * b;
  double e = ah * bh - p;
  e = e + ah * bl;
  e = e + bh * al;
  e = e + al * bl;
  return {p, e};
}

inline pair dd_add(pair a, pair b) {
  const double s = a.head + b.head, v = s - a.head;
  double e = (a.head - (s - v)) + (b.head - v);
  const double t = a.tail + b.tail, w = t - a.tail;
  double f = (a.tail - (t - w)) + (b.tail - w);
  e = e + t;
  const double u = s + e;
  e = e - (u - s);
  f = f + e;
  const double head = u + f;
  return {head, f - (head - u)};
}

inline pair dd_scale(pair a, double b) {
  const pair p = two_prod(a.head, b);
  double m = a.tail * b;
  const double r = p.head + m;
  m = (m - (r - p.head)) + p.tail;
  const double head = r + m;
  return {head, m - (head - r)};
}

inline pair negated(pair a) { return {-a.head, -a.tail}; }

// ---- Real and imaginary parts of any number.

template <class T>
double re_of(T e) {
  return double(real_part(e));
}
template <class T>
double im_of(T e) {
  return double(imaginary_part(e));
}
template <class T>
void set(T& e, double re, double im) {
  e = element_of<T>(real_t<T>(re), real_t<T>(im));
}

template <class T>
inline constexpr bool is_single = std::is_same_v<T, float> || std::is_same_v<T, zor_c32>;
// The elements of double precision that hold those of T.
template <class T>
using widened = std::conditional_t<is_complex<T>, zor_c64, double>;
template <class T>
widened<T> widen(T e) {
  widened<T> w;
  set(w, re_of(e), im_of(e));
  return w;
}

template <class T>
using terms = std::vector<std::pair<T, T>>;

// One output in the working precision of W, which is T or wider. With `plainly` no special values are looked
// for.
template <class W, class T>
void plain_output(const terms<T>& row, T alpha, T beta, T& y, bool plainly) {
  const auto wide = [](T e) {
    W w;
    set(w, re_of(e), im_of(e));
    return w;
  };
  W sum{};
  if (plainly || !is(alpha, 0))
    for (const auto& [a, x] : row) sum = plus(sum, times(wide(a), wide(x)));
  W value;
  if (plainly || (!is(alpha, 0) && !is(beta, 0)))
    value = plus(times(wide(alpha), sum), times(wide(beta), wide(y)));
  else if (is(alpha, 0))
    value = is(beta, 0) ? W{} : times(wide(beta), wide(y));
  else
    value = is(alpha, 1) ? sum : times(wide(alpha), sum);
  set(y, re_of(value), im_of(value));
}

// Both parts of a product from its four real ones; `of(i, j)` is that of part i of one factor and part j of
// the other.
template <bool Complex, class Of>
void product_parts(const Of& of, pair (&result)[2]) {
  if (Complex) {
    result[0] = dd_add(of(0, 0), negated(of(1, 1)));
    result[1] = dd_add(of(0, 1), of(1, 0));
  } else {
    result[0] = of(0, 0);
  }
}

template <class T>
void extended_output(const terms<T>& row, T alpha, T beta, T& y, bool plainly) {
  constexpr bool complex = is_complex<T>;
  const auto part = [](T e, int p) { return p == 0 ? re_of(e) : im_of(e); };
  pair sum[2] = {}, term[2] = {};
  const bool no_sum = !plainly && is(alpha, 0), no_y = !plainly && is(beta, 0);
  if (!no_sum)
    for (const auto& [a, x] : row) {
      const T element = a, factor = x;
      product_parts<complex>(
          [&](int i, int j) {
            const double e = part(element, i), f = part(factor, j);
            return is_single<T> ? pair{e * f, 0} : two_prod(e, f);
          },
          term);
      for (int p = 0; p < 2; ++p) sum[p] = dd_add(sum[p], term[p]);
    }
  if (!no_sum && !(no_y && is(alpha, 1))) {
    product_parts<complex>([&](int i, int j) { return dd_scale(sum[j], part(alpha, i)); }, term);
    for (int p = 0; p < 2; ++p) sum[p] = term[p];
  }
  if (!no_y) {
    product_parts<complex>([&](int i, int j) { return two_prod(part(y, j), part(beta, i)); }, term);
    for (int p = 0; p < 2; ++p) sum[p] = dd_add(sum[p], term[p]);
  }
  if (no_sum && no_y) sum[0] = sum[1] = {};
  set(y, sum[0].head + sum[0].tail, sum[1].head + sum[1].tail);
}

template <class T>
void output(int precision, const terms<T>& row, T alpha, T beta, T& y, bool plainly) {
  if (precision == 214)
    extended_output(row, alpha, beta, y, plainly);
  else if (precision == 211 || !is_single<T>)
    plain_output<T>(row, alpha, beta, y, plainly);
  else
    plain_output<widened<T>>(row, alpha, beta, y, plainly);
}

// x, or x as head and tail: the terms of an element.
template <class T>
struct factors {
  const T *head, *tail;  // tail is null for one vector
  zor_int count, inc;

  void add_terms(terms<T>& row, T element, zor_int i) const {
    for (const T* x : {head, tail})
      if (x != nullptr) row.push_back({element, at(x, count, inc, i)});
  }
};

// element(i, j) is that of row i of op(A), within(i, j) tells whether there is one.
template <class T, class Within, class Element>
void multiply_by_rows(int precision, zor_int outputs, zor_int inputs, T alpha, const Within& within,
                      const Element& element, const factors<T>& x, T beta, T* y, zor_int incy, bool plainly) {
  if (precision < 211 || precision > 214) return;
  for (zor_int i = 0; i < outputs; ++i) {
    terms<T> row;
    for (zor_int j = 0; j < inputs; ++j)
      if (within(i, j)) x.add_terms(row, element(i, j), j);
    output(precision, row, alpha, beta, at(y, outputs, incy, i), plainly);
  }
}

template <class T>
void gemv_x(int trans, zor_int m, zor_int n, T alpha, const T* a, zor_int lda, factors<T> x, T beta, T* y,
            zor_int incy, int precision) {
  const bool plain = trans == 111;
  x.count = plain ? n : m;
  multiply_by_rows(
      precision, plain ? m : n, x.count, alpha, [](zor_int, zor_int) { return true; },
      [&](zor_int i, zor_int j) {
        const T e = plain ? a[i + j * lda] : a[j + i * lda];
        return trans == 113 ? conj(e) : e;
      },
      x, beta, y, incy, false);
}

template <class T>
void gbmv_x(int trans, zor_int m, zor_int n, zor_int kl, zor_int ku, T alpha, const T* a, zor_int lda,
            factors<T> x, T beta, T* y, zor_int incy, int precision) {
  if (m == 0 || n == 0 || (is(alpha, 0) && is(beta, 1))) return;
  const bool plain = trans == 111;
  x.count = plain ? n : m;
  const auto banded = [&](zor_int r, zor_int c) { return c - r <= ku && r - c <= kl; };
  multiply_by_rows(
      precision, plain ? m : n, x.count, alpha,
      [&](zor_int i, zor_int j) { return plain ? banded(i, j) : banded(j, i); },
      [&](zor_int i, zor_int j) {
        const T e = plain ? a[ku + i - j + j * lda] : a[ku + j - i + i * lda];
        return trans == 113 ? conj(e) : e;
      },
      x, beta, y, incy, true);
}

template <class T>
void symv_x(bool hermitian, int uplo, zor_int n, T alpha, const T* a, zor_int lda, factors<T> x, T beta, T* y,
            zor_int incy, int precision) {
  x.count = n;
  multiply_by_rows(
      precision, n, n, alpha, [](zor_int, zor_int) { return true; },
      [&](zor_int i, zor_int j) {
        const bool stored = uplo == 121 ? i <= j : i >= j;
        T e = stored ? a[i + j * lda] : a[j + i * lda];
        if (hermitian && !stored) e = conj(e);
        if (hermitian && i == j) set(e, re_of(e), 0);
        return e;
      },
      x, beta, y, incy, false);
}

}  // namespace zor_ref
