// SPDX-License-Identifier: MIT
// The matrix-vector kernels against plain loops: bits, exception flags, and what lies between and around the
// operands.
#include <pthread.h>

#include <cmath>
#include <string>
#include <vector>

#include "tests/ref/matvec.h"
#include "tests/support/elements.h"
#include "tests/support/operand.h"
#include "zor/blas.h"

namespace {

using namespace zor_test;

struct gemv_case {
  char trans;
  zor_int m, n;
  double alpha[2], beta[2];
  zor_int incx = 1, incy = 1, pad = 0;
  bool at_end = true;
};

std::ostream& operator<<(std::ostream& out, const gemv_case& c) {
  return out << c.trans << " m=" << c.m << " n=" << c.n << " pad=" << c.pad << " incx=" << c.incx
             << " incy=" << c.incy << " alpha=" << c.alpha[0] << "," << c.alpha[1] << " beta=" << c.beta[0]
             << "," << c.beta[1] << " at_end=" << c.at_end;
}

// Runs one case; `spoil` may plant special values into the operands.
template <class T, class Kernel, class Spoil>
void check_gemv(const char* name, Kernel kernel, const gemv_case& c, const Spoil& spoil) {
  SCOPED_TRACE(::testing::Message() << name << " " << c);
  const bool plain = c.trans == 'N' || c.trans == 'n';
  const zor_int inputs = plain ? c.n : c.m, outputs = plain ? c.m : c.n, lda = c.m + c.pad;
  guarded<T> a(extent(c.m, c.n, lda), c.at_end), x(extent(inputs, c.incx), c.at_end),
      y(extent(outputs, c.incy), c.at_end);
  random_bits random(uint64_t(c.m * 1009 + c.n));
  fill_nan(a), fill_nan(x);
  for (zor_int j = 0; j < c.n; ++j)
    for (zor_int i = 0; i < c.m; ++i) a[size_t(i + j * lda)] = random_element<T>(random);
  for (zor_int i = 0; i < inputs; ++i) x[size_t(i * std::abs(c.incx))] = random_element<T>(random);
  fill(y, random);
  spoil(a, x, y);
  const T alpha = scalar<T>(c.alpha[0], c.alpha[1]), beta = scalar<T>(c.beta[0], c.beta[1]);
  const T *const av = a.data(), *const xv = x.data();
  compare(
      y, [&](T* v) { zor_ref::gemv(c.trans, c.m, c.n, alpha, av, lda, xv, c.incx, beta, v, c.incy); },
      [&](T* v) { kernel(&c.trans, &c.m, &c.n, &alpha, av, &lda, xv, &c.incx, &beta, v, &c.incy); });
}

template <class T, class Kernel>
void check_gemv_family(const char* name, Kernel kernel) {
  // Sizes around the lane counts of all widths and the staged pieces of 128 and 1000.
  for (char trans : {'N', 't', 'C'}) {
    for (zor_int m : {1, 2, 3, 5, 8, 15, 16, 17, 31, 33, 67})
      for (zor_int n : {1, 2, 3, 4, 7, 8, 15, 16, 17, 33, 70})
        check_gemv<T>(name, kernel, {trans, m, n, {1.25, -0.5}, {0.75, 0.25}, 1, 1, (m + n) % 4, m % 2 != 0},
                      keep);
    struct {
      zor_int m, n, pad;
    } large[] = {{999, 5, 1},   {1001, 130, 1}, {2003, 3, 1},  {4, 1001, 1},
                 {129, 129, 1}, {127, 2001, 1}, {31, 40, 7000}};
    for (auto [m, n, pad] : large) {
      for (zor_int incx : {1, 2, -1, -3})
        for (zor_int incy : {1, -1, 2})
          check_gemv<T>(name, kernel, {trans, m, n, {-0.7, 0.3}, {1, 0}, incx, incy, pad, incx > 0}, keep);
    }
    for (zor_int inc : {1, 2})
      for (double alpha : {0.0, 1.0, -1.0, double(NAN), double(INFINITY)})
        for (double alpha_im : {0.0, 0.5})
          for (double beta : {0.0, 1.0, -1.0, double(NAN)})
            for (double beta_im : {0.0, 2.0})
              check_gemv<T>(name, kernel, {trans, 19, 21, {alpha, alpha_im}, {beta, beta_im}, inc, inc},
                            keep);
    for (zor_int m : {-1, 0, 3})
      check_gemv<T>(name, kernel, {trans, m < 0 ? 0 : m, m > 0 ? 0 : 3, {1, 1}, {0, 0}}, keep);
  }
}

TEST(Gemv, BitsAndFlagsOfThePlainLoops) {
#define ROW_XGEMV(name, T) check_gemv_family<T>(#name, name);
#include "zor/tables/blas_matvec.inc"
}

// One special value at every place in turn: it must reach what the data say and raise what the data raise.
template <class T, class Kernel>
void check_gemv_specials(const char* name, Kernel kernel) {
  using R = real<T>;
  const double tiny = std::is_same_v<R, float> ? 1e-40 : 4e-310;
  const double huge = std::is_same_v<R, float> ? 3e38 : 1.7e308;
  for (char trans : {'N', 'T', 'C'})
    for (double special : {double(NAN), double(INFINITY), 0.0, tiny, huge})
      for (zor_int place = 0; place < 37; place += 3)
        for (zor_int inc : {1, 3}) {
          const gemv_case c{trans, 37, 37, {2, 0}, {1, 0}, inc, inc};
          check_gemv<T>(name, kernel, c, [&](auto& a, auto& x, auto& y) {
            a[size_t(place * 37 + 36 - place)] = scalar<T>(special, 1);
            x[size_t(place * inc)] = scalar<T>(1, special);
            y[size_t((36 - place) * inc)] = scalar<T>(special, special);
          });
        }
}

TEST(Gemv, SpecialValuesStayWhereTheDataPutThem) {
#define ROW_XGEMV(name, T) check_gemv_specials<T>(#name, name);
#include "zor/tables/blas_matvec.inc"
}

// Operands off their element's boundary are summed without staging: one sum over all rows.
TEST(Gemv, MisalignedOperandsAreNotStaged) {
  const zor_int m = 2500, n = 3, inc = 2, one_step = 1;
  std::vector<double> a(size_t(m * n)), x(size_t(2 * m)), expected(n, 0.5);
  random_bits random(5);
  for (double& v : a) v = random.unit();
  for (double& v : x) v = random.unit();
  for (zor_int j = 0; j < n; ++j) {
    double sum = 0;
    for (zor_int i = 0; i < m; ++i) sum = zor_ref::plus_term(sum, x[size_t(2 * i)], a[size_t(i + j * m)]);
    expected[size_t(j)] = zor_ref::plus_term(expected[size_t(j)], 1.5, sum);
  }
  std::vector<char> shifted(a.size() * sizeof(double) + 4);
  std::memcpy(shifted.data() + 4, a.data(), a.size() * sizeof(double));
  std::vector<double> y(n, 0.5);
  const double alpha = 1.5, beta = 1;
  // The misaligned address goes through an integer: the compiler may not reason about it.
  auto* misaligned = reinterpret_cast<const double*>(reinterpret_cast<uintptr_t>(shifted.data()) + 4);
  zor_blas_xdgemv("T", &m, &n, &alpha, misaligned, &m, x.data(), &inc, &beta, y.data(), &one_step);
  EXPECT_TRUE(same_bits(expected.data(), y.data(), y.size()));
}

}  // namespace
