// SPDX-License-Identifier: MIT
// Level 3 of the core: the kernel's bits for every number of threads, at sizes where the kernels' own blocks
// end in a few rows or columns; bad arguments by name and place, with nothing written.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/support/elements.h"
#include "zor/blas.h"
#include "zor/core.h"
#include "zor/signatures/blas.h"

namespace {

using namespace zor_test;

constexpr int32_t thread_counts[] = {1, 2, 3, 7};

template <class T>
std::vector<T> random_run(size_t count, uint64_t seed) {
  random_bits random(seed);
  std::vector<T> v(count);
  for (size_t i = 0; i < count * parts<T>; ++i) reals(v.data())[i] = real<T>(random.unit());
  return v;
}

// Calls once(kernel, C) and once for every number of threads with the public routine: all must give the same
// C.
template <class T, class Fn, class Call>
void same_for_all_threads(Fn* kernel, Fn* routine, const std::vector<T>& c, const Call& call) {
  std::vector<T> expected = c;
  call(kernel, expected.data());
  for (const int32_t threads : thread_counts) {
    zor_core_set_num_threads(threads);
    std::vector<T> actual = c;
    call(routine, actual.data());
    ASSERT_TRUE(same_bits(reals(expected.data()), reals(actual.data()), c.size() * parts<T>))
        << threads << " threads";
  }
  zor_core_set_num_threads(0);
}

struct size3 {
  zor_int m, n, k;
};
std::ostream& operator<<(std::ostream& out, size3 s) {
  return out << "m=" << s.m << " n=" << s.n << " k=" << s.k;
}

template <class T>
void check_triangular(const char* name, zor::xtrsm_fn<T>* kernel, zor::xtrsm_fn<T>* routine) {
  // Other dimensions end a few beyond the kernels' blocks of 128, 512, 1024 and 2048, or just below.
  for (const zor_int others : {515, 1029, 2051, 1000, 643})
    for (const char* letters : {"LUNN", "LLTU", "RUTN", "RLNN"}) {
      SCOPED_TRACE(::testing::Message() << name << " " << letters << " " << others);
      const zor_int order = 64, m = letters[0] == 'L' ? order : others,
                    n = letters[0] == 'L' ? others : order;
      std::vector<T> a = random_run<T>(size_t(order * order), 1);
      for (zor_int i = 0; i < order; ++i) a[size_t(i + i * order)] = scalar<T>(30, 1);
      const T alpha = scalar<T>(0.5, 0.25);
      same_for_all_threads(kernel, routine, random_run<T>(size_t(m * n), 2), [&](auto* fn, T* b) {
        fn(letters, letters + 1, letters + 2, letters + 3, &m, &n, &alpha, a.data(), &order, b, &m);
      });
    }
}

constexpr size3 update_sizes[] = {{0, 131, 70}, {0, 258, 40}, {0, 300, 33}, {0, 1100, 5}};

template <class T, class S, class Fn, class Call>
void check_update(const char* name, Fn* kernel, Fn* routine, bool hermitian, const Call& call) {
  for (const size3& s : update_sizes)
    for (const char* letters : {"UN", "LN", hermitian ? "UC" : "UT", hermitian ? "LC" : "LT"}) {
      SCOPED_TRACE(::testing::Message() << name << " " << letters << " " << s);
      const zor_int ld = std::max(s.n, s.k);
      const std::vector<T> a = random_run<T>(size_t(ld * ld), 1), b = random_run<T>(size_t(ld * ld), 2);
      for (const double factor : {0.5, 0.0, 1.0})
        same_for_all_threads(kernel, routine, random_run<T>(size_t(s.n * s.n), 3), [&](auto* fn, T* c) {
          const S beta = scalar<S>(factor, 0.125);
          call(fn, letters, letters + 1, &s.n, &s.k, a.data(), b.data(), &ld, &beta, c);
        });
    }
}

template <class T, class S>
void check_rank_k(const char* name, zor::rank_k_fn<T, S>* kernel, zor::rank_k_fn<T, S>* routine,
                  bool hermitian) {
  check_update<T, S>(
      name, kernel, routine, hermitian,
      [](auto* fn, auto uplo, auto trans, auto n, auto k, auto a, auto, auto ld, auto beta, T* c) {
        const S alpha = scalar<S>(-0.75, 0.5);
        fn(uplo, trans, n, k, &alpha, a, ld, beta, c, n);
      });
}
template <class T, class S>
void check_rank_2k(const char* name, zor::rank_2k_fn<T, S>* kernel, zor::rank_2k_fn<T, S>* routine,
                   bool hermitian) {
  check_update<T, S>(
      name, kernel, routine, hermitian,
      [](auto* fn, auto uplo, auto trans, auto n, auto k, auto a, auto b, auto ld, auto beta, T* c) {
        const T alpha = scalar<T>(-0.75, 0.5);
        fn(uplo, trans, n, k, &alpha, a, ld, b, ld, beta, c, n);
      });
}

template <class T>
void check_symm(const char* name, zor::symm_fn<T>* kernel, zor::symm_fn<T>* routine) {
  for (const size3& s : {size3{130, 70, 0}, size3{60, 5003, 0}, size3{1001, 40, 0}})
    for (const char* letters : {"LU", "LL", "RU", "RL"}) {
      SCOPED_TRACE(::testing::Message() << name << " " << letters << " " << s);
      const zor_int order = letters[0] == 'L' ? s.m : s.n;
      if (order > 1001) continue;
      const auto a = random_run<T>(size_t(order * order), 1), b = random_run<T>(size_t(s.m * s.n), 2);
      const T alpha = scalar<T>(0.5, 0.25), beta = scalar<T>(2, -1);
      same_for_all_threads(kernel, routine, random_run<T>(size_t(s.m * s.n), 3), [&](auto* fn, T* c) {
        fn(letters, letters + 1, &s.m, &s.n, &alpha, a.data(), &order, b.data(), &s.m, &beta, c, &s.m);
      });
    }
}

template <class A, class T, class Fn>
void check_product(const char* name, Fn* kernel, Fn* routine) {
  for (const size3& s : {size3{70, 1003, 20}, size3{40, 1290, 25}, size3{129, 131, 70}})
    for (const char* letters : {"NN", "TC", "CT"}) {
      SCOPED_TRACE(::testing::Message() << name << " " << letters << " " << s);
      const zor_int lda = letters[0] == 'N' ? s.m : s.k, ldb = letters[1] == 'N' ? s.k : s.n;
      const auto a = random_run<A>(size_t(s.m * s.k), 1);
      const auto b = random_run<T>(size_t(s.k * s.n), 2);
      const T alpha = scalar<T>(0.5, 0.25), beta = scalar<T>(2, -1);
      same_for_all_threads(kernel, routine, random_run<T>(size_t(s.m * s.n), 3), [&](auto* fn, T* c) {
        fn(letters, letters + 1, &s.m, &s.n, &s.k, &alpha, a.data(), &lda, b.data(), &ldb, &beta, c, &s.m);
      });
    }
}

TEST(CoreLevel3, SameBitsForAllThreads) {
#define ROW_TRSM(name, T, kernel) check_triangular<T>(#name, kernel, name);
#define ROW_TRMM ROW_TRSM
#define ROW_SYRK(name, T, S, hermitian, kernel) check_rank_k<T, S>(#name, kernel, name, hermitian);
#define ROW_SYR2K(name, T, S, hermitian, kernel) check_rank_2k<T, S>(#name, kernel, name, hermitian);
#define ROW_PUBLIC_SYMM(name, T, kernel) check_symm<T>(#name, kernel, name);
#define ROW_GEMM3M(name, T, kernel) check_product<T, T>(#name, kernel, name);
#define ROW_PUBLIC_MIXED(name, T, R, kernel) check_product<R, T>(#name, kernel, name);
#include "zor/tables/core_level3.inc"
}

std::string reported;

// Runs call with a handler that notes what is reported.
template <class Call>
std::string report_of(const Call& call) {
  reported.clear();
  const auto before =
      zor_core_set_error_handler([](const char* routine, int32_t position, const char* argument) {
        reported += std::string(routine) + " " + std::to_string(position) + " " + argument;
      });
  call();
  zor_core_set_error_handler(before);
  return reported;
}

// What each argument may not be. Letters stand for themselves, n for a size below 0, 0 for a null pointer, l
// for a leading dimension too small.
TEST(CoreLevel3, BadArguments) {
  const zor_int three = 3, two = 2, minus = -1;
  const double one = 1;
  double a[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1}, b[9] = {2, 2, 2, 2, 2, 2, 2, 2, 2};
  const auto trsm = [&](const char* letters, const zor_int* m, const zor_int* n, const double* alpha,
                        const double* pa, const zor_int* lda, double* pb, const zor_int* ldb) {
    return report_of([&] {
      zor_blas_dtrsm(letters, letters + 1, letters + 2, letters + 3, m, n, alpha, pa, lda, pb, ldb);
    });
  };
  const std::string r = "zor_blas_dtrsm ";
  EXPECT_EQ(trsm("XUNN", &three, &three, &one, a, &three, b, &three), r + "1 side");
  EXPECT_EQ(trsm("LXNN", &three, &three, &one, a, &three, b, &three), r + "2 uplo");
  EXPECT_EQ(trsm("LUXN", &three, &three, &one, a, &three, b, &three), r + "3 transa");
  EXPECT_EQ(trsm("LUNX", &three, &three, &one, a, &three, b, &three), r + "4 diag");
  EXPECT_EQ(trsm("LUNN", &minus, &three, &one, a, &three, b, &three), r + "5 m");
  EXPECT_EQ(trsm("LUNN", &three, &minus, &one, a, &three, b, &three), r + "6 n");
  EXPECT_EQ(trsm("LUNN", &three, &three, nullptr, a, &three, b, &three), r + "7 alpha");
  EXPECT_EQ(trsm("LUNN", &three, &three, &one, nullptr, &three, b, &three), r + "8 a");
  EXPECT_EQ(trsm("LUNN", &three, &three, &one, a, &two, b, &three), r + "9 lda");
  EXPECT_EQ(trsm("RUNN", &three, &two, &one, a, &two, b, &two), r + "11 ldb");
  EXPECT_EQ(trsm("LUNN", &three, &three, &one, a, &three, nullptr, &three), r + "10 b");
  EXPECT_EQ(trsm("LUNN", nullptr, &three, &one, a, &three, b, &three), r + "5 m");
  EXPECT_EQ(report_of([&] { zor_blas_dsyrk("U", "X", &two, &two, &one, a, &two, &one, b, &two); }),
            "zor_blas_dsyrk 2 trans");
  EXPECT_EQ(report_of([&] { zor_blas_dsyrk("U", "T", &two, &three, &one, a, &two, &one, b, &two); }),
            "zor_blas_dsyrk 7 lda");
  EXPECT_EQ(
      report_of([&] { zor_blas_dsyr2k("U", "N", &three, &two, &one, a, &three, b, &two, &one, b, &three); }),
      "zor_blas_dsyr2k 9 ldb");
  EXPECT_EQ(
      report_of([&] { zor_blas_dsymm("L", "U", &three, &two, &one, a, &two, b, &three, &one, b, &three); }),
      "zor_blas_dsymm 7 lda");
  const zor_c64 unit{1, 0};
  zor_c64 c[4] = {};
  EXPECT_EQ(report_of([&] { zor_blas_zherk("U", "T", &two, &two, &one, c, &two, &one, c, &two); }),
            "zor_blas_zherk 2 trans");
  EXPECT_EQ(report_of([&] { zor_blas_zsyrk("U", "C", &two, &two, &unit, c, &two, &unit, c, &two); }),
            "zor_blas_zsyrk 2 trans");
  EXPECT_EQ(report_of([&] {
              zor_blas_zgemm3m("N", "N", &two, &two, &two, &unit, c, &two, c, &two, &unit, c, &minus);
            }),
            "zor_blas_zgemm3m 13 ldc");
  for (const double e : b) EXPECT_EQ(e, 2);
}

// Without a product A and B are not read.
TEST(CoreLevel3, NoProduct) {
  const zor_int two = 2;
  const double zero = 0, half = 0.5;
  double c[4] = {2, 4, 6, 8};
  zor_blas_dsymm("L", "U", &two, &two, &zero, nullptr, &two, nullptr, &two, &half, c, &two);
  zor_blas_dsyrk("L", "N", &two, &two, &zero, nullptr, &two, &half, c, &two);
  const double expected[4] = {0.5, 1, 3, 2};
  EXPECT_TRUE(same_bits(expected, c, 4));
}

}  // namespace
