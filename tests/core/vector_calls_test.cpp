// SPDX-License-Identifier: MIT
// Elementwise routines of the core and the triangle of a product: each element by its formula, bit for bit,
// for every number of threads, from sizes of nothing to sizes that are divided.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "tests/ref/gemm.h"
#include "tests/support/threads.h"
#include "zor/blas.h"
#include "zor/core.h"
#include "zor/signatures/blas.h"

namespace {

using namespace zor_test;
using zor_ref::by_real, zor_ref::conj, zor_ref::is, zor_ref::negative, zor_ref::plus, zor_ref::times;

constexpr zor_int sizes[] = {0, 1, 2, 9, 33, 1025, 70001};
constexpr zor_int steps[] = {1, -1, 2, -3};

template <class T>
struct vector {
  vector(zor_int size, zor_int increment, uint64_t seed)
      : n(size), inc(increment), data(size_t(n > 0 ? (n - 1) * (inc < 0 ? -inc : inc) + 1 : 1)) {
    random_bits random(seed);
    for (size_t i = 0; i < data.size() * parts<T>; ++i) reals(data.data())[i] = real<T>(random.unit());
  }
  T& at(zor_int i) { return data[size_t(inc < 0 ? (i + 1 - n) * inc : i * inc)]; }
  zor_int n, inc;
  std::vector<T> data;
};

// a x, of a real or complex a.
template <class T, class A>
T scaled(A a, T x) {
  if constexpr (std::is_same_v<A, T>)
    return times(a, x);
  else
    return by_real(a, x);
}

// Runs change(x, y) as the reference and call(x, y) with each number of threads.
template <class T, class Change, class Call>
void check(const char* name, const Change& change, const Call& call) {
  for (const zor_int n : sizes)
    for (const zor_int incx : steps)
      for (const zor_int incy : steps) {
        if (n > 2000 && incx != incy && incx != 1) continue;
        vector<T> x(n, incx, 1), y(n, incy, 2);
        for (zor_int i = 0; i < n; ++i) change(x.at(i), y.at(i));
        SCOPED_TRACE(::testing::Message() << name << " n=" << n << " incx=" << incx << " incy=" << incy);
        std::vector<T> expected = x.data;
        expected.insert(expected.end(), y.data.begin(), y.data.end());
        EXPECT_TRUE(same_elements(expected, with_any_threads([&] {
                                    vector<T> u(n, incx, 1), v(n, incy, 2);
                                    call(&n, u.data.data(), &incx, v.data.data(), &incy);
                                    u.data.insert(u.data.end(), v.data.begin(), v.data.end());
                                    return u.data;
                                  })));
      }
}

template <class T>
void check_copy(const char* name, zor::copy_fn<T>* copy) {
  check<T>(
      name, [](T& x, T& y) { y = x; },
      [&](auto n, T* x, auto incx, T* y, auto incy) { copy(n, x, incx, y, incy); });
}
template <class T>
void check_swap(const char* name, zor::swap_fn<T>* swap) {
  check<T>(
      name, [](T& x, T& y) { std::swap(x, y); },
      [&](auto n, T* x, auto incx, T* y, auto incy) { swap(n, x, incx, y, incy); });
}

template <class T>
void check_axpy(const char* name, zor::axpy_fn<T>* axpy) {
  const T alpha = scalar<T>(1.25, -0.75);
  check<T>(
      name, [&](T& x, T& y) { y = plus(y, times(alpha, x)); },
      [&](auto n, T* x, auto incx, T* y, auto incy) { axpy(n, &alpha, x, incx, y, incy); });
}

template <class T, class A>
void check_scal(const char* name, zor::scal_fn<T, A>* scal) {
  const A alpha = scalar<A>(0.7, -0.3);
  check<T>(
      name, [&](T& x, T&) { x = scaled(alpha, x); },
      [&](auto n, T* x, auto incx, T*, auto) { scal(n, &alpha, x, incx); });
}
template <class T, class C, class S>
void check_rot(const char* name, zor::rot_fn<T, C, S>* rot) {
  const C c = scalar<C>(0.8, 0);
  const S s = scalar<S>(0.36, 0.48);
  check<T>(
      name,
      [&](T& x, T& y) {
        const T old = x;
        x = plus(scaled(c, x), scaled(s, y));
        y = plus(scaled(c, y), negative(scaled(conj(s), old)));
      },
      [&](auto n, T* x, auto incx, T* y, auto incy) { rot(n, x, incx, y, incy, &c, &s); });
}
template <class T>
void check_axpby(const char* name, zor::axpby_fn<T>* axpby) {
  for (const double a : {0.7, 1.0, 0.0})
    for (const double b : {-0.6, 1.0, 0.0}) {
      const T alpha = scalar<T>(a, a == 0.7 ? 0.2 : 0), beta = scalar<T>(b, b == -0.6 ? 0.1 : 0);
      const auto factor = [](T f, T v) { return is(f, 1) ? v : times(f, v); };
      check<T>(
          name,
          [&](T& x, T& y) {
            if (is(beta, 0))
              y = is(alpha, 0) ? T{} : factor(alpha, x);
            else if (is(alpha, 0))
              y = factor(beta, y);
            else
              y = plus(factor(beta, y), times(alpha, x));
          },
          [&](auto n, T* x, auto incx, T* y, auto incy) { axpby(n, &alpha, x, incx, &beta, y, incy); });
    }
}

TEST(VectorCalls, EachElementByItsFormulaForAllThreads) {
#define ROW_COPY(name, T, kernel) check_copy<T>(#name, name);
#define ROW_SCAL(name, T, A) check_scal<T, A>(#name, name);
#define ROW_ROT(name, T, C, S, kernel) check_rot<T, C, S>(#name, name);
#define ROW_AXPBY(name, T) check_axpby<T>(#name, name);
#include "zor/tables/core_vector.inc"
#define ROW_SWAP(name, T) check_swap<T>(#name, name);
#define ROW_AXPY(name, T) check_axpy<T>(#name, name);
#include "zor/tables/core_blas.inc"
}

TEST(VectorCalls, AxpbyReadsNoOperandOfAFactorZero) {
  const double nan = std::numeric_limits<double>::signaling_NaN(), zero = 0, two = 2;
  double x[5] = {nan, nan, nan, nan, nan}, y[5] = {1, 2, 3, 4, 5};
  const zor_int n = 5, one = 1;
  EXPECT_EQ(0, flags_of([&] { zor_blas_daxpby(&n, &zero, x, &one, &two, y, &one); }));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(2 * (i + 1), y[i]);
  EXPECT_EQ(0, flags_of([&] { zor_blas_daxpby(&n, &two, y, &one, &zero, x, &one); }));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(4 * (i + 1), x[i]);
  const zor_int still = 0;
  double sum = 1;
  zor_blas_daxpby(&n, &two, y, &one, &two, &sum, &still);
  double expected = 1;
  for (int i = 0; i < 5; ++i) expected = 2 * expected + 2 * y[i];
  EXPECT_EQ(expected, sum);
}

// Updates that are divided by columns and, having few of them, by rows. A column of a zero y is left alone.
template <class T>
void check_ger(const char* name, bool conjugated, zor::xger_fn<T>* ger) {
  const struct {
    zor_int m, n, incx, incy;
  } cases[] = {{600, 611, 1, 2}, {611, 450, -2, -1}, {100003, 3, 1, 1}, {3, 50001, 1, 1}, {7, 5, 3, -2}};
  for (const auto& c : cases) {
    vector<T> x(c.m, c.incx, 1), y(c.n, c.incy, 2);
    y.at(c.n / 2) = T{};
    x.at(0) = scalar<T>(std::numeric_limits<double>::infinity(), 0);
    const zor_int lda = c.m + 1;
    const T alpha = scalar<T>(0.3, -0.2);
    const vector<T> start(lda * c.n, 1, 3);
    vector<T> expected = start;
    for (zor_int j = 0; j < c.n; ++j) {
      if (is(y.at(j), 0)) continue;
      const T t = times(alpha, conjugated ? conj(y.at(j)) : y.at(j));
      for (zor_int i = 0; i < c.m; ++i)
        expected.at(i + j * lda) = plus(expected.at(i + j * lda), times(t, x.at(i)));
    }
    SCOPED_TRACE(::testing::Message() << name << " m=" << c.m << " n=" << c.n);
    expect_with_any_threads(expected.data, start.data, [&](T* a) {
      ger(&c.m, &c.n, &alpha, x.data.data(), &c.incx, y.data.data(), &c.incy, a, &lda);
    });
  }
}

// One triangle; a column of a zero x is left alone.
template <class T>
void check_syr(const char* name, zor::syr_fn<T>* syr) {
  for (const char uplo : {'U', 'l'})
    for (const zor_int inc : {1, -2}) {
      const zor_int n = 1201, lda = 1203;
      vector<T> x(n, inc, 1);
      x.at(50) = x.at(1000) = 0;
      x.at(150) = std::numeric_limits<T>::denorm_min();
      const T alpha = T(-0.37);
      const vector<T> start(lda * n, 1, 3);
      vector<T> expected = start;
      for (zor_int j = 0; j < n; ++j)
        for (zor_int i = uplo == 'U' ? 0 : j; i < (uplo == 'U' ? j + 1 : n); ++i)
          if (alpha * x.at(j) != 0) expected.at(i + j * lda) += alpha * x.at(j) * x.at(i);
      SCOPED_TRACE(::testing::Message() << name << " " << uplo << " inc=" << inc);
      expect_with_any_threads(expected.data, start.data,
                              [&](T* a) { syr(&uplo, &n, &alpha, x.data.data(), &inc, a, &lda); });
    }
}

TEST(VectorCalls, RankOneUpdatesForAllThreads) {
#define ROW_SYR(name, T) check_syr<T>(#name, name);
#include "zor/tables/core_blas.inc"
#define ROW_GER(name, T) check_ger<T>(#name, false, name);
#define ROW_GERU ROW_GER
#define ROW_GERC(name, T) check_ger<T>(#name, true, name);
#include "zor/tables/core_matvec.inc"
}

// Small integers, so that every order of sums is exact; NaN in what may not be read.
template <class T>
void check_gemmt(const char* name, zor::gemmt_fn<T>* gemmt) {
  for (const zor_int n : {1, 5, 32, 33, 97, 300})
    for (const char* letters : {"UNN", "LNT", "UTN", "LTT", "UCN", "LNC"})
      for (const double b0 : {0.0, 1.0, -2.0}) {
        if (n == 300 && letters[1] != 'N') continue;
        SCOPED_TRACE(::testing::Message() << name << " n=" << n << " " << letters << " beta=" << b0);
        const zor_int k = 11, lda = letters[1] == 'N' ? n + 1 : k, ldb = letters[2] == 'N' ? k : n + 2,
                      ldc = n + 3;
        const auto integers = [](zor_int count, uint64_t seed) {
          std::vector<T> v = random_elements<T>(count, seed);
          for (size_t i = 0; i < v.size() * parts<T>; ++i)
            reals(v.data())[i] = real<T>(int(reals(v.data())[i] * 8));
          return v;
        };
        const std::vector<T> a = integers(lda * (n + k), 5), b = integers(ldb * (n + k), 6);
        const T alpha = scalar<T>(2, 1), beta = scalar<T>(b0, 0);
        std::vector<T> c = integers(ldc * n, 7), whole = c;
        zor_ref::gemm(zor_ref::product<T>{letters[1], letters[2], n, n, k, alpha, a.data(), lda, b.data(),
                                          ldb, beta, whole.data(), ldc});
        std::vector<T> expected = c;
        for (zor_int j = 0; j < n; ++j)
          for (zor_int i = 0; i < ldc; ++i) {
            const size_t at = size_t(i + j * ldc);
            const bool inside = i < n && (letters[0] == 'L' ? i >= j : i <= j);
            if (!inside || b0 == 0) c[at] = scalar<T>(std::numeric_limits<double>::quiet_NaN(), 1);
            expected[at] = inside ? whole[at] : c[at];
          }
        const auto result = with_any_threads(c, [&](T* to) {
          gemmt(letters, letters + 1, letters + 2, &n, &k, &alpha, a.data(), &lda, b.data(), &ldb, &beta, to,
                &ldc);
        });
        for (size_t i = 0; i < c.size() * parts<T>; ++i) {
          const real<T> e = reals(expected.data())[i], f = reals(result.data())[i];
          ASSERT_TRUE(e == f || (e != e && f != f)) << i << ": " << f << ", not " << e;
        }
      }
}

TEST(VectorCalls, OneTriangleOfAProduct) {
#define ROW_GEMMT(name, T) check_gemmt<T>(#name, name);
#include "zor/tables/core_level3.inc"
}

}  // namespace
