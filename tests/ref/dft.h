// SPDX-License-Identifier: MIT
// Discrete Fourier transforms from their definition, in wider arithmetic.
#pragma once

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

}  // namespace zor_ref
