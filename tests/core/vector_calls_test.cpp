// SPDX-License-Identifier: MIT
// Elementwise routines of the core and the triangle of a product: each element by its formula, bit for bit,
// for every number of threads, from sizes of nothing to sizes that are divided.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

#include "tests/support/elements.h"
#include "zor/blas.h"
#include "zor/core.h"
#include "zor/signatures/blas.h"

namespace {

using namespace zor_test;

constexpr int32_t thread_counts[] = {1, 2, 7};
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

template <class T>
bool same(const vector<T>& a, const vector<T>& b) {
  return same_bits(reals(a.data.data()), reals(b.data.data()), a.data.size() * parts<T>);
}

// a b as four products, rounded one by one.
template <class T, class A>
T times(A a, T x) {
  if constexpr (parts<T> == 1) {
    return a * x;
  } else if constexpr (parts<A> == 1) {
    return {a * x.re, a * x.im};
  } else {
    return {a.re * x.re - a.im * x.im, a.re * x.im + a.im * x.re};
  }
}
template <class T>
T plus(T a, T b) {
  if constexpr (parts<T> == 1)
    return a + b;
  else
    return {a.re + b.re, a.im + b.im};
}
template <class T>
T conjugate(T a) {
  if constexpr (parts<T> == 2) a.im = -a.im;
  return a;
}
template <class T>
T negative(T a) {
  return times<T, real<T>>(-1, a);
}
template <class T>
bool is(T a, double value) {
  return part(a, 0) == real<T>(value) && part(a, 1) == 0;
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
        for (const int32_t threads : thread_counts) {
          zor_set_threads(threads);
          vector<T> u(n, incx, 1), v(n, incy, 2);
          call(&n, u.data.data(), &incx, v.data.data(), &incy);
          ASSERT_TRUE(same(x, u) && same(y, v))
              << name << " n=" << n << " incx=" << incx << " incy=" << incy << " threads=" << threads;
        }
      }
  zor_set_threads(0);
}

template <class T>
void check_copy(const char* name, zor::copy_fn<T>* copy) {
  check<T>(
      name, [](T& x, T& y) { y = x; },
      [&](auto n, T* x, auto incx, T* y, auto incy) { copy(n, x, incx, y, incy); });
}
template <class T, class A>
void check_scal(const char* name, zor::scal_fn<T, A>* scal) {
  const A alpha = scalar<A>(0.7, -0.3);
  check<T>(
      name, [&](T& x, T&) { x = times(alpha, x); },
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
        x = plus(times(c, x), times(s, y));
        y = plus(times(c, y), negative(times(conjugate(s), old)));
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
      const T t = times(alpha, conjugated ? conjugate(y.at(j)) : y.at(j));
      for (zor_int i = 0; i < c.m; ++i)
        expected.at(i + j * lda) = plus(expected.at(i + j * lda), times(t, x.at(i)));
    }
    for (const int32_t threads : thread_counts) {
      zor_set_threads(threads);
      vector<T> a = start;
      ger(&c.m, &c.n, &alpha, x.data.data(), &c.incx, y.data.data(), &c.incy, a.data.data(), &lda);
      ASSERT_TRUE(same(expected, a)) << name << " m=" << c.m << " n=" << c.n << " threads=" << threads;
    }
  }
  zor_set_threads(0);
}

TEST(VectorCalls, RankOneUpdatesForAllThreads) {
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
      for (const double b0 : {0.0, 1.0, -2.0})
        for (const int32_t threads : thread_counts) {
          if (n == 300 && letters[1] != 'N') continue;
          SCOPED_TRACE(::testing::Message()
                       << name << " n=" << n << " " << letters << " beta=" << b0 << " threads=" << threads);
          zor_set_threads(threads);
          const zor_int k = 11, lda = letters[1] == 'N' ? n + 1 : k, ldb = letters[2] == 'N' ? k : n + 2,
                        ldc = n + 3;
          random_bits random(5);
          const auto integers = [&](size_t count) {
            std::vector<T> v(count);
            for (size_t i = 0; i < count * parts<T>; ++i)
              reals(v.data())[i] = real<T>(int(random.unit() * 8));
            return v;
          };
          const std::vector<T> a = integers(size_t(lda * (n + k))), b = integers(size_t(ldb * (n + k)));
          const T nan = scalar<T>(std::numeric_limits<double>::quiet_NaN(), 1), alpha = scalar<T>(2, 1),
                  beta = scalar<T>(b0, 0);
          std::vector<T> c = integers(size_t(ldc * n));
          const bool lower = letters[0] == 'L';
          const auto inside = [&](zor_int i, zor_int j) { return i < n && (lower ? i >= j : i <= j); };
          for (zor_int j = 0; j < n; ++j)
            for (zor_int i = 0; i < ldc; ++i)
              if (!inside(i, j) || b0 == 0) c[size_t(i + j * ldc)] = nan;
          std::vector<T> expected = c;
          const auto element = [](const std::vector<T>& m, zor_int ld, char op, zor_int i, zor_int j) {
            const T e = m[size_t(op == 'N' ? i + j * ld : j + i * ld)];
            return op == 'C' ? conjugate(e) : e;
          };
          for (zor_int j = 0; j < n; ++j)
            for (zor_int i = 0; i < n; ++i) {
              if (!inside(i, j)) continue;
              T sum{};
              for (zor_int p = 0; p < k; ++p)
                sum = plus(sum, times(element(a, lda, letters[1], i, p), element(b, ldb, letters[2], p, j)));
              T& e = expected[size_t(i + j * ldc)];
              e = b0 == 0 ? times(alpha, sum) : plus(times(alpha, sum), times(beta, e));
            }
          gemmt(letters, letters + 1, letters + 2, &n, &k, &alpha, a.data(), &lda, b.data(), &ldb, &beta,
                c.data(), &ldc);
          for (zor_int j = 0; j < n; ++j)
            for (zor_int i = 0; i < ldc; ++i) {
              const T &e = expected[size_t(i + j * ldc)], &f = c[size_t(i + j * ldc)];
              for (int h = 0; h < int(parts<T>); ++h)
                ASSERT_TRUE(part(e, h) == part(f, h) ||
                            (part(e, h) != part(e, h) && part(f, h) != part(f, h)))
                    << i << " " << j;
            }
        }
  zor_set_threads(0);
}

TEST(VectorCalls, OneTriangleOfAProduct) {
#define ROW_GEMMT(name, T) check_gemmt<T>(#name, name);
#include "zor/tables/core_level3.inc"
}

}  // namespace
