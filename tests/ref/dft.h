// SPDX-License-Identifier: MIT
// Discrete Fourier transforms from their definition, in wider arithmetic.
#pragma once

#include <mpfr.h>

#include <cmath>
#include <complex>
#include <vector>

namespace zor_ref {

using wide = std::complex<long double>;

inline wide wide_root(long long k, long long n) {
  const long double angle =
      -2.0L * 3.14159265358979323846264338327950288L * (long double)(k % n) / (long double)n;
  return {std::cos(angle), std::sin(angle)};
}

// Roots of unity of the whole length, of which a part of it uses every step-th.
inline std::vector<wide> dft_part(const std::vector<wide>& x, const std::vector<wide>& root, size_t step) {
  const size_t n = x.size();
  if (n <= 1) return x;
  size_t r = 2;
  while (n % r != 0) ++r;
  const size_t m = n / r;
  std::vector<std::vector<wide>> part(r, std::vector<wide>(m));
  for (size_t j = 0; j < n; ++j) part[j % r][j / r] = x[j];
  for (size_t t = 0; m > 1 && t < r; ++t) part[t] = dft_part(part[t], root, step * r);
  std::vector<wide> y(n);
  for (size_t k = 0; k < n; ++k) {
    for (size_t t = 0; t < r; ++t) {
      const wide w = root[t * k % n * step], v = part[t][k % m];
      y[k] += wide(v.real() * w.real() - v.imag() * w.imag(), v.real() * w.imag() + v.imag() * w.real());
    }
  }
  return y;
}

// sum x(j) exp(-2 pi i j k / n), by the smallest factor of n and the definition for primes; sign +1 for the
// transform backward.
inline std::vector<wide> dft(std::vector<wide> x, int sign = -1) {
  static std::vector<wide> root;
  if (root.size() != x.size()) {
    root.resize(x.size());
    for (size_t k = 0; k < x.size(); ++k) root[k] = wide_root((long long)k, (long long)x.size());
  }
  if (sign < 0) return dft_part(x, root, 1);
  for (wide& v : x) v = std::conj(v);
  x = dft_part(x, root, 1);
  for (wide& v : x) v = std::conj(v);
  return x;
}

// The direct sum in 200 bits, rounded at the end.
inline std::vector<wide> dft_200_bits(const std::vector<wide>& x) {
  const long n = long(x.size());
  mpfr_t angle, sine, cosine, term, re, im;
  mpfr_inits2(200, angle, sine, cosine, term, re, im, static_cast<mpfr_ptr>(nullptr));
  std::vector<wide> y(x.size());
  for (long k = 0; k < n; ++k) {
    mpfr_set_zero(re, 1);
    mpfr_set_zero(im, 1);
    for (long j = 0; j < n; ++j) {
      mpfr_const_pi(angle, MPFR_RNDN);
      mpfr_mul_si(angle, angle, 2 * (j * k % n), MPFR_RNDN);
      mpfr_div_si(angle, angle, n, MPFR_RNDN);
      mpfr_sin_cos(sine, cosine, angle, MPFR_RNDN);
      const double a = double(x[size_t(j)].real()), b = double(x[size_t(j)].imag());
      const auto add = [&](mpfr_t sum, mpfr_t factor, double by) {
        mpfr_mul_d(term, factor, by, MPFR_RNDN);
        mpfr_add(sum, sum, term, MPFR_RNDN);
      };
      add(re, cosine, a);
      add(re, sine, b);
      add(im, cosine, b);
      add(im, sine, -a);
    }
    y[size_t(k)] = {mpfr_get_ld(re, MPFR_RNDN), mpfr_get_ld(im, MPFR_RNDN)};
  }
  mpfr_clears(angle, sine, cosine, term, re, im, static_cast<mpfr_ptr>(nullptr));
  return y;
}

}  // namespace zor_ref
