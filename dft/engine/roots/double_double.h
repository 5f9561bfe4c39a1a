// SPDX-License-Identifier: MIT
// Double-double arithmetic without fused operations, and roots of unity as compile-time constants.
#pragma once

#include <cstdint>

#include "zor/types.h"

namespace zor::dd {

// An unevaluated sum hi + lo, |lo| <= ulp(hi) / 2.
struct double_double {
  double hi, lo;
};

constexpr double_double fast_two_sum(double a, double b) {
  const double s = a + b;
  return {s, b - (s - a)};
}

constexpr double_double two_sum(double a, double b) {
  const double s = a + b;
  const double v = s - a;
  return {s, (a - (s - v)) + (b - v)};
}

// The exact product, by splitting both factors into 26 bits (Dekker).
constexpr double_double two_product(double a, double b) {
  constexpr double splitter = 134217729.0;  // 2^27 + 1
  const double p = a * b;
  const double ta = splitter * a;
  const double ah = ta - (ta - a);
  const double al = a - ah;
  const double tb = splitter * b;
  const double bh = tb - (tb - b);
  const double bl = b - bh;
  return {p, ((ah * bh - p) + ah * bl + al * bh) + al * bl};
}

constexpr double_double add(double_double a, double_double b) {
  const double_double s = two_sum(a.hi, b.hi);
  return fast_two_sum(s.hi, s.lo + (a.lo + b.lo));
}

constexpr double_double multiply(double_double a, double_double b) {
  const double_double p = two_product(a.hi, b.hi);
  return fast_two_sum(p.hi, p.lo + (a.hi * b.lo + a.lo * b.hi));
}

constexpr double_double divide(double_double a, double d) {
  const double q = a.hi / d;
  const double_double p = two_product(q, d);
  return fast_two_sum(q, (((a.hi - p.hi) - p.lo) + a.lo) / d);
}

inline constexpr double_double pi{3.141592653589793116, 1.2246467991473532072e-16};
// The Taylor series of the sine or the cosine of x.
constexpr double_double taylor(double_double x, bool sine) {
  const double_double minus_square = multiply({-x.hi, -x.lo}, x);
  double_double term = sine ? x : double_double{1.0, 0.0};
  double_double sum = term;
  for (int k = sine ? 2 : 1; k < 30; k += 2) {
    term = divide(multiply(term, minus_square), double(k) * (k + 1));
    sum = add(sum, term);
  }
  return sum;
}

// exp(-2 pi i k / n) for a small n, computed by the compiler; for n up to 128 the same bits as root_of_unity.
constexpr zor_c64 constant_root(int64_t k, int64_t n) {
  const int64_t eighths = 8 * (k % n);
  const int64_t octant = eighths / n;
  const int64_t rest = eighths - octant * n;
  const int64_t a = octant % 2 == 0 ? rest : n - rest;
  const double_double x = divide(multiply({pi.hi / 4, pi.lo / 4}, {double(a), 0.0}), double(n));
  const double c = taylor(x, false).hi;
  const double s = taylor(x, true).hi;
  const bool swapped = octant % 4 == 1 || octant % 4 == 2;
  const double re = swapped ? s : c;
  const double im = swapped ? c : s;
  return {octant >= 2 && octant < 6 ? -re : re, octant < 4 ? -im : im};
}

}  // namespace zor::dd
