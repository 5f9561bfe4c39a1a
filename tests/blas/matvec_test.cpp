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

zor_int extent(zor_int n, zor_int inc) { return n < 1 ? 0 : (n - 1) * std::abs(inc) + 1; }

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
  guarded<T> a(size_t(c.n > 0 ? (c.n - 1) * lda + c.m : 0), c.at_end),
      x(size_t(extent(inputs, c.incx)), c.at_end), y(size_t(extent(outputs, c.incy)), c.at_end),
      expected(y.size());
  random_bits random(uint64_t(c.m * 1009 + c.n));
  fill_nan(a), fill_nan(x);
  for (zor_int j = 0; j < c.n; ++j)
    for (size_t i = 0; i < size_t(c.m) * parts<T>; ++i)
      reals(&a[size_t(j * lda)])[i] = real<T>(random.unit());
  for (zor_int i = 0; i < inputs; ++i)
    x[size_t(i * std::abs(c.incx))] = scalar<T>(random.unit(), random.unit());
  fill(y, random);
  spoil(a, x, y);
  std::copy(y.begin(), y.end(), expected.begin());
  const T alpha = scalar<T>(c.alpha[0], c.alpha[1]), beta = scalar<T>(c.beta[0], c.beta[1]);
  const int expected_flags = flags_of([&] {
    zor_ref::gemv(c.trans, c.m, c.n, alpha, a.data(), lda, x.data(), c.incx, beta, expected.data(), c.incy);
  });
  const int flags = flags_of([&] {
    kernel(&c.trans, &c.m, &c.n, &alpha, a.data(), &lda, x.data(), &c.incx, &beta, y.data(), &c.incy);
  });
  EXPECT_TRUE(same_bits(reals(expected.data()), reals(y.data()), y.size() * parts<T>));
  EXPECT_EQ(expected_flags, flags);
}

constexpr auto keep = [](auto&, auto&, auto&) {};

template <class T, class Kernel>
void check_gemv_family(const char* name, Kernel kernel) {
  // Sizes around the lane counts of all widths and the staged pieces of 128 and 1000.
  for (char trans : {'N', 't', 'C'}) {
    for (zor_int m : {1, 2, 3, 5, 8, 15, 16, 17, 31, 33, 67})
      for (zor_int n : {1, 2, 3, 4, 7, 8, 15, 16, 17, 33, 70})
        check_gemv<T>(name, kernel,
                      {.trans = trans,
                       .m = m,
                       .n = n,
                       .alpha = {1.25, -0.5},
                       .beta = {0.75, 0.25},
                       .pad = (m + n) % 4,
                       .at_end = m % 2 != 0},
                      keep);
    struct {
      zor_int m, n, pad;
    } large[] = {{999, 5, 1},   {1001, 130, 1}, {2003, 3, 1},  {4, 1001, 1},
                 {129, 129, 1}, {127, 2001, 1}, {31, 40, 7000}};
    for (auto [m, n, pad] : large) {
      for (zor_int incx : {1, 2, -1, -3})
        for (zor_int incy : {1, -1, 2})
          check_gemv<T>(name, kernel,
                        {.trans = trans,
                         .m = m,
                         .n = n,
                         .alpha = {-0.7, 0.3},
                         .beta = {1, 0},
                         .incx = incx,
                         .incy = incy,
                         .pad = pad,
                         .at_end = incx > 0},
                        keep);
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
  // Exact data raise no flag at all, whatever the tails.
  for (char trans : {'N', 'T', 'C'})
    for (zor_int m = 1; m < 40; m += 2) {
      const zor_int n = 41 - m;
      const bool plain = trans == 'N';
      std::vector<T> a(size_t(m * n), scalar<T>(2, -1)), x(size_t(plain ? n : m), scalar<T>(3, 1)),
          y(size_t(plain ? m : n), scalar<T>(1, 4));
      const T one = scalar<T>(1, 0), half = scalar<T>(0.5, 0);
      const zor_int inc = 1;
      EXPECT_EQ(0, flags_of([&] {
                  kernel(&trans, &m, &n, &half, a.data(), &m, x.data(), &inc, &one, y.data(), &inc);
                }))
          << name << " " << trans << " m=" << m;
    }
}

TEST(Gemv, SpecialValuesStayWhereTheDataPutThem) {
#define ROW_XGEMV(name, T) check_gemv_specials<T>(#name, name);
#include "zor/tables/blas_matvec.inc"
}

// Strided vectors are staged on the stack, which must fit the smallest one that the documentation allows.
TEST(Gemv, RunsOnTheLeastStack) {
  constexpr size_t least_stack = 64 << 10;
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, least_stack));
  const auto body = [](void*) -> void* {
    for (char trans : {'N', 'T', 'C'}) {
      const zor_int m = 40, n = 40, inc = 2;
#define ROW_XGEMV(name, T)                                     \
  {                                                            \
    const T one = scalar<T>(1, 0);                             \
    static T a[40 * 40], x[80], y[80];                         \
    name(&trans, &m, &n, &one, a, &m, x, &inc, &one, y, &inc); \
  }
#include "zor/tables/blas_matvec.inc"
    }
    return nullptr;
  };
  pthread_t thread;
  ASSERT_EQ(0, pthread_create(&thread, &attributes, body, nullptr));
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
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
    for (zor_int i = 0; i < m; ++i) sum += a[size_t(i + j * m)] * x[size_t(2 * i)];
    expected[size_t(j)] += 1.5 * sum;
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

// Where the elements of a triangle stand in the array of a call.
struct storage {
  bool packed, upper;
  zor_int n, lda;
  zor_int first_row(zor_int j) const { return upper ? 0 : j; }
  zor_int end_row(zor_int j) const { return upper ? j + 1 : n; }
  size_t at(zor_int i, zor_int j) const {
    if (!packed) return size_t(i + j * lda);
    return size_t(upper ? i + j * (j + 1) / 2 : i + j * (2 * n - j - 1) / 2);
  }
  size_t size() const { return packed ? size_t(n * (n + 1) / 2) : n > 0 ? at(n - 1, n - 1) + 1 : 0; }
};

// call(uplo, n, alpha, x, incx, a, lda) updates a triangle that is full or packed.
template <class T, class Call>
void check_rank_one(const char* name, bool packed, const Call& call) {
  random_bits random(11);
  for (char uplo : {'U', 'u', 'L', 'l'})
    for (zor_int n : {0, 1, 2, 3, 7, 8, 9, 16, 17, 33, 130, 1003})
      for (zor_int incx : {1, 2, -1, -3})
        for (double alpha : {0.0, 1.0, -0.37, double(NAN)}) {
          if (n > 200 && alpha != -0.37) continue;
          SCOPED_TRACE(::testing::Message()
                       << name << " " << uplo << " n=" << n << " incx=" << incx << " " << alpha);
          const storage stored{packed, uplo == 'U' || uplo == 'u', n, n + 3};
          guarded<T> a(stored.size(), incx > 0), x(size_t(extent(n, incx)), incx > 0);
          fill(a, random), fill_nan(x);
          for (zor_int i = 0; i < n; ++i) x[size_t(i * std::abs(incx))] = T(random.unit());
          if (n > 2) x[size_t(std::abs(incx))] = 0;
          if (n > 8) x[size_t(5 * std::abs(incx))] = T(std::is_same_v<T, float> ? 1e-45 : 5e-324);
          if (n > 16) x[size_t(7 * std::abs(incx))] = T(INFINITY);
          // The reference updates a full square; nothing but the triangle comes back from it.
          std::vector<T> expected(a.begin(), a.end()), square(size_t(n * n));
          const auto for_triangle = [&](const auto& body) {
            for (zor_int j = 0; j < n; ++j)
              for (zor_int i = stored.first_row(j); i < stored.end_row(j); ++i)
                body(square[size_t(i + j * n)], expected[stored.at(i, j)]);
          };
          for_triangle([](T& in_square, T& in_storage) { in_square = in_storage; });
          const T s = T(alpha);
          const int expected_flags =
              flags_of([&] { zor_ref::syr(uplo, n, s, x.data(), incx, square.data(), n); });
          for_triangle([](T& in_square, T& in_storage) { in_storage = in_square; });
          const int flags = flags_of([&] { call(&uplo, &n, &s, x.data(), &incx, a.data(), &stored.lda); });
          EXPECT_TRUE(same_bits(expected.data(), a.data(), a.size()));
          EXPECT_EQ(expected_flags, flags);
        }
}

TEST(RankOne, BitsAndFlagsOfThePlainLoops) {
#define ROW_XSYR(name, T) check_rank_one<T>(#name, false, name);
#define ROW_SPR(name, T)                                                                                    \
  check_rank_one<T>(#name, true,                                                                            \
                    [](const char* uplo, const zor_int* n, const T* alpha, const T* x, const zor_int* incx, \
                       T* ap, const zor_int*) { name(uplo, n, alpha, x, incx, ap); });
#include "zor/tables/blas_matvec.inc"
}

}  // namespace
