// SPDX-License-Identifier: MIT
// The passes around the discrete Fourier transform that make the six trigonometric transforms, on one line
// (V a real) or on lines side by side (V a vector of them, Step reals from one element to the next). Every
// line meets the same operations in the same order.
//
// Between the passes stands the spectrum R(0), R(n/2), R(1), I(1), R(2), I(2), ... for even n and R(0), R(1),
// I(1), R(2), I(2), ... for odd n. A pass that reads elements behind those that it writes takes them along in
// variables. Tables are those of the parameter array: C(k), S(k) the cosine and sine of k pi / n, H(i) the
// sine of (i + 1/2) pi / n, Q(j) that of (2j + 1) pi / 4n.
#pragma once

#include <cstddef>
#include <cstring>

#include "zor/types.h"

namespace zor::pde {

// Element j is at p + Step j.
template <class V, class T, ptrdiff_t Step>
struct elements {
  T* p;
  [[gnu::always_inline]] V operator[](ptrdiff_t j) const {
    V v;
    std::memcpy(&v, p + Step * j, sizeof v);
    return v;
  }
  [[gnu::always_inline]] void put(ptrdiff_t j, V v) const { std::memcpy(p + Step * j, &v, sizeof v); }
};

template <class V, class T, ptrdiff_t Step>
struct trig_steps {
  elements<V, T, Step> x;
  const T* dpar;
  ptrdiff_t n;

  ptrdiff_t half() const { return n / 2; }
  bool odd() const { return n % 2 != 0; }
  // Pairs R(k), I(k) with 1 <= k < n/2; R(k) stands at 2k - odd, I(k) behind it.
  ptrdiff_t pairs() const { return (n - 1) / 2; }
  T C(ptrdiff_t k) const { return dpar[2 * k]; }
  T S(ptrdiff_t k) const { return dpar[2 * k + 1]; }

  // Type 0: the sine transform.
  void sine_before() const {
    x.put(0, V{});
    for (ptrdiff_t j = 1; j <= half(); ++j) {
      const V a = x[j], b = x[n - j];
      const V t = T(2) * dpar[j + 1] * (a + b), d = a - b;
      x.put(j, d + t);
      x.put(n - j, t - d);
    }
  }
  void sine_after() const {
    const ptrdiff_t o = odd(), count = pairs();
    V re = x[2 - o], im{};
    if (count > 0) im = x[3 - o];
    V sum = T(0.5) * x[0];
    x.put(0, V{});
    x.put(1, sum);
    for (ptrdiff_t k = 1; k <= count; ++k) {
      sum = sum + re;
      x.put(2 * k, -im);
      if (k < count) {
        const V next = x[2 * k + 2 - o];
        im = x[2 * k + 3 - o];
        re = next;
      }
      if (2 * k + 1 < n) x.put(2 * k + 1, sum);
    }
  }

  // Type 1: the cosine transform. What `before` returns goes to `after`.
  V cosine_before() const {
    V s = x[0] - x[n];
    x.put(0, x[0] + x[n]);
    for (ptrdiff_t j = half(); j >= 1; --j) {
      const V a = x[j], b = x[n - j];
      const V p = a + b, q = T(2) * (a - b);
      s = s + C(j) * q;
      x.put(j, p - q * S(j));
      x.put(n - j, p + q * S(j));
    }
    return s;
  }
  void cosine_after(V s) const {
    const ptrdiff_t o = odd(), count = pairs();
    const V last = x[1];
    V re = last, im = last;
    if (count > 0) re = x[2 - o], im = x[3 - o];
    x.put(1, s);
    for (ptrdiff_t k = 1; k <= count; ++k) {
      const V r = re;
      s = s - im;
      if (k < count) re = x[2 * k + 2 - o], im = x[2 * k + 3 - o];
      x.put(2 * k, r);
      x.put(2 * k + 1, s);
    }
    if (!odd()) x.put(n, last);
  }

  // Types 2 to 5 backward: a butterfly with the table w, the transform, an unpacking.
  void butterfly_p(const T* w) const {
    for (ptrdiff_t i = 0; i < half(); ++i) {
      const V a = x[i], b = x[n - 1 - i];
      const V u = a + b, d = T(2) * w[i] * (a - b);
      x.put(i, u + d);
      x.put(n - 1 - i, u - d);
    }
    if (odd()) x.put(half(), T(2) * x[half()]);
  }
  void butterfly_m(const T* w) const {
    for (ptrdiff_t i = 0; i < half(); ++i) {
      const V a = x[i], b = x[n - 1 - i];
      const V s = T(2) * w[i] * (a + b), d = a - b;
      x.put(i, d + s);
      x.put(n - 1 - i, s - d);
    }
    if (odd()) x.put(half(), T(4) * x[half()]);
  }
  void unpack_p() const {
    V r{};
    if (odd()) {
      for (ptrdiff_t k = half(); k >= 1; --k) {
        const V re = x[2 * k - 1], im = x[2 * k];
        r = r + (re * S(k) - im * C(k));
        x.put(2 * k - 1, r);
        x.put(2 * k, re * C(k) + im * S(k));
      }
      return;
    }
    r = T(0.5) * x[1];
    for (ptrdiff_t k = half(); k > 1; --k) {
      const V re = x[2 * k - 2], im = x[2 * k - 1];
      x.put(2 * k - 1, r);
      r = r + (re * S(k - 1) - im * C(k - 1));
      x.put(2 * k - 2, re * C(k - 1) + im * S(k - 1));
    }
    x.put(1, r);
  }
  void unpack_m() const {
    const ptrdiff_t o = odd();
    const V last = x[1];
    V r = T(0.5) * x[0];
    x.put(0, r);
    for (ptrdiff_t k = 1; k <= pairs(); ++k) {
      const V re = x[2 * k - o], im = x[2 * k + 1 - o];
      x.put(2 * k - 1, re * S(k) - im * C(k));
      r = r + (re * C(k) + im * S(k));
      x.put(2 * k, r);
    }
    if (!odd()) x.put(n - 1, last);
  }

  // Types 2 to 5 forward: a half spectrum, the transform backward, a butterfly undone.
  void spectrum_a(T first_factor) const {
    const bool is_odd = odd();
    const ptrdiff_t o = is_odd;
    V before = x[1];
    x.put(0, first_factor * x[0]);
    for (ptrdiff_t k = 1; k <= pairs(); ++k) {
      const V re = x[2 * k];
      const V behind = 2 * k + 1 < n ? x[2 * k + 1] : V{};
      const V im = before - behind;
      x.put(2 * k - o, re * C(k) + im * S(k));
      x.put(2 * k + 1 - o, im * C(k) - re * S(k));
      before = behind;
    }
    if (!is_odd) x.put(1, T(2) * before);
  }
  void spectrum_b() const {
    const bool is_odd = odd();
    V even = x[0], at_odd = x[1];
    x.put(0, T(2) * even);
    for (ptrdiff_t k = 1; k <= pairs(); ++k) {
      const V here = x[2 * k];
      const V re = here - even;
      const V im = is_odd ? x[2 * k - 1] : at_odd;
      if (!is_odd) at_odd = x[2 * k + 1];
      even = here;
      x.put(2 * k - is_odd, re * C(k) + im * S(k));
      x.put(2 * k + 1 - is_odd, re * S(k) - im * C(k));
    }
    if (!is_odd) x.put(1, at_odd);
  }
  // False at a divisor of exactly zero.
  bool undo_p(const T* w, T sum_factor, T difference_factor, T middle_factor) const {
    const ptrdiff_t h = half();
    V a = x[0], b = x[1];
    for (ptrdiff_t i = 0; i < h; ++i) {
      if (w[i] == T(0)) return false;
      const V s = sum_factor * (a + b), d = difference_factor * (a - b) / w[i];
      a = x[n - 1 - i];
      b = x[i + 2 <= n - 1 ? i + 2 : n - 1];
      x.put(i, s + d);
      x.put(n - 1 - i, s - d);
    }
    if (odd()) x.put(h, middle_factor * a);
    return true;
  }
  bool undo_m(const T* w, T sum_factor, T difference_factor, T middle_factor) const {
    const ptrdiff_t h = half();
    if (odd()) x.put(h, middle_factor * x[h]);
    for (ptrdiff_t i = 0; i < h; ++i) {
      if (w[i] == T(0)) return false;
      const V a = x[i], b = x[n - 1 - i];
      const V d = difference_factor * (a - b), q = sum_factor * (a + b) / w[i];
      x.put(i, d + q);
      x.put(n - 1 - i, q - d);
    }
    return true;
  }

  // Factors and running sums of types 4 and 5.
  void multiply_q(const T* q) const {
    for (ptrdiff_t j = 0; j < n; ++j) x.put(j, x[j] * q[j]);
  }
  void divide_4q(const T* q) const {
    for (ptrdiff_t j = 0; j < n; ++j) x.put(j, x[j] / (T(4) * q[j]));
  }
  void sum_down() const {
    V v = x[n - 1];
    for (ptrdiff_t m = n - 2; m >= 0; --m) {
      v = v + T(2) * x[m];
      x.put(m, v);
    }
  }
  void sum_up() const {
    V v = x[0];
    for (ptrdiff_t m = 1; m < n; ++m) {
      v = v + T(2) * x[m];
      x.put(m, v);
    }
  }
  void differences_down() const {
    V here = x[0];
    for (ptrdiff_t m = 0; m < n - 1; ++m) {
      const V next = x[m + 1];
      x.put(m, here - next);
      here = next;
    }
    x.put(n - 1, T(2) * here);
  }
  void differences_up() const {
    V before = x[0];
    for (ptrdiff_t m = 1; m < n; ++m) {
      const V here = x[m];
      x.put(m, here - before);
      before = here;
    }
  }

  const T* h_table() const { return dpar + n + 2; }      // of types 2 and 3
  const T* q_table() const { return dpar + n + 2; }      // of types 4 and 5
  const T* g_table() const { return dpar + 2 * n + 2; }  // of types 4 and 5

  // The passes before the discrete Fourier transform of x(0) to x(n-1) and after it; it runs backward for
  // types 2 to 5 forward, otherwise forward. What `before` returns goes to `after`, which returns false at a
  // divisor of zero.
  V before(zor_int type, bool forward) const {
    V carried{};
    if (type == 0)
      sine_before();
    else if (type == 1)
      carried = cosine_before();
    else if (forward)
      spectrum(type);
    else
      butterfly(type);
    return carried;
  }
  bool after(zor_int type, bool forward, V carried) const {
    if (type == 0)
      sine_after();
    else if (type == 1)
      cosine_after(carried);
    else if (forward)
      return undo(type);
    else
      unpack(type);
    return true;
  }

 private:
  void butterfly(zor_int type) const {
    const T* const w = type >= 4 ? g_table() : h_table();
    if (type >= 4) multiply_q(q_table());
    if (type == 2 || type == 5)
      butterfly_p(w);
    else
      butterfly_m(w);
  }
  void unpack(zor_int type) const {
    if (type == 2 || type == 5)
      unpack_p();
    else
      unpack_m();
    if (type == 4) sum_down();
    if (type == 5) sum_up();
  }
  void spectrum(zor_int type) const {
    if (type == 4) differences_down();
    if (type == 5) differences_up();
    if (type == 2 || type == 5)
      spectrum_a(type == 5 ? T(2) : T(1));
    else
      spectrum_b();
  }
  bool undo(zor_int type) const {
    bool divided;
    if (type == 2)
      divided = undo_p(h_table(), T(0.5), T(0.25), T(1));
    else if (type == 5)
      divided = undo_p(g_table(), T(1), T(0.5), T(2));
    else if (type == 3)
      divided = undo_m(h_table(), T(0.25), T(0.5), T(0.5));
    else
      divided = undo_m(g_table(), T(0.5), T(1), T(1));
    if (divided && type >= 4) divide_4q(q_table());
    return divided;
  }
};

}  // namespace zor::pde
