// SPDX-License-Identifier: MIT
// Calls of the plain entries on pseudo-random operands, whose results compare bit for bit.
#pragma once

#include <cstdlib>
#include <cstring>
#include <ostream>
#include <vector>

#include "tests/support/operand.h"
#include "zor/blas.h"

namespace zor_test {

template <class T>
std::vector<T> random_vector(zor_int count, uint64_t seed) {
  random_bits random(seed);
  std::vector<T> v(static_cast<size_t>(count));
  for (T& x : v) {
    if constexpr (requires { x.re; })
      x = {decltype(x.re)(random.unit()), decltype(x.re)(random.unit())};
    else
      x = T(random.unit());
  }
  return v;
}

template <class T>
T make_scalar(double re, double im) {
  if constexpr (requires { T().re; })
    return {decltype(T().re)(re), decltype(T().re)(im)};
  else
    return T(re);
}

template <class T>
bool equal_bits(const std::vector<T>& a, const std::vector<T>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0;
}

struct product {
  char transa, transb;
  zor_int m, n, k;
};
inline std::ostream& operator<<(std::ostream& out, const product& p) {
  return out << p.transa << p.transb << " " << p.m << "x" << p.n << "x" << p.k;
}

template <class T>
struct gemm_operands {
  explicit gemm_operands(const product& which, double beta_re = 0.5)
      : p(which),
        lda((p.transa == 'N' ? p.m : p.k) + 1),
        ldb((p.transb == 'N' ? p.k : p.n) + 2),
        ldc(p.m + 3),
        a(random_vector<T>(lda * (p.transa == 'N' ? p.k : p.m), 1)),
        b(random_vector<T>(ldb * (p.transb == 'N' ? p.n : p.k), 2)),
        c(random_vector<T>(ldc * p.n, 3)),
        alpha(make_scalar<T>(1.25, -0.75)),
        beta(make_scalar<T>(beta_re, 0)) {}

  template <class Gemm>
  std::vector<T> run(Gemm* gemm) const {
    std::vector<T> result = c;
    gemm(&p.transa, &p.transb, &p.m, &p.n, &p.k, &alpha, a.data(), &lda, b.data(), &ldb, &beta, result.data(),
         &ldc);
    return result;
  }

  product p;
  zor_int lda, ldb, ldc;
  std::vector<T> a, b, c;
  T alpha, beta;
};

}  // namespace zor_test
