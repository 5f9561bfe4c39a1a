// SPDX-License-Identifier: MIT
// Plain loops of the LAPACK kernels in their stated order of operations, every product and difference an
// operation.
#pragma once

#include <cmath>
#include <cstdint>
#include <type_traits>

#include "tests/ref/matvec.h"
#include "tests/ref/vector.h"

namespace zor_ref {

template <class T>
bool no_pivot(T p) {
  if constexpr (is_complex<T>)
    return (p.re == 0 && p.im == 0) || std::isnan(p.re) || std::isnan(p.im);
  else
    return p == 0 || std::isnan(p);
}

// ---- Rotations and short reflectors.

template <class R, class T>
void rotate_rows(R c, R s, T& a, T& b) {
  const T old_a = a, old_b = b;
  a = plus(by_real(c, old_a), by_real(s, old_b));
  b = minus(by_real(c, old_b), by_real(s, old_a));
}

template <class T>
void lasr(char pivot, char direction, zor_int m, zor_int n, const real_t<T>* c, const real_t<T>* s, T* a,
          zor_int lda) {
  for (zor_int column = 0; column < n; ++column)
    for (zor_int step = 0; step < m - 1; ++step) {
      const zor_int j = direction == 'f' ? step : m - 2 - step;
      T* x = a + column * lda;
      rotate_rows(c[j], s[j], x[pivot == 't' ? 0 : j], x[pivot == 'b' ? m - 1 : j + 1]);
    }
}

template <class T>
void lartv(zor_int n, T* x, zor_int incx, T* y, zor_int incy, const real_t<T>* c, const T* s, zor_int incc) {
  for (zor_int i = 0; i < n; ++i) {
    const T xi = x[i * incx], yi = y[i * incy];
    const real_t<T> ci = c[i * incc];
    const T si = s[i * incc];
    x[i * incx] = plus(by_real(ci, xi), times(si, yi));
    y[i * incy] = minus(by_real(ci, yi), conj_times(si, xi));
  }
}

template <class T>
void rot2(zor_int n, T* x, T* y, T tau, T v) {
  for (zor_int i = 0; i < n; ++i) {
    const T t = times(tau, plus(times(v, y[i]), x[i]));
    x[i] = minus(x[i], t);
    y[i] = minus(y[i], conj_times(v, t));
  }
}

template <class T>
void rot3(zor_int n, T* x, T* y, T* z, T tau, T h1, T h2) {
  for (zor_int i = 0; i < n; ++i) {
    const T first = times(h1, y[i]), second = times(h2, z[i]);
    const T w = is_complex<T> ? plus(plus(first, second), x[i]) : plus(plus(first, x[i]), second);
    const T t = times(tau, w);
    x[i] = minus(x[i], t);
    y[i] = minus(y[i], conj_times(h1, t));
    z[i] = minus(z[i], conj_times(h2, t));
  }
}

// ---- Tridiagonal matrices.

// The factors, and on the way b as far as they take it; b may be null.
template <class T>
zor_int factor_from_both_ends(zor_int n, T* dl, T* d, const T* du, T* b) {
  if (n == 0) return 0;
  const zor_int h = (n - 1) / 2, c = n - 1 - h;
  const auto pivot = [&](zor_int i) {
    d[i] = over(unity<T>(), d[i]);
    if (b != nullptr) b[i] = times(b[i], d[i]);
  };
  const auto top = [&](zor_int i) {
    d[i] = over(unity<T>(), d[i]);
    dl[i] = times(dl[i], d[i]);
    d[i + 1] = minus(d[i + 1], times(dl[i], du[i]));
    if (b != nullptr) b[i + 1] = minus(b[i + 1], times(b[i], dl[i]));
  };
  for (zor_int i = 0; i < h; ++i) {
    if (no_pivot(d[i])) return i + 1;
    top(i);
    const zor_int j = n - 1 - i;
    if (no_pivot(d[j])) return n - i;
    pivot(j);
    dl[j - 1] = times(dl[j - 1], d[j]);
    d[j - 1] = minus(d[j - 1], times(dl[j - 1], du[j - 1]));
    if (b != nullptr) b[j - 1] = minus(b[j - 1], times(du[j - 1], b[j]));
  }
  if (n % 2 == 0) {
    if (no_pivot(d[h])) return h + 1;
    top(h);
  }
  if (no_pivot(d[c])) return n - h;
  pivot(c);
  return 0;
}

template <class T>
zor_int dttrfb(zor_int n, T* dl, T* d, const T* du) {
  return factor_from_both_ends<T>(n, dl, d, du, nullptr);
}

template <class T>
void dttrsb(char trans, zor_int n, zor_int nrhs, const T* dl, const T* d, const T* du, T* b, zor_int ldb) {
  const bool plain = trans == 'N' || trans == 'n', cj = trans == 'C' || trans == 'c';
  if (n == 0 || (!plain && !cj && trans != 'T' && trans != 't')) return;
  const auto op = [&](T v) { return cj ? conj(v) : v; };
  const zor_int g = n / 2;
  for (; nrhs > 0; --nrhs, b += ldb) {
    if (plain) {
      for (zor_int i = 0; i < g; ++i) {
        const zor_int j = n - 1 - i;
        b[i + 1] = minus(b[i + 1], times(b[i], dl[i]));
        b[j] = times(b[j], d[j]);
        b[j - 1] = minus(b[j - 1], times(b[j], du[j - 1]));
      }
      b[n - g - 1] = times(b[n - g - 1], d[n - g - 1]);
      for (zor_int m = 0; m < n - g - 1; ++m) {
        const zor_int k = n - g - 2 - m;
        b[g + 1 + m] = minus(b[g + 1 + m], times(b[g + m], dl[g + m]));
        b[k] = times(minus(b[k], times(b[k + 1], du[k])), d[k]);
      }
    } else {
      for (zor_int j = n - 1; j > g; --j) b[j - 1] = minus(b[j - 1], times(op(du[j - 1]), b[j]));
      b[0] = times(b[0], op(d[0]));
      for (zor_int i = 1; i < n; ++i) b[i] = times(minus(b[i], times(op(dl[i - 1]), b[i - 1])), op(d[i]));
      for (zor_int i = g - 1; i >= 0; --i) b[i] = minus(b[i], times(op(du[i]), b[i + 1]));
    }
  }
}

template <class T>
zor_int dtsvb(zor_int n, zor_int nrhs, T* dl, T* d, const T* du, T* b, zor_int ldb) {
  if (n == 0 || nrhs == 0) return 0;
  if (nrhs != 1) {
    const zor_int info = dttrfb(n, dl, d, du);
    if (info == 0) dttrsb('N', n, nrhs, dl, d, du, b, ldb);
    return info;
  }
  const zor_int h = (n - 1) / 2, c = n - 1 - h, info = factor_from_both_ends(n, dl, d, du, b);
  if (info != 0) return info;
  if (n % 2 == 0) b[h] = times(minus(b[h], times(b[h + 1], du[h])), d[h]);
  for (zor_int j = c + 1; j < n; ++j) b[j] = minus(b[j], times(b[j - 1], dl[j - 1]));
  for (zor_int k = h - 1; k >= 0; --k) b[k] = times(minus(b[k], times(b[k + 1], du[k])), d[k]);
  return 0;
}

// v over d, or times its reciprocal, which is that of d itself where `conjugate` is set.
template <class T>
T over(bool by_reciprocal, bool conjugate, T v, T d) {
  if (by_reciprocal) return times(v, conjugate ? conj(over(unity<T>(), d)) : over(unity<T>(), d));
  return over(v, conjugate ? conj(d) : d);
}

// Columns before `grouped` go by reciprocals.
template <class T>
void gtts2(zor_int itrans, zor_int n, zor_int nrhs, zor_int grouped, const T* dl, const T* d, const T* du,
           const T* du2, const zor_int* ipiv, T* b, zor_int ldb) {
  if (n < 1) return;
  const bool cj = is_complex<T> && itrans != 0 && itrans != 1;
  const auto op = [&](T v) { return cj ? conj(v) : v; };
  for (zor_int column = 0; column < nrhs; ++column, b += ldb) {
    const auto divided = [&](T v, zor_int i) { return over(column < grouped, cj, v, d[i]); };
    if (itrans == 0) {
      for (zor_int i = 0; i < n - 1; ++i) {
        if (ipiv[i] == i + 1) {
          b[i + 1] = minus(b[i + 1], times(dl[i], b[i]));
        } else {
          const T t = b[i + 1];
          b[i + 1] = minus(b[i], times(dl[i], t));
          b[i] = t;
        }
      }
      for (zor_int i = n - 1; i >= 0; --i) {
        if (i < n - 1) b[i] = minus(b[i], times(du[i], b[i + 1]));
        if (i < n - 2) b[i] = minus(b[i], times(du2[i], b[i + 2]));
        b[i] = divided(b[i], i);
      }
    } else {
      for (zor_int i = 0; i < n; ++i) {
        if (i > 0) b[i] = minus(b[i], times(op(du[i - 1]), b[i - 1]));
        if (i > 1) b[i] = minus(b[i], times(op(du2[i - 2]), b[i - 2]));
        b[i] = divided(b[i], i);
      }
      for (zor_int i = n - 2; i >= 0; --i) {
        if (ipiv[i] == i + 1) {
          b[i] = minus(b[i], times(op(dl[i]), b[i + 1]));
        } else {
          const T t = b[i + 1];
          b[i + 1] = minus(b[i], times(op(dl[i]), t));
          b[i] = t;
        }
      }
    }
  }
}

template <class T>
void ptts2(zor_int iuplo, zor_int n, zor_int nrhs, zor_int grouped, const real_t<T>* d, const T* e, T* b,
           zor_int ldb) {
  if (n < 1 || nrhs < 1) return;
  const bool forward = is_complex<T> && iuplo == 1, backward = is_complex<T> && iuplo != 1;
  const auto op = [](bool conjugate, T v) { return conjugate ? conj(v) : v; };
  const auto divided = [&](bool by_reciprocal, T v, real_t<T> by) {
    if (by_reciprocal) return by_real(1 / by, v);
    if constexpr (is_complex<T>)
      return T{v.re / by, v.im / by};
    else
      return v / by;
  };
  for (zor_int column = 0; column < nrhs; ++column, b += ldb) {
    const bool by_reciprocal = column < grouped || n == 1;
    for (zor_int i = 1; i < n; ++i) b[i] = minus(b[i], times(op(forward, e[i - 1]), b[i - 1]));
    for (zor_int i = n - 1; i >= 0; --i) {
      b[i] = divided(by_reciprocal, b[i], d[i]);
      if (i < n - 1) b[i] = minus(b[i], times(op(backward, e[i]), b[i + 1]));
    }
  }
}

// ---- Small factorisations.

// Returns info, 0 for success.
template <class T>
zor_int potrf_small(bool upper, zor_int n, T* a, zor_int lda) {
  using R = real_t<T>;
  T minus_one{}, plus_one = unity<T>();
  reinterpret_cast<R&>(minus_one) = -1;
  for (zor_int j = 0; j < n; ++j) {
    T& ajj = a[j + j * lda];
    T* l = upper ? a + j * lda : a + j;
    const zor_int step = upper ? 1 : lda, beside = upper ? lda : 1, left = n - j - 1;
    R squares;
    if constexpr (is_complex<T>)
      squares = ref::cdot<T, true>(j, l, step, l, step).re;
    else
      squares = ref::dot(j, l, step, l, step);
    R pivot = real_part(ajj) - squares;
    const bool good = pivot > 0;
    if (good) pivot = std::sqrt(pivot);
    ajj = T{};
    reinterpret_cast<R&>(ajj) = pivot;
    if (!good) return j + 1;
    for (zor_int k = 0; k < j; ++k) l[k * step] = conj(l[k * step]);
    T* y = a + j + j * lda + beside;
    if (upper)
      gemv('T', j, left, minus_one, l + lda, lda, l, step, plus_one, y, beside);
    else
      gemv('N', left, j, minus_one, l + 1, lda, l, step, plus_one, y, beside);
    for (zor_int k = 0; k < j; ++k) l[k * step] = conj(l[k * step]);
    for (zor_int i = 0; i < left; ++i) y[i * beside] = by_real(1 / pivot, y[i * beside]);
  }
  return 0;
}

// Bunch-Kaufman, with rows counted from 1: the lower triangle goes up from row 1, the upper one down
// from row n.
template <class R>
zor_int sytrf_small(bool upper, zor_int n, R* array, zor_int lda, zor_int* ipiv) {
  static constexpr R alpha = R(0.6403882032022076);
  // Row r counts from the end where the elimination starts, so that both triangles run the same steps.
  const auto real_row = [&](zor_int r) { return upper ? n + 1 - r : r; };
  const auto at = [&](zor_int i, zor_int j) -> R& {
    const zor_int p = real_row(i), q = real_row(j);
    return upper == (p <= q) ? array[p - 1 + (q - 1) * lda] : array[q - 1 + (p - 1) * lda];
  };
  const auto magnitude = [](R x) { return std::fabs(x); };
  const auto larger = [](R x, R y) { return x > y ? x : y; };
  // The first of the largest in memory order; a NaN is taken where it is met and replaced by the next.
  const auto search = [&](zor_int first, zor_int last, const auto& value) {
    zor_int best = 0;
    for (zor_int step = 0; step <= last - first; ++step) {
      const zor_int r = upper ? last - step : first + step;
      if (best == 0 || !(magnitude(value(best)) >= magnitude(value(r)))) best = r;
    }
    return best;
  };
  zor_int info = 0;
  for (zor_int k = 1; k <= n;) {
    const R pivot = magnitude(at(k, k));
    zor_int imax = k, kp = k, step = 1;
    R colmax = 0;
    if (k < n) {
      imax = search(k + 1, n, [&](zor_int r) { return at(r, k); });
      colmax = magnitude(at(imax, k));
    }
    if (larger(pivot, colmax) == 0) {
      if (info == 0) info = real_row(k);
      ipiv[real_row(k) - 1] = real_row(k);
      ++k;
      continue;
    }
    if (!(pivot >= alpha * colmax)) {
      R rowmax = magnitude(at(imax, search(k, imax - 1, [&](zor_int r) { return at(imax, r); })));
      if (imax < n)
        rowmax =
            larger(rowmax, magnitude(at(search(imax + 1, n, [&](zor_int r) { return at(r, imax); }), imax)));
      if (pivot >= alpha * colmax * (colmax / rowmax)) {
        kp = k;
      } else {
        kp = imax;
        step = magnitude(at(imax, imax)) >= alpha * rowmax ? 1 : 2;
      }
    }
    const zor_int kk = k + step - 1;
    if (kp != kk) {
      for (zor_int r = kp + 1; r <= n; ++r) std::swap(at(r, kk), at(r, kp));
      for (zor_int r = kk + 1; r < kp; ++r) std::swap(at(r, kk), at(kp, r));
      std::swap(at(kk, kk), at(kp, kp));
      if (step == 2) std::swap(at(k + 1, k), at(kp, k));
    }
    if (step == 1) {
      if (k < n) {
        const R r1 = 1 / at(k, k);
        for (zor_int j = k + 1; j <= n && r1 != 0; ++j) {
          const R s = -r1 * at(j, k);
          if (at(j, k) == 0 || s == 0) continue;
          for (zor_int i = j; i <= n; ++i) at(i, j) = plus_product(at(i, j), s, at(i, k));
        }
        if (r1 != 1)
          for (zor_int i = k + 1; i <= n; ++i) at(i, k) = r1 * at(i, k);
      }
      ipiv[real_row(k) - 1] = real_row(kp);
    } else {
      const R d21 = k < n - 1 ? at(k + 1, k) : R(1);
      const R d11 = k < n - 1 ? at(k + 1, k + 1) / d21 : R(0), d22 = k < n - 1 ? at(k, k) / d21 : R(0);
      const R t = k < n - 1 ? 1 / (d11 * d22 - 1) / d21 : R(0);
      for (zor_int j = k + 2; j <= n; ++j) {
        const R w = t * (d11 * at(j, k) - at(j, k + 1)), v = t * (d22 * at(j, k + 1) - at(j, k));
        for (zor_int i = j; i <= n; ++i) at(i, j) = at(i, j) - at(i, k) * w - at(i, k + 1) * v;
        at(j, k) = w;
        at(j, k + 1) = v;
      }
      ipiv[real_row(k) - 1] = ipiv[real_row(k + 1) - 1] = -real_row(kp);
    }
    k += step;
  }
  return info;
}

template <class R>
zor_int gtsv_small(zor_int n, zor_int nrhs, R* dl, R* d, R* du, R* b, zor_int ldb) {
  for (zor_int i = 0; i < n - 1; ++i) {
    if (std::fabs(d[i]) >= std::fabs(dl[i])) {
      if (d[i] == 0) return i + 1;
      const R f = dl[i] / d[i];
      d[i + 1] = d[i + 1] - f * du[i];
      for (zor_int k = 0; k < nrhs; ++k) b[i + 1 + k * ldb] = b[i + 1 + k * ldb] - f * b[i + k * ldb];
      if (i < n - 2) dl[i] = 0;
    } else {
      const R f = d[i] / dl[i], t = d[i + 1];
      d[i] = dl[i];
      d[i + 1] = du[i] - f * t;
      if (i < n - 2) {
        dl[i] = du[i + 1];
        du[i + 1] = -f * dl[i];
      }
      du[i] = t;
      for (zor_int k = 0; k < nrhs; ++k) {
        const R old = b[i + k * ldb];
        b[i + k * ldb] = b[i + 1 + k * ldb];
        b[i + 1 + k * ldb] = old - f * b[i + k * ldb];
      }
    }
  }
  if (n > 0 && d[n - 1] == 0) return n;
  for (zor_int k = 0; k < nrhs; ++k, b += ldb)
    for (zor_int i = n - 1; i >= 0; --i) {
      if (i < n - 1) b[i] = b[i] - du[i] * b[i + 1];
      if (i < n - 2) b[i] = b[i] - dl[i] * b[i + 2];
      b[i] = b[i] / d[i];
    }
  return 0;
}

// ---- Panels of reductions.

// A real diagonal of a Hermitian matrix; a symmetric one as it is.
template <class T>
T on_diagonal(T v) {
  if constexpr (is_complex<T>) v.im = 0;
  return v;
}

// Columns of the trapezoid in groups: calls body(j, count) for neighbouring columns j to j + count - 1.
template <class Body>
void for_groups(bool upper, zor_int n, zor_int k, zor_int size, const Body& body) {
  for (zor_int t = 0; t < k;) {
    const zor_int count = k - t >= size ? size : 1;
    body(upper ? n - count - t : t, count);
    t += count;
  }
}

template <class T>
void symv_nb(bool upper, zor_int n, zor_int k, T alpha, const T* a, zor_int lda, const T* x, T beta, T* y) {
  if (n < 1 || k < 1) return;
  for (zor_int i = 0; i < n; ++i)
    if (!is(beta, 1)) y[i] = is(beta, 0) ? T{} : times(beta, y[i]);
  for_groups(upper, n, k, 4, [&](zor_int j, zor_int count) {
    for (zor_int r = j; r < j + count; ++r)
      for (zor_int c = j; c < j + count; ++c) {
        const bool stored = upper ? r <= c : r >= c;
        const T s = times(alpha, x[c]), e = stored ? a[r + c * lda] : conj(a[c + r * lda]);
        y[r] = r == c ? plus_real_times(y[r], real_part(e), s) : plus_term(y[r], s, e);
      }
    for (zor_int c = j; c < j + count; ++c) {
      T sum{};
      for (zor_int i = upper ? 0 : j + count; i < (upper ? j : n); ++i) {
        y[i] = plus_term(y[i], times(alpha, x[c]), a[i + c * lda]);
        sum = plus_term(sum, x[i], conj(a[i + c * lda]));
      }
      y[c] = plus_term(y[c], alpha, sum);
    }
  });
}

template <class T>
void syr2_nb(bool upper, zor_int n, zor_int k, T alpha, const T* x, const T* y, T* a, zor_int lda) {
  if (n < 1) return;
  for (zor_int t = 0; t < k; ++t) {
    const zor_int j = upper ? n - 1 - t : t;
    const T p = conj(times(alpha, x[j])), q = times(alpha, conj(y[j]));
    for (zor_int i = upper ? 0 : j; i <= (upper ? j : n - 1); ++i) {
      T& e = a[i + j * lda];
      const bool first_of_pair = t % 2 == 0;
      if (i == j && first_of_pair)
        e = on_diagonal(plus(plus(times(p, y[j]), e), times(q, x[j])));
      else
        e = plus(plus(times(q, x[i]), e), times(p, y[i]));
      if (i == j) e = on_diagonal(e);
    }
  }
}

template <class T>
void syr2k_nb(bool upper, zor_int n, zor_int k, zor_int m, const T* a, zor_int lda, const T* b, zor_int ldb,
              T* c, zor_int ldc) {
  if (n < 1 || k < 1) return;
  for (zor_int t = 0; t < m; ++t) {
    const zor_int j = upper ? n - 1 - t : t;
    for (zor_int i = upper ? 0 : j; i <= (upper ? j : n - 1); ++i)
      for (zor_int p = 0; p < k; ++p) {
        const T ai = a[i + p * lda], bi = b[i + p * ldb], aj = conj(a[j + p * lda]),
                bj = conj(b[j + p * ldb]);
        T& e = c[i + j * ldc];
        if (i == j)
          e = on_diagonal(plus(e, times(minus(minus(T{}, ai), ai), bj)));
        else
          e = minus(minus(e, times(ai, bj)), times(bi, aj));
      }
  }
}

template <class T>
void spr(bool upper, zor_int n, T alpha, const T* x, zor_int incx, T* ap) {
  if (n < 1 || is(alpha, 0)) return;
  for (zor_int j = 0; j < n; ++j)
    for (zor_int i = upper ? 0 : j; i <= (upper ? j : n - 1); ++i, ++ap)
      if (!is(at(x, n, incx, j), 0)) *ap = plus_term(*ap, times(alpha, at(x, n, incx, j)), at(x, n, incx, i));
}

template <class T>
void larfx(bool left, zor_int m, zor_int n, const T* v, T tau, T* c, zor_int ldc) {
  const zor_int order = left ? m : n, lines = left ? n : m, within = left ? 1 : ldc, across = left ? ldc : 1;
  const auto op = [&](bool conjugate, T e) { return conjugate ? conj(e) : e; };
  for (zor_int line = 0; line < lines; ++line) {
    T* x = c + line * across;
    if (order == 1) {
      *x = times(minus(unity<T>(), times(times(tau, v[0]), conj(v[0]))), *x);
      continue;
    }
    if (order <= 10) {
      T sum = times(op(left, v[0]), x[0]);
      for (zor_int i = 1; i < order; ++i) sum = plus(sum, times(op(left, v[i]), x[i * within]));
      for (zor_int i = 0; i < order; ++i)
        x[i * within] = minus(x[i * within], times(sum, times(tau, op(!left, v[i]))));
      continue;
    }
    // The line's product with v, and the rank-one update, which leaves a column alone where its factor is 0.
    T sum{};
    for (zor_int i = 0; i < order; ++i)
      sum = plus_term(sum, v[i], left ? conj(x[i * within]) : x[i * within]);
    for (zor_int i = 0; i < order; ++i) {
      const T f = times(minus(T{}, tau), conj(left ? sum : v[i])), e = left ? v[i] : sum;
      if (!is(f, 0)) x[i * within] = plus_term(x[i * within], f, e);
    }
  }
}

}  // namespace zor_ref
