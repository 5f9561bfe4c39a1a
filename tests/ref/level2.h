// SPDX-License-Identifier: MIT
// Plain loops of the rank updates, band, symmetric and triangular kernels with one vector, in their stated
// orders of sums. A stored triangle is given by the place of its element (i, j).
#pragma once

#include <vector>

#include "tests/ref/matvec.h"

namespace zor_ref {

template <class T>
void scale_vector(zor_int n, T beta, T* y, zor_int incy) {
  for (zor_int i = 0; i < n; ++i) {
    T& yi = at(y, n, incy, i);
    if (is(beta, 0))
      yi = T{};
    else if (!is(beta, 1))
      yi = times(beta, yi);
  }
}

// Where the elements of a matrix stand; rows first(j) to end(j) - 1 of column j are stored.
struct layout {
  enum class kind { full, band, packed } stored;
  bool upper;  // of a triangle
  zor_int m, n, kl, ku, lda;

  static layout triangle(kind stored, bool upper, zor_int n, zor_int k, zor_int lda) {
    return {stored, upper, n, n, upper ? 0 : k, upper ? k : 0, lda};
  }
  zor_int first(zor_int j) const { return j > ku ? j - ku : 0; }
  zor_int end(zor_int j) const { return j + kl + 1 < m ? j + kl + 1 : m; }
  size_t place(zor_int i, zor_int j) const {
    if (stored == kind::full) return size_t(i + j * lda);
    if (stored == kind::band) return size_t(ku + i - j + j * lda);
    return size_t(upper ? i + j * (j + 1) / 2 : i + j * (2 * n - j - 1) / 2);
  }
  size_t size() const {
    if (m < 1 || n < 1) return 0;
    if (stored == kind::packed) return size_t(n * (n + 1) / 2);
    if (stored == kind::full) return size_t((n - 1) * lda + m);
    return size_t((n - 1) * lda + ku + kl + 1);
  }
};

template <class T>
void ger(bool conjugate, zor_int m, zor_int n, T alpha, const T* x, zor_int incx, const T* y, zor_int incy,
         T* a, zor_int lda) {
  for (zor_int j = 0; j < n && m > 0 && !is(alpha, 0); ++j) {
    const T yj = at(y, n, incy, j);
    if (is(yj, 0)) continue;
    const T s = times(alpha, conj_if(conjugate, yj));
    for (zor_int i = 0; i < m && !is(s, 0); ++i)
      a[i + j * lda] = plus_term(a[i + j * lda], s, at(x, m, incx, i));
  }
}

template <class T>
void gbmv(const layout& l, char trans, T alpha, const T* a, const T* x, zor_int incx, T beta, T* y,
          zor_int incy) {
  if (l.m < 1 || l.n < 1 || (is(alpha, 0) && is(beta, 1))) return;
  const bool plain = trans == 'N' || trans == 'n', conjugate = trans == 'C' || trans == 'c';
  const zor_int inputs = plain ? l.n : l.m, outputs = plain ? l.m : l.n;
  scale_vector(outputs, beta, y, incy);
  if (is(alpha, 0)) return;
  for (zor_int j = 0; j < l.n; ++j) {
    if (plain) {
      const T s = times(alpha, at(x, inputs, incx, j));
      for (zor_int i = l.first(j); i < l.end(j); ++i) {
        T& yi = at(y, outputs, incy, i);
        yi = plus_term(yi, s, a[l.place(i, j)]);
      }
    } else {
      T sum{};
      for (zor_int i = l.first(j); i < l.end(j); ++i)
        sum = plus_term(sum, at(x, inputs, incx, i), conj_if(conjugate, a[l.place(i, j)]));
      T& yj = at(y, outputs, incy, j);
      yj = plus_term(yj, alpha, sum);
    }
  }
}

template <class T>
void symv(const layout& l, bool hermitian, T alpha, const T* a, const T* x, zor_int incx, T beta, T* y,
          zor_int incy) {
  const zor_int n = l.n;
  if (n < 1 || (is(alpha, 0) && is(beta, 1))) return;
  scale_vector(n, beta, y, incy);
  if (is(alpha, 0)) return;
  for (zor_int j = 0; j < n; ++j) {
    const T s = times(alpha, at(x, n, incx, j));
    T sum{};
    for (zor_int i = l.first(j); i < l.end(j); ++i) {
      if (i == j) continue;
      const T aij = a[l.place(i, j)];
      T& yi = at(y, n, incy, i);
      yi = plus_term(yi, s, aij);
      sum = plus_term(sum, at(x, n, incx, i), conj_if(hermitian, aij));
    }
    const T ajj = a[l.place(j, j)];
    T& yj = at(y, n, incy, j);
    yj = hermitian ? plus_real_times(yj, real_part(ajj), s) : plus_term(yj, s, ajj);
    yj = plus_term(yj, alpha, sum);
  }
}

template <class T>
void clear_imaginary(T& a) {
  a = element_of<T>(real_part(a));
}
template <class T>
void add_real(real_t<T> term, T& a) {
  a = element_of<T>(real_part(a) + term);
}
// The real part of a b, and nothing else.
template <class T>
real_t<T> real_product(T a, T b) {
  if constexpr (is_complex<T>)
    return plus_product(-(a.im * b.im), a.re, b.re);
  else
    return a * b;
}

// A := alpha x x^T + A; for Hermitian A alpha is real and the second x conjugated.
template <class T, class R>
void rank_one(const layout& l, bool hermitian, R alpha, const T* x, zor_int incx, T* a) {
  for (zor_int j = 0; j < l.n && alpha != 0; ++j) {
    const T xj = at(x, l.n, incx, j);
    T s{};
    if (!is(xj, 0)) s = by_real(alpha, conj_if(hermitian, xj));
    for (zor_int i = l.first(j); i < l.end(j); ++i) {
      T& aij = a[l.place(i, j)];
      if (hermitian && i == j)
        add_real(is(s, 0) ? 0 : real_product(xj, s), aij);
      else if (!is(s, 0))
        aij = plus_term(aij, s, at(x, l.n, incx, i));
    }
  }
}

template <class T>
void rank_two(const layout& l, bool hermitian, T alpha, const T* x, zor_int incx, const T* y, zor_int incy,
              T* a) {
  const zor_int n = l.n;
  for (zor_int j = 0; j < n && !is(alpha, 0); ++j) {
    const T xj = at(x, n, incx, j), yj = at(y, n, incy, j);
    if (is(xj, 0) && is(yj, 0)) {
      if (hermitian) clear_imaginary(a[l.place(j, j)]);
      continue;
    }
    const T s = times(alpha, conj_if(hermitian, yj)), t = conj_if(hermitian, times(alpha, xj));
    for (zor_int i = l.first(j); i < l.end(j); ++i) {
      T& aij = a[l.place(i, j)];
      if (hermitian && i == j) {
        add_real(real_product(xj, s), aij);
        add_real(real_product(yj, t), aij);
      } else {
        aij = plus_term(plus_term(aij, s, at(x, n, incx, i)), t, at(y, n, incy, i));
      }
    }
  }
}

// Element (i, j) of op(A).
template <class T>
T op_element(const layout& l, const T* a, char trans, zor_int i, zor_int j) {
  if (trans == 'N' || trans == 'n') return a[l.place(i, j)];
  return conj_if(trans == 'C' || trans == 'c', a[l.place(j, i)]);
}
inline bool is_lower(const layout& l, char trans) { return l.upper != (trans == 'N' || trans == 'n'); }

// x[i] := d x[i] + ..., terms away from the diagonal, rows first to end - 1 of op(A) with columns of the
// same.
template <class T>
void multiply_rows(const layout& l, const T* a, char trans, bool unit, T* x, zor_int incx, zor_int first,
                   zor_int end) {
  const bool lower = is_lower(l, trans);
  const zor_int reach = l.kl + l.ku, step = lower ? -1 : 1;
  for (zor_int i = lower ? end - 1 : first; i >= first && i < end; i += step) {
    T& xi = at(x, l.n, incx, i);
    T sum = unit ? xi : times(xi, op_element(l, a, trans, i, i));
    for (zor_int j = i + step; j >= first && j < end && (j - i) * step <= reach; j += step)
      sum = plus_term(sum, at(x, l.n, incx, j), op_element(l, a, trans, i, j));
    xi = sum;
  }
}
// x[i] := (x[i] - ...) / d, terms towards the diagonal.
template <class T>
void solve_rows(const layout& l, const T* a, char trans, bool unit, T* x, zor_int incx, zor_int first,
                zor_int end) {
  const bool lower = is_lower(l, trans);
  const zor_int reach = l.kl + l.ku, step = lower ? 1 : -1;
  for (zor_int i = lower ? first : end - 1; i >= first && i < end; i += step) {
    T& xi = at(x, l.n, incx, i);
    for (zor_int j = lower ? first : end - 1; j != i; j += step)
      if ((i - j) * step <= reach)
        xi = plus_term(xi, negative(at(x, l.n, incx, j)), op_element(l, a, trans, i, j));
    if (!unit) xi = quotient(xi, op_element(l, a, trans, i, i));
  }
}

// Full triangles in diagonal blocks; the rectangle beside each is a product of gemv.
template <class T>
void blocked(const layout& l, bool solve, zor_int block, const T* a, char trans, bool unit, T* x,
             zor_int incx) {
  const zor_int n = l.n;
  const bool lower = is_lower(l, trans), upwards = lower == solve;
  const bool plain = trans == 'N' || trans == 'n';
  for (zor_int done = 0; done < n; done += block) {
    const zor_int size = done + block < n ? block : n - done, i = upwards ? done : n - done - size;
    const zor_int j = lower ? 0 : i + size, count = lower ? i : n - j;
    const auto rectangle = [&] {
      if (count < 1) return;
      const T one = unity<T>(), factor = solve ? negative(one) : one;
      std::vector<T> known, wanted;
      const zor_int step = incx == 1 ? 1 : 2;  // 2 makes gemv sum as it does for strided vectors
      known.resize(size_t(count * step)), wanted.resize(size_t(size * step));
      for (zor_int k = 0; k < count; ++k) known[size_t(k * step)] = at(x, n, incx, j + k);
      for (zor_int k = 0; k < size; ++k) wanted[size_t(k * step)] = at(x, n, incx, i + k);
      gemv(trans, plain ? size : count, plain ? count : size, factor,
           a + (plain ? l.place(i, j) : l.place(j, i)), l.lda, known.data(), step, one, wanted.data(), step);
      for (zor_int k = 0; k < size; ++k) at(x, n, incx, i + k) = wanted[size_t(k * step)];
    };
    if (solve) {
      rectangle();
      solve_rows(l, a, trans, unit, x, incx, i, i + size);
    } else {
      multiply_rows(l, a, trans, unit, x, incx, i, i + size);
      rectangle();
    }
  }
}

}  // namespace zor_ref
