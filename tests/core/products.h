// SPDX-License-Identifier: MIT
// Calls of the plain entries on pseudo-random operands, whose results compare bit for bit.
#pragma once

#include <cstdlib>
#include <cstring>
#include <ostream>
#include <vector>

#include "tests/support/elements.h"
#include "zor/blas.h"

namespace zor_test {

template <class T>
bool equal_bits(const std::vector<T>& a, const std::vector<T>& b) {
  return bool(same_elements(a, b));
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
        a(random_elements<T>(lda * (p.transa == 'N' ? p.k : p.m), 1)),
        b(random_elements<T>(ldb * (p.transb == 'N' ? p.n : p.k), 2)),
        c(random_elements<T>(ldc * p.n, 3)),
        alpha(scalar<T>(1.25, -0.75)),
        beta(scalar<T>(beta_re, 0)) {}

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
