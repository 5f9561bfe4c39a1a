// SPDX-License-Identifier: MIT
// The BLAS library beyond what the testers of the reference look at: special values, results in registers,
// reports of bad arguments through routines of this program, extensions, many threads, no memory.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cfenv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/libblas/library.h"

extern "C" void* __libc_malloc(size_t);

namespace {

struct report {
  std::string name;
  long long position;
};
std::mutex guard;
std::vector<report> reports;
thread_local std::vector<report> own_reports;
std::atomic<bool> memory_is_short{false};

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN(),
                 infinity = std::numeric_limits<double>::infinity();

}  // namespace

// Those of the program, instead of the library's.
extern "C" void xerbla_(const char* name, const blasint* position, size_t length) {
  const std::lock_guard<std::mutex> lock(guard);
  reports.push_back({std::string(name, length), *position});
  own_reports.push_back(reports.back());
}
extern "C" void cblas_xerbla(blasint position, const char* name, const char*, ...) {
  const std::lock_guard<std::mutex> lock(guard);
  reports.push_back({name, position});
}
#ifndef ZOR_SANITIZED
extern "C" void* malloc(size_t bytes) { return memory_is_short ? nullptr : __libc_malloc(bytes); }
#endif

namespace {

constexpr int data_flags = FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW | FE_UNDERFLOW | FE_INEXACT;
template <class Call>
int flags_of(const Call& call) {
  std::feclearexcept(FE_ALL_EXCEPT);
  call();
  return std::fetestexcept(data_flags);
}

// The loop of the reference: the first element, and whatever is larger.
template <class T>
blasint first_largest(const std::vector<T>& x) {
  blasint found = 1;
  const auto magnitude = [](T v) {
    if constexpr (std::is_same_v<T, c64>)
      return std::fabs(v.real()) + std::fabs(v.imag());
    else
      return std::fabs(v);
  };
  for (size_t i = 1; i < x.size(); ++i)
    if (magnitude(x[i]) > magnitude(x[size_t(found) - 1])) found = blasint(i) + 1;
  return found;
}

TEST(SpecialValues, SearchAmongNaN) {
  const blasint one = 1;
  for (blasint n = 1; n < 90; ++n)
    for (blasint at = -1; at < n; at += 1 + n / 7) {
      std::vector<double> x(size_t(n), 0);
      for (blasint i = 0; i < n; ++i) x[size_t(i)] = double((i * 37) % 23) - 11;
      if (at >= 0) x[size_t(at)] = nan_value;
      if (at >= 0 && at + 5 < n) x[size_t(at) + 5] = infinity;
      std::vector<float> s(x.begin(), x.end());
      std::vector<c64> z(x.begin(), x.end());
      for (const int before : {0, FE_INVALID}) {
        std::feclearexcept(FE_ALL_EXCEPT);
        std::feraiseexcept(before);
        ASSERT_EQ(first_largest(x), idamax_(&n, x.data(), &one)) << n << " " << at;
        ASSERT_EQ(before | (at >= 0 && n > 1 ? FE_INVALID : 0), std::fetestexcept(data_flags))
            << n << " " << at;
        ASSERT_EQ(first_largest(s), isamax_(&n, s.data(), &one)) << n << " " << at;
        ASSERT_EQ(first_largest(z), izamax_(&n, z.data(), &one)) << n << " " << at;
        ASSERT_EQ(size_t(first_largest(x)) - 1, cblas_idamax(n, x.data(), 1));
      }
      blasint found = -1;
      idamaxsub_(&n, x.data(), &one, &found);
      ASSERT_EQ(first_largest(x), found);
    }
}

TEST(SpecialValues, Nothing) {
  const blasint none = 0, minus = -1, one = 1, three = 3;
  double x[3] = {1, 2, 3};
  const c64 dot = zdotc_(&none, nullptr, &one, nullptr, &one);
  EXPECT_EQ(c64(0, 0), dot);
  EXPECT_EQ(0, isamax_(&minus, nullptr, &one));
  EXPECT_EQ(0, idamax_(&three, x, &none));
  EXPECT_EQ(0u, cblas_idamax(0, nullptr, 1));
  EXPECT_EQ(0, dasum_(&three, x, &none));
  EXPECT_EQ(0, dasum_(&three, x, &minus));
  EXPECT_EQ(0, dnrm2_(&none, nullptr, &one));
  const double two = 2;
  dscal_(&three, &two, x, &minus);
  dscal_(&three, &two, x, &none);
  daxpy_(&none, &two, nullptr, &one, nullptr, &one);
  EXPECT_EQ(1, x[0]);
  EXPECT_EQ(2, x[1]);
  dgemm_("N", "N", &none, &three, &three, &two, nullptr, &three, nullptr, &three, &two, nullptr, &three, 1,
         1);
  dgemv_("T", &three, &none, &two, nullptr, &three, nullptr, &one, &two, nullptr, &one);
  EXPECT_TRUE(reports.empty());
}

TEST(SpecialValues, NormsOfInfinitiesAndNaN) {
  const struct {
    double x[4], norm;
  } cases[] = {{{1, infinity, 2, -infinity}, infinity},
               {{infinity, 0, 0, 0}, infinity},
               {{infinity, nan_value, infinity, 1}, nan_value},
               {{nan_value, 1, 1, 1}, nan_value},
               {{3e200, 4e200, 0, 0}, 5e200},
               {{3e-200, 0, 4e-200, 0}, 5e-200}};
  const blasint four = 4, two = 2, one = 1, minus = -1;
  for (const auto& c : cases) {
    double norm[3] = {};
    const int flags = flags_of([&] {
      norm[0] = dnrm2_(&four, c.x, &one);
      norm[1] = dnrm2_(&four, c.x, &minus);
      norm[2] = dznrm2_(&two, reinterpret_cast<const c64*>(c.x), &one);
    });
    for (const double n : norm) {
      if (std::isfinite(c.norm)) {
        EXPECT_NEAR(1, n / c.norm, 1e-15);
      } else {
        EXPECT_TRUE(n == c.norm || (std::isnan(n) && std::isnan(c.norm))) << n;
      }
    }
    const int raised = std::isfinite(c.norm) ? 0 : flags & (FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW);
    EXPECT_EQ(0, raised) << c.x[0];
  }
}

TEST(SpecialValues, FactorsOfZero) {
  const blasint two = 2, one = 1;
  const double zero = 0, unit = 1;
  const double a[4] = {nan_value, infinity, nan_value, 1};
  double c[4] = {nan_value, infinity, 7, 8};
  EXPECT_EQ(0, flags_of([&] {
              dgemm_("N", "T", &two, &two, &two, &zero, a, &two, a, &two, &zero, c, &two, 1, 1);
            }));
  for (const double e : c) EXPECT_EQ(0, e);
  double y[2] = {nan_value, nan_value};
  EXPECT_EQ(0, flags_of([&] { dgemv_("N", &two, &two, &zero, a, &two, a, &one, &zero, y, &one); }));
  EXPECT_EQ(0, y[0] + y[1]);
  double t[4] = {nan_value, 5, nan_value, nan_value};
  dsyrk_("U", "N", &two, &two, &zero, a, &two, &zero, t, &two);
  EXPECT_EQ(0, t[0] + t[2] + t[3]);
  EXPECT_EQ(5, t[1]);
  double x[2] = {infinity, 1};
  dscal_(&two, &zero, x, &one);
  EXPECT_TRUE(std::isnan(x[0]));
  dscal_(&two, &unit, x, &one);
  EXPECT_EQ(0, x[1]);
}

TEST(Results, ComplexOnesComeInRegisters) {
  const blasint two = 2, one = 1;
  const c64 x[2] = {{1, 2}, {3, 4}}, y[2] = {{5, 6}, {7, 8}};
  const c32 u[2] = {{1, 2}, {3, 4}}, v[2] = {{5, 6}, {7, 8}};
  const c64 expected = std::conj(x[0]) * y[0] + std::conj(x[1]) * y[1];
  EXPECT_EQ(expected, zdotc_(&two, x, &one, y, &one));
  EXPECT_EQ(u[0] * v[0] + u[1] * v[1], cdotu_(&two, u, &one, v, &one));
  c64 result;
  zdotcsub_(&two, x, &one, y, &one, &result);
  EXPECT_EQ(expected, result);
  cblas_zdotc_sub(2, x, 1, y, 1, &result);
  EXPECT_EQ(expected, result);
}

TEST(Reports, FortranNamesAndPositions) {
  const blasint two = 2, one = 1, minus = -1, none = 0;
  const double factor = 1;
  double a[4] = {1, 2, 3, 4}, c[4] = {5, 6, 7, 8};
  reports.clear();
  dgemm_("X", "N", &two, &two, &two, &factor, a, &two, a, &two, &factor, c, &two, 1, 1);
  dgemm_("N", "N", &two, &minus, &two, &factor, a, &two, a, &two, &factor, c, &two, 1, 1);
  dgemm_("N", "N", &two, &two, &two, &factor, a, &two, a, &two, &factor, c, &one, 1, 1);
  dgemm_("N", "N", &two, &two, &two, &factor, nullptr, &two, a, &two, &factor, c, &two, 1, 1);
  dgemv_("N", &two, &two, &factor, a, &two, a, &none, &factor, c, &one);
  domatcopy_("C", "N", &two, &two, &factor, a, &one, c, &two);
  dgeadd_(&two, &two, &factor, a, &one, &factor, c, &two);
  const long long positions[] = {1, 4, 13, 7, 8, 7, 5};
  const char* const names[] = {"DGEMM ", "DGEMM ", "DGEMM ", "DGEMM ", "DGEMV ", "DOMATCOPY", "DGEADD"};
  ASSERT_EQ(std::size(positions), reports.size());
  for (size_t i = 0; i < reports.size(); ++i) {
    EXPECT_EQ(names[i], reports[i].name);
    EXPECT_EQ(positions[i], reports[i].position);
  }
  for (int i = 0; i < 4; ++i) EXPECT_EQ(5 + i, c[i]);
  reports.clear();
  const blasint five = 5, ten = 10;
  xerbla_array_("dgetrfblob", &ten, &five);
  ASSERT_EQ(1u, reports.size());
  EXPECT_EQ("dgetrfblob", reports[0].name.substr(0, 10));
  reports.clear();
}

TEST(Reports, OptionsOfCblas) {
  double a[4] = {}, c[4] = {1, 2, 3, 4};
  reports.clear();
  cblas_dgemm(CBLAS_LAYOUT(100), no_trans, no_trans, 2, 2, 2, 1, a, 2, a, 2, 0, c, 2);
  cblas_dgemm(by_rows, CBLAS_TRANSPOSE(5), CBLAS_TRANSPOSE(7), 2, 2, 2, 1, a, 2, a, 2, 0, c, 2);
  cblas_dgemm(by_columns, no_trans, CBLAS_TRANSPOSE(7), 2, 2, 2, 1, a, 2, a, 2, 0, c, 2);
  ASSERT_EQ(3u, reports.size());
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ("cblas_dgemm", reports[size_t(i)].name);
    EXPECT_EQ(i + 1, reports[size_t(i)].position);
  }
  reports.clear();
  for (int i = 0; i < 4; ++i) EXPECT_EQ(i + 1, c[i]);
}

// The library's own routines, which print and return; rows exchange the positions of what they exchange.
TEST(Reports, PrintedOnes) {
  void* const library = dlopen(ZOR_BLAS_FILE, RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(nullptr, library);
  const auto own_xerbla = reinterpret_cast<decltype(&xerbla_)>(dlsym(library, "xerbla_"));
  const auto own_cblas = reinterpret_cast<decltype(&cblas_xerbla)>(dlsym(library, "cblas_xerbla"));
  int& rows = *static_cast<int*>(dlsym(library, "RowMajorStrg"));
  ASSERT_NE(&xerbla_, own_xerbla);
  const blasint eight = 8;
  ::testing::internal::CaptureStderr();
  own_xerbla("DGEMM ", &eight, 6);
  own_cblas(8, "cblas_dgemm", "");
  rows = 1;
  for (const char* name : {"cblas_dgemm", "cblas_dger", "cblas_zher2", "cblas_zher2k"})
    own_cblas(8, name, "");
  own_cblas(4, "cblas_dgemv", "n is %d\n", -3);
  rows = 0;
  EXPECT_EQ(
      " ** On entry to DGEMM  parameter number  8 had an illegal value\n"
      "Parameter 8 to routine cblas_dgemm was incorrect\nParameter 10 to routine cblas_dgemm was incorrect\n"
      "Parameter 6 to routine cblas_dger was incorrect\nParameter 6 to routine cblas_zher2 was incorrect\n"
      "Parameter 8 to routine cblas_zher2k was incorrect\nParameter 3 to routine cblas_dgemv was "
      "incorrect\nn is -3\n",
      ::testing::internal::GetCapturedStderr());
  EXPECT_TRUE(lsame_("n", "N"));
  EXPECT_FALSE(lsame_("n", "T"));
}

TEST(Extensions, ByRows) {
  const double a[6] = {1, 2, 3, 4, 5, 6}, b[6] = {1, -1, 2, -2, 3, -3};
  // A is 2 by 3, B is 3 by 2, both by rows.
  double c[4] = {nan_value, 9, nan_value, nan_value};
  cblas_dgemmt(by_rows, lower, no_trans, no_trans, 2, 3, 1, a, 3, b, 2, 0, c, 2);
  const double expected[4] = {14, 9, 32, -32};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(expected[i], c[i]);
  double t[6];
  cblas_domatcopy(by_rows, trans, 2, 3, 2, a, 3, t, 2);
  const double transposed[6] = {2, 8, 4, 10, 6, 12};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(transposed[i], t[i]);
  cblas_daxpby(6, 3, a, 1, 0.5, t, 1);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(3 * a[i] + 0.5 * transposed[i], t[i]);
  // The first two columns of A, 2 by 3 by rows, into a 2 by 2 matrix; factors of 0 do not read.
  double s[4] = {nan_value, nan_value, nan_value, nan_value};
  const double factors[][2] = {{2, 0}, {1, 3}, {0, 0.5}, {0, 0}}, results[] = {2, 7, 3.5, 0};
  for (int k = 0; k < 4; ++k) {
    cblas_dgeadd(by_rows, 2, 2, factors[k][0], factors[k][0] == 0 ? nullptr : a, 3, factors[k][1], s, 2);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(results[k] * a[i / 2 * 3 + i % 2], s[i]) << k;
  }
}

// A conjugate transpose by rows takes x conjugated: a copy, which needs memory when it is long.
TEST(Memory, WithoutItACallSaysSoAndWritesNothing) {
#ifdef ZOR_SANITIZED
  GTEST_SKIP() << "a sanitizer has an allocator of its own";
#endif
  constexpr int m = 200, n = 3;
  std::vector<c64> a(m * n), x(m);
  for (int i = 0; i < m * n; ++i) a[size_t(i)] = c64(i % 5, i % 7);
  for (int i = 0; i < m; ++i) x[size_t(i)] = c64(i % 3, 1);
  c64 y[n] = {{1, 1}, {2, 2}, {3, 3}}, expected[n];
  const c64 alpha(1, 1), beta(2, 0);
  for (int j = 0; j < n; ++j) {
    expected[j] = 0;
    for (int i = 0; i < m; ++i) expected[j] += std::conj(a[size_t(i * n + j)]) * x[size_t(i)];
    expected[j] = alpha * expected[j] + beta * y[j];
  }
  reports.clear();
  memory_is_short = true;
  cblas_zgemv(by_rows, conj_trans, m, n, &alpha, a.data(), n, x.data(), 1, &beta, y, 1);
  memory_is_short = false;
  ASSERT_EQ(1u, reports.size());
  EXPECT_EQ("cblas_zgemv", reports[0].name);
  EXPECT_EQ(0, reports[0].position);
  EXPECT_EQ(c64(2, 2), y[1]);
  cblas_zgemv(by_rows, conj_trans, m, n, &alpha, a.data(), n, x.data(), 1, &beta, y, 1);
  for (int j = 0; j < n; ++j) EXPECT_EQ(expected[j], y[j]);
}

// Sixteen threads at once: the bits of one, and each bad call reported to the thread that made it.
TEST(Threads, MixedCalls) {
  static constexpr blasint n = 150;
  const auto work = [](int seed, std::vector<double>& result) {
    std::vector<double> a(n * n), b(n * n);
    for (int i = 0; i < n * n; ++i)
      a[size_t(i)] = double((i * 31 + seed) % 97) / 97, b[size_t(i)] = double(i % 89) / 89;
    result.assign(n * n, 0.5);
    const double alpha = 0.3, beta = 0.7;
    const blasint one = 1, all = n * n, bad = -1;
    for (int i = 0; i < 4; ++i) {
      dgemm_("N", i % 2 ? "T" : "N", &n, &n, &n, &alpha, a.data(), &n, b.data(), &n, &beta, result.data(), &n,
             1, 1);
      dgemm_("N", "N", &bad, &n, &n, &alpha, a.data(), &n, b.data(), &n, &beta, result.data(), &n, 1, 1);
      dsyrk_("L", "T", &n, &n, &alpha, a.data(), &n, &beta, result.data(), &n);
      daxpy_(&all, &alpha, a.data(), &one, result.data(), &one);
      result[size_t(i)] += ddot_(&all, a.data(), &one, b.data(), &one);
    }
  };
  constexpr int count = 16;
  std::vector<std::vector<double>> alone(count), together(count);
  for (int i = 0; i < count; ++i) work(i, alone[size_t(i)]);
  reports.clear();
  std::vector<size_t> reported(count);
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i)
    threads.emplace_back([&, i] {
      work(i, together[size_t(i)]);
      for (const report& r : own_reports) reported[size_t(i)] += r.name == "DGEMM " && r.position == 3;
    });
  for (std::thread& t : threads) t.join();
  for (int i = 0; i < count; ++i) {
    EXPECT_EQ(0, std::memcmp(alone[size_t(i)].data(), together[size_t(i)].data(), n * n * sizeof(double)))
        << i;
    EXPECT_EQ(4u, reported[size_t(i)]);
  }
  EXPECT_EQ(4u * count, reports.size());
  reports.clear();
}

}  // namespace
